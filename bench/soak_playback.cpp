// An endless playback in virtual time: which row is pressed at which tick is known beforehand.
#include <array>
#include <cstdio>
#include <numeric>
#include <string>

#include "console/button_bar.h"
#include "simulator/virtual/virtual_platform.h"
#include "soak.h"
#include "soak_seat.h"

namespace mvdirigo::bench {
namespace {

constexpr int kTickMs = 50;
constexpr std::int64_t kTicksAnHour = 3'600'000 / kTickMs;
/// The ticks from each press to the next one, and from the last one to the end.
constexpr std::array kDelayTicks = {7, 11, 20, 4};
/// Ticks of one round: the end takes one, too.
constexpr int kRoundTicks = std::accumulate(kDelayTicks.begin(), kDelayTicks.end(), 1);

std::string commandOf(int row) { return "/1?" + std::to_string(row); }

template <class Control>
Control& at(const QWidget& console, const char* name, int index) {
  return find<Control>(console, (name + ('(' + std::to_string(index) + ')')).c_str());
}

void clickBar(const QWidget& console, int button) {
  at<QPushButton>(console, "LoadButton", button).click();
}

void record(VirtualPlatform& platform, const QWidget& console) {
  clickBar(console, bar::kRecord);
  for (int row = 0; const int ticks : kDelayTicks) {
    at<QLineEdit>(console, "StringToSend", row).setText(QString::fromStdString(commandOf(row)));
    at<QPushButton>(console, "SendCommand", row).click();
    platform.runFor(ticks * kTickMs);
    ++row;
  }
  clickBar(console, bar::kRecord);
}

/// What the far end must hear in a tick, counted from the start of the playback; the first presses.
std::string dueAt(std::int64_t tick) {
  std::int64_t press_tick = 0;
  for (int row = 0; const int ticks : kDelayTicks) {
    if (tick % kRoundTicks == press_tick) return commandOf(row) + '\r';
    press_tick += ticks;
    ++row;
  }
  return {};
}

}  // namespace

void soakPlayback(const Share& share) {
  int argc = 1;
  std::string name = "soak";
  char* argv[] = {name.data(), nullptr};
  const QApplication application(argc, argv);
  VirtualPlatform platform;
  platform.onRunPending = [] { QApplication::processEvents(); };
  SimulatedBus bus(std::vector<UnitOptions>(1));
  platform.attach(1, bus);
  Program program(platform, [] {});
  program.start();
  record(platform, program.console());

  // From here on the recorder's tick falls into the middle of a tick as it is counted here.
  platform.runFor(kTickMs / 2);
  clickBar(program.console(), bar::kPlayEndless);
  std::string& sent = platform.socket(1).sent;
  long presses = 0;
  for (std::int64_t tick = 0; tick < share.count * kTicksAnHour; ++tick) {
    sent.clear();
    platform.runFor(kTickMs);
    const std::string due = dueAt(tick);
    presses += !due.empty();
    if (sent != due) {
      std::string what = "in tick " + std::to_string(tick);
      what.append(" the far end heard \"").append(sent).append("\" instead of \"").append(due);
      share.tally.deviation(what + '"');
    }
    if (tick == kTicksAnHour / 2) share.tally.warmedUp();
    if (tick % kTicksAnHour == kTicksAnHour - 1) share.tally.count();
  }
  std::printf("  %ld presses\n", presses);
  share.tally.finished();
  clickBar(program.console(), bar::kPlayback);
  program.console().close();
  for (const std::string& problem : platform.problems()) share.tally.deviation(problem);
}

}  // namespace mvdirigo::bench
