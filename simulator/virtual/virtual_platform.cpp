#include "simulator/virtual/virtual_platform.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

#include "platform/at_exit.h"
#include "simulator/virtual/virtual_timer.h"

namespace mvdirigo {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

// Not zero, so that a time that was never set can't pass for a time.
constexpr SimTime kStart = std::chrono::hours(8);

// No wait of the console lasts longer than 20 s, nor does anything become idle later than this.
constexpr SimTime kLongestWait = std::chrono::minutes(10);

}  // namespace

VirtualPlatform::VirtualPlatform() : queue_(kStart) {
  for (int port = SerialPort::kLowestPort; port <= SerialPort::kHighestPort; ++port) {
    sockets_.push_back(std::make_unique<VirtualSocket>(queue_, port));
  }
}

VirtualPlatform::~VirtualPlatform() = default;

VirtualSocket& VirtualPlatform::socket(int comm_port) {
  return *sockets_.at(static_cast<std::size_t>(comm_port - SerialPort::kLowestPort));
}

void VirtualPlatform::runFor(std::int64_t duration_ms) {
  const SimTime end = queue_.now() + milliseconds(duration_ms);
  do runForeignEvents();
  while (runNextUntil(end));
  queue_.skipTo(end);
}

bool VirtualPlatform::runUntil(const std::function<bool()>& done, std::int64_t limit_ms) {
  const SimTime end = queue_.now() + milliseconds(limit_ms);
  do {
    runForeignEvents();
    if (done()) return true;
  } while (runNextUntil(end));
  queue_.skipTo(end);
  return done();
}

void VirtualPlatform::runUntilIdle() {
  const SimTime end = queue_.now() + kLongestWait;
  do runForeignEvents();
  while (runNextUntil(end));
  if (queue_.nextTime()) fail("events go on without an end");
}

std::vector<std::string> VirtualPlatform::problems() const {
  std::vector<std::string> all = problems_;
  for (std::string& problem : dialogs_.problems()) all.push_back(std::move(problem));
  return all;
}

std::vector<std::string> VirtualPlatform::takeProblems() {
  std::vector<std::string> all = problems();
  problems_.clear();
  dialogs_ = {};
  return all;
}

std::unique_ptr<Timer> VirtualPlatform::makeTimer(std::function<void()> on_tick) {
  return std::make_unique<VirtualTimer>(queue_, std::move(on_tick));
}

std::unique_ptr<SerialPort> VirtualPlatform::makeSerialPort(std::function<void()> on_comm) {
  return std::make_unique<VirtualSerialPort>(
      queue_, [this](int comm_port) -> VirtualSocket& { return socket(comm_port); }, line_traffic_,
      std::move(on_comm));
}

PortDetails VirtualPlatform::portDetails(int comm_port) { return socket(comm_port).details; }

double VirtualPlatform::random() {
  if (random_numbers_.empty()) return 0.5;
  const double number = random_numbers_.front();
  random_numbers_.pop_front();
  return number;
}

std::string VirtualPlatform::timeOfDay() {
  const std::chrono::hh_mm_ss time(duration_cast<std::chrono::seconds>(queue_.now()) %
                                   std::chrono::hours(24));
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d", static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return text;
}

void VirtualPlatform::runPending() {
  ++yields_;
  const AtExit over([this] { --yields_; });
  do runForeignEvents();
  while (runNextUntil(queue_.now()));
}

WaitResult VirtualPlatform::waitUntil(const std::function<bool()>& done, const WindowLife& waiter) {
  SimTime end = queue_.now() + kLongestWait;
  while (true) {
    runForeignEvents();
    if (waiter.leaving()) return WaitResult::kWindowGone;
    if (done()) return WaitResult::kDone;
    const SimTime due = queue_.nextTime().value_or(end);
    if (!runNextUntil(end)) fail("a wait that nothing ends");
    // What an event itself waits for holds this wait up, and is not part of it.
    end += queue_.now() - due;
  }
}

std::int64_t VirtualPlatform::nowMs() const {
  return duration_cast<milliseconds>(queue_.now()).count();
}

void VirtualPlatform::runForeignEvents() const {
  if (onRunPending) onRunPending();
}

bool VirtualPlatform::runNextUntil(SimTime limit) {
  const auto next = queue_.nextTime();
  if (!next || *next > limit) return false;
  queue_.runNext();
  return true;
}

void VirtualPlatform::fail(const std::string& problem) {
  problems_.push_back(problem + "; " + queue_.describe());
  throw std::logic_error(problems_.back());
}

}  // namespace mvdirigo
