#include "simulator/model/simulated_unit.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace mvdirigo {
namespace {

constexpr char kStx = 2;
constexpr char kEtx = 3;
constexpr char kCr = 13;

constexpr std::size_t kLongestCommand = 256;
constexpr std::size_t kPieceBytes = 6;
constexpr SimTime kUpdateEndsAfter = std::chrono::seconds(3);
constexpr std::array kRates = {9600, 19200, 38400, 57600, 115200, 230400};

// The ID answer's first word: the host looks for three digits next to the status character.
constexpr const char* kIdPrefix = "100 ";

constexpr std::string_view kAccessCode = "40617";

constexpr char kRepeatBit = 8;

char checksumOf(std::string_view bytes) {
  char sum = 0;
  for (const char byte : bytes) sum = static_cast<char>(sum ^ byte);
  return sum;
}

std::optional<long> numberIn(std::string_view digits) {
  long number = 0;
  const char* end = digits.data() + digits.size();
  const auto parsed = std::from_chars(digits.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return number;
}

}  // namespace

std::span<const int> unitRates() { return kRates; }

std::optional<SimulatedUnit::Answer> SimulatedUnit::receive(char byte, SimTime now,
                                                            const LineFaults& faults) {
  advance(now);
  last_heard_ = now;
  const int baud = baud_;
  std::optional<std::string> bytes;
  int piece = 0;
  if (updating_) {
    bytes = receivePiece(byte, faults);
    piece = pieces_;
  } else {
    if (options_.protocol != UnitProtocol::kOem) bytes = receiveDt(byte, now);
    if (options_.protocol != UnitProtocol::kDt && !bytes) bytes = receiveOem(byte, now);
  }
  if (!bytes) return std::nullopt;
  return Answer{*bytes, baud, piece};
}

std::optional<SimTime> SimulatedUnit::nextEvent() const {
  if (!updating_) return std::nullopt;
  return last_heard_ + kUpdateEndsAfter;
}

void SimulatedUnit::advance(SimTime now) {
  if (!updating_ || now < last_heard_ + kUpdateEndsAfter) return;
  updating_ = false;
  // A unit restarts then, and so knows of no change of rate.
  baud_ = options_.baud;
  if (pieces_ > 0) {
    options_.valid_firmware = !options_.expected_image || image_ == *options_.expected_image;
  }
  if (onUpdateEnded) onUpdateEnded(*this);
}

std::optional<std::string> SimulatedUnit::receivePiece(char byte, const LineFaults& faults) {
  piece_ += byte;
  if (piece_.size() < kPieceBytes) return std::nullopt;
  ++pieces_;
  const std::string piece = std::exchange(piece_, {});
  if (const auto error = faults.refusal(pieces_)) return "Error " + std::to_string(*error) + kCr;
  image_ += piece;
  return std::string(1, kCr);
}

std::optional<std::string> SimulatedUnit::receiveDt(char byte, SimTime now) {
  if (byte == '/') {
    in_dt_command_ = true;
    dt_command_.clear();
    return std::nullopt;
  }
  if (!in_dt_command_) return std::nullopt;
  if (byte != kCr) {
    dt_command_ += byte;
    in_dt_command_ = dt_command_.size() <= kLongestCommand;
    return std::nullopt;
  }
  in_dt_command_ = false;
  if (!dt_command_.starts_with(options_.address)) return std::nullopt;
  const std::string body = dt_command_.substr(1);
  if (entersUpdate(body)) return "?";
  if (!options_.valid_firmware) return answerWithoutFirmware(body);
  return "\xFF/" + replyText(execute(body, now), now) + (options_.line_feed ? "\r\n" : "\r");
}

std::optional<std::string> SimulatedUnit::receiveOem(char byte, SimTime now) {
  if (oem_state_ == OemState::kChecksum) {
    oem_state_ = OemState::kHunting;
    const bool good = byte == checksumOf(kStx + oem_frame_ + kEtx);
    return good ? answerOem(oem_frame_, now) : std::nullopt;
  }
  if (byte == kStx) {
    oem_state_ = OemState::kFrame;
    oem_frame_.clear();
  } else if (oem_state_ == OemState::kFrame && byte == kEtx) {
    oem_state_ = OemState::kChecksum;
  } else if (oem_state_ == OemState::kFrame) {
    oem_frame_ += byte;
    if (oem_frame_.size() > kLongestCommand) oem_state_ = OemState::kHunting;
  }
  return std::nullopt;
}

std::optional<std::string> SimulatedUnit::answerOem(const std::string& frame, SimTime now) {
  if (frame.size() < 2 || frame[0] != options_.address || !options_.valid_firmware) {
    return std::nullopt;
  }
  const bool repeat = (frame[1] & kRepeatBit) != 0;
  const auto sequence = static_cast<char>(frame[1] & ~kRepeatBit);
  if (sequence < '1' || sequence > '7') return std::nullopt;
  // A host that missed the answer asks again and must not make the motor run twice.
  if (repeat && sequence == last_sequence_) return last_oem_answer_;
  last_sequence_ = sequence;
  last_oem_answer_ = kStx + replyText(execute(frame.substr(2), now), now);
  last_oem_answer_ += checksumOf(last_oem_answer_);
  return last_oem_answer_;
}

std::string SimulatedUnit::answerWithoutFirmware(const std::string& body) {
  // The loader ends what it was doing and prompts; what else it hears it does not know.
  return body == "T" ? "\r?" : "?\r";
}

bool SimulatedUnit::entersUpdate(const std::string& body) {
  const bool asks = body.starts_with('[') || body.starts_with(']');
  if (!asks || std::string_view(body).substr(1) != kAccessCode) return false;
  updating_ = true;
  piece_.clear();
  image_.clear();
  pieces_ = 0;
  return true;
}

std::span<const SimulatedUnit::Command> SimulatedUnit::commands() {
  using Unit = SimulatedUnit;
  using Text = std::string_view;
  // What came whole, and as DT, has been taken before.
  constexpr auto refuse = [](Unit&, Text, SimTime) {
    return Reply{ReplyCode::kInvalidOperand, {}};
  };
  static constexpr Command kCommands[] = {
      {"", "", "tell in the status whether it is ready",
       [](Unit&, Text, SimTime) {
         return Reply{ReplyCode::kNoError, {}};
       }},
      {"&", "", "tell the version",
       [](Unit& unit, Text, SimTime) {
         return Reply{ReplyCode::kNoError, unit.options_.version};
       }},
      {"!", "", "tell the processor's ID",
       [](Unit& unit, Text, SimTime) {
         return Reply{ReplyCode::kNoError, kIdPrefix + unit.options_.id};
       }},
      {"F", "", "tell the direction of counting",
       [](Unit& unit, Text, SimTime now) { return unit.answerQuery(9, now); }},
      {"?", "N", "tell the value N of the list below",
       [](Unit& unit, Text operand, SimTime now) {
         return unit.answerQuery(numberIn(operand).value_or(-1), now);
       }},
      {"T", "", "end the program that runs",
       [](Unit& unit, Text, SimTime now) {
         unit.motion_.terminate(now);
         return Reply{ReplyCode::kNoError, {}};
       }},
      {"b", "NR", "change the rate to N, 9600 to 230400, as b19200R",
       [](Unit& unit, Text operand, SimTime) {
         return Reply{unit.changeBaud(operand), {}};
       }},
      {"[", kAccessCode, "take a partial update; as a DT command only", refuse},
      {"]", kAccessCode, "take a full update; as a DT command only", refuse},
  };
  return kCommands;
}

SimulatedUnit::Reply SimulatedUnit::execute(std::string_view body, SimTime now) {
  for (const Command& command : commands()) {
    if (command.operand.empty() ? body != command.name : !body.starts_with(command.name)) continue;
    return command.answer(*this, body.substr(command.name.size()), now);
  }
  return {motion_.command(body, now), {}};
}

SimulatedUnit::Reply SimulatedUnit::answerQuery(long index, SimTime now) {
  const auto value = motion_.query(index, now);
  if (!value) return {ReplyCode::kInvalidOperand, {}};
  return {ReplyCode::kNoError, std::to_string(*value)};
}

ReplyCode SimulatedUnit::changeBaud(std::string_view operand) {
  if (!operand.ends_with('R')) return ReplyCode::kInvalidOperand;
  operand.remove_suffix(1);
  const auto rate = numberIn(operand);
  if (!rate || std::find(kRates.begin(), kRates.end(), *rate) == kRates.end()) {
    return ReplyCode::kInvalidOperand;
  }
  baud_ = static_cast<int>(*rate);
  return ReplyCode::kNoError;
}

std::string SimulatedUnit::replyText(const Reply& reply, SimTime now) {
  const int ready = motion_.busy(now) ? 0 : 0x20;
  const auto status = static_cast<char>(0x40 | ready | static_cast<int>(reply.code));
  return std::string("0") + status + reply.data + kEtx;
}

}  // namespace mvdirigo
