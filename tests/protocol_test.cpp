#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "protocol/command_framing.h"
#include "protocol/reply_decoding.h"
#include "protocol/transaction.h"
#include "simulator/model/simulated_bus.h"
#include "support/chosen_settings.h"
#include "support/virtual_test.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

class Rows : public Transaction::Rows {
 public:
  std::string StringToSend(int row) override { return strings[row]; }
  void setReceiveString(int row, const std::string& text, const Exchange& exchange) override {
    replies[row] = text;
    last = exchange;
  }
  void setButtonShape(int row, LightColour colour) override {
    if (torn) throw std::runtime_error("torn");
    lights[row] = colour;
  }
  void startButtonTimer(int row) override { timers.push_back(row); }
  void enableSendCommands(bool on) override { enabled = on; }
  void recordPress(int row) override { presses.push_back(row); }
  const WindowLife& life() const override { return window_life; }

  std::map<int, std::string> strings, replies;
  std::map<int, LightColour> lights;
  std::vector<int> timers, presses;
  bool enabled = true, torn = false;
  Exchange last;
  WindowLife window_life;
};

class TransactionTest : public VirtualTest {
 protected:
  TransactionTest() {
    settings_.port = "1";
    platform_.attach(1, line_);
    transaction_.tmrReceiveTimeOut().setInterval(1000);
    for (int row = 0; row < 10; ++row) rows_.strings[row] = "/1A1000R";
  }

  /// Bytes that one press of `row` puts on the line.
  std::string sentBy(int row) {
    socket_.sent.clear();
    transaction_.SendCommand_Click(row);
    platform_.runFor(500);
    return socket_.sent;
  }

  void receive(const std::string& bytes) {
    socket_.deliver(bytes);
    platform_.runFor(0);
  }

  /// Presses row 3 and lets `bytes` come in; returns the row's reply, "-" when nothing was decoded.
  std::string replyTo(const std::string& bytes) {
    transaction_.tmrReceiveTimeOut().setEnabled(false);
    sentBy(3);
    rows_.replies[3] = "-";
    receive(bytes);
    return rows_.replies[3];
  }

  ChosenSettings settings_;
  Rows rows_;
  SimulatedBus line_{{}};
  VirtualSocket& socket_ = platform_.socket(1);
  Transaction transaction_{platform_, [this]() -> LiveSettings& { return settings_; }, rows_};
};

std::string oemReply(const std::string& inner) {
  std::string frame = "\x02" + inner + "\x03";
  char checksum = 0;
  for (const char c : frame) checksum = static_cast<char>(checksum ^ c);
  return frame + checksum;
}

TEST(CommandFraming, SubstitutesEachRandomTokenButNoneAfterOneAtTheStart) {
  std::vector<double> numbers{0.0, 0.9999999, 0.5};
  std::size_t next = 0;
  const auto random = [&] { return numbers.at(next++); };
  EXPECT_EQ(substituteRandom("/1ARNDRrndMRndR", random), "/1A1R1000000M500001R");
  EXPECT_EQ(next, 3U);
  for (const std::string untouched : {"RND/1ARND", "", "/1RN", "/1RDN"}) {
    EXPECT_EQ(substituteRandom(untouched, random), untouched);
  }
}

TEST(CommandFraming, CyclesTheOemSequenceAndMarksRepeats) {
  OemFraming framing;
  const auto frame = [&](const std::string& command, int row) {
    return framing.frame(unitAddressOf(command), command, row);
  };
  EXPECT_EQ(frame("/1A1000R", 0), "\x02\x31\x32\x41\x31\x30\x30\x30\x52\x03\x10");
  EXPECT_EQ(frame("/1A1000R", 0), "\x02\x31\x3A\x41\x31\x30\x30\x30\x52\x03\x18");
  std::string sequence;
  for (int row = 1; row <= 7; ++row) sequence += frame("/1A", row)[2];
  EXPECT_EQ(sequence, "3456712");
  EXPECT_EQ(frame("/1", 7), "\x02\x31\x3A\x03\x0A"s) << "a repeat with an empty body";
  framing.reset();
  EXPECT_EQ(frame("/1", 7), "\x02\x31\x32\x03\x02"s);
  EXPECT_EQ(frame("/", 8), "\x02\x33\x03\x32"s);
}

