#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "console/string_fun.h"
#include "help/string_fun_help.h"
#include "platform/platform.h"
#include "settings/settings.h"
#include "traffic/line_traffic_window.h"
#include "update/frm_flash.h"

namespace mvdirigo {

/// The windows of the program and who opens whom.
class Program : private StringFun::Neighbours {
 public:
  /// `on_end` is called when the console was closed and every window has been ended.
  Program(Platform& platform, std::function<void()> on_end);
  ~Program() override;

  /// Loads the console and shows it.
  void start();

  StringFun& console() { return console_; }
  /// The settings window, made at the first call.
  Settings& settings();
  /// The update dialog that is open, or null.
  frmFlash* update() { return update_.get(); }

  /// Shows what goes over the line from now on, in a window that is made at the first call.
  void showLineTraffic() override;
  /// The line traffic window, or null before it was first shown.
  LineTrafficWindow* lineTraffic() { return line_traffic_.get(); }

 private:
  LiveSettings& liveSettings() override { return settings(); }
  void showSettings(QPoint anchor) override;
  void showHelp() override;
  void unloadAll() override;
  void showUpdate();

  Platform& platform_;
  std::function<void()> on_end_;
  /// Made first and destroyed last: the other windows hold on to it.
  StringFun console_;
  std::unique_ptr<Settings> settings_;
  std::unique_ptr<StringFunHelp> help_;
  std::unique_ptr<LineTrafficWindow> line_traffic_;
  std::unique_ptr<frmFlash> update_;
  /// Update dialogs that were closed while their update was on the call stack.
  std::vector<std::unique_ptr<frmFlash>> closed_updates_;
};

}  // namespace mvdirigo
