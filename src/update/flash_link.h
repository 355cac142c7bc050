#pragma once

#include <cstdint>
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
  enum class Direction : std::uint8_t { kSent, kReceived };

  /// What the line needs of the dialog.
  class Window {
   public:
    virtual ~Window() = default;

    /// Whether traffic is to be printed.
    [[nodiscard]] virtual bool verbose() const = 0;
    /// Prints bytes of the line, control characters included.
    virtual void printTraffic(Direction direction, std::string_view bytes) = 0;

    virtual void setStatus(const std::string& text) = 0;
    /// One character: the spinner's position, or a blank.
    virtual void setSpinner(const std::string& text) = 0;
    /// 0 to 100.
    [[nodiscard]] virtual int progress() const = 0;
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

  /// Sends `text` as it stands, after opening the port if needed and emptying the reply.
  void sendFlashtoMV(const std::string& text);

  void WaitOutputDrained();

  /// Waits for `count` unread characters, then returns one read of the port without blanks at its
  /// ends. After a fault, which it reports, the text is empty.
  [[nodiscard]] std::string getRXBuffer(int count);

  /// Drops one read of the port.
  void discardInput();

  /// What was heard since the last sending or emptying.
  [[nodiscard]] const FlashReply& reply() const { return reply_; }
  void clearReply() { reply_.clear(); }
  void forgetPrompt() { reply_.PromptSeen = false; }
  /// Whether the next reply is searched for a number.
  void wantNumber(bool wanted) { reply_.WantNumeric = wanted; }

  /// Each of these returns false when the time was up first.
  [[nodiscard]] bool waitForReply(int timeout_ms);
  /// A prompt counts from `forgetPrompt` on.
  [[nodiscard]] bool waitForPrompt(int timeout_ms);
  /// A number that an earlier reply held counts for good.
  [[nodiscard]] bool waitForNumber(int timeout_ms);
  void pause(int duration_ms);

  /// Set by the receive time-out; ends this transfer, and every later one of the dialog.
  [[nodiscard]] bool AbortTransfer() const { return AbortTransfer_; }

  /// A piece of an image, from its sending to its acknowledgement. While it exists, the link takes
  /// a carriage return that is heard before the piece is on the line for the repetition of an
  /// earlier answer, because the unit answers only what it has heard. Otherwise the
  /// acknowledgements would run ahead of the pieces from there on.
  class Piece {
   public:
    explicit Piece(FlashLink& link);
    ~Piece();
    Piece(const Piece&) = delete;
    Piece& operator=(const Piece&) = delete;

    /// Sends `bytes` and waits until they are on the line.
    void send(const std::string& bytes);
    /// Waits for the carriage return, under the receive time-out as well. Returns false when
    /// `timeout_ms` was over first.
    [[nodiscard]] bool waitForAcknowledgement(int timeout_ms);

   private:
    FlashLink& link_;
  };

 private:
  void open();
  /// Opens the port if needed, empties the reply and lets what came for an earlier one pass.
  void prepareSending(const std::string& text);
  void output(const std::string& text);
  /// Uses the open port. A fault closes it, so that its report is the only one.
  template <class Action>
  auto use(Action action);
  std::string read();
  void waitUntil(const std::function<bool()>& done);
  /// Returns false when the time was up first; otherwise the wait's timer runs on, which ends
  /// nothing but a wait.
  bool waitFor(const std::function<bool()>& done, int timeout_ms);
  /// Prints what was received, unless it is nothing.
  void printReceived();

  void MSCommFlash_OnComm();
  void tmrMSCommFlash_Timer();

  EventLoop& event_loop_;
  Dialogs& dialogs_;
  Window& window_;
  const WindowLife& life_;
  FlashReply reply_;
  /// The piece on its way, or null.
  const Piece* piece_ = nullptr;
  bool AbortTransfer_ = false;
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
