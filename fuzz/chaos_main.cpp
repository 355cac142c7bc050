#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <new>

#include <QApplication>
#include <QEvent>

#include "chaos_walk.h"
#include "core/stored_settings.h"
#include "support/files.h"

using namespace mvdirigo;

namespace {

constexpr unsigned kLongestLifeS = 20;

/// Lets nothing be painted, which takes most of the time.
struct Blindfold : QObject {
  bool eventFilter(QObject*, QEvent* event) override {
    return event->type() == QEvent::UpdateRequest || event->type() == QEvent::Expose;
  }
};

void endOnWarning(QtMsgType type, const QMessageLogContext&, const QString& text) {
  if (type == QtDebugMsg || text.startsWith("This plugin does not support")) return;
  std::fprintf(stderr, "the toolkit says: %s\n", qPrintable(text));
  std::abort();
}

/// Runs `body` in a process of its own, and returns how that ended: 0 when all was well.
int inChild(const std::function<void()>& body) {
  std::fflush(stdout);
  int status = 0;
  if (const pid_t child = ::fork(); child > 0) {
    ::waitpid(child, &status, 0);
    return status;
  }
  body();
  std::fflush(stdout);
  _exit(EXIT_SUCCESS);
}

std::string ruleOf(int status, const Report& report) {
  if (report.failure[0] != 0) return {report.failure, std::strcspn(report.failure, ":")};
  return WIFSIGNALED(status) ? ::strsignal(WTERMSIG(status)) : "the process ended itself";
}

/// Leaves out what `fails` does without.
Steps shrink(Steps steps, const std::function<bool(const Steps&)>& fails) {
  for (auto size = std::ssize(steps) / 2; size > 0;) {
    bool shrunk = false;
    for (std::ptrdiff_t at = 0; at < std::ssize(steps);) {
      Steps fewer = steps;
      fewer.erase(fewer.begin() + at, fewer.begin() + std::min(at + size, std::ssize(steps)));
      const bool needless = fails(fewer);
      shrunk |= needless;
      if (needless) {
        steps = fewer;
      } else {
        at += size;
      }
    }
    if (size > 1 || !shrunk) size /= 2;
  }
  return steps;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::puts("usage: chaos STEPS SEED"), EXIT_FAILURE;
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  QApplication::setApplicationName(kApplicationName);
  QApplication::setQuitOnLastWindowClosed(false);
  qInstallMessageHandler(endOnWarning);
  Blindfold blindfold;
  application.installEventFilter(&blindfold);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const TemporaryFolder folder;
  void* shared =
      ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Report& report = *new (shared) Report;
  const auto live_on = [&](const Steps& steps, bool tell) {
    ::alarm(kLongestLifeS);
    live(steps, folder.path.string() + "/", report, tell);
  };

  report.seed = static_cast<std::uint32_t>(std::stoul(argv[2]));
  const int status = inChild([&, wanted = std::stoull(argv[1])] {
    for (; report.steps < wanted; ++report.seed) {
      live_on(drawSteps(report.seed), false);
    }
    std::printf("%ju steps", report.steps);
    for (const auto& [what, times] : tally) std::printf(", %s %ju", what.c_str(), times);
    std::printf("\n");
  });
  if (status == 0) return EXIT_SUCCESS;

  const std::string rule = ruleOf(status, report);
  std::printf("seed %u, after %ju steps: %s\n", report.seed, report.steps, rule.c_str());
  const auto fails = [&](const Steps& steps) {
    report.failure[0] = 0;
    const int end = inChild([&] {
      if (std::freopen("/dev/null", "w", stderr) != nullptr) live_on(steps, false);
    });
    return end != 0 && ruleOf(end, report) == rule;
  };
  Steps steps = drawSteps(report.seed);
  if (!fails(steps)) return std::puts("It needs the lives before that one."), EXIT_FAILURE;
  steps = shrink(steps, fails);
  std::printf("%zu steps bring it about:\n", steps.size());
  inChild([&] { live_on(steps, true); });
  return EXIT_FAILURE;
}
