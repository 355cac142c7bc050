#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "simulator/model/simulated_line.h"
#include "simulator/virtual/event_queue.h"
#include "simulator/virtual/memory_store.h"
#include "simulator/virtual/scripted_dialogs.h"
#include "simulator/virtual/virtual_serial_port.h"

namespace mvdirigo {

/// A machine in virtual time, for tests: its clock jumps from event to event, so that hours take
/// milliseconds and every run gives the same result. It starts with no lines plugged in, an empty
/// store, and no dialog expected.
class VirtualPlatform : public Platform, private EventLoop {
 public:
  VirtualPlatform();
  ~VirtualPlatform() override;
  VirtualPlatform(const VirtualPlatform&) = delete;
  VirtualPlatform& operator=(const VirtualPlatform&) = delete;

  /// Plugs a line into port 1 to 16. The line outlives the machine or is unplugged before its end.
  void attach(int comm_port, SimulatedLine& line) { socket(comm_port).plug(line); }
  /// Lets the device vanish.
  void detach(int comm_port) { socket(comm_port).unplug(); }
  /// The port itself: refusals to open, details, what was sent, bytes to deliver.
  VirtualSocket& socket(int comm_port);

  MemoryStore& store() { return store_; }
  ScriptedDialogs& script() { return dialogs_; }
  /// Lets `dialogs`, which outlive the machine, answer in place of the script.
  void answerWith(Dialogs& dialogs) { answering_ = &dialogs; }

  /// The random numbers to come, in order; after the last, and when there is none, 0.5.
  void setRandomNumbers(std::deque<double> numbers) { random_numbers_ = std::move(numbers); }

  /// Runs whenever events are about to be handled, for events that are not this machine's own.
  std::function<void()> onRunPending;

  int times_links_forgotten = 0;

  /// Handles events for `duration_ms` of virtual time.
  void runFor(std::int64_t duration_ms);
  /// Handles events until `done()` holds, for at most `limit_ms`; returns whether it holds.
  bool runUntil(const std::function<bool()>& done, std::int64_t limit_ms);
  /// Handles events until none is left. A timer left enabled or an endless stream is a problem.
  void runUntilIdle();

  [[nodiscard]] SimTime now() const { return queue_.now(); }
  /// Whether a handler on the call stack lets pending events run, and has not gone on yet.
  [[nodiscard]] bool yielding() const { return yields_ > 0; }
  EventQueue& queue() { return queue_; }

  /// What went wrong so far, dialogs that were expected and never shown included.
  [[nodiscard]] std::vector<std::string> problems() const;
  /// The same, and forgets them; for tests that provoke a problem.
  [[nodiscard]] std::vector<std::string> takeProblems();

  EventLoop& eventLoop() override { return *this; }
  SettingsStore& settingsStore() override { return store_; }
  Dialogs& dialogs() override { return *answering_; }
  std::unique_ptr<Timer> makeTimer(std::function<void()> on_tick) override;
  std::unique_ptr<SerialPort> makeSerialPort(std::function<void()> on_comm) override;
  LineTraffic& lineTraffic() override { return line_traffic_; }
  PortDetails portDetails(int comm_port) override;
  void forgetPortLinks() override { ++times_links_forgotten; }
  double random() override;
  std::string timeOfDay() override;

 private:
  void runPending() override;
  WaitResult waitUntil(const std::function<bool()>& done, const WindowLife& waiter) override;
  std::int64_t nowMs() const override;

  void runForeignEvents() const;
  /// Runs the next event if it is due until `limit`.
  bool runNextUntil(SimTime limit);
  /// Also says what is due.
  [[noreturn]] void fail(const std::string& problem);

  EventQueue queue_;
  std::vector<std::unique_ptr<VirtualSocket>> sockets_;
  MemoryStore store_;
  ScriptedDialogs dialogs_;
  Dialogs* answering_ = &dialogs_;
  int yields_ = 0;
  LineTraffic line_traffic_;
  std::deque<double> random_numbers_;
  std::vector<std::string> problems_;
};

}  // namespace mvdirigo
