// Long runs of the whole program, by its windows' buttons, that count what it must never lose. Each
// runs in processes of its own on pseudo-terminals of their own, and the exit code tells whether
// everything went as it must.
#include "soak.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <thread>

#include <CLI/CLI.hpp>

namespace mvdirigo::bench {
namespace {

using namespace std::chrono_literals;

constexpr int kMostProcesses = 64;
constexpr long kMostDeviations = 20;
/// Caches fill up and the heap breaks into pieces; a leak goes on.
constexpr long kRoomToGrowKib = 4 * 1024;
constexpr auto kProgressEvery = 20s;
/// No unit of any kind takes as long.
constexpr auto kHangsAfter = 300s;

struct Kind {
  const char* name;
  /// What is counted.
  const char* unit;
  const char* help;
  long count;
  int processes;
  /// How many times each unit is done.
  int times;
  void (*run)(const Share& share);
};

constexpr Kind kKinds[] = {
    {"transactions", "exchanges", "commands and their replies, so many in each protocol", 1'000'000,
     2, 2, soakTransactions},
    {"unplug", "cycles", "unplug and return of the device, in every state in turn", 1000, 12, 1,
     soakUnplug},
    {"flood", "MiB", "a reply without an end, so many MiB for each receiver", 64, 1, 3, soakFlood},
    {"playback", "hours", "endless playback, in virtual time", 24, 1, 1, soakPlayback},
    {"updates", "updates", "firmware updates of 64 KiB at full speed", 1000, 8, 1, soakUpdates},
};

long entriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

Tally* tally_of_this_process = nullptr;

/// What the toolkit complains of is a deviation, too, unless it is about the missing display.
void onToolkitMessage(QtMsgType, const QMessageLogContext&, const QString& text) {
  if (text.startsWith("This plugin does not support") || text.contains("XDG_RUNTIME_DIR")) return;
  tally_of_this_process->deviation(text.toStdString());
}

/// Runs the share in a process of its own and returns its id.
pid_t start(const Kind& kind, const Share& share) {
  std::fflush(stdout);
  const pid_t process = fork();
  require(process >= 0, "fork");
  if (process != 0) return process;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  tally_of_this_process = &share.tally;
  qInstallMessageHandler(onToolkitMessage);
  kind.run(share);
  std::fflush(stdout);
  // What the process leaves behind is the system's.
  _exit(0);
}

class Run {
 public:
  Run(const Kind& kind, long count, int processes)
      : kind_(kind), tallies_(makeShared<std::array<Tally, kMostProcesses>>()) {
    for (long first = 0, process = 0; process < processes; ++process) {
      const long share = count * (process + 1) / processes - first;
      const auto number = static_cast<int>(process);
      running_.push_back(
          start(kind, {number, first, share, tallies_.at(static_cast<std::size_t>(process))}));
      first += share;
    }
    processes_ = processes;
    expected_ = count * kind.times;
  }

  /// Returns whether everything went as it must.
  bool finish() {
    const auto start = Clock::now();
    auto progress_at = start + kProgressEvery;
    auto changed_at = start;
    for (long before = 0; !running_.empty();) {
      std::this_thread::sleep_for(50ms);
      std::erase_if(running_, [this](pid_t process) { return ended(process); });
      if (std::exchange(before, done()) != done()) changed_at = Clock::now();
      if (Clock::now() > changed_at + kHangsAfter) return hangs();
      if (Clock::now() < progress_at) continue;
      progress_at += kProgressEvery;
      std::printf("  %ld of %ld\n", done(), expected_);
      std::fflush(stdout);
    }
    report(std::chrono::duration<double>(Clock::now() - start).count());
    return !failed_ && done() == expected_ && deviations() == 0 && unfinished() == 0;
  }

