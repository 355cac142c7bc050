#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

Fault faultOf(const std::string& text, std::int16_t (*convert)(std::string_view) = textToInt16) {
  try {
    convert(text);
  } catch (const RuntimeError& error) {
    return error.fault();
  }
  ADD_FAILURE() << "'" << text << "' was taken as a number";
  return Fault::kCancelled;
}

TEST(TextToNumber, TakesDecimalTextWithBlanksAroundIt) {
  EXPECT_EQ(textToInt16(" 42 "), 42);
  EXPECT_EQ(textToInt16("-7"), -7);
  EXPECT_EQ(textToInt16("+7"), 7);
  EXPECT_EQ(textToInt16("007.25"), 7);
  EXPECT_EQ(textToInt16(".5"), 0);
  EXPECT_DOUBLE_EQ(textToNumber("25.0001"), 25.0001);
}

TEST(TextToNumber, RoundsHalvesToTheEvenNeighbour) {
  EXPECT_EQ(textToInt16("0.5"), 0);
  EXPECT_EQ(textToInt16("1.5"), 2);
  EXPECT_EQ(textToInt16("2.5"), 2);
  EXPECT_EQ(textToInt16("-1.5"), -2);
  EXPECT_EQ(textToInt16("-2.5"), -2);
  EXPECT_EQ(textToInt16("2.51"), 3);
}

TEST(TextToNumber, RefusesWhatIsNoDecimalText) {
  for (const std::string text : {"", " ", "abc", "1a", "1 2", "1,5", "0x10", "1e3", "inf", "nan",
                                 "--1", "+-1", ".", "-", "1.2.3", "\t1"}) {
    EXPECT_EQ(faultOf(text), Fault::kTypeMismatch) << text;
  }
}

TEST(TextToNumber, ReportsOverflowAtTheBoundsOfTheInteger) {
  EXPECT_EQ(textToInt16("32767"), 32767);
  EXPECT_EQ(textToInt16("-32768"), -32768);
  EXPECT_EQ(textToInt16("32767.4"), 32767);
  for (const std::string text : {"32768", "32767.5", "-32769", "99999999999999999999"}) {
    EXPECT_EQ(faultOf(text), Fault::kOverflow) << text;
  }
  EXPECT_EQ(textToInt32("2147483647"), 2147483647);
  EXPECT_THROW(textToInt32("2147483648"), RuntimeError);
  EXPECT_EQ(faultOf(std::string(400, '9')), Fault::kOverflow);
}

TEST(LineText, CarriesEveryByteBothWays) {
  std::string all;
  for (int code = 0; code < 256; ++code) all += static_cast<char>(code);
  EXPECT_EQ(latin1FromUtf8(utf8FromLatin1(all)), all);
}

TEST(LineText, MarksCharactersThatTheLineLacks) {
  EXPECT_EQ(latin1FromUtf8("/1\u20ACR\u00B5\U0001F600!"), "/1?R\xB5?!");
}

TEST(LineText, SpellsControlCharactersOut) {
  EXPECT_EQ(visibleControls(std::string("\xFF/0`12\x03\r\n\0", 10)), "\u00FF/0`12\\x03\\r\\n\\x00");
}

TEST(RuntimeError, ReportsProcedureNumberAndDescription) {
  EXPECT_EQ(errorReport("getRXBuffer", RuntimeError(Fault::kPortMustBeOpen)),
            "getRXBuffer() Error #: 8018 :: Operation valid only when the port is open");
}

}  // namespace
}  // namespace mvdirigo
