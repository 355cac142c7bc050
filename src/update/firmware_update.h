#pragma once

#include <string>

#include "core/live_settings.h"
#include "platform/platform.h"
#include "update/flash_link.h"
#include "update/update_run.h"

namespace mvdirigo {

/// The updates of an update dialog: the chosen file, and one update after the other. Texts of the
/// dialog are UTF-8.
class FirmwareUpdate {
 public:
  /// What the updates need of the dialog.
  class Window : public UpdateRun::Window {
   public:
    /// Lets the last of the status text be seen when there is no room for all of it.
    virtual void showEndOfStatus() = 0;
    /// Tells what an update is about to send.
    virtual void showFile(const UpdateFileFacts& file) = 0;
  };

  /// `life` is that of the dialog: once it leaves, an update ends at once and without a word.
  FirmwareUpdate(Platform& platform, Window& window, const WindowLife& life);
  FirmwareUpdate(const FirmwareUpdate&) = delete;
  FirmwareUpdate& operator=(const FirmwareUpdate&) = delete;

  /// Sets the serial line up for the dialog. Reports settings that don't suit it.
  void Form_Load(LiveSettings& settings);
  /// Gives the serial line back.
  void close() { link_.close(); }

  void cmdLoadImage_Click();
  /// Runs a whole update. Does nothing while one is running: the receive time-out enables the
  /// button some seconds before the transfer that it stopped has ended.
  void cmdUpdate_Click();
  [[nodiscard]] bool running() const { return running_; }
  /// Whether the unit has got all of the last update.
  [[nodiscard]] bool complete() const { return complete_; }
  /// Whether an update was ever confirmed; some of what it found out stays for the next one.
  [[nodiscard]] bool confirmedBefore() const { return confirmed_before_; }

 private:
  Dialogs& dialogs_;
  Window& window_;
  const WindowLife& life_;
  FlashLink link_;
  bool running_ = false;
  bool complete_ = false;
  bool confirmed_before_ = false;
  std::string chosen_file_;
};

}  // namespace mvdirigo