TEST_F(TransactionTest, PutsTheWorkedExamplesOnTheLine) {
  EXPECT_EQ(sentBy(0), "\x2F\x31\x41\x31\x30\x30\x30\x52\x0D");
  rows_.strings[0] = "/\u00B51\u20AC";
  EXPECT_EQ(sentBy(0), "/\xB5\x31?\r") << "one byte a character";
  rows_.strings[0] = "/";
  EXPECT_EQ(sentBy(0), "/\r");

  settings_.oem = true;
  rows_.strings[0] = "/1A1000R";
  EXPECT_EQ(sentBy(0), "\x02\x31\x32\x41\x31\x30\x30\x30\x52\x03\x10");
  settings_.oem = false;
  sentBy(1);
  settings_.oem = true;
  EXPECT_EQ(sentBy(0), "\x02\x31\x3A\x41\x31\x30\x30\x30\x52\x03\x18") << "DT is no row change";
  rows_.strings[2] = "/RNDA";
  EXPECT_EQ(sentBy(2).substr(0, 10), "\x02R300001A\x03") << "the address is the one that was typed";
}

TEST_F(TransactionTest, ClearsTheLineWithoutARow) {
  transaction_.Command1_Click();
  platform_.runFor(500);
  EXPECT_EQ(socket_.sent, std::string(10, '\r'));
  EXPECT_TRUE(rows_.enabled);
  settings_.oem = true;
  socket_.sent.clear();
  transaction_.subSendToMV("  ");
  platform_.runFor(100);
  EXPECT_EQ(socket_.sent, "\x02\r2\r\r\r\r\r\r\r\x03\x33") << "the stored command again";
}

TEST_F(TransactionTest, RefusesTextWithoutALeadingSlashAndChangesNothing) {
  for (const std::string text : {"", " /1&", "1&"}) {
    rows_.strings[3] = text;
    platform_.script().expectBox(
        "Please Enter Command Strings with a leading slash '/' followed by the unit address, such "
        "as '/1&'.",
        box::kOkOnly);
    EXPECT_EQ(sentBy(3), "");
  }
  EXPECT_TRUE(rows_.enabled && rows_.timers.empty() && rows_.presses.empty());
  EXPECT_FALSE(transaction_.tmrReceiveTimeOut().Enabled());
}

TEST_F(TransactionTest, ShowsADtReplyAndIsReadyForTheNext) {
  sentBy(3);
  EXPECT_FALSE(rows_.enabled);
  EXPECT_EQ(rows_.lights[3], LightColour::kWhite);
  receive("\xFF/0`2000\x03\r");
  EXPECT_EQ(rows_.replies[3], "2000 No Error");
  EXPECT_EQ(rows_.lights[3], LightColour::kGreen);
  EXPECT_TRUE(rows_.enabled);
  EXPECT_FALSE(transaction_.tmrReceiveTimeOut().Enabled());
  EXPECT_EQ(settings_.response, "2000");
  EXPECT_EQ(settings_.scan_timer_stops, 1);
  EXPECT_EQ(transaction_.DecodeSettingsResponse(), "2000");
  EXPECT_EQ(rows_.last.raw, "\xFF/0`2000\x03\r");
  EXPECT_EQ(rows_.last.elapsed_ms, 500);
  receive("\n");
  EXPECT_EQ(sentBy(4), "/1A1000R\r");
  receive("\xFF/0`1\x03\r");
  EXPECT_EQ(rows_.last.raw, "\xFF/0`1\x03\r") << "nothing from before the command";
  EXPECT_EQ(rows_.timers, (std::vector{3, 4}));
  EXPECT_EQ(rows_.presses, (std::vector{3, 4}));
}

