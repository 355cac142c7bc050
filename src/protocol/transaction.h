#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/live_settings.h"
#include "core/serial_link.h"
#include "platform/platform.h"
#include "protocol/command_framing.h"

namespace mvdirigo {

/// Colours of a status light: 24 bits with red in the low byte.
enum class LightColour : std::uint32_t {
  kWhite = 0xFFFFFF,
  kGreen = 0x00FF00,
  kRed = 0x0000FF,
  kYellow = 0x00FFFF,
};

/// How a reply, or its absence, came about.
struct Exchange {
  enum class Outcome : std::uint8_t { kAnswered, kNoReply, kNothingSent, kLineFailed };

  Outcome outcome = Outcome::kNoReply;
  /// That the row shows: of the last reply that had one.
  int status_code = 0;
  /// What was received for it, frame characters included (Latin-1).
  std::string raw;
  /// Why nothing was sent (UTF-8); empty when the port was open.
  std::string obstacle;
  /// From the transmission until now, in ms.
  std::int64_t elapsed_ms = 0;
};

/// One row's command sent, and its reply shown or its absence reported. One transaction runs at a
/// time: the send buttons are disabled while one is in flight.
class Transaction : private SerialLink::Listener {
 public:
  /// What a transaction needs of the console's rows. Texts are UTF-8; a row that does not exist has
  /// an empty text and takes nothing.
  class Rows {
   public:
    virtual ~Rows() = default;
    [[nodiscard]] virtual std::string StringToSend(int row) const = 0;
    virtual void setReceiveString(int row, const std::string& text, const Exchange& exchange) = 0;
    virtual void setButtonShape(int row, LightColour colour) = 0;
    virtual void startButtonTimer(int row) = 0;
    /// Enables or disables the buttons 0 to the row count, both ends included.
    virtual void enableSendCommands(bool enabled) = 0;
    /// Takes the press of `row` into a running recording.
    virtual void recordPress(int row) = 0;
    /// The port was opened, closed or refused.
    virtual void lineChanged() = 0;
    virtual const WindowLife& life() const = 0;
  };

  Transaction(Platform& platform, LiveSettingsSource settings, Rows& rows);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// Puts the OEM sequence back to what it is at start.
  void resetSequence() { framing_.reset(); }

  void SendCommand_Click(int Index);

  /// Sends nine carriage returns, which clear a unit's half-received line. No row is involved.
  void Command1_Click();

  /// Sends `strCommand` (Latin-1), or the stored command again when it is blank, and starts the
  /// reply time-out. The stored command keeps the random numbers put into it.
  void subSendToMV(const std::string& strCommand);

  /// What was gathered of a reply: after a decode, the data part of the last reply.
  [[nodiscard]] std::string_view DecodeSettingsResponse() const { return link_.reply(); }
  void ResetResponse() { link_.clearReply(); }

  Timer& tmrReceiveTimeOut() { return *tmrReceiveTimeOut_; }
  [[nodiscard]] const Timer& tmrReceiveTimeOut() const { return *tmrReceiveTimeOut_; }
  SerialLink& link() { return link_; }
  [[nodiscard]] const SerialLink& link() const { return link_; }

 private:
  void DecodeResponse() override;
  void communicationsFailed() override;
  void lineChanged() override { rows_.lineChanged(); }
  void tmrReceiveTimeOut_Timer();
  Exchange exchangeUntilNow(Exchange::Outcome outcome);

  Platform& platform_;
  LiveSettingsSource settings_;
  Rows& rows_;
  SerialLink link_;
  OemFraming framing_;
  std::unique_ptr<Timer> tmrReceiveTimeOut_;

  std::string commandString;
  int currentRow = 0;
  /// Status code of the last reply that had one.
  int status_code_ = 0;
  std::int64_t sent_at_ms_ = 0;
  /// Why nothing was sent.
  std::string obstacle_;
};

}  // namespace mvdirigo
