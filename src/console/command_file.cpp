#include "console/command_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr int kFields = kCommandFileStrings + 2 * RecordTable::kPresses;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void throwFileFault(int error_number) { throw RuntimeError(fileFault(error_number)); }

class File {
 public:
  /// Opens without ever waiting, as a pipe without another end would.
  File(const std::string& path, int flags)
      : descriptor_(::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666)) {
    if (descriptor_ < 0) throwFileFault(errno);
    struct stat status {};
    if (::fstat(descriptor_, &status) == 0) mode_ = status.st_mode;
  }
  ~File() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  bool isRegular() const { return S_ISREG(mode_); }
  bool isCharacterDevice() const { return S_ISCHR(mode_); }

  std::string_view readAt(off_t offset, char* buffer, std::size_t size) const {
    ssize_t count = 0;
    do count = ::pread(descriptor_, buffer, size, offset);
    while (count < 0 && errno == EINTR);
    if (count < 0) throwFileFault(errno);
    return {buffer, static_cast<std::size_t>(count)};
  }

  void write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
      if (count < 0 && errno != EINTR) throwFileFault(errno);
      if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  /// A full disk can show only when the bytes leave the system's buffers, or at the close.
  void flushAndClose() {
    const bool flushed = !isRegular() || ::fsync(descriptor_) == 0 || errno == EINVAL;
    const int flush_error = errno;
    const bool closed = ::close(std::exchange(descriptor_, -1)) == 0 || errno == EINTR;
    if (!flushed) throwFileFault(flush_error);
    if (!closed) throwFileFault(errno);
  }

 private:
  int descriptor_;
  mode_t mode_ = 0;
};

class FieldReader {
 public:
  explicit FieldReader(const File& file) : file_(file) {
    fill();
    if (unread_.starts_with(kByteOrderMark)) unread_.remove_prefix(kByteOrderMark.size());
  }

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
    unread_ = file_.readAt(offset_, buffer_.data(), buffer_.size());
    offset_ += static_cast<off_t>(unread_.size());
  }

  const File& file_;
  off_t offset_ = 0;
  std::array<char, 16 * 1024> buffer_;
  std::string_view unread_;
  bool after_comma_ = false;
};

/// Bytes of the UTF-8 character at the start of `text`, 0 when it is not valid: too short, too
/// long for its code, half of a surrogate pair, or past U+10FFFF.
std::size_t utf8CharacterSize(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  const std::size_t size = lead < 0x80   ? 1
                           : lead < 0xC2 ? 0
                           : lead < 0xE0 ? 2
                           : lead < 0xF0 ? 3
                           : lead < 0xF5 ? 4
                                         : 0;
  if (size < 2 || text.size() < size) return text.size() < size ? 0 : size;
  const unsigned lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  for (std::size_t i = 2; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return size;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = utf8CharacterSize(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

/// Whether all fields that can be read are UTF-8. Looks at no more of the file than a load does.
bool holdsUtf8(const File& file) {
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

  File file(path, O_WRONLY | O_CREAT | O_TRUNC);
  if (!file.isRegular() && !file.isCharacterDevice()) throw RuntimeError(Fault::kPathFileAccess);
  file.write(lines);
  file.flushAndClose();
}

void readCommandFile(const std::string& path,
                     const std::function<void(int row, const std::string& text)>& take_string,
                     RecordTable& table) {
  const File file(path, O_RDONLY);
  if (!file.isRegular()) throw RuntimeError(Fault::kPathFileAccess);
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

std::string commandFileWriteError(const std::string& path) { return "Error Writing File: " + path; }
std::string commandFileReadError(const std::string& path) { return "Error Reading file: " + path; }
std::string commandFileTitle(const std::string& path) { return "Current Command File: " + path; }

}  // namespace mvdirigo