TEST_F(TransactionTest, DecodesDtRepliesByTheirFixedPositions) {
  const struct {
    std::string bytes, reply;
  } cases[] = {
      {"\xFF/0@\x03\r", " No Error"},
      {"\xFF/0b12\x03\r", "12 Invalid Command"},
      {"\xFF/0o\x03\r", " Device is already executing a command"},
      {"\xFF/0n7\x03\r", "7Flash CRC Error"},
      {"\xFF/0`\xB5\x80\x03\r", "\u00B5\u0080 No Error"},
      {"\xFF/0`a\nb\x03\r", "a\nb No Error"},
      {"\xFF/0`a\0b\x03\r"s, "a\0b No Error"s},
      {"/0c12\x03\r", "2 Invalid Operand"},  // no leading character: data still from position 5
      {"0b123\x03\r", "3 Invalid Command"},
      {"garb0a12\x03\r", "0a12 Initialization Error"},
      {"\r", " Initialization Error"},  // no status: the last one holds
      {"abcdefg\r", "ef Initialization Error"},
      {"xyz0\r", " Initialization Error"},
      {"\xFF/0d\r", " Error 4"}};
  for (const auto& c : cases) {
    EXPECT_EQ(replyTo(c.bytes), c.reply) << visibleControls(c.bytes);
    EXPECT_EQ(rows_.lights[3], LightColour::kGreen) << "whatever the status says";
  }
}

TEST_F(TransactionTest, DecodesOemRepliesByTheReceiveRules) {
  settings_.oem = true;
  const std::string good = oemReply("0`2000");
  std::string bad = good;
  bad.back() = static_cast<char>(bad.back() ^ 1);
  const struct {
    std::string bytes, reply;
  } cases[] = {
      {good, "2000 No Error"},
      {oemReply("0@"), " No Error"},
      {oemReply("0b"), " Invalid Command"},
      {oemReply("0n7"), "7Flash CRC Error"},
      {oemReply("0`\xFF\0\r1"s), "\u00FF\0001 No Error"s},
      {"noise\r\x03\xFF" + good, "2000 No Error"},
      {bad, "-"},
      {bad + good, "2000 No Error"},
      // Characters before the first "0" are kept and counted, so the positions shift.
      {oemReply("xy0`12"), "0`12 Error 9"},
      // A frame cut short: the parser starts the checksum over but keeps what it gathered.
      {"\x02\x30`99" + good, "99\x02\x30`2000 No Error"},
      {"\x02\x30`99\x03" + good, "99\x03\x30`2000 No Error"},
      {oemReply("0`12").substr(0, 5), "-"},
      // A matching checksum of 02 starts the parser anew, and the STX after it shifts the
      // positions.
      {oemReply("0@s") + good, "0`2000 Invalid Command"},
  };
  for (const auto& c : cases) {
    replyTo("\x03\x03\x03" + oemReply("0@"));  // back to hunting, whatever the case before left
    EXPECT_EQ(replyTo(c.bytes), c.reply) << visibleControls(c.bytes);
  }
}

TEST_F(TransactionTest, ReportsASilentUnitAndResetsThePort) {
  sentBy(3);
  platform_.runFor(499);
  EXPECT_EQ(rows_.replies.count(3), 0U);
  receive("\xFF/0`half");
  platform_.runFor(1);
  EXPECT_EQ(rows_.replies[3], "No Movane detected. Check connections");
  EXPECT_EQ(rows_.lights[3], LightColour::kRed);
  EXPECT_TRUE(rows_.enabled);
  EXPECT_FALSE(transaction_.tmrReceiveTimeOut().Enabled());
  EXPECT_TRUE(transaction_.link().MSComm1().PortOpen());
  receive("\x03\r");
  EXPECT_EQ(rows_.replies[3], "half No Error") << "a late end is decoded with what came before";
  EXPECT_EQ(rows_.lights[3], LightColour::kGreen);
  EXPECT_EQ(replyTo("\xFF/0`7\x03\r"), "7 No Error");

  sentBy(4);
  receive("\xFF");
  socket_.refusal = Fault::kPortAlreadyOpen;
  platform_.runFor(500);
  EXPECT_FALSE(transaction_.link().MSComm1().PortOpen()) << "closed and not to be opened again";

  settings_.search_runs = true;
  socket_.refusal.reset();
  after(1s, [this] {
    socket_.deliver("\xFF/0`half");
    socket_.refusal = Fault::kPortAlreadyOpen;
  });
  sentBy(4);
  platform_.runFor(500);
  EXPECT_EQ(rows_.replies[4], "Auto Scan in Progress. Searching for Devices on serial bus. ");
  EXPECT_EQ(rows_.lights[4], LightColour::kYellow);
  receive("\x03\r");
  EXPECT_EQ(rows_.replies[4], "half No Error") << "a search's answer is not cut off";
}

