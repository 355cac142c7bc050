#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/runtime_error.h"
#include "simulator/simulated_bus.h"
#include "support/virtual_test.h"

namespace mvdirigo {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// A far end that sends every byte it hears back at once.
class Echo : public SimulatedLine {
 public:
  void receive(char byte, int host_baud, SimTime now) override {
    heard.push_back({byte, host_baud, now});
    waiting_ += byte;
  }
  std::optional<SimTime> nextEvent() const override { return std::nullopt; }
  std::string advance(SimTime, int) override { return std::exchange(waiting_, {}); }

  struct Heard {
    char byte;
    int baud;
    SimTime when;
  };
  std::vector<Heard> heard;

 private:
  std::string waiting_;
};

template <class Action>
int faultNumber(Action&& action) {
  try {
    action();
  } catch (const RuntimeError& error) {
    return error.number();
  }
  return 0;
}

class VirtualMachine : public VirtualTest {
 protected:
  EventLoop& loop_ = platform_.eventLoop();
  WindowLife life_;
};

TEST_F(VirtualMachine, RunsEventsInOrderOfTimeAndThenOfArrival) {
  std::string order;
  const auto note = [&order](char c) { return [&order, c] { order += c; }; };
  EventQueue& queue = platform_.queue();
  const SimTime start = queue.now();
  EXPECT_GT(start.count(), 0);
  queue.post(start + milliseconds(2), note('c'));
  queue.post(start + milliseconds(1), note('a'));
  queue.post(start + milliseconds(1), [&] {
    order += 'b';
    queue.post(start, note('!'));
  });
  const auto cancelled = queue.post(start + milliseconds(1), note('x'));
  queue.cancel(cancelled);
  platform_.runFor(2);
  EXPECT_EQ(order, "ab!c");
  EXPECT_EQ(platform_.now(), start + milliseconds(2));
}

TEST_F(VirtualMachine, TimersKeepTheCountdownRules) {
  std::vector<std::int64_t> ticks;
  const std::int64_t start = loop_.nowMs();
  const auto timer = platform_.makeTimer([&] { ticks.push_back(loop_.nowMs() - start); });
  timer->setEnabled(true);  // with interval 0 it never ticks
  platform_.runFor(50);
  timer->setInterval(100);  // 50: counts afresh
  platform_.runFor(60);
  timer->setEnabled(true);  // 110: enabled already, the countdown runs on
  timer->setInterval(100);
  platform_.runFor(100);   // ticks at 150
  timer->setInterval(30);  // 210: afresh, ticks at 240
  platform_.runFor(30);
  timer->setEnabled(false);
  platform_.runFor(1000);
  EXPECT_EQ(ticks, (std::vector<std::int64_t>{150, 240}));
  timer->setInterval(-5);
  timer->setEnabled(true);
  platform_.runFor(1000);
  EXPECT_EQ(ticks.size(), 2U);
}

TEST_F(VirtualMachine, ATickThatWaitsIsNotEnteredAgainAndTheNextStandsOnTheGrid) {
  std::vector<std::int64_t> ticks;
  const std::int64_t start = loop_.nowMs();
  const auto timer = platform_.makeTimer([&] {
    ticks.push_back(loop_.nowMs() - start);
    platform_.runFor(25);
  });
  timer->setInterval(10);
  timer->setEnabled(true);
  platform_.runUntil([&] { return ticks.size() == 2; }, 100);
  EXPECT_EQ(ticks, (std::vector<std::int64_t>{10, 40}));
}

TEST_F(VirtualMachine, ATimerMayBeDestroyedByItsOwnTickAndNeverTicksAfterwards) {
  int ticks = 0;
  std::unique_ptr<Timer> timer = platform_.makeTimer([&] {
    ++ticks;
    timer.reset();
  });
  timer->setInterval(1);
  timer->setEnabled(true);
  platform_.runUntilIdle();
  EXPECT_EQ(ticks, 1);
}

TEST_F(VirtualMachine, AWaitEndsAtItsConditionOrWithItsWindowOrIsAProblem) {
  bool rang = false;
  platform_.queue().post(platform_.now() + milliseconds(5), [&] { rang = true; });
  EXPECT_EQ(loop_.waitUntil([&] { return rang; }, life_), WaitResult::kDone);
  EXPECT_THROW(loop_.waitUntil([] { return false; }, life_), std::logic_error);
  bool foreign = false;
  platform_.onRunPending = [&] { foreign = true; };
  EXPECT_EQ(loop_.waitUntil([&] { return foreign; }, life_), WaitResult::kDone);
  platform_.queue().post(platform_.now(), [&] { life_.leave(); });
  EXPECT_EQ(loop_.waitUntil([] { return false; }, life_), WaitResult::kWindowGone);
  EXPECT_EQ(platform_.takeProblems(), std::vector<std::string>{"a wait that nothing ends"});
}

TEST_F(VirtualMachine, DialogsFollowTheirScriptAndSayWhereItWasLeft) {
  ScriptedDialogs& script = platform_.script();
  Dialogs& dialogs = platform_.dialogs();
  bool opened = false;
  script.expectBox("Go?", box::kYesNo, BoxButton::kYes, [&] { opened = true; });
  script.expectOpenFile("/tmp/a.zrf");
  script.expectSaveFile(std::nullopt);
  EXPECT_EQ(dialogs.messageBox("Go?", box::kYesNo), BoxButton::kYes);
  EXPECT_TRUE(opened);
  FileRequest request;
  request.title = "Load";
  request.cancel_is_error = true;
  EXPECT_EQ(dialogs.openFile(request), "/tmp/a.zrf");
  EXPECT_EQ(faultNumber([&] { dialogs.saveFile(request); }), 32755);
  EXPECT_EQ(script.fileRequests().at(0).title, "Load");
  EXPECT_TRUE(platform_.problems().empty());

  script.expectBox("Left", box::kOkOnly);
  EXPECT_EQ(dialogs.messageBox("Other", box::kOkCancel), BoxButton::kCancel);
  EXPECT_EQ(platform_.takeProblems(),
            (std::vector<std::string>{
                "unexpected box \"Other\" of style 1 titled \"\", expected box \"Left\" of style 0",
                "never shown: box \"Left\" of style 0"}));
}

class VirtualLine : public VirtualMachine {
 protected:
  VirtualLine() {
    platform_.attach(3, echo_);
    port_->setCommPort(3);
    port_->setRThreshold(1);
    port_->setInputLen(1);
  }

