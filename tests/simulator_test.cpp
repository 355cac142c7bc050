#include <gtest/gtest.h>

#include "simulator/model/simulated_bus.h"
#include "support/port_refusals.h"
#include "support/virtual_test.h"

using namespace mvdirigo;

/// A host without a console: sends bytes to a unit and gathers what comes back.
class Host : private SimulatedBus {
 public:
  Host() : SimulatedBus(std::vector<UnitOptions>(1)) {}

  std::string ask(const std::string& bytes, SimTime patience = std::chrono::milliseconds(400)) {
    for (const char byte : bytes) receive(byte, 9600, now_ += byteTime(9600));
    return advance(now_ += patience, 9600);
  }
  /// The data of a DT answer, with its status character in front.
  std::string askDt(const std::string& command) {
    const std::string answer = ask(command + "\r");
    if (!answer.starts_with("\xFF/0") || !answer.ends_with("\x03\r\n")) return "not an answer";
    return answer.substr(3, answer.size() - 6);
  }

 private:
  SimTime now_ = std::chrono::seconds(100);
};

TEST(SimulatedUnit, AnswersWithStatusDataAndTheErrorCode) {
  Host host;
  const std::pair<const char*, const char*> rows[] = {
      {"/1!", "`100 3A7"}, {"/1?12", "c"}, {"/1Q5R", "b"},     {"/1[11111", "c"},
      {"/1", "`"},         {"/1F", "`0"},  {"/1/1V100R", "`"}, {"/1?2", "`100"}};
  for (const auto& [command, answer] : rows) EXPECT_EQ(host.askDt(command), answer) << command;
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

TEST(SimulatedUnit, DoesNotExecuteARepeatTwice) {
  Host host;
  const std::string answer = "\x02\x30@\x03q";
  EXPECT_EQ(host.ask("\x02\x31\x32P100R\x03\x31"), answer);
  EXPECT_EQ(host.ask("\x02\x31:P100R\x03\x39"), answer);
  EXPECT_EQ(host.askDt("/1?0"), "`100");
  EXPECT_EQ(host.ask("\x02lost\x02\x31\x34P100R\x03\x37"), answer) << "STX begins a frame anew";
  EXPECT_EQ(host.ask("\x02\x31=?0\x03\x02"), "\x02\x30`200\x03\x63")
      << "a repeat never heard before";
}

TEST(SimulatedUnit, AnswersAChangeOfRateAtTheOldOneAndForgetsItInAnUpdate) {
  SimulatedUnit unit({});
  const LineFaults none({}, 1);
  std::vector<int> rates;
  for (const char byte : std::string("/1b57600R\r/1[40617\r")) {
    if (const auto answer = unit.receive(byte, {}, none)) rates.push_back(answer->baud);
  }
  EXPECT_EQ(rates, (std::vector{9600, 57600}));
  unit.advance(std::chrono::seconds(10));
  EXPECT_EQ(unit.baud(), 9600);
}

using VirtualMachine = VirtualTest;

TEST_F(VirtualMachine, SaysWhereItsScriptWasLeftAndThatAWaitNeverEnds) {
  platform_.script().expectBox("Left", box::kOkOnly);
  EXPECT_EQ(platform_.dialogs().messageBox("Other", box::kOkCancel), BoxButton::kCancel);
  EXPECT_THROW(static_cast<void>(platform_.eventLoop().waitUntil([] { return false; }, {})),
               std::logic_error);
  EXPECT_EQ(platform_.takeProblems(),
            (std::vector<std::string>{
                "a wait that nothing ends; at 28800.000000000 s nothing is due",
                "unexpected box \"Other\" of style 1, expected box \"Left\" of style 0",
                "never shown: box \"Left\" of style 0"}));
}

TEST_F(VirtualMachine, RefusesAsARealPort) {
  SimulatedBus silence{{}};
  platform_.attach(3, silence);
  const auto port = platform_.makeSerialPort([] {});
  port->setCommPort(3);
  expectRefusals(*port);
}