TEST_F(TransactionTest, SurvivesSettingsThatOpenNoPort) {
  platform_.socket(2).details.obstacle = "There is no such device.";
  const struct {
    std::string port, baud, obstacle;
  } cases[] = {{"x", "9600", "\"x\" is no port number from 1 to 16."},
               {"17", "9600", "\"17\" is no port number from 1 to 16."},
               {"2", "9600", "There is no such device."},
               {"3", "9600", "The port can't be opened."},
               {"1", "", "No baud rate is chosen."},
               {"1", "fast", "\"fast\" is no baud rate."}};
  for (const auto& [port, baud, obstacle] : cases) {
    settings_.port = port;
    settings_.baud = baud;
    transaction_.link().close();
    sentBy(3);
    platform_.runFor(500);
    EXPECT_FALSE(transaction_.link().MSComm1().PortOpen()) << port << ", " << baud;
    EXPECT_EQ(rows_.replies[3], "No Movane detected. Check connections");
    EXPECT_EQ(rows_.last.obstacle, obstacle);
    EXPECT_TRUE(rows_.enabled);
    rows_.replies.clear();
  }
  settings_.baud = "9600";
  replyTo("\xFF/0`7\x03\r");
  EXPECT_EQ(rows_.last.obstacle, "");
}

TEST_F(TransactionTest, ReportsAVanishedDeviceAndReopensItWhenItIsBack) {
  sentBy(3);
  platform_.detach(1);
  platform_.runFor(0);
  EXPECT_EQ(rows_.replies[3], "Communications Error, no Movane found");
  platform_.runFor(500);
  EXPECT_EQ(rows_.replies[3], "No Movane detected. Check connections");
  EXPECT_FALSE(transaction_.link().MSComm1().PortOpen());
  platform_.attach(1, line_);
  EXPECT_EQ(replyTo("\xFF/0`7\x03\r"), "7 No Error");
}

TEST_F(TransactionTest, ReportsAFaultOfAnyKindAtItsHandlersEdge) {
  sentBy(3);
  rows_.torn = true;
  platform_.script().expectBox("tmrReceiveTimeOut_Timer() Error #: 0 :: torn", box::kOkOnly);
  platform_.runFor(500);
  receive("\xFF/0`7\x03\r");
  EXPECT_EQ(rows_.replies[3], "Communications Error, no Movane found");
}

TEST_F(TransactionTest, KeepsTheNewestOfAReplyWithoutEnd) {
  const std::string newest = std::string(BoundedText::kCapacity - 2, 'n') + "\x03";
  const std::string shown = replyTo("\xFF/0`old" + newest + "\r");
  EXPECT_EQ(shown, std::string(4000, 'n') + "\u2026 No Error") << "what a person can read";
  EXPECT_EQ(settings_.response, std::string(BoundedText::kCapacity - 5, 'n'));
}

TEST_F(TransactionTest, SendsNothingForAWindowThatLeavesDuringThePress) {
  after(SimTime(0), [this] { rows_.window_life.leave(); });
  EXPECT_EQ(sentBy(3), "");
  EXPECT_FALSE(transaction_.link().MSComm1().PortOpen());
  EXPECT_FALSE(transaction_.tmrReceiveTimeOut().Enabled());
}

}  // namespace
}  // namespace mvdirigo
