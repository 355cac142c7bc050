// Round trips of a command and its reply over a pseudo-terminal, with a peer that answers at once:
// a bare loop of blocking reads and writes against the platform's port and event loop.
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <QApplication>
#include <QTemporaryDir>

#include "platform/qt/qt_platform.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr std::string_view kCommand = "/1A1000R\r";
constexpr std::string_view kReply = "/0@12345\r";
constexpr int kBlocks = 20;
constexpr int kRoundTripsABlock = 200;

/// Reads to the next carriage return; false when the line is closed.
bool readLine(int line) {
  std::array<char, 256> bytes{};
  ssize_t count = 0;
  do {
    count = read(line, bytes.data(), bytes.size());
  } while (count > 0 && bytes.at(static_cast<std::size_t>(count) - 1) != '\r');
  return count > 0;
}

/// The other end of the line: answers every carriage return until the line is closed.
[[noreturn]] void answerForEver(int line) {
  while (readLine(line)) {
    if (write(line, kReply.data(), kReply.size()) < 0) break;
  }
  _exit(0);
}

void require(bool succeeded, const char* what) {
  if (succeeded) return;
  std::perror(what);
  std::exit(1);
}

void setRaw(int line) {
  termios settings{};
  tcgetattr(line, &settings);
  cfmakeraw(&settings);
  require(tcsetattr(line, TCSANOW, &settings) == 0, "tcsetattr");
}

void exchangeBare(int line) {
  require(write(line, kCommand.data(), kCommand.size()) > 0, "write");
  require(readLine(line), "read");
}

void measure(const std::function<void()>& round_trip, std::vector<Microseconds>& durations) {
  for (int i = 0; i < kRoundTripsABlock; ++i) {
    const auto start = Clock::now();
    round_trip();
    durations.emplace_back(Clock::now() - start);
  }
}

double quantile(std::vector<Microseconds>& durations, double part) {
  const auto at = static_cast<std::ptrdiff_t>(part * static_cast<double>(durations.size()));
  std::nth_element(durations.begin(), durations.begin() + at, durations.end());
  return durations[static_cast<std::size_t>(at)].count();
}

double print(const char* name, std::vector<Microseconds>& durations) {
  const double median = quantile(durations, 0.5);
  std::printf("%-28s median %7.1f us   p99 %7.1f us\n", name, median, quantile(durations, 0.99));
  return median;
}

void measureLink(int line) {
  mvdirigo::QtPlatform platform;
  bool replied = false;
  std::unique_ptr<mvdirigo::SerialPort> port;
  port = platform.makeSerialPort([&] { replied = port->Input() == "\r"; });
  port->setRThreshold(1);
  port->setInputLen(1);
  const mvdirigo::WindowLife window;
  const auto exchange = [&] {
    replied = false;
    port->Output(std::string(kCommand));
    platform.eventLoop().waitUntil([&] { return replied; }, window);
  };

  std::vector<Microseconds> bare, through_port;
  for (int block = 0; block < kBlocks; ++block) {
    setRaw(line);
    measure([&] { exchangeBare(line); }, bare);
    port->setPortOpen(true);
    measure(exchange, through_port);
    port->setPortOpen(false);
  }
  const double bare_median = print("bare reads and writes", bare);
  const double port_median = print("port and event loop", through_port);
  std::printf("ratio %.2f\n", port_median / bare_median);
}

}  // namespace

int main(int argc, char** argv) {
  int master = -1, slave = -1;
  char name[64];
  require(openpty(&master, &slave, name, nullptr, nullptr) == 0, "openpty");
  setRaw(slave);
  const pid_t peer = fork();
  if (peer == 0) {
    close(slave);
    answerForEver(master);
  }
  close(master);

  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QTemporaryDir config;
  qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
  QApplication application(argc, argv);
  const std::filesystem::path links =
      (config.path() + '/' + QApplication::applicationName() + "/ports").toStdString();
  std::filesystem::create_directories(links);
  std::filesystem::create_symlink(name, links / "com1");

  measureLink(slave);

  close(slave);
  waitpid(peer, nullptr, 0);
  return 0;
}
