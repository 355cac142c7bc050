#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mvdirigo {

/// Texts of windows, files and the store are UTF-8; texts of the line are Latin-1, one byte a
/// character. A character that Latin-1 lacks becomes "?".
[[nodiscard]] std::string latin1FromUtf8(std::string_view utf8);
[[nodiscard]] bool isUtf8(std::string_view text);
[[nodiscard]] std::string utf8FromLatin1(std::string_view latin1);

/// Line bytes for people, as UTF-8: control characters as "\r", "\n" or "\x02".
[[nodiscard]] std::string visibleControls(std::string_view latin1);

/// The same for a box, a status line or a tip: of more than `most` characters the first `most` and
/// "…".
[[nodiscard]] std::string shortVisibleText(std::string_view latin1, std::size_t most = 300);

/// Data of a reply (Latin-1) as a field shows them: of more than 4,000 characters the first 4,000
/// and "…".
[[nodiscard]] std::string shownReply(std::string_view latin1);

/// `utf8` with `line_break` put after every `longest` characters of a stretch that has none, nor a
/// blank: windows break lines at blanks only, and would cut the rest.
[[nodiscard]] std::string breakLongStretches(std::string_view utf8, std::string_view line_break,
                                             int longest);

/// `utf8` without what is no character to look at: each control character but the line feed, and
/// each that would break the line or turn the direction of the text, is U+FFFD instead.
[[nodiscard]] std::string printable(std::string_view utf8);

/// The same on one line: U+FFFD stands for line feeds, too.
[[nodiscard]] std::string onOneLine(std::string_view utf8);

/// `path` as boxes and titles show it: printable, on one line, and of more than 300 characters the
/// last 300 behind "…", which the file's name is among.
[[nodiscard]] std::string shownPath(std::string_view path);

/// `text` without the blanks (code 32) at both ends.
[[nodiscard]] std::string_view trimBlanks(std::string_view text);

/// ASCII letters in lower case, all else as it stands.
[[nodiscard]] std::string lowerCase(std::string_view text);

/// Decimal text to number: an optional sign, digits with "." as the point whatever the locale,
/// blanks around it allowed. Throws `kTypeMismatch` for anything else.
double textToNumber(std::string_view text);
/// The same, rounded with halves to the even neighbour. Throws `kOverflow` outside the range.
[[nodiscard]] std::int16_t textToInt16(std::string_view text);
[[nodiscard]] std::int32_t textToInt32(std::string_view text);

}  // namespace mvdirigo
