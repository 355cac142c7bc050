#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "protocol/transaction.h"
#include "simulator/model/simulated_bus.h"
#include "support/chosen_settings.h"
#include "support/virtual_test.h"

using namespace mvdirigo;
using namespace std::chrono_literals;
using namespace std::string_literals;

const std::string kSilent = "No Movane detected. Check connections";

/// A transaction on port 1, and the rows that it works on.
class TransactionTest : public VirtualTest, protected Transaction::Rows {
 protected:
  TransactionTest() {
    settings_.port = "1";
    platform_.attach(1, line_);
    timeOut().setInterval(1000);
  }

  std::string StringToSend(int) const override { return command_; }
  void setReceiveString(int row, const std::string& text, const Exchange& exchange) override {
    replies_[row] = text;
    last_ = exchange;
  }
  void setButtonShape(int row, LightColour colour) override {
    using enum LightColour;
    static const std::map<LightColour, std::string> kNames{
        {kWhite, " (white)"}, {kGreen, " (green)"}, {kRed, " (red)"}, {kYellow, " (yellow)"}};
    lights_[row] = kNames.at(colour);
  }
  void startButtonTimer(int row) override { told_ += "timer " + std::to_string(row) + ", "; }
  void enableSendCommands(bool on) override { enabled_ = on; }
  void lineChanged() override {}
  void recordPress(int row) override { told_ += "press " + std::to_string(row) + ", "; }
  const WindowLife& life() const override { return life_; }

  Timer& timeOut() { return transaction_.tmrReceiveTimeOut(); }
  bool portOpen() { return transaction_.link().PortOpen(); }
  /// Reply and light of `row`, and whether the next command can be sent.
  std::string shown(int row) {
    return replies_[row] + lights_[row] + (enabled_ ? "" : " disabled") +
           (timeOut().Enabled() ? " waiting" : "");
  }

  /// Bytes that `action` puts on the line.
  std::string sentBy(const std::function<void()>& action) {
    socket_.sent.clear();
    action();
    platform_.runFor(500);
    return socket_.sent;
  }
  /// The same of one press.
  std::string sentBy(int row) {
    return sentBy([&] { transaction_.SendCommand_Click(row); });
  }
  std::string sentBy(int row, const std::string& command) {
    command_ = command;
    return sentBy(row);
  }
  void receive(const std::string& bytes) {
    socket_.deliver(bytes);
    platform_.runFor(0);
  }
  /// Presses row 3 and lets `bytes` come in; "-" in what is shown then means that nothing was
  /// decoded.
  std::string replyTo(const std::string& bytes) {
    timeOut().setEnabled(false);
    sentBy(3);
    replies_[3] = "-";
    receive(bytes);
    return shown(3);
  }

  std::string command_ = "/1A1000R";
  std::map<int, std::string> replies_, lights_;
  std::string told_;
  bool enabled_ = true;
  Exchange last_;
  WindowLife life_;
  ChosenSettings settings_;
  SimulatedBus line_{{}};
  VirtualSocket& socket_ = platform_.socket(1);
  Transaction transaction_{platform_, [this]() -> LiveSettings& { return settings_; }, *this};
};

std::string oemReply(const std::string& inner) {
  std::string frame = "\x02" + inner + "\x03";
  char checksum = 0;
  for (const char c : frame) checksum = static_cast<char>(checksum ^ c);
  return frame + checksum;
}

TEST_F(TransactionTest, PutsTheWorkedExamplesOnTheLine) {
  platform_.setRandomNumbers({0.0, 0.9999999, 0.5});
  const std::pair<const char*, const char*> examples[] = {
      {"/1A1000R", "\x2F\x31\x41\x31\x30\x30\x30\x52\x0D"},
      {"/\u00B51\u20AC", "/\xB5\x31?\r"},
      {"/1ARNDRrndMRndR", "/1A1R1000000M500001R\r"},
      {"/1RDN", "/1RDN\r"},
      {"/", "/\r"}};
  for (const auto& [command, bytes] : examples) EXPECT_EQ(sentBy(0, command), bytes);
  EXPECT_EQ(sentBy([this] { transaction_.subSendToMV("RND/1ARND"); }), "RND/1ARND\r");

  settings_.oem = true;
  EXPECT_EQ(sentBy(0, "/1A1000R"), "\x02\x31\x32\x41\x31\x30\x30\x30\x52\x03\x10");
  settings_.oem = false;
  sentBy(1);
  settings_.oem = true;
  EXPECT_EQ(sentBy(0), "\x02\x31\x3A\x41\x31\x30\x30\x30\x52\x03\x18") << "DT is no row change";
  std::string sequence;
  for (int row = 1; row <= 7; ++row) sequence += sentBy(row)[2];
  EXPECT_EQ(sequence, "3456712");
  EXPECT_EQ(sentBy(7, "/1"), "\x02\x31\x3A\x03\x0A"s) << "a repeat with an empty body";
  EXPECT_EQ(sentBy(8, "/"), "\x02\x33\x03\x32"s);
  EXPECT_EQ(sentBy(9, "/RNDA").substr(0, 10), "\x02R400001A\x03") << "the address as it was typed";
  settings_.oem = false;
  EXPECT_EQ(sentBy([this] { transaction_.Command1_Click(); }), std::string(10, '\r'));
  EXPECT_TRUE(enabled_);
  settings_.oem = true;
  EXPECT_EQ(sentBy([this] { transaction_.subSendToMV("  "); }), "\x02\r<\r\r\r\r\r\r\r\x03=")
      << "the stored command again";
}

