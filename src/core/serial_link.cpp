#include "core/serial_link.h"

#include <utility>

#include "platform/handler_edge.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr char kStx = 2;
constexpr char kEtx = 3;
constexpr char kCarriageReturn = 13;
constexpr char kHost = '0';

}  // namespace

void appendBounded(std::string& buffer, char ch) {
  if (buffer.size() >= kReplyCapacity) buffer.erase(0, buffer.size() - kReplyCapacity + 1);
  buffer += ch;
}

SerialLink::SerialLink(Platform& platform, LiveSettingsSource settings, Listener& listener)
    : platform_(platform),
      settings_(std::move(settings)),
      listener_(listener),
      port_(platform.makeSerialPort([this] {
        atHandlerEdge(platform_.dialogs(), "MSComm1_OnComm", [this] { MSComm1_OnComm(); });
      })) {}

void SerialLink::openOnDemand() {
  obstacle_.clear();
  if (!port_->PortOpen()) tryToOpen();
}

// A setting that is refused leaves the port closed: a command is not to reach another unit.
void SerialLink::tryToOpen() {
  const std::string port = settings_().CommPortSetting();
  const std::string rate = settings_().BaudRate();
  const auto quoted = [](const std::string& utf8) {
    return '"' + shortVisibleText(latin1FromUtf8(utf8)) + '"';
  };
  port_->setRThreshold(1);
  port_->setInputLen(1);
  if (!skipOnError([&] { port_->setCommPort(textToInt16(port)); })) {
    obstacle_ = quoted(port) + " is no port number from 1 to 16.";
  } else if (!skipOnError([&] { port_->setSettings(rate); })) {
    obstacle_ = rate.empty() ? "No baud rate is chosen." : quoted(rate) + " is no baud rate.";
  } else if (!skipOnError([&] { port_->setPortOpen(true); })) {
    obstacle_ = platform_.portDetails(port_->CommPort()).obstacle;
    if (obstacle_.empty()) obstacle_ = "The port can't be opened.";
  }
}

void SerialLink::reset() {
  // Whoever closed the port meanwhile did so for new settings or for another owner of the line.
  if (!port_->PortOpen()) return;
  skipOnError([&] { port_->Input(); });
  skipOnError([&] { port_->reopen(); });
}

bool SerialLink::receiving() const { return !raw_reply_.empty() || port_->InBufferCount() > 0; }

void SerialLink::close() {
  if (port_->PortOpen()) port_->setPortOpen(false);
}

void SerialLink::transmit(const std::string& bytes) {
  skipOnError([&] { port_->Output(bytes); });
}

std::string SerialLink::takeRawReply() { return std::exchange(raw_reply_, {}); }

void SerialLink::MSComm1_OnComm() {
  try {
    const std::string input = port_->Input();
    if (input.empty()) return;
    const char ch = input.front();
    appendBounded(raw_reply_, ch);
    if (settings_().DTProtocol()) {
      receiveDt(ch);
    } else if (settings_().OEMProtocol()) {
      receiveOem(ch);
    }
  } catch (const std::exception&) {
    listener_.communicationsFailed();
  }
}

void SerialLink::receiveDt(char ch) {
  if (ch == kCarriageReturn) {
    listener_.DecodeResponse();
  } else {
    appendBounded(rxBuffer, ch);
  }
}

void SerialLink::receiveOem(char ch) {
  const auto code = static_cast<std::uint8_t>(ch);
  switch (rxState) {
    case kHunting:
      if (ch == kStx) {
        rxState = kHostAddress;
        rxChecksum = kStx;
        rxBuffer.clear();
      }
      return;
    case kHostAddress:
      rxChecksum ^= code;
      appendBounded(rxBuffer, ch);
      if (ch == kHost) rxState = kBody;
      break;
    case kBody:
      rxChecksum ^= code;
      appendBounded(rxBuffer, ch);
      if (ch == kEtx) rxState = kChecksum;
      break;
    case kChecksum:
      rxState = kHunting;
      if (code == rxChecksum) listener_.DecodeResponse();
      break;
  }
  // A frame that starts inside another, whose end was lost; what was gathered is kept. A checksum
  // that is 02 counts as such a start, too, even where it matches: after that reply the parser
  // waits for the host address, and so takes the next frame's STX for a character before it.
  if (ch == kStx) {
    rxState = kHostAddress;
    rxChecksum = kStx;
  }
}

}  // namespace mvdirigo
