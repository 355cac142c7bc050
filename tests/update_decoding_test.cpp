// What an update reads out of its file and out of the unit's answers.
#include <gtest/gtest.h>

#include "platform/runtime_error.h"
#include "simulator/virtual/scripted_dialogs.h"
#include "update/controller_version.h"
#include "update/flash_reply.h"
#include "update/update_file.h"

namespace mvdirigo {
namespace {

TEST(UpdateFile, RecognisesAndDecodesItsHeader) {
  const std::pair<std::string, std::string> cases[] = {
      {"103A7", "full 3A7 = 935 stepper from 6"},
      {"00A70", "partial A70 = 2672 stepper from 6"},
      {"5010f", "full 10F = 271 stepper from 6"},
      {"XYABC", "partial 000 = 0 stepper from 6"},
      {"10 A7", "partial 010 = 16 stepper from 6"},  // The number stops at the blank.
      {"\xFF\xD8\x01\x02\x03", "partial 000 = 0 stepper from 6"},
      {"603A7", "partial  = 0  from 1"},
      {"a03A7", "partial  = 0  from 1"},
      {"03A70", "partial  = 0  from 1"}};
  ScriptedDialogs dialogs;
  for (const auto& [text, expected] : cases) {
    ZrfHeader header;
    header.Model = "left over";
    recogniseHeader(text, header, dialogs);
    EXPECT_EQ((header.FullUpdate ? "full " : "partial ") + header.CpuIdText + " = " +
                  std::to_string(header.CpuId) + " " + header.Model +
                  (header.IsServo ? " servo" : "") + " from " +
                  std::to_string(payloadStart(header)),
              expected)
        << text;
  }
}

TEST(ControllerVersion, IsTheFirstWordWithVAndPointAndTellsWhetherTheUnitKnowsItsCpuId) {
  EXPECT_EQ(ExtractVersion("/0`Movane Servo  V7.02 v8.00\r"), "V7.02");
  EXPECT_EQ(ExtractVersion("v7 2.0 Rev1.5"), "Rev1.5");
  using enum CpuIdQuery;
  const std::pair<const char*, CpuIdQuery> cases[] = {
      {"v7.02", kAnswered},     {"v8.00", kAnswered},    {"v6.10", kAnswered},
      {"v10.23", kAnswered},    {"v7.2", kAnswered},     {"v7.01", kNotAnswered},
      {"v7.00", kNotAnswered},  {"v5.01", kNotAnswered}, {"v7.0\x03\r", kNotAnswered},
      {"v07.01", kNotAnswered}, {"v7.0b", kNotAnswered}, {"v123.4", kUnknown},
      {"v.02", kUnknown},       {".v", kUnknown}};
  for (const auto& [word, answer] : cases) EXPECT_EQ(cpuIdQueryOf(word), answer) << word;
  for (const char* word : {"v7.", "v7.x", "ab.1", "vx1.0"}) {
    EXPECT_THROW(cpuIdQueryOf(word), RuntimeError) << word;
  }
}

TEST(FlashReply, FindsANumberTwoPlacesBehindAZero) {
  const std::pair<std::string, bool> cases[] = {
      {"/0`123\r", true},  {"/0@103A7\r", true}, {"/0`12\r", false}, {"/0`3A7\r", false},
      {"/1`123\r", false}, {"0\r12", true},      {"\r/0`456", true}, {"/0`45", false}};
  for (const auto& [text, found] : cases) {
    FlashReply reply;
    reply.WantNumeric = true;
    for (const char c : text) {
      reply.ReplyDone |= c == '\r';
      reply.append(c);
    }
    EXPECT_EQ(reply.NumericSeen, found) << text;
    EXPECT_EQ(reply.WantNumeric, !found) << text;
  }
}

TEST(FlashReply, KeepsTheNewestOfAReplyWithoutEndAndFindsANumberInIt) {
  FlashReply reply;
  reply.WantNumeric = reply.ReplyDone = true;
  for (int i = 0; i < 100000; ++i) reply.append(i % 3 == 0 ? '0' : 'x');
  for (const char c : std::string("//0`  7")) reply.append(c);
  EXPECT_TRUE(reply.UpdateRxBuffer().ends_with("0xx0//0`  7"));
  EXPECT_EQ(reply.UpdateRxBuffer().size(), BoundedText::kCapacity);
  EXPECT_TRUE(reply.NumericSeen);
}

}  // namespace
}  // namespace mvdirigo
