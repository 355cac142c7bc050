#include "console/command_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/descriptor.h"
#include "platform/input_file.h"
#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr int kFields = kCommandFileStrings + 2 * RecordTable::kPresses;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void throwFileFault(int error_number) { throw RuntimeError(fileFault(error_number)); }

class OutputFile {
 public:
  /// Creates or empties the file, without ever waiting, not even for a pipe's other end.
  explicit OutputFile(const std::string& path)
      : descriptor_(::open(
            path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666)) {
    if (!descriptor_.isOpen()) throwFileFault(errno);
    struct stat status {};
    ::fstat(descriptor_.number(), &status);
    regular_ = S_ISREG(status.st_mode);
    if (!regular_ && !S_ISCHR(status.st_mode)) throw RuntimeError(Fault::kPathFileAccess);
  }

  void write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::write(descriptor_.number(), bytes.data(), bytes.size());
      if (count < 0 && errno != EINTR) throwFileFault(errno);
      if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  /// A full disk can show only when the bytes leave the system's buffers, or at the close.
  void flushAndClose() {
    if (regular_ && !reachedDisk(descriptor_.number())) throwFileFault(errno);
    if (descriptor_.close() != 0 && errno != EINTR) throwFileFault(errno);
  }

 private:
  Descriptor descriptor_;
  bool regular_ = false;
};

class FieldReader {
 public:
  explicit FieldReader(const InputFile& file) : file_(file) {
    fill();
    if (unread_.starts_with(kByteOrderMark)) unread_.remove_prefix(kByteOrderMark.size());
  }
  /// A copy would read from the buffer of this one.
  FieldReader(const FieldReader&) = delete;
  FieldReader& operator=(const FieldReader&) = delete;

  std::string next() {
    if (peek() == kEnd && !after_comma_) throw RuntimeError(Fault::kInputPastEndOfFile);
    std::string field;
    if (peek() == '"') {
      take();
      readQuoted(field);
    } else {
      while (!endsField(peek())) append(field, take());
    }
    const int end = take();
    after_comma_ = end == ',';
    if (end == '\r' && peek() == '\n') take();
    return field;
  }

 private:
  static constexpr int kEnd = -1;

  static bool endsField(int ch) { return ch == ',' || ch == '\r' || ch == '\n' || ch == kEnd; }

  static void append(std::string& text, int ch) {
    if (text.size() == kCommandFieldLimit) throw RuntimeError(Fault::kOverflow);
    text += static_cast<char>(ch);
  }

  void readQuoted(std::string& text) {
    for (;;) {
      const int ch = take();
      if (ch == kEnd) throw RuntimeError(Fault::kInputPastEndOfFile);
      if (ch != '"') {
        append(text, ch);
      } else if (peek() == '"') {
        append(text, take());
      } else {
        std::string gap;
        while (peek() == ' ' || peek() == '\t') append(gap, take());
        if (endsField(peek())) return;
        append(text, ch);
        for (const char blank : gap) append(text, blank);
      }
    }
  }

  int peek() {
    if (unread_.empty()) fill();
    return unread_.empty() ? kEnd : static_cast<unsigned char>(unread_.front());
  }

  int take() {
    const int ch = peek();
    if (ch != kEnd) unread_.remove_prefix(1);
    return ch;
  }

  void fill() {
    unread_ = std::string_view(buffer_.data(), file_.readAt(offset_, buffer_));
    offset_ += static_cast<std::int64_t>(unread_.size());
  }

  const InputFile& file_;
  std::int64_t offset_ = 0;
  std::array<char, 16 * 1024> buffer_;
  std::string_view unread_;
  bool after_comma_ = false;
};

/// Whether all fields that can be read are UTF-8. Looks at no more of the file than a load does.
bool holdsUtf8(const InputFile& file) {
  bool utf8 = true;
  skipOnError([&] {
    FieldReader fields(file);
    for (int i = 0; i < kFields && utf8; ++i) utf8 = isUtf8(fields.next());
  });
  return utf8;
}

void appendLine(std::string& lines, std::string_view text, bool quoted) {
  if (quoted) {
    lines += '"';
    for (const char ch : text) lines.append(ch == '"' ? 2 : 1, ch);
    lines += '"';
  } else {
    lines += text;
  }
  lines += "\r\n";
}

void appendLine(std::string& lines, const Cell& cell) {
  appendLine(lines, cell.text(), cell.quoted());
}

}  // namespace

void writeCommandFile(const std::string& path,
                      const std::function<std::string(int row)>& string_to_send,
                      const RecordTable& table) {
  std::string lines;
  for (int row = 0; row < kCommandFileStrings; ++row) appendLine(lines, string_to_send(row), true);
  for (int row = 0; row < RecordTable::kPresses; ++row) {
    appendLine(lines, table.button(row));
    appendLine(lines, table.delay(row));
  }

  OutputFile file(path);
  file.write(lines);
  file.flushAndClose();
}

void readCommandFile(const std::string& path,
                     const std::function<void(int row, const std::string& text)>& take_string,
                     RecordTable& table) {
  const InputFile file(path);
  const bool utf8 = holdsUtf8(file);
  FieldReader fields(file);
  const auto next = [&] {
    std::string field = fields.next();
    return utf8 ? field : utf8FromLatin1(field);
  };
  const auto nextCell = [&] { return Cell::ofText(next()); };
  for (int row = 0; row < kCommandFileStrings; ++row) take_string(row, next());
  for (int row = 0; row < RecordTable::kPresses; ++row) {
    table.setButton(row, nextCell());
    table.setDelay(row, nextCell());
  }
}

std::string commandFileWriteError(const std::string& path) {
  return "Error Writing File: " + shownPath(path);
}
std::string commandFileReadError(const std::string& path) {
  return "Error Reading file: " + shownPath(path);
}
std::string commandFileTitle(const std::string& path) {
  return "Current Command File: " + shownPath(path);
}

}  // namespace mvdirigo
