#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/live_settings.h"
#include "platform/bounded_text.h"
#include "platform/platform.h"

namespace mvdirigo {

/// The console's serial port: opened when a command needs it, reset after a time-out, and gathering
/// what is received into one complete reply by the rules of docs/PROTOCOLS.md.
class SerialLink {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    /// `reply` is complete.
    virtual void DecodeResponse() = 0;
    /// Receiving failed, for example because the device vanished.
    virtual void communicationsFailed() = 0;
    /// The port was opened, closed or refused.
    virtual void lineChanged() = 0;
  };

  SerialLink(Platform& platform, LiveSettingsSource settings, Listener& listener);
  SerialLink(const SerialLink&) = delete;
  SerialLink& operator=(const SerialLink&) = delete;

  /// Opens the port with the live settings unless it is open. Never reports: a port that stays
  /// closed shows as a missing reply, and `obstacle` tells why.
  void openOnDemand();
  /// Why the last `openOnDemand` left the port closed (UTF-8); empty when it did not, or after
  /// `forgetObstacle`.
  [[nodiscard]] const std::string& obstacle() const { return obstacle_; }
  void forgetObstacle() { obstacle_.clear(); }
  /// Drops what an open port has received, closes it and opens it again; failing steps are
  /// skipped.
  void reset();
  /// Whether characters have come in since `takeRawReply`, read or not.
  [[nodiscard]] bool receiving() const;
  [[nodiscard]] bool PortOpen() const { return MSComm1->PortOpen(); }
  /// Port number, and rate and format, of the open port, or of the last one.
  [[nodiscard]] int CommPort() const { return MSComm1->CommPort(); }
  [[nodiscard]] std::string Settings() const { return MSComm1->Settings(); }
  void close();
  /// Whether the port of that number can be opened: opens it and closes it again. False while any
  /// port is held open. Leaves `port` as the port number, at 9600.
  [[nodiscard]] bool PortAvailable(int port);
  /// Writes `bytes` to the port; a write to a closed or vanished port is ignored.
  void transmit(const std::string& bytes);

  /// What was gathered of a reply: `rxBuffer`, valid until the next character comes in.
  [[nodiscard]] std::string_view reply() const { return rxBuffer.view(); }
  /// After a decode: `rxBuffer` holds the data part from here on.
  void keepData(std::string_view data) { rxBuffer.assign(data); }
  void clearReply() { rxBuffer.clear(); }

  /// Returns every character received since the last call, frame characters included.
  [[nodiscard]] std::string takeRawReply();
  void forgetRawReply() { raw_reply_.clear(); }

 private:
  void tryToOpen();
  void MSComm1_OnComm();
  void receiveDt(char ch);
  void receiveOem(char ch);

  Platform& platform_;
  LiveSettingsSource settings_;
  Listener& listener_;
  std::unique_ptr<SerialPort> MSComm1;
  BoundedText rxBuffer;
  BoundedText raw_reply_;
  std::string obstacle_;

  enum RxState : std::uint8_t { kHunting, kHostAddress, kBody, kChecksum };
  RxState rxState = kHunting;
  std::uint8_t rxChecksum = 0;
};

}  // namespace mvdirigo
