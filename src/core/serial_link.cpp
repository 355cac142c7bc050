#include "core/serial_link.h"

#include <utility>

#include "core/control_characters.h"
#include "platform/handler_edge.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr char kHost = '0';

}  // namespace

SerialLink::SerialLink(Platform& platform, LiveSettingsSource settings, Listener& listener)
    : platform_(platform),
      settings_(std::move(settings)),
      listener_(listener),
      MSComm1(platform.makeSerialPort([this] {
        atHandlerEdge(platform_.dialogs(), "MSComm1_OnComm", [this] { MSComm1_OnComm(); });
      })) {}

void SerialLink::openOnDemand() {
  obstacle_.clear();
  if (MSComm1->PortOpen()) return;
  tryToOpen();
  listener_.lineChanged();
}

// A setting that is refused leaves the port closed: a command is not to reach another unit.
void SerialLink::tryToOpen() {
  const std::string port = settings_().CommPortSetting();
  const std::string rate = settings_().BaudRate();
  const auto quoted = [](const std::string& utf8) {
    return '"' + shortVisibleText(latin1FromUtf8(utf8)) + '"';
  };
  MSComm1->setRThreshold(1);
  MSComm1->setInputLen(1);
  if (!skipOnError([&] { MSComm1->setCommPort(textToInt16(port)); })) {
    obstacle_ = quoted(port) + " is no port number from 1 to 16.";
  } else if (!skipOnError([&] { MSComm1->setSettings(rate); })) {
    obstacle_ = rate.empty() ? "No baud rate is chosen." : quoted(rate) + " is no baud rate.";
  } else if (!skipOnError([&] { MSComm1->setPortOpen(true); })) {
    obstacle_ = platform_.portDetails(MSComm1->CommPort()).obstacle;
    if (obstacle_.empty()) obstacle_ = "The port can't be opened.";
  }
}

void SerialLink::reset() {
  // Whoever closed the port meanwhile did so for new settings or for another owner of the line.
  if (!MSComm1->PortOpen()) return;
  skipOnError([&] { MSComm1->Input(); });
  skipOnError([&] { MSComm1->reopen(); });
  listener_.lineChanged();
}

void SerialLink::close() {
  if (!MSComm1->PortOpen()) return;
  MSComm1->setPortOpen(false);
  listener_.lineChanged();
}

bool SerialLink::receiving() const { return !raw_reply_.empty() || MSComm1->InBufferCount() > 0; }

bool SerialLink::PortAvailable(int port) {
  return skipOnError([&] {
    MSComm1->setCommPort(port);
    // Whatever rate was tried last: the port may be one that lacks it.
    MSComm1->setSettings("9600");
    MSComm1->setPortOpen(true);
    MSComm1->setPortOpen(false);
  });
}

void SerialLink::transmit(const std::string& bytes) {
  skipOnError([&] { MSComm1->Output(bytes); });
}

std::string SerialLink::takeRawReply() {
  std::string taken(raw_reply_.view());
  raw_reply_.clear();
  return taken;
}

void SerialLink::MSComm1_OnComm() {
  try {
    const std::string input = MSComm1->Input();
    if (input.empty()) return;
    const char ch = input.front();
    raw_reply_.append(ch);
    if (settings_().DTProtocol()) {
      receiveDt(ch);
    } else if (settings_().OEMProtocol()) {
      receiveOem(ch);
    }
  } catch (const std::exception&) {
    listener_.communicationsFailed();
    listener_.lineChanged();
  }
}

void SerialLink::receiveDt(char ch) {
  if (ch == kCarriageReturn) {
    listener_.DecodeResponse();
  } else {
    rxBuffer.append(ch);
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
      rxBuffer.append(ch);
      if (ch == kHost) rxState = kBody;
      break;
    case kBody:
      rxChecksum ^= code;
      rxBuffer.append(ch);
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
