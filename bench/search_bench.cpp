// Whether the automatic search finds a unit whose answer the reply time-out meets: it ticks 1 s
// into the search, while unit 9 is asked. The unit, at 9600 bit/s on a pseudo-terminal, begins its
// answer 0 to 60 ms after the query, later in each of 24 tries.
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

#include <QApplication>
#include <QListWidget>
#include <QTimer>

#include "app/program.h"
#include "support.h"

namespace mvdirigo::bench {
namespace {

using namespace std::chrono_literals;

constexpr int kTries = 24;
constexpr auto kLongestDelay = 60ms;
constexpr auto kByteTime = 1042us;  // start bit, eight data bits, stop bit at 9600 bit/s
constexpr const char* kVersion = "Movane Stepper v7.02";

struct UnitNotes {
  /// How long after a query the answer begins.
  std::atomic<std::int64_t> delay_us = 0;
};

bool listensAt9600(int line) {
  termios settings{};
  return tcgetattr(line, &settings) == 0 && cfgetospeed(&settings) == B9600;
}

/// Answers the version query of unit 9 only, each byte at its time. The query's own bytes take
/// theirs first.
void answer(int line, const UnitNotes& notes) {
  std::string command;
  for (char ch = 0; read(line, &ch, 1) == 1;) {
    std::this_thread::sleep_for(kByteTime);
    command += ch;
    if (ch != '\r') continue;
    const bool asked = command == "/9&\r" && listensAt9600(line);
    command.clear();
    if (!asked) continue;
    auto due = Clock::now() + std::chrono::microseconds(notes.delay_us);
    for (const char byte : "\xFF/0`" + std::string(kVersion) + "\x03\r\n") {
      std::this_thread::sleep_until(due += kByteTime);
      if (!writeAll(line, {&byte, 1})) return;
    }
  }
}

class Searches {
 public:
  Searches(Platform& platform, UnitNotes& notes) : notes_(notes), program_(platform, [] {}) {
    program_.start();
    // What 9600 bit/s did not find, the other rates won't either.
    QObject::connect(&find<QListWidget>(settings(), "lstBaudRate"), &QListWidget::currentRowChanged,
                     [this](int row) {
                       if (row == 1) QTimer::singleShot(0, &button(), &QPushButton::click);
                     });
  }
  ~Searches() { program_.console().close(); }

  bool findUnit(Microseconds delay) {
    notes_.delay_us = static_cast<std::int64_t>(delay.count());
    program_.console().closePort();
    button().click();
    const QString response = find<QLineEdit>(settings(), "ResponseString").text();
    if (response == kVersion) return true;
    std::printf("missed after %.1f ms: \"%s\"\n", delay.count() / 1000, qPrintable(response));
    return false;
  }

 private:
  QWidget& settings() { return program_.settings(); }
  QPushButton& button() { return find<QPushButton>(settings(), "AutoSetup"); }

  UnitNotes& notes_;
  Program program_;
};

void run(int argc, char** argv) {
  auto& notes = makeShared<UnitNotes>();
  const Line line([&notes](int far_end) { answer(far_end, notes); });
  chooseDisplay();
  QApplication application(argc, argv);
  const Desk desk(line);
  UnattendedPlatform platform;
  Searches searches(platform, notes);
  int found = 0;
  for (int i = 0; i < kTries; ++i) {
    if (searches.findUnit(Microseconds(kLongestDelay) * i / (kTries - 1))) ++found;
  }
  std::printf("found in %d of %d searches\n", found, kTries);
}

}  // namespace
}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  mvdirigo::bench::run(argc, argv);
  return 0;
}
