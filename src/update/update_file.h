#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/dialogs.h"

namespace mvdirigo {

/// What an update file says of itself, and what the controller's answers add to it.
struct ZrfHeader {
  /// The image replaces the whole firmware.
  bool FullUpdate = false;
  /// The controller has no valid firmware.
  bool ControllerFailed = false;
  /// The file starts with its payload.
  bool NoHeader = false;
  bool IsServo = false;
  /// "stepper" or "servo"; empty for a file without header.
  std::string Model;
  /// 12 bits, and the same as three upper-case hexadecimal digits.
  std::int32_t CpuId = 0;
  std::string CpuIdText;
};

/// An update file as it is told of before an update.
struct UpdateFileFacts {
  /// UTF-8.
  std::string path;
  /// Why it can't be read, and then nothing below counts; empty when nothing stands in the way.
  std::string obstacle;
  std::size_t size = 0;
  ZrfHeader header;
};

inline constexpr std::size_t kHeaderLength = 5;
/// Larger files are refused: no controller holds an image of this size.
inline constexpr std::size_t kLargestUpdateFile = 16 * 1024 * 1024;

/// The number that the hexadecimal digits at the start of `text` form, in either case; it stops at
/// the first other character, and keeps the low 32 bits.
std::int32_t hexLiteral(std::string_view text);

/// The first five bytes of `file`, with blanks for those that it lacks.
std::string headerText(std::string_view file);

/// Decides whether the five characters are a header, and decodes them if so. Bytes that are no
/// hexadecimal digits count as 0, so many a raw image is taken to carry a header: intended.
void recogniseHeader(const std::string& text, ZrfHeader& header, Dialogs& dialogs);

/// Decodes the five characters of a header. Reports a fault and returns false for it.
bool getZRFHeader(const std::string& text, ZrfHeader& header, Dialogs& dialogs);

/// Position of the payload's first byte, counted from 1.
std::size_t payloadStart(const ZrfHeader& header);

/// Looks at the start of the file. A file that can't be read is no fault.
[[nodiscard]] UpdateFileFacts inspectUpdateFile(const std::string& path, Dialogs& dialogs);

/// Reads a regular file, all of it or its first `most` bytes. Throws a fault of the file system,
/// `kPathFileAccess` for anything else than a regular file, and `kInputPastEndOfFile` when it
/// shrinks meanwhile.
std::string readStartOfFile(const std::string& path, std::size_t most);

/// Reads a whole update file. Throws like `readStartOfFile`, and `kOutOfMemory` for a file larger
/// than `kLargestUpdateFile`.
std::string readUpdateFile(const std::string& path);

}  // namespace mvdirigo
