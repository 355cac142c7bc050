#pragma once

#include <string>

#include "core/live_settings.h"
#include "platform/platform.h"
#include "update/flash_link.h"
#include "update/update_file.h"

namespace mvdirigo {

/// One firmware update after the other, on behalf of the update dialog: checks that the chosen file
/// suits the unit, and streams it there in pieces of six bytes. Texts of the dialog are UTF-8.
class FirmwareUpdate {
 public:
  /// What an update needs of the dialog.
  class Window : public FlashLink::Window {
   public:
    /// Makes room for the printed traffic.
    virtual void enlarge() = 0;
    virtual void enablePause(bool enabled) = 0;

    /// Lets the last of the status text be seen when there is no room for all of it.
    virtual void showEndOfStatus() = 0;

    /// 1 to 15.
    virtual int unitNumber() = 0;
    /// The selected baud rate, for example "57600".
    virtual std::string baudText() = 0;
    virtual void selectFirstBaud() = 0;
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
  bool running() const { return running_; }
  /// Whether an update was ever confirmed; some of what it found out stays for the next one.
  bool confirmedBefore() const { return confirmed_before_; }

 private:
  enum class Validation {
    kAccepted = -1,
    kNotValidated = 0,
    kNoVersion = 3,
    kWrongModel = 4,
  };

  void update();

  // The steps of an update, in order. Those that may end it return whether it goes on.
  bool confirm();
  void wake();
  bool terminateCommands();
  void negotiateBaudRate();
  bool validate(ZrfHeader& header);
  std::string readImage();
  bool enterUpdateMode(const ZrfHeader& header);
  void transmit(const ZrfHeader& header, const std::string& image);

  Validation validUpdateFile(ZrfHeader& header);
  Validation validateAgainstUnit(ZrfHeader& header);
  Validation checkCpuId(const ZrfHeader& header);
  /// Tells why a validation failed. Returns whether to try again.
  bool tryAgain(Validation result, const ZrfHeader& header);

  /// Sends one piece and waits for its acknowledgement. Returns false for a refusal or silence.
  bool deliver(const std::string& piece);
  void ShowSpinner(int number);

  /// Shows a box; a window that went away under it ends the update.
  BoxButton showBox(const std::string& text, int style = box::kOkOnly);
  /// "/", the unit's address, `text`, and a carriage return.
  std::string command(const std::string& text) const;

  Dialogs& dialogs_;
  Window& window_;
  const WindowLife& life_;
  FlashLink link_;
  bool running_ = false;
  bool confirmed_before_ = false;
  std::string chosen_file_;
  /// File, unit and rate of the update that runs, whatever is chosen meanwhile.
  std::string file_;
  char address_ = '1';
  std::string baud_;
  /// What the last validation read at the start of the file.
  std::string checked_header_;
};

}  // namespace mvdirigo