TEST_F(TransactionTest, ShowsADtReplyAndIsReadyForTheNext) {
  sentBy(3);
  EXPECT_EQ(shown(3), " (white) disabled waiting");
  receive("\xFF/0`2000\x03\r");
  EXPECT_EQ(shown(3), "2000 No Error (green)");
  EXPECT_EQ(settings_.replies, "[2000]");
  EXPECT_EQ(transaction_.DecodeSettingsResponse(), "2000");
  EXPECT_EQ(last_.elapsed_ms, 500);
  receive("\n");
  EXPECT_EQ(sentBy(4), "/1A1000R\r");
  receive("\xFF/0`1\x03\r");
  EXPECT_EQ(last_.raw, "\xFF/0`1\x03\r") << "nothing from before the command";
  EXPECT_EQ(told_, "timer 3, press 3, timer 4, press 4, ");
}

TEST_F(TransactionTest, DecodesDtRepliesByTheirFixedPositionsAndShowsThemInGreen) {
  const std::pair<std::string, std::string> cases[] = {
      {"\xFF/0@\x03\r", " No Error"},
      {"\xFF/0b12\x03\r", "12 Invalid Command"},
      {"\xFF/0o\x03\r", " Device is already executing a command"},
      {"\xFF/0n7\n\0\xB5\x03\r"s, "7\n\0\u00B5Flash CRC Error"s},
      // No leading character: data still from position 5.
      {"/0c12\x03\r", "2 Invalid Operand"},
      {"garb0a12\x03\r", "0a12 Initialization Error"},
      {"\xFF/0d\r", " Error 4"},
      // No status: the last one holds.
      {"abcdefg\r", "ef Error 4"}};
  for (const auto& [bytes, reply] : cases) {
    EXPECT_EQ(replyTo(bytes), reply + " (green)") << visibleControls(bytes);
  }
  settings_.replies.clear();
  const std::string newest = std::string(BoundedText::kCapacity - 2, 'n') + "\x03";
  EXPECT_EQ(replyTo("\xFF/0`old" + newest + "\r"),
            std::string(4000, 'n') + "\u2026 Error 4 (green)");
  EXPECT_EQ(settings_.replies, "[" + std::string(BoundedText::kCapacity - 5, 'n') + "]")
      << "of a reply without end";
}

TEST_F(TransactionTest, DecodesOemRepliesByTheReceiveRules) {
  settings_.oem = true;
  const std::string good = oemReply("0`2000");
  std::string bad = good;
  bad.back() = static_cast<char>(bad.back() ^ 1);
  for (const auto& [bytes, reply] :
       {std::pair{oemReply("0b"), " Invalid Command"s},
        {oemReply("0n\xFF\0\r1"s), "\u00FF\0001Flash CRC Error"s},
        {"noise\r\x03\xFF" + bad + good, "2000 No Error"},
        // Characters before the first "0" are kept and counted, so the positions shift.
        {oemReply("xy0`12"), "0`12 Error 9"},
        // A frame cut short: the parser starts the checksum over but keeps what it gathered.
        {"\x02\x30`99\x03" + good, "99\x03\x30`2000 No Error"},
        // A matching checksum of 02 starts the parser anew, and the STX after it shifts the
        // positions.
        {oemReply("0@s") + good, "0`2000 Invalid Command"}}) {
    EXPECT_EQ(replyTo(bytes), reply + " (green)") << visibleControls(bytes);
    replyTo("\x03\x03\x03" + oemReply("0@"));  // back to hunting, whatever the case left
  }
  EXPECT_EQ(replyTo(bad), "- (white) disabled waiting");
}

TEST_F(TransactionTest, DecodesALateEndWithWhatCameBeforeAndCutsNoAnswerOffInASearch) {
  sentBy(3);
  receive("\xFF/0`half");
  platform_.runFor(500);
  EXPECT_EQ(shown(3), kSilent + " (red)");
  receive("\x03\r");
  EXPECT_EQ(shown(3), "half No Error (green)");

  settings_.search_runs = true;
  after(1s, [this] {
    socket_.deliver("\xFF/0`half");
    socket_.refusal = Fault::kPortAlreadyOpen;
  });
  sentBy(4);
  platform_.runFor(500);
  EXPECT_EQ(shown(4), "Auto Scan in Progress. Searching for Devices on serial bus.  (yellow)");
  receive("\x03\r");
  EXPECT_EQ(shown(4), "half No Error (green)");
}

TEST_F(TransactionTest, SurvivesSettingsThatOpenNoPort) {
  platform_.socket(2).details.obstacle = "There is no such device.";
  const char* const cases[][3] = {{"x", "9600", "\"x\" is no port number from 1 to 16."},
                                  {"17", "9600", "\"17\" is no port number from 1 to 16."},
                                  {"2", "9600", "There is no such device."},
                                  {"3", "9600", "The port can't be opened."},
                                  {"1", "", "No baud rate is chosen."},
                                  {"1", "fast", "\"fast\" is no baud rate."}};
  for (const auto& [port, baud, obstacle] : cases) {
    settings_.port = port;
    settings_.baud = baud;
    transaction_.link().close();
    replies_.clear();
    sentBy(3);
    platform_.runFor(500);
    EXPECT_FALSE(portOpen()) << obstacle;
    EXPECT_EQ(shown(3), kSilent + " (red)");
    EXPECT_EQ(last_.obstacle, obstacle);
  }
  settings_.baud = "9600";
  replyTo("\xFF/0`7\x03\r");
  EXPECT_EQ(last_.obstacle, "");
}
