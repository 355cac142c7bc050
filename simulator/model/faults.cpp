#include "simulator/model/faults.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace mvdirigo {
namespace {

constexpr char kStx = 2;
constexpr char kEtx = 3;
/// Noise of this length fits into memory, and a delay of as many ms into the time.
constexpr long kLargestAmount = 10'000'000;

constexpr FaultType kTypes[] = {
    {FaultKind::kSilent, "silent", 0, 0, 0, "no answers; with @PIECE none from that piece on"},
    {FaultKind::kLate, "late", 500, 500, kLargestAmount, "answers come AMOUNT ms late"},
    {FaultKind::kDrop, "drop", 10, 100, 100, "AMOUNT percent of the bytes of an answer are lost"},
    {FaultKind::kDouble, "double", 10, 100, 100, "AMOUNT percent of the bytes come twice"},
    {FaultKind::kCorrupt, "corrupt", 10, 100, 100, "AMOUNT percent of the bytes come changed"},
    {FaultKind::kGarbageBefore, "garbage-before", 5, 5, kLargestAmount,
     "AMOUNT bytes of noise before an answer"},
    {FaultKind::kLostEtx, "lost-etx", 100, 100, 100,
     "the ETX is lost in AMOUNT percent of the answers"},
    {FaultKind::kBadChecksum, "bad-checksum", 100, 100, 100,
     "the checksum is wrong in AMOUNT percent of the OEM answers"},
    {FaultKind::kEndless, "endless", -1, -1, kLargestAmount,
     "AMOUNT bytes of noise follow an answer; -1 for ever"},
    {FaultKind::kRefusePiece, "refuse-piece", 3, 3, kLargestAmount,
     "a piece is answered by \"Error AMOUNT\""},
    {FaultKind::kVanish, "vanish-at", 0, 0, kLargestAmount,
     "the device vanishes after AMOUNT bytes from the host, or instead of answering @PIECE; needs\n"
     "    one of them"},
    {FaultKind::kOtherRateGarbage, "other-rate-garbage", 0, 0, 0,
     "a host at another rate than a unit's hears noise instead of nothing"},
};

static_assert(std::size(kTypes) == static_cast<std::size_t>(FaultKind::kOtherRateGarbage) + 1,
              "a kind has no row");

const FaultType& typeOf(std::string_view name) {
  for (const FaultType& type : kTypes) {
    if (name == type.name) return type;
  }
  throw std::invalid_argument("there is no fault \"" + std::string(name) + "\"");
}

long numberOf(std::string_view digits, const std::string& what) {
  long number = 0;
  const auto end = digits.data() + digits.size();
  const auto parsed = std::from_chars(digits.data(), end, number);
  const std::string quoted = what + " \"" + std::string(digits) + '"';
  if (parsed.ec == std::errc::result_out_of_range) {
    throw std::invalid_argument(quoted + " is too large");
  }
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    throw std::invalid_argument(quoted + " is no whole number");
  }
  return number;
}

}  // namespace

std::span<const FaultType> faultTypes() { return kTypes; }

LineFault parseFault(std::string_view text) {
  const std::size_t at = std::min(text.find('@'), text.size());
  const std::size_t equals = std::min(text.find('='), at);
  const FaultType& type = typeOf(text.substr(0, equals));
  LineFault fault{type.kind, type.default_amount, 0};
  if (at < text.size()) {
    const long piece = numberOf(text.substr(at + 1), "the piece");
    if (piece < 1 || piece > 1'000'000'000) {
      throw std::invalid_argument("a piece is from 1 to 1000000000, not " + std::to_string(piece));
    }
    fault.piece = static_cast<int>(piece);
    fault.amount = type.default_amount_at_piece;
  }
  if (equals < at) fault.amount = numberOf(text.substr(equals + 1, at - equals - 1), "the amount");
  if (type.largest_amount == 0 && fault.amount != 0) {
    throw std::invalid_argument('"' + std::string(type.name) +
                                "\" takes no amount, but was given " +
                                std::to_string(fault.amount));
  }
  const long least = std::min(type.default_amount, 0L);
  if (fault.amount < least || fault.amount > type.largest_amount) {
    throw std::invalid_argument(
        "the amount of \"" + std::string(type.name) + "\" is from " + std::to_string(least) +
        " to " + std::to_string(type.largest_amount) + ", not " + std::to_string(fault.amount));
  }
  if (fault.kind == FaultKind::kVanish && fault.piece == 0 && fault.amount == 0) {
    throw std::invalid_argument("\"vanish-at\" needs a number of bytes or a piece");
  }
  return fault;
}