 private:
  bool ended(pid_t process) {
    int status = 0;
    if (waitpid(process, &status, WNOHANG) != process) return false;
    if (status != 0) {
      std::printf("process %d ended with status %x\n", process, static_cast<unsigned>(status));
      failed_ = true;
    }
    return true;
  }
  bool hangs() {
    std::printf("%s: nothing was done for %ld s, after %ld of %ld\n", kind_.name,
                static_cast<long>(kHangsAfter.count()), done(), expected_);
    for (const pid_t process : running_) kill(process, SIGKILL);
    return false;
  }
  void report(double seconds) const {
    for (int i = 0; i < processes_; ++i) tallies_.at(static_cast<std::size_t>(i)).print(i);
    std::printf("%s: %ld of %ld %s done, %ld deviations, %.0f s, %.2f a second\n", kind_.name,
                done(), expected_, kind_.unit, deviations(), seconds,
                static_cast<double>(done()) / seconds);
  }
  long done() const { return sum(&Tally::done); }
  long deviations() const { return sum(&Tally::deviations); }
  /// Processes that were not at their end when they ended.
  std::ptrdiff_t unfinished() const {
    return std::count_if(tallies_.begin(), tallies_.begin() + processes_,
                         [](const Tally& tally) { return !tally.isFinished(); });
  }
  long sum(long (Tally::*part)() const) const {
    long all = 0;
    for (const Tally& tally : tallies_) all += (tally.*part)();
    return all;
  }

  const Kind& kind_;
  std::array<Tally, kMostProcesses>& tallies_;
  std::vector<pid_t> running_;
  int processes_ = 0;
  long expected_ = 0;
  bool failed_ = false;
};

}  // namespace

Holdings Holdings::now() {
  long size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return {resident * sysconf(_SC_PAGESIZE) / 1024, entriesOf("/proc/self/fd"),
          entriesOf("/proc/self/task")};
}

void Tally::deviation(const std::string& what) {
  std::printf("DEVIATION in process %d, after %ld: %s\n", getpid(), done(), what.c_str());
  std::fflush(stdout);
  if (++deviations_ >= kMostDeviations) _exit(1);
}

void Tally::finished() {
  after_ = Holdings::now();
  finished_ = true;
  // The toolkit's threads end when they have had nothing to do for long.
  expect(after_.descriptors <= before_.descriptors, "descriptors were left open");
  expect(after_.threads <= before_.threads, "threads were left running");
  expect(after_.resident_kib <= before_.resident_kib + kRoomToGrowKib, "memory has grown");
}

void Tally::print(int process) const {
  std::printf(
      "  process %2d: %8ld done, resident %ld -> %ld KiB, descriptors %ld -> %ld, "
      "threads %ld -> %ld%s\n",
      process, done(), before_.resident_kib, after_.resident_kib, before_.descriptors,
      after_.descriptors, before_.threads, after_.threads, isFinished() ? "" : ", NOT FINISHED");
}

}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  using namespace mvdirigo::bench;
  CLI::App app("Runs the whole program for long and counts what it must never lose.", "soak");
  std::string name;
  long count = 0;
  int processes = 0;
  std::vector<std::string> names;
  std::string kinds = "Kinds, each with its usual count:\n";
  for (const Kind& kind : kKinds) {
    names.emplace_back(kind.name);
    kinds += "  " + names.back() + " " + std::to_string(kind.count) + " " + kind.unit + ": " +
             kind.help + "\n";
  }
  app.add_option("KIND", name, "What to run")->required()->check(CLI::IsMember(names));
  app.add_option("COUNT", count, "How often; otherwise the usual count")
      ->check(CLI::PositiveNumber);
  app.add_option("--processes", processes, "How many at a time")
      ->check(CLI::Range(1, kMostProcesses));
  app.footer(kinds);
  CLI11_PARSE(app, argc, argv);

  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  const Kind& kind = *std::ranges::find(kKinds, name, &Kind::name);
  if (count == 0) count = kind.count;
  if (processes == 0) processes = kind.processes;
  // A process that has nothing to do shows nothing.
  processes = static_cast<int>(std::min<long>(processes, count));
  return Run(kind, count, processes).finish() ? EXIT_SUCCESS : EXIT_FAILURE;
}
