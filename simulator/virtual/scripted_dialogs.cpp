#include "simulator/virtual/scripted_dialogs.h"

#include <utility>

#include "platform/runtime_error.h"

namespace mvdirigo {
namespace {

/// What closing a box of this style without pressing a button counts as.
BoxButton dismissal(int style) {
  switch (style & 0x0F) {
    case box::kOkCancel:
      return BoxButton::kCancel;
    case box::kYesNo:
      return BoxButton::kNo;
    default:
      return BoxButton::kOk;
  }
}

}  // namespace

void ScriptedDialogs::expectBox(std::string text, int style, BoxButton answer, Action while_open) {
  expected_.push_back({Kind::kBox, std::move(text), style, answer, {}, std::move(while_open)});
}

void ScriptedDialogs::expectOpenFile(std::optional<std::string> path, Action while_open) {
  expected_.push_back(
      {Kind::kOpenFile, {}, 0, BoxButton::kOk, std::move(path), std::move(while_open)});
}

void ScriptedDialogs::expectSaveFile(std::optional<std::string> path, Action while_open) {
  expected_.push_back(
      {Kind::kSaveFile, {}, 0, BoxButton::kOk, std::move(path), std::move(while_open)});
}

std::vector<std::string> ScriptedDialogs::problems() const {
  std::vector<std::string> all = problems_;
  for (const Expected& left_over : expected_) all.push_back("never shown: " + describe(left_over));
  return all;
}

BoxButton ScriptedDialogs::messageBox(const std::string& text, int style) {
  const auto expected = take({Kind::kBox, text, style, BoxButton::kOk, {}, {}});
  if (!expected) return dismissal(style);
  if (expected->while_open) expected->while_open();
  return expected->button;
}

std::string ScriptedDialogs::openFile(const FileRequest& request) {
  return answerFile(Kind::kOpenFile, request);
}

std::string ScriptedDialogs::saveFile(const FileRequest& request) {
  return answerFile(Kind::kSaveFile, request);
}

std::string ScriptedDialogs::answerFile(Kind kind, const FileRequest& request) {
  file_requests_.push_back(request);
  const auto expected = take({kind, {}, 0, BoxButton::kOk, {}, {}});
  if (expected && expected->while_open) expected->while_open();
  if (expected && expected->path) return *expected->path;
  if (request.cancel_is_error) throw RuntimeError(Fault::kCancelled);
  return {};
}

std::optional<ScriptedDialogs::Expected> ScriptedDialogs::take(const Expected& shown) {
  const auto matches = [&shown](const Expected& next) {
    return next.kind == shown.kind && next.text == shown.text && next.style == shown.style;
  };
  if (expected_.empty() || !matches(expected_.front())) {
    problems_.push_back("unexpected " + describe(shown) + ", expected " +
                        (expected_.empty() ? "nothing" : describe(expected_.front())));
    return std::nullopt;
  }
  Expected taken = std::move(expected_.front());
  expected_.pop_front();
  return taken;
}

std::string ScriptedDialogs::describe(const Expected& dialog) {
  switch (dialog.kind) {
    case Kind::kOpenFile:
      return "open dialog";
    case Kind::kSaveFile:
      return "save dialog";
    case Kind::kBox:
      break;
  }
  return "box \"" + dialog.text + "\" of style " + std::to_string(dialog.style);
}

}  // namespace mvdirigo
