#include "protocol/command_framing.h"

#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr char kStx = 2;
constexpr char kEtx = 3;
constexpr std::uint8_t kFirstSequence = '1';
constexpr std::uint8_t kLastSequence = '7';
constexpr std::uint8_t kRepeatBit = 8;

std::string_view from(std::string_view text, std::size_t offset) {
  return offset < text.size() ? text.substr(offset) : std::string_view{};
}

}  // namespace

std::string substituteRandom(const std::string& command, const std::function<double()>& random) {
  constexpr std::string_view kToken = "rnd";
  const std::string lower = lowerCase(command);
  std::string result;
  std::size_t rest = 0;
  for (auto match = lower.find(kToken); match != std::string::npos && match > 0;
       match = lower.find(kToken, rest)) {
    result += command.substr(rest, match - rest);
    result += std::to_string(static_cast<long>(random() * 1000000 + 1));
    rest = match + kToken.size();
  }
  return result + command.substr(rest);
}

std::string unitAddressOf(std::string_view command) {
  return std::string(from(command, 1).substr(0, 1));
}

void OemFraming::reset() {
  lastRow = kNoRow;
  seqNumber = kFirstSequence;
}

std::string OemFraming::frame(std::string_view unitAddress, std::string_view command,
                              int currentRow) {
  std::uint8_t repeatFlag = kRepeatBit;
  if (currentRow != lastRow) {
    repeatFlag = 0;
    seqNumber =
        seqNumber == kLastSequence ? kFirstSequence : static_cast<std::uint8_t>(seqNumber + 1);
  }
  lastRow = currentRow;

  std::string frame{kStx};
  frame += unitAddress;
  frame += static_cast<char>(seqNumber + repeatFlag);
  frame += from(command, 2);
  frame += kEtx;
  char checksum = 0;
  for (const char ch : frame) checksum = static_cast<char>(checksum ^ ch);
  return frame + checksum;
}

}  // namespace mvdirigo
