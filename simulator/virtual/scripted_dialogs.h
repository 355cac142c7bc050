#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/dialogs.h"

namespace mvdirigo {

/// Boxes and file dialogs that a script answers, one expectation after the other. A dialog that
/// nobody expected, one that differs, and an expectation left over are problems.
class ScriptedDialogs : public Dialogs {
 public:
  using Action = std::function<void()>;

  /// Takes over a new script. There are no copies: one would be asked for nothing.
  ScriptedDialogs& operator=(ScriptedDialogs&&) = default;

  /// `while_open` runs while the dialog stands on the screen, before it is answered.
  void expectBox(std::string text, int style, BoxButton answer = BoxButton::kOk,
                 Action while_open = {});

  /// Without a path the dialog is cancelled.
  void expectOpenFile(std::optional<std::string> path, Action while_open = {});
  void expectSaveFile(std::optional<std::string> path, Action while_open = {});

  /// What the file dialogs were asked for, in order.
  [[nodiscard]] const std::vector<FileRequest>& fileRequests() const { return file_requests_; }

  /// What went wrong so far, expectations left over included.
  [[nodiscard]] std::vector<std::string> problems() const;

  BoxButton messageBox(const std::string& text, int style) override;
  [[nodiscard]] std::string openFile(const FileRequest& request) override;
  [[nodiscard]] std::string saveFile(const FileRequest& request) override;

 private:
  enum class Kind { kBox, kOpenFile, kSaveFile };
  struct Expected {
    Kind kind;
    std::string text;
    int style = box::kOkOnly;
    BoxButton button = BoxButton::kOk;
    std::optional<std::string> path;
    Action while_open;
  };

  static std::string describe(const Expected& dialog);
  /// The expectation for `shown`, when it is the next one and matches.
  std::optional<Expected> take(const Expected& shown);
  std::string answerFile(Kind kind, const FileRequest& request);

  std::deque<Expected> expected_;
  std::vector<FileRequest> file_requests_;
  std::vector<std::string> problems_;
};

}  // namespace mvdirigo
