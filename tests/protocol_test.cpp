#include "platform/text.h"
#include "support/window_test.h"

using namespace mvdirigo;
using namespace std::string_literals;

class ProtocolTest : public WindowTest {
 protected:
  ProtocolTest() {
    platform_.attach(1, silent_);
    start();
  }

  /// The bytes that `action` puts on the line, and the time-out of the reply.
  std::string sentBy(const std::function<void()>& action) {
    platform_.socket(1).sent.clear();
    action();
    platform_.runFor(1001);
    return platform_.socket(1).sent;
  }
  std::string sentBy(int row, const char* command = "/1A1000R") {
    commandField(row).setText(command);
    return sentBy([&] { press("SendCommand(" + std::to_string(row) + ")"); });
  }
  /// Row 3's reply and light.
  std::string shown() { return reply(3) + " (" + light(3) + ")"; }
  /// Presses row 3 and lets `bytes` come in.
  std::string replyTo(const std::string& bytes) {
    press("SendCommand(3)");
    receive(bytes);
    return shown();
  }
  static std::string oemReply(const std::string& inner) {
    std::string frame = "\x02" + inner + "\x03";
    char checksum = 0;
    for (const char c : frame) checksum = static_cast<char>(checksum ^ c);
    return frame + checksum;
  }
};

TEST_F(ProtocolTest, PutsTheWorkedExamplesOnTheLine) {
  platform_.setRandomNumbers({0.0, 0.9999999, 0.5});
  const std::pair<const char*, const char*> examples[] = {
      {"/1A1000R", "\x2F\x31\x41\x31\x30\x30\x30\x52\x0D"},
      {"/\u00B51\u20AC", "/\xB5\x31?\r"},
      {"/1ARNDRrndMRndR", "/1A1R1000000M500001R\r"},
      {"/1RDN", "/1RDN\r"},
      {"/", "/\r"}};
  for (const auto& [command, bytes] : examples) EXPECT_EQ(sentBy(0, command), bytes);

  choose("OEMProtocol");
  EXPECT_EQ(sentBy(0), "\x02\x31\x32\x41\x31\x30\x30\x30\x52\x03\x10");
  choose("DTProtocol");
  sentBy(1);
  choose("OEMProtocol");
  EXPECT_EQ(sentBy(0), "\x02\x31\x3A\x41\x31\x30\x30\x30\x52\x03\x18") << "DT is no row change";
  std::string sequence;
  for (int row = 1; row <= 7; ++row) sequence += sentBy(row)[2];
  EXPECT_EQ(sequence, "3456712");
  EXPECT_EQ(sentBy(7, "/1"), "\x02\x31\x3A\x03\x0A"s) << "a repeat with an empty body";
  EXPECT_EQ(sentBy(8, "/"), "\x02\x33\x03\x32"s);
  EXPECT_EQ(sentBy(9, "/RNDA").substr(0, 10), "\x02R400001A\x03") << "the address as it was typed";
  EXPECT_EQ(sentBy([this] { onConsole<QPushButton>("Command1").click(); }),
            "\x02\r<\r\r\r\r\r\r\r\x03=");
}

TEST_F(ProtocolTest, DecodesRepliesByTheReceiveRulesAndShowsThemInGreen) {
  const std::pair<std::string, std::string> of_dt[] = {
      {"\xFF/0@\x03\r", " No Error"},
      {"\xFF/0b12\x03\r", "12 Invalid Command"},
      {"\xFF/0o\x03\r", " Device is already executing a command"},
      {"\xFF/0n7\n\0\xB5\x03\r"s, "7\n\0\u00B5Flash CRC Error"s},
      {"garb0a12\x03\r", "0a12 Initialization Error"},
      {"\xFF/0d\r", " Error 4"},
      // No status: the last one holds.
      {"abcdefg\r", "ef Error 4"},
      {"\xFF/0`old" + std::string(BoundedText::kCapacity - 2, 'n') + "\x03\r",
       std::string(4000, 'n') + "\u2026 Error 4"}};
  for (const auto& [bytes, reply] : of_dt) {
    EXPECT_EQ(replyTo(bytes), reply + " (green)") << visibleControls(bytes.substr(0, 100));
  }
  const std::string good = oemReply("0`2000");
  std::string bad = good;
  bad.back() = static_cast<char>(bad.back() ^ 1);
  const std::pair<std::string, std::string> of_oem[] = {
      {oemReply("0b"), " Invalid Command"},
      {oemReply("0n\xFF\0\r1"s), "\u00FF\0001Flash CRC Error"s},
      {"noise\r\x03\xFF" + bad + good, "2000 No Error"},
      // A frame cut short: the parser starts the checksum over but keeps what it gathered.
      {"\x02\x30`99\x03" + good, "99\x03\x30`2000 No Error"},
      // A matching checksum of 02 starts the parser anew, and the STX after it shifts the
      // positions.
      {oemReply("0@s") + good, "0`2000 Invalid Command"}};
  choose("OEMProtocol");
  for (const auto& [bytes, reply] : of_oem) {
    EXPECT_EQ(replyTo(bytes), reply + " (green)") << visibleControls(bytes);
    replyTo("\x03\x03\x03" + oemReply("0@"));  // back to hunting, whatever the case left
  }
  EXPECT_EQ(replyTo(bad), " No Error (white)");
}

TEST_F(ProtocolTest, DecodesALateEndWithWhatCameBefore) {
  replyTo("\xFF/0`half");
  platform_.runFor(1000);
  EXPECT_EQ(reply(3), kSilent);
  receive("\x03\r");
  EXPECT_EQ(shown(), "half No Error (green)");
}
