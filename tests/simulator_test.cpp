#include <gtest/gtest.h>

#include "simulator/model/simulated_bus.h"
#include "support/fault_number.h"
#include "support/port_refusals.h"
#include "support/virtual_test.h"

namespace mvdirigo {
namespace {

/// A far end that sends every byte it hears back at once.
struct Echo : SimulatedLine {
  void receive(char byte, int host_baud, SimTime) override {
    waiting += byte;
    last_baud = host_baud;
  }
  std::optional<SimTime> nextEvent() const override { return std::nullopt; }
  std::string advance(SimTime, int) override { return std::exchange(waiting, {}); }

  int last_baud = 0;
  std::string waiting;
};

class VirtualMachine : public VirtualTest {
 protected:
  VirtualMachine() {
    platform_.attach(3, echo_);
    port_->setCommPort(3);
    port_->setRThreshold(1);
    port_->setInputLen(1);
  }

  Echo echo_;
  std::string read_;
  std::unique_ptr<SerialPort> port_ = platform_.makeSerialPort([this] { read_ += port_->Input(); });
};

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

TEST_F(VirtualMachine, TellsWhatIsDueAndWhen) {
  platform_.runFor(1000);
  const auto timer = platform_.makeTimer([] {});
  timer->setInterval(250);
  timer->setEnabled(true);
  after(std::chrono::hours(1), [] {});
  port_->setPortOpen(true);
  port_->Output("a");
  platform_.socket(3).deliver("b");
  EXPECT_EQ(platform_.queue().describe(),
            "at 28801.000000000 s are due\n"
            "  +0.000000000 s OnComm COM3\n"
            "  +0.001041666 s byte leaves COM3\n"
            "  +0.250000000 s timer tick, ms: 250\n"
            "  +3600.000000000 s the test acts");
}

TEST_F(VirtualMachine, CarriesBytesAtItsBaudRate) {
  port_->setPortOpen(true);
  const SimTime start = platform_.now();
  port_->Output("abc");
  platform_.runUntil([&] { return port_->OutBufferCount() == 1; }, 1000);
  EXPECT_EQ(platform_.now(), start + 2 * byteTime(9600));
  port_->setSettings("57600,N,8,1");
  platform_.runUntilIdle();
  EXPECT_EQ(echo_.last_baud, 57600);
  EXPECT_EQ(read_, "abc");
}

TEST_F(VirtualMachine, RefusesAsARealPort) {
  expectRefusals(*port_);
  const auto other = platform_.makeSerialPort([] {});
  other->setCommPort(3);
  EXPECT_EQ(faultNumber([&] { other->setPortOpen(true); }), 8005);
  other->setCommPort(4);
  EXPECT_EQ(faultNumber([&] { other->setPortOpen(true); }), 8002);
}

}  // namespace
}  // namespace mvdirigo
