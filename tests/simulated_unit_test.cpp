#include <gtest/gtest.h>

#include "simulator/model/simulated_bus.h"
#include "simulator/model/update_image.h"

namespace mvdirigo {
namespace {

using std::chrono::milliseconds;

/// A host without a console: sends bytes to a bus and gathers what comes back.
class Host : private SimulatedBus {
 public:
  explicit Host(const std::vector<UnitOptions>& units = {{}}, const BusOptions& bus = {})
      : SimulatedBus(units, bus) {}
  using SimulatedBus::unit;

  /// What is heard until `patience` after the last byte sent.
  std::string ask(const std::string& bytes, SimTime patience = milliseconds(400)) {
    for (const char byte : bytes) {
      now_ += byteTime(baud);
      receive(byte, baud, now_);
    }
    std::string heard;
    const SimTime end = now_ + patience;
    for (auto next = nextEvent(); next && *next <= end; next = nextEvent()) {
      last_heard = *next - now_;
      heard += advance(*next, baud);
    }
    now_ = end;
    return heard;
  }

  /// The data of a DT answer, with its status character in front.
  std::string askDt(const std::string& command) {
    const std::string answer = ask(command + "\r");
    if (!answer.starts_with("\xFF/0") || !answer.ends_with("\x03\r\n")) return "not an answer";
    return answer.substr(3, answer.size() - 6);
  }

  int baud = 9600;
  SimTime last_heard{};

 private:
  SimTime now_ = std::chrono::seconds(100);
};

std::string oem(const std::string& content, char checksum) {
  return '\x02' + content + '\x03' + checksum;
}

TEST(SimulatedUnit, AnswersInDtWithStatusDataAndTheErrorCode) {
  Host host;
  EXPECT_EQ(host.ask("/1&\r"), "\xFF/0`Movane Stepper v7.02\x03\r\n");
  EXPECT_EQ(host.last_heard, 27 * byteTime(9600));
  EXPECT_EQ(host.askDt("/1!"), "`100 3A7");
  const std::pair<const char*, const char*> rows[] = {
      {"/1?12", "c"}, {"/1Q5R", "b"}, {"/1[11111", "c"},  {"/1", "`"},
      {"/1F", "`0"},  {"/1T", "`"},   {"/1/1V100R", "`"}, {"/1?2", "`100"}};
  for (const auto& [command, answer] : rows) EXPECT_EQ(host.askDt(command), answer) << command;
  EXPECT_EQ(host.ask("/2&\r"), "");
  EXPECT_EQ(host.ask("\xAA" + std::string(9, '\r')), "");
}

TEST(SimulatedUnit, IsBusyWhileItMovesAndComesToRest) {
  Host host;
  EXPECT_EQ(host.askDt("/1A1000M500D200R"), "@");
  EXPECT_EQ(host.askDt("/1?0"), "@810");  // 400 ms and 5 bytes at 2000 steps/s
  EXPECT_EQ(host.askDt("/1P5R"), "O");
  host.ask("", std::chrono::seconds(1));
  EXPECT_EQ(host.askDt("/1?0"), "`800");
  host.askDt("/1gP10M10G0R");
  EXPECT_EQ(host.askDt("/1T"), "`") << "ends a loop without end";
}

TEST(SimulatedUnit, AnswersInOemAndDoesNotExecuteARepeatTwice) {
  Host host;
  const std::string answer = oem("0@", 'q');
  EXPECT_EQ(host.ask(oem("12P100R", '1')), answer);
  EXPECT_EQ(host.ask(oem("1:P100R", '9')), answer);
  EXPECT_EQ(host.askDt("/1?0"), "`100");
  EXPECT_EQ(host.ask(oem("13P100R", '1')), "") << "a wrong checksum";
  EXPECT_EQ(host.ask("\x02lost" + oem("14P100R", '7')), answer) << "STX begins a frame anew";
  EXPECT_EQ(host.ask(oem("1=?0", '\x02')), oem("0`200", 'c')) << "a repeat of what was never heard";
}

TEST(SimulatedUnit, HearsItsOwnAddressRateAndProtocolOnly) {
  Host host({{}, {.address = '<', .protocol = UnitProtocol::kDt, .baud = 19200}});
  EXPECT_EQ(host.ask("/<&\r"), "");
  EXPECT_EQ(host.askDt("/1b19200R"), "`") << "a change of rate is answered at the old one";
  EXPECT_EQ(host.ask("/1&\r"), "");
  host.baud = 19200;
  EXPECT_EQ(host.askDt("/<?2"), "`2000");
  EXPECT_EQ(host.askDt("/1?2"), "`2000");
  EXPECT_EQ(host.ask(oem("<1?2", '\x01')), "");
}

TEST(SimulatedUnit, TakesAnUpdateUntilSilenceAndKeepsTheImage) {
  Host host({{.valid_firmware = false, .expected_image = "abcdefghijkl"}},
            {.faults = {parseFault("refuse-piece=7@2"), parseFault("late=1500@3")}});
  EXPECT_EQ(host.ask("/1T\r"), "\r?");
  EXPECT_EQ(host.ask("/1&\r"), "?\r");
  EXPECT_EQ(host.ask("/1[40617\r"), "?");
  EXPECT_EQ(host.ask("abcdef"), "\r");
  EXPECT_EQ(host.ask("/1&\rxx"), "Error 7\r");
  EXPECT_EQ(host.ask("ghijkl", milliseconds(2000)), "\r");
  EXPECT_EQ(host.last_heard, milliseconds(1500) + byteTime(9600));
  EXPECT_EQ(host.unit(0).image(), "abcdefghijkl");
  EXPECT_TRUE(host.unit(0).updating());
  host.ask("", std::chrono::seconds(2));
  EXPECT_EQ(host.askDt("/1?0"), "`0");

  host.askDt("/1b57600R");
  host.baud = 57600;
  EXPECT_EQ(host.ask("/1[40617\r", std::chrono::seconds(4)), "?");
  host.baud = 9600;
  EXPECT_EQ(host.askDt("/1?0"), "`0") << "a restart forgets the change of rate";
}

TEST(UpdateImage, IsThePayloadInWholePiecesWithoutAPieceOfTheLastByteAlone) {
  const std::pair<const char*, const char*> rows[] = {
      {"103A7a", ""},          {"103A7ab", "ab    "}, {"103A7abcdefg", "abcdef"},
      {"XYabcdefg", "defg  "}, {"603A7", "603A7 "},   {"1A", "1A    "}};
  for (const auto& [file, image] : rows) EXPECT_EQ(imageOfUpdateFile(file), image) << file;
}

TEST(LineFault, DamagesWhatIsNamedTheSameWayWithTheSameSeed) {
  const std::string good = "\xFF/0`\x03\r\n";
  const auto heard = [](const char* fault) {
    return Host({{}}, {.faults = {parseFault(fault)}}).ask("/1T\r");
  };
  EXPECT_EQ(heard("double=100"), "\xFF\xFF//00``\x03\x03\r\r\n\n");
  EXPECT_EQ(heard("drop@1"), good);
  EXPECT_EQ(heard("corrupt=50").size(), good.size());
  EXPECT_NE(heard("corrupt=50"), good);
  EXPECT_EQ(heard("corrupt=50"), heard("corrupt=50"));
}

}  // namespace
}  // namespace mvdirigo
