#include <QApplication>

#include "app/end_signals.h"
#include "app/program.h"
#include "core/stored_settings.h"
#include "platform/qt/qt_platform.h"

int main(int argc, char** argv) {
  mvdirigo::EndSignals::block();
  QApplication application(argc, argv);
  QApplication::setApplicationName(mvdirigo::kApplicationName);
  QApplication::setApplicationVersion(MVDIRIGO_VERSION);
  // The console ends the program itself, after it has saved its rows.
  QApplication::setQuitOnLastWindowClosed(false);

  mvdirigo::QtPlatform platform;
  // Queued, because the console may be closed before the event loop runs, by a box of its start.
  const auto end = [] {
    QMetaObject::invokeMethod(
        qApp, [] { QApplication::exit(0); }, Qt::QueuedConnection);
  };
  mvdirigo::Program program(platform, end);
  const mvdirigo::EndSignals end_signals([&program] { program.console().close(); });
  program.start();
  // An exit asked for during the start reached no event loop that lasts.
  return program.console().life().leaving() ? 0 : QApplication::exec();
}
