#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <utility>

#include <QApplication>

#include "app/end_requests.h"
#include "app/program.h"
#include "console/icons.h"
#include "core/stored_settings.h"
#include "platform/qt/qt_platform.h"
#include "platform/version.h"

namespace {

/// Saves when something ends the program by exit(), as Qt does when the display server is gone.
/// That destroys nothing that main() made, so all of it is there to be saved.
class SaveAtExit {
 public:
  /// To be made after the store was used: what it needs of Qt is then destroyed later.
  explicit SaveAtExit(std::function<void()> save) {
    action_ = std::move(save);
    std::atexit([] {
      if (action_) action_();
    });
  }
  ~SaveAtExit() { action_ = nullptr; }
  SaveAtExit(const SaveAtExit&) = delete;
  SaveAtExit& operator=(const SaveAtExit&) = delete;

 private:
  static inline std::function<void()> action_;
};

}  // namespace

int main(int argc, char** argv) {
  // Whoever asks for it may have no display, and wants no port opened.
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::printf("mvdirigo %s\n", mvdirigo::kVersion);
    return 0;
  }
  mvdirigo::EndRequests::blockSignals();
  // The write that failed says so itself; the signal would end the program with its rows unsaved.
  for (const int failed_write : {SIGPIPE, SIGXFSZ}) std::signal(failed_write, SIG_IGN);
  QApplication application(argc, argv);
  QApplication::setApplicationName(mvdirigo::kApplicationName);
  QApplication::setApplicationVersion(mvdirigo::kVersion);
  // The desktop shows the menu entry's name and icon for the windows.
  QApplication::setDesktopFileName("org.mvdirigo.console");
  // The console ends the program itself, after it has saved its rows.
  QApplication::setQuitOnLastWindowClosed(false);

  mvdirigo::QtPlatform platform;
  // Queued, because the console may be closed before the event loop runs, by a box of its start.
  const auto end = [] {
    QMetaObject::invokeMethod(
        qApp, [] { QApplication::exit(0); }, Qt::QueuedConnection);
  };
  mvdirigo::Program program(platform, end);
  const mvdirigo::EndRequests end_requests([&program] { program.console().close(); });
  program.start();
  // An exit asked for during the start reached no event loop that lasts.
  if (program.console().life().leaving()) return 0;
  // Nobody waits for it, as for the window.
  QApplication::setWindowIcon(mvdirigo::applicationIcon());
  const SaveAtExit save_at_exit([&] {
    program.console().saveRows();
    platform.settingsStore().flush();
  });
  return QApplication::exec();
}
