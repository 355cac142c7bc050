#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/dialogs.h"
#include "update/flash_link.h"
#include "update/update_file.h"

namespace mvdirigo {

/// One firmware update: checks that the file suits the unit, and streams it there in pieces of six
/// bytes. Texts of the dialog are UTF-8.
class UpdateRun {
 public:
  /// What an update needs of the dialog.
  class Window : public FlashLink::Window {
   public:
    /// Makes room for the printed traffic.
    virtual void enlarge() = 0;
    virtual void enablePause(bool enabled) = 0;
    /// The image is sent from now on: so many bytes of the file.
    virtual void startTransfer(std::size_t bytes) = 0;
    /// So many of them are sent. Comes with every piece, so it has to cost next to nothing.
    virtual void setSent(std::size_t bytes) = 0;

    /// 1 to 15.
    [[nodiscard]] virtual int unitNumber() const = 0;
    /// The selected baud rate, for example "57600".
    [[nodiscard]] virtual std::string baudText() const = 0;
    virtual void selectFirstBaud() = 0;
  };

  /// Everything given outlives the update. `file` is the path of the update file.
  UpdateRun(Dialogs& dialogs, Window& window, FlashLink& link, std::string file);
  UpdateRun(const UpdateRun&) = delete;
  UpdateRun& operator=(const UpdateRun&) = delete;

  /// Runs the update to its end and tells how it ended. Returns whether the unit has got all of
  /// it. Throws `RuntimeError` for a fault of file or line that no rule speaks of, and
  /// `FlashLink::Over`.
  bool update();

  /// Whether the user agreed to it.
  [[nodiscard]] bool confirmed() const { return confirmed_; }

 private:
  enum class Outcome : std::uint8_t {
    kComplete,
    /// The user did not agree to the update.
    kDeclined,
    /// The user was told that the validation failed, and gave it up.
    kGivenUp,
    /// To the terminate command.
    kNoResponse,
    kNotValidated,
    /// A unit without valid firmware takes no full update.
    kPartialOnly,
    kNoPrompt,
    /// The unit prompted, but what it said since does not.
    kNoUpdateMode,
    /// The receive time-out has come, which tells it itself.
    kAborted,
    kPieceTimeout,
    kPieceRefused,
  };
  /// What a step returns that may end the update: nothing when it goes on.
  using End = std::optional<Outcome>;

  enum class Validation : std::uint8_t { kAccepted, kNotValidated, kNoVersion, kWrongModel };

  Outcome run();
  void report(Outcome outcome);

  // The steps of an update, in order.
  End confirm();
  void wake();
  End terminateCommands();
  void negotiateBaudRate();
  End validate();
  std::string readImage();
  End enterUpdateMode();
  Outcome transmit(const std::string& image);

  Validation validUpdateFile();
  Validation validateAgainstUnit();
  Validation checkCpuId();
  /// Tells why a validation failed. Returns whether to try again.
  bool tryAgain(Validation result);

  /// Sends one piece and waits for its acknowledgement.
  End deliver(const std::string& bytes);
  void ShowSpinner(int number);

  /// Shows a box; a window that went away under it ends the update.
  BoxButton showBox(const std::string& text, int style = box::kOkOnly);
  /// "/", the unit's address, `text`, and a carriage return.
  [[nodiscard]] std::string command(const std::string& text) const;

  Dialogs& dialogs_;
  Window& window_;
  FlashLink& link_;
  const std::string file_;
  bool confirmed_ = false;
  /// Unit and rate as they were confirmed, whatever is chosen meanwhile.
  char address_ = '1';
  std::string baud_;
  ZrfHeader header_;
  /// What the last validation read at the start of the file.
  std::string checked_header_;
};

}  // namespace mvdirigo
