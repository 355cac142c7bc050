#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/live_settings.h"
#include "platform/platform.h"

namespace mvdirigo {

/// Characters of a reply that are kept at the most; of a reply without end, the newest.
inline constexpr std::size_t kReplyCapacity = 64 * 1024;

/// Appends `ch` to `buffer` and keeps the newest `kReplyCapacity` characters.
void appendBounded(std::string& buffer, char ch);

/// The console's serial port: opened when a command needs it, reset after a time-out, and gathering
/// what is received into one complete reply.
class SerialLink {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    /// A complete reply stands in `rxBuffer`.
    virtual void DecodeResponse() = 0;
    /// Receiving failed, for example because the device vanished.
    virtual void communicationsFailed() = 0;
  };

  SerialLink(Platform& platform, LiveSettingsSource settings, Listener& listener);

  /// Opens the port with the live settings unless it is open. Never reports: a port that stays
  /// closed shows as a missing reply, and `obstacle` tells why.
  void openOnDemand();
  /// Why the last `openOnDemand` left the port closed (UTF-8); empty when it did not.
  const std::string& obstacle() const { return obstacle_; }
  /// Empties the receive buffer of an open port, closes it and opens it again; failing steps are
  /// skipped.
  void reset();
  /// Whether characters have come in since `takeRawReply`, read or not.
  bool receiving() const;
  /// Closes the port if it is open.
  void close();
  /// Writes `bytes` to the port; a write to a closed or vanished port is ignored.
  void transmit(const std::string& bytes);

  SerialPort& MSComm1() { return *port_; }

  /// The reply being gathered; after a decode, its data part.
  std::string rxBuffer;

  /// Returns every character received since the last call, frame characters included.
  std::string takeRawReply();

 private:
  void tryToOpen();
  void MSComm1_OnComm();
  void receiveDt(char ch);
  void receiveOem(char ch);

  Platform& platform_;
  LiveSettingsSource settings_;
  Listener& listener_;
  std::unique_ptr<SerialPort> port_;
  std::string raw_reply_;
  std::string obstacle_;

  enum RxState : std::uint8_t { kHunting, kHostAddress, kBody, kChecksum };
  RxState rxState = kHunting;
  std::uint8_t rxChecksum = 0;
};

}  // namespace mvdirigo
