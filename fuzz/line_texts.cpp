#include "platform/text.h"
#include "property.h"

using namespace mvdirigo;

/// Characters of a text in UTF-8; -1 when it is none.
static long charactersIn(std::string_view utf8) {
  const auto starts_one = [](char byte) { return (byte & 0xC0) != 0x80; };
  return isUtf8(utf8) ? std::ranges::count_if(utf8, starts_one) : -1;
}

static bool isControl(char byte) { return (byte & 0x60) == 0 || byte == 0x7F; }

void mvdirigo::check(std::string_view some) {
  const std::string input = sometimesFlooding(some), text = utf8FromLatin1(input);
  const std::string start = visibleControls(input.substr(0, 300)), shown = shownReply(input);
  const long length = static_cast<long>(input.size());
  require(charactersIn(text) == length && latin1FromUtf8(text) == input, "a byte is a character");
  require(latin1FromUtf8(input).size() <= input.size(), "no text grows on the line");
  require(std::ranges::none_of(latin1FromUtf8(start), isControl), "controls are spelled out");
  require(shortVisibleText(input) == start + (length > 300 ? "…" : ""), "tips show the start");
  require(shown == utf8FromLatin1(input.substr(0, 4000)) + (length > 4000 ? "…" : ""),
          "fields show the start");
  std::string printed = printable(text);
  require(charactersIn(printed) == length, "each character is shown, or another in its place");
  std::erase(printed, '\n');
  require(std::ranges::none_of(latin1FromUtf8(printed), isControl), "no control is shown");
  if (!isUtf8(input)) return;
  std::string broken = breakLongStretches(input, "\xFF", 100), lines = broken;
  std::ranges::replace(lines, '\n', ' ');
  for (std::string_view stretches = lines; !stretches.empty();) {
    for (std::string_view words = takeUntil('\xFF', stretches); !words.empty();) {
      const long word = charactersIn(takeUntil(' ', words));
      require(word >= 0 && word <= 100, "stretches are cut between characters");
    }
  }
  std::erase(broken, '\xFF');
  require(broken == input, "nothing but breaks comes in");
}
