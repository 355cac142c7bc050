#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/live_settings.h"
#include "platform/platform.h"
#include "platform/runtime_error.h"
#include "update/flash_reply.h"

namespace mvdirigo {

/// The update dialog's own serial line: sends commands as they stand, gathers what the unit says,
/// and waits for it. Texts on the line are Latin-1.
class FlashLink {
 public:
  /// What the line needs of the dialog.
  class Window {
   public:
    virtual ~Window() = default;

    /// Whether traffic is to be printed.
    virtual bool verbose() = 0;
    /// Prints bytes of the line, control characters included.
    virtual void printTraffic(std::string_view bytes) = 0;

    virtual void setStatus(const std::string& text) = 0;
    /// One character: the spinner's position, or a blank.
    virtual void setSpinner(const std::string& text) = 0;
    /// 0 to 100.
    virtual int progress() = 0;
    virtual void setProgress(int percent) = 0;
    virtual void enableUpdate(bool enabled) = 0;
    /// Makes the console let go of the serial port.
    virtual void closeConsolePort() = 0;
  };

  /// Thrown out of every wait and yield once there is nothing left to do: the window is going away,
  /// of which nothing may be touched then, or the device has vanished, which was reported.
  struct Over {};

  FlashLink(Platform& platform, Window& window, const WindowLife& life);
  FlashLink(const FlashLink&) = delete;
  FlashLink& operator=(const FlashLink&) = delete;

  /// Sets the closed port and the receive time-out up from the settings in force; throws
  /// `RuntimeError` at the first setting that is refused, and so does every opening afterwards.
  void setUp(LiveSettings& settings);

  /// Closes the port if it is open.
  void close();
  /// Lets nothing of an earlier update count any more, such as a device that vanished in it.
  void startAnew();
  /// Closes the port if it is open, and opens it with `settings`.
  void reopen(const std::string& settings);

  /// Handles pending events once.
  void yield();
  void throwIfOver() const;

  /// Sends `text` as it stands, after opening the port if needed and emptying `reply`.
  void sendFlashtoMV(const std::string& text);

  /// Sends `text` and waits until it is on the line. A carriage return heard before that repeats an
  /// earlier answer, because the unit answers only what it has heard: it is not taken for the
  /// answer to `text`. Otherwise the acknowledgements would run ahead of the pieces from there on.
  void sendPiece(const std::string& text);

  void WaitOutputDrained();

  /// Waits for `count` unread characters, then returns one read of the port without blanks at its
  /// ends. After a fault, which it reports, the text is empty.
  std::string getRXBuffer(int count);

  /// Drops one read of the port.
  void discardInput();

  /// Waits until `flag` holds. Returns false when the time was up first; otherwise the wait's timer
  /// runs on, which ends nothing but a wait.
  bool waitFor(const bool& flag, int timeout_ms);
  void pause(int duration_ms);

  /// Waits for the carriage return that acknowledges a piece, under both time-outs.
  bool waitForAcknowledgement(int timeout_ms);

  FlashReply reply;
  /// Set by the receive time-out; ends this transfer, and every later one of the dialog.
  bool AbortTransfer = false;

 private:
  void open();
  /// Uses the open port. A fault closes it, so that its report is the only one.
  template <class Action>
  auto use(Action action);
  std::string read();
  void waitUntil(const std::function<bool()>& done);
  void print(std::string_view bytes);

  void MSCommFlash_OnComm();
  void tmrMSCommFlash_Timer();

  EventLoop& event_loop_;
  Dialogs& dialogs_;
  Window& window_;
  const WindowLife& life_;
  bool sending_piece_ = false;
  bool lost_ = false;
  /// Why the port was not set up.
  std::optional<RuntimeError> refusal_;

  /// One-shot: its tick only disables it.
  std::unique_ptr<Timer> DoLoopTimer_;
  std::unique_ptr<Timer> tmrMSCommFlash_;
  std::unique_ptr<Timer> drain_timer_;
  std::unique_ptr<SerialPort> MSCommFlash_;
};

}  // namespace mvdirigo
