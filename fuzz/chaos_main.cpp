#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <new>

#include <QApplication>
#include <QEvent>

#include "chaos_walk.h"
#include "support/files.h"

using namespace mvdirigo;

/// Lets nothing be painted, which takes most of the time.
struct Blindfold : QObject {
  bool eventFilter(QObject*, QEvent* event) override {
    return event->type() == QEvent::UpdateRequest || event->type() == QEvent::Expose;
  }
};

static void endOnWarning(QtMsgType type, const QMessageLogContext&, const QString& text) {
  if (type == QtDebugMsg || text.startsWith("This plugin does not support")) return;
  std::fprintf(stderr, "the toolkit says: %s\n", qPrintable(text));
  std::abort();
}

/// Runs `body` in a process of its own, and returns the rule that it broke; none when all was well.
static std::string brokenBy(const std::function<void()>& body, Report& report) {
  report.broken_rule = "the program goes on until it is closed";
  int status = 0;
  if (const pid_t child = ::fork(); child > 0) {
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? ::strsignal(WTERMSIG(status)) : report.broken_rule;
  }
  body();
  report.broken_rule = "";
  _exit(EXIT_SUCCESS);
}

/// Leaves out what `fails` does without.
static Steps shrink(Steps steps, const std::function<bool(const Steps&)>& fails) {
  for (auto size = std::ssize(steps) / 2; size > 0; size /= 2) {
    for (auto end = std::ssize(steps); end > 0; end -= size) {
      Steps fewer = steps;
      fewer.erase(fewer.begin() + std::max<std::ptrdiff_t>(end - size, 0), fewer.begin() + end);
      if (fails(fewer)) steps = fewer;
    }
  }
  return steps;
}

int main(int argc, char** argv) {
  if (argc != 3) return std::puts("usage: chaos STEPS SEED"), EXIT_FAILURE;
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  qInstallMessageHandler(endOnWarning);
  Blindfold blindfold;
  application.installEventFilter(&blindfold);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const TemporaryFolder folder;
  std::filesystem::current_path(folder.path);
  void* shared =
      ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Report& report = *new (shared) Report{.seed = static_cast<std::uint32_t>(std::stoul(argv[2]))};

  const auto walk = [&, wanted = std::stoull(argv[1])] {
    for (; report.steps < wanted; ++report.seed) live(drawSteps(report.seed), report);
    std::printf("%ju steps", report.steps);
    for (const auto& [what, times] : tally) std::printf(", %s %ju", qPrintable(what), times);
    std::printf("\n");
  };
  const std::string rule = brokenBy(walk, report);
  if (rule.empty()) return EXIT_SUCCESS;

  std::printf("seed %u, after %ju steps: %s\n", report.seed, report.steps, rule.c_str());
  const auto fails = [&](const Steps& steps) {
    const auto live_silently = [&] {
      if (std::freopen("/dev/null", "w", stderr) != nullptr) live(steps, report);
    };
    return brokenBy(live_silently, report) == rule;
  };
  Steps steps = drawSteps(report.seed);
  if (!fails(steps)) return std::puts("It needs the lives before that one."), EXIT_FAILURE;
  steps = shrink(steps, fails);
  std::printf("%zu steps bring it about:\n", steps.size());
  report.tell = true;
  brokenBy([&] { live(steps, report); }, report);
  return EXIT_FAILURE;
}