std::string describeFault(const LineFault& fault) {
  const auto* type = std::find_if(std::begin(kTypes), std::end(kTypes),
                                  [&](const FaultType& known) { return known.kind == fault.kind; });
  const std::string text = std::string(type->name) + "=" + std::to_string(fault.amount);
  return fault.piece == 0 ? text : text + "@" + std::to_string(fault.piece);
}

LineFaults::Outcome LineFaults::apply(std::string bytes, int piece) {
  Outcome outcome{std::move(bytes)};
  for (const LineFault& fault : faults_) {
    const bool from_here_on = fault.kind == FaultKind::kSilent && piece > fault.piece;
    if (fault.piece == 0 || fault.piece == piece || from_here_on) damage(fault, outcome);
  }
  return outcome;
}

void LineFaults::damage(const LineFault& fault, Outcome& outcome) {
  std::string& bytes = outcome.bytes;
  switch (fault.kind) {
    case FaultKind::kSilent:
      bytes.clear();
      break;
    case FaultKind::kLate:
      outcome.delay += std::chrono::milliseconds(fault.amount);
      break;
    case FaultKind::kDrop:
      std::erase_if(bytes, [&](char) { return happens(fault.amount); });
      break;
    case FaultKind::kDouble:
      for (const char byte : std::exchange(bytes, {})) {
        bytes.append(happens(fault.amount) ? 2 : 1, byte);
      }
      break;
    case FaultKind::kCorrupt:
      for (char& byte : bytes) {
        if (happens(fault.amount)) byte ^= static_cast<char>(1 + random_() % 255);
      }
      break;
    case FaultKind::kGarbageBefore: {
      std::string garbage(static_cast<std::size_t>(fault.amount), '\0');
      std::generate(garbage.begin(), garbage.end(), [&] { return noise(); });
      bytes.insert(0, garbage);
      break;
    }
    case FaultKind::kLostEtx:
      if (happens(fault.amount)) std::erase(bytes, kEtx);
      break;
    case FaultKind::kBadChecksum:
      if (bytes.starts_with(kStx) && happens(fault.amount)) bytes.back() ^= 0x55;
      break;
    case FaultKind::kEndless:
      outcome.noise = fault.amount;
      break;
    case FaultKind::kVanish:
      if (fault.piece != 0) outcome.device_vanishes = true;
      break;
    case FaultKind::kRefusePiece:
    case FaultKind::kOtherRateGarbage:
      break;
  }
}

std::optional<long> LineFaults::refusal(int piece) const {
  for (const LineFault& fault : faults_) {
    const bool concerned = fault.piece == 0 || fault.piece == piece;
    if (fault.kind == FaultKind::kRefusePiece && concerned) return fault.amount;
  }
  return std::nullopt;
}

bool LineFaults::vanishesAt(long host_bytes) const {
  return std::any_of(faults_.begin(), faults_.end(), [&](const LineFault& fault) {
    return fault.kind == FaultKind::kVanish && fault.piece == 0 && fault.amount == host_bytes;
  });
}

bool LineFaults::garbageAtOtherRates() const {
  return std::any_of(faults_.begin(), faults_.end(), [](const LineFault& fault) {
    return fault.kind == FaultKind::kOtherRateGarbage;
  });
}

}  // namespace mvdirigo
