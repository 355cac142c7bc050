#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "support/fault_number.h"

namespace mvdirigo {
namespace {

TEST(TextToNumber, TakesDecimalTextAndRoundsHalvesToTheEvenNeighbour) {
  const std::pair<const char*, int> cases[] = {
      {" 42 ", 42}, {"-7", -7},  {"+7", 7},          {"007.25", 7},
      {".5", 0},    {"1.5", 2},  {"2.5", 2},         {"-1.5", -2},
      {"-2.5", -2}, {"2.51", 3}, {"32767.4", 32767}, {"-32768", -32768}};
  for (const auto& [text, number] : cases) EXPECT_EQ(textToInt16(text), number) << text;
  EXPECT_DOUBLE_EQ(textToNumber("25.0001"), 25.0001);
}

TEST(TextToNumber, RefusesWhatIsNoDecimalTextAndWhatTheIntegerCanNotHold) {
  const std::map<int, std::vector<std::string>> refused = {
      {13,
       {"", " ", "abc", "1a", "1 2", "1,5", "0x10", "1e3", "inf", "nan", "--1", "+-1", ".", "-",
        "1.2.3", "\t1"}},
      {6, {"32768", "32767.5", "-32769", std::string(400, '9')}}};
  for (const auto& [fault, texts] : refused) {
    for (const auto& text : texts)
      EXPECT_EQ(faultNumber([&] { return textToInt16(text); }), fault) << text;
  }
  EXPECT_EQ(textToInt32("2147483647"), 2147483647);
  EXPECT_EQ(faultNumber([] { return textToInt32("2147483648"); }), 6);
}

TEST(LineText, SpellsControlCharactersOut) {
  EXPECT_EQ(visibleControls(std::string("\xFF/0`12\x03\r\n\0\x7F\x80\x9F\xA0", 14)),
            "\u00FF/0`12\\x03\\r\\n\\x00\\x7F\\x80\\x9F\u00A0");
}

}  // namespace
}  // namespace mvdirigo
