// How exactly a playback keeps its ticks: 200 presses, two ticks apart, as the far end of a
// pseudo-terminal hears them.
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>

#include <QApplication>

#include "app/program.h"
#include "console/command_file.h"
#include "support.h"

namespace mvdirigo::bench {
namespace {

constexpr int kPresses = 200;
constexpr int kDelayTicks = 2;
constexpr Microseconds kSpacing = std::chrono::milliseconds(50) * kDelayTicks;

struct Heard {
  std::atomic<int> count = 0;
  std::array<Stamp, kPresses> at;
};

/// Notes when each command comes, and answers it.
void listen(int line, Heard& heard) {
  while (readThrough(line, '\r')) {
    if (heard.count < kPresses) {
      heard.at.at(static_cast<std::size_t>(heard.count)).take();
      ++heard.count;
    }
    if (!writeAll(line, "\xFF/0`0\x03\r\n")) return;
  }
}

void writeRecording(const std::string& path) {
  RecordTable table;
  table.clear();
  for (int row = 0; row < kPresses; ++row) {
    table.setButton(row, Cell::ofNumber(0));
    table.setDelay(row, Cell::ofNumber(kDelayTicks));
  }
  table.setButton(kPresses, Cell::ofText(""));
  table.setDelay(kPresses, Cell::ofNumber(kDelayTicks));
  writeCommandFile(
      path, [](int) { return std::string("/1?0"); }, table);
}

void run(int argc, char** argv) {
  auto& heard = makeShared<Heard>();
  const Line line([&heard](int far_end) { listen(far_end, heard); });
  chooseDisplay();
  QApplication application(argc, argv);
  const Desk desk(line);
  UnattendedPlatform platform;
  platform.file_to_open = desk.file("recording");
  writeRecording(platform.file_to_open);

  Program program(platform, [] {});
  program.start();
  StringFun& console = program.console();
  find<QPushButton>(console, "LoadButton(5)").click();
  find<QPushButton>(console, "LoadButton(1)").click();
  const auto played = [&heard] { return heard.count == kPresses; };
  const CpuShare playing;
  // The far end tells by shared memory, so the wait looks now and then.
  auto timer = platform.makeTimer([] {});
  timer->setInterval(100);
  timer->setEnabled(true);
  static_cast<void>(platform.eventLoop().waitUntil(played, console.life()));

  Durations errors;
  for (std::size_t press = 1; press < kPresses; ++press) {
    const Microseconds spacing = heard.at.at(press).get() - heard.at.at(press - 1).get();
    errors.add(Microseconds(std::abs((spacing - kSpacing).count())));
  }
  errors.print("playback: error of a press's spacing");
  const Microseconds whole = heard.at.back().get() - heard.at.front().get();
  std::printf("drift over %d presses: %.1f us; %.2f %% of a core\n", kPresses,
              (whole - kSpacing * (kPresses - 1)).count(), playing.percent());
  console.close();
}

}  // namespace
}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  mvdirigo::bench::run(argc, argv);
  return 0;
}