  Echo echo_;
  std::string read_;
  std::function<void()> on_comm_ = [this] { read_ += port_->Input(); };
  std::unique_ptr<SerialPort> port_ = platform_.makeSerialPort([this] { on_comm_(); });
};

TEST_F(VirtualLine, CarriesBytesAtItsBaudRate) {
  port_->setSettings("9600");
  port_->setPortOpen(true);
  const SimTime start = platform_.now();
  port_->Output("abc");
  EXPECT_EQ(port_->OutBufferCount(), 3);
  loop_.waitUntil([&] { return port_->OutBufferCount() == 1; }, life_);
  EXPECT_EQ(platform_.now(), start + 2 * byteTime(9600));
  port_->setSettings("57600,N,8,1");
  platform_.runUntilIdle();
  ASSERT_EQ(echo_.heard.size(), 3U);
  EXPECT_EQ(echo_.heard[2].byte, 'c');
  EXPECT_EQ(echo_.heard[2].baud, 57600);
  EXPECT_EQ(platform_.socket(3).sent, "abc");
  EXPECT_EQ(read_, "abc");
}

TEST_F(VirtualLine, GivesOneEventACharacterAlsoWhileAHandlerWaits) {
  port_->setPortOpen(true);
  int depth = 0;
  int deepest = 0;
  on_comm_ = [&] {
    deepest = std::max(deepest, ++depth);
    read_ += port_->Input();
    if (depth < 3) loop_.waitUntil([&] { return read_.size() >= 3; }, life_);
    --depth;
  };
  platform_.socket(3).deliver("xyz");
  EXPECT_EQ(read_, "");
  platform_.eventLoop().runPending();
  EXPECT_EQ(read_, "xyz");
  EXPECT_EQ(deepest, 3);
}

TEST_F(VirtualLine, RefusesWithTheNumbersOfTheContract) {
  EXPECT_EQ(faultNumber([&] { port_->setCommPort(17); }), 8002);
  EXPECT_EQ(faultNumber([&] { port_->setPortOpen(false); }), 8012);
  EXPECT_EQ(faultNumber([&] { port_->Output("x"); }), 8018);
  EXPECT_EQ(faultNumber([&] { port_->Input(); }), 8018);
  for (const std::string settings : {"", "fast", "0", "9600,", "9600,X,8,1", "9600,N,8,1,1"}) {
    EXPECT_EQ(faultNumber([&] { port_->setSettings(settings); }), 380) << settings;
  }
  port_->setPortOpen(true);
  EXPECT_EQ(faultNumber([&] { port_->setCommPort(3); }), 8000);
  EXPECT_EQ(faultNumber([&] { port_->setPortOpen(true); }), 8005);
  const auto other = platform_.makeSerialPort([] {});
  other->setCommPort(3);
  EXPECT_EQ(faultNumber([&] { other->setPortOpen(true); }), 8005);
  other->setCommPort(4);
  EXPECT_EQ(faultNumber([&] { other->setPortOpen(true); }), 8002);
  port_->setPortOpen(false);
  platform_.socket(3).refusal = Fault::kPermissionDenied;
  EXPECT_EQ(faultNumber([&] { port_->setPortOpen(true); }), 70);
}

TEST_F(VirtualLine, AVanishedDeviceIsReportedOnceAfterTheLastCharacter) {
  port_->setPortOpen(true);
  std::vector<int> faults;
  on_comm_ = [&] { faults.push_back(faultNumber([&] { read_ += port_->Input(); })); };
  port_->Output("lost");
  platform_.socket(3).deliver("ok");
  platform_.detach(3);
  EXPECT_EQ(faultNumber([&] { port_->Output("x"); }), 57);
  EXPECT_TRUE(port_->PortOpen());
  platform_.runUntilIdle();
  EXPECT_EQ(read_, "ok");
  EXPECT_EQ(faults, (std::vector<int>{0, 0, 57}));
  EXPECT_FALSE(port_->PortOpen());
  EXPECT_EQ(faultNumber([&] { port_->Input(); }), 8018);
  EXPECT_EQ(faultNumber([&] { port_->setPortOpen(true); }), 8002);

  platform_.attach(3, echo_);
  port_->setPortOpen(true);
  port_->Output("back");
  platform_.runUntilIdle();
  EXPECT_EQ(read_, "okback");

  platform_.detach(3);
  port_->setPortOpen(false);
  faults.clear();
  platform_.runUntilIdle();
  EXPECT_TRUE(faults.empty()) << "who closed it knows";
}

TEST_F(VirtualLine, WhatAnAdapterGatheredStandsInTheBufferTogether) {
  UnitOptions broken;
  broken.valid_firmware = false;
  BusOptions options;
  options.gather_interval = milliseconds(16);
  SimulatedBus bus({broken}, options);
  platform_.attach(4, bus);
  port_->setCommPort(4);
  port_->setPortOpen(true);
  port_->Output("/1T\r");
  loop_.waitUntil([&] { return read_ == "\r"; }, life_);
  EXPECT_EQ(platform_.now() % milliseconds(16), SimTime(0));
  EXPECT_EQ(port_->Input(), "?");
  platform_.runFor(1000);
  EXPECT_EQ(read_, "\r") << "no event for a character that was taken already";
  platform_.detach(4);
}

TEST_F(VirtualLine, NothingOfAnOpeningIsLeftAfterItsClosing) {
  port_->setPortOpen(true);
  platform_.socket(3).deliver("old");
  port_->Output("unsent");
  port_->setPortOpen(false);
  port_->setPortOpen(true);
  EXPECT_EQ(port_->InBufferCount(), 0);
  EXPECT_EQ(port_->OutBufferCount(), 0);
  platform_.socket(3).deliver("new");
  platform_.runUntilIdle();
  EXPECT_EQ(read_, "new");
  EXPECT_TRUE(echo_.heard.empty());
}

}  // namespace
}  // namespace mvdirigo
