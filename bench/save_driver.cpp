// Saves as the console does, without a window: what bench/power-cut interrupts.
// usage: save_driver TEXT [PATH]    rows of this text, into the store or into a command file
#include <string>

#include <QCoreApplication>

#include "console/command_file.h"
#include "core/stored_settings.h"
#include "platform/qt/ini_settings_store.h"
#include "platform/runtime_error.h"

int main(int argc, char** argv) {
  using namespace mvdirigo;
  const QCoreApplication application(argc, argv);
  const auto row_text = [&](int row) { return argv[1] + std::to_string(row); };
  if (argc == 2) {
    IniSettingsStore store;
    writeRows(store, row_text);
    return 0;
  }
  return skipOnError([&] { writeCommandFile(argv[2], row_text, RecordTable()); }) ? 0 : 1;
}
