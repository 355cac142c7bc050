#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "console/record_table.h"

namespace mvdirigo {

/// Command strings in a command file, whatever the number of visible rows.
inline constexpr int kCommandFileStrings = 25;

/// Bytes of a field in the file at the most, not counting the quotes around it and a quote's
/// double.
inline constexpr std::size_t kCommandFieldLimit = 64 * 1024;

/// Writes a command file: `string_to_send` of rows 0 to 24, then button and delay cell of the
/// table's rows 0 to 499, one field a line, UTF-8, lines ended by CR LF. Texts stand in quotes, and
/// a quote inside is doubled; numbers stand without, and a cell that was never set is an empty
/// line. Throws RuntimeError when the file can't be created, or its bytes don't all reach the disk;
/// what was written until then stays.
void writeCommandFile(const std::string& path,
                      const std::function<std::string(int row)>& string_to_send,
                      const RecordTable& table);

/// Reads a command file, handing over each string and setting each cell as its field is read, so
/// that what was read before a failure is kept. A field ends at a comma or a line end (CR LF, LF or
/// CR) outside quotes; blanks and tabs between a closing quote and that end are skipped. In a
/// quoted field two quotes stand for one, and a quote that is neither doubled nor followed by the
/// field's end stands for itself. Every cell becomes a text, whatever its field looks like. The
/// file is read as UTF-8, or as Latin-1 when its fields are not valid UTF-8. What follows the last
/// field is ignored. Throws RuntimeError when `path` is no readable regular file, has too few
/// fields, leaves a quoted field open, or has a field over `kCommandFieldLimit`; it holds no more
/// than one field at a time.
void readCommandFile(const std::string& path,
                     const std::function<void(int row, const std::string& text)>& take_string,
                     RecordTable& table);

/// What the user is told when writing or reading `path` failed.
[[nodiscard]] std::string commandFileWriteError(const std::string& path);
[[nodiscard]] std::string commandFileReadError(const std::string& path);
/// The console's title after `path` was read.
[[nodiscard]] std::string commandFileTitle(const std::string& path);

}  // namespace mvdirigo
