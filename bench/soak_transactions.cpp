// Exchanges whose commands are numbered. The far end looks whether each number comes once and in
// order, and echoes it; the console's rows, of which a random one sends each, are to show it there
// and nowhere else.
#include <sched.h>
#include <unistd.h>

#include <array>
#include <random>
#include <string>
#include <string_view>

#include "soak.h"
#include "soak_seat.h"

namespace mvdirigo::bench {
namespace {

constexpr char kStx = 2;
constexpr char kEtx = 3;
constexpr int kRows = 11;
constexpr int kWarmUp = 300;

char checksumOf(std::string_view bytes) {
  char sum = 0;
  for (const char byte : bytes) sum = static_cast<char>(sum ^ byte);
  return sum;
}

/// Digits, whose frames never have a checksum that is STX: the receiver takes that for the start of
/// another frame.
std::string tokenOf(long number) { return std::to_string(number); }

class FarEnd {
 public:
  explicit FarEnd(Tally& tally) : tally_(tally) {}

  void serve(int line) {
    std::array<char, 256> bytes{};
    for (ssize_t count; (count = read(line, bytes.data(), bytes.size())) > 0;) {
      for (const char byte : std::string_view(bytes.data(), static_cast<std::size_t>(count))) {
        heard_ += byte;
        const bool oem = heard_.front() == kStx;
        const bool complete =
            oem ? heard_.size() > 1 && heard_[heard_.size() - 2] == kEtx : byte == '\r';
        if (!complete) continue;
        sendInParts(line, oem ? answerOem() : answerDt());
        heard_.clear();
      }
    }
  }

 private:
  std::string answerDt() {
    return "\xFF/" + replyTo(heard_.substr(0, heard_.size() - 1), "/1") + "\r\n";
  }
  std::string answerOem() {
    tally_.expect(checksumOf(heard_) == 0, "the far end got a wrong checksum");
    // The number goes on, except that a row that repeats keeps it and sets the bit.
    constexpr int kRepeatBit = 8;
    const int sequence = heard_.at(2) - '0';
    const int due = sequence & kRepeatBit ? sequence_ | kRepeatBit : sequence_ % 7 + 1;
    tally_.expect(sequence == due, "the far end got a wrong sequence number");
    sequence_ = sequence & ~kRepeatBit;
    heard_.erase(2, 1);
    std::string reply = kStx + replyTo(heard_.substr(0, heard_.size() - 2),
                                       "\x02"
                                       "1");
    return reply + checksumOf(reply);
  }
  std::string replyTo(std::string_view command, std::string_view before) {
    const std::string expected = std::string(before) + tokenOf(++number_);
    if (command != expected) {
      tally_.deviation("the far end got \"" + std::string(command) + "\" instead of \"" + expected +
                       '"');
    }
    return "0`" + std::string(command.substr(std::min(before.size(), command.size()))) + kEtx;
  }
  void sendInParts(int line, std::string_view reply) {
    if (random_() % 8 == 0) {
      const std::size_t part = random_() % reply.size();
      writeAll(line, reply.substr(0, part));
      sched_yield();
      reply.remove_prefix(part);
    }
    writeAll(line, reply);
  }

  Tally& tally_;
  std::string heard_;
  long number_ = 0;
  /// Of the last OEM frame; the first has number 2.
  int sequence_ = 1;
  std::minstd_rand random_;
};

class Rows : private LineTraffic::Watcher {
 public:
  Rows(Seat& seat, Tally& tally) : seat_(seat), tally_(tally) {
    seat.platform.lineTraffic().watch(this);
    for (int row = 0; row < kRows; ++row) {
      QObject::connect(&seat.row(row).reply, &QLineEdit::textChanged, [this, row] {
        ++changes_;
        changed_row_ = row;
      });
    }
  }

  ~Rows() override { seat_.platform.lineTraffic().watch(nullptr); }

  void exchange(bool oem) {
    pressOnce();
    // One that comes after the next press is, by the rules, the first character of its reply.
    if (!oem) waitForLineFeed();
  }

 private:
  void pressOnce() {
    const auto row = static_cast<int>(random_() % kRows);
    const std::string token = tokenOf(++number_);
    changes_ = 0;
    const std::string reply = seat_.exchange(row, "/1" + token);
    const std::string tip = seat_.row(row).reply.toolTip().toStdString();
    const bool good = reply == token + " No Error" && changes_ == 1 && changed_row_ == row &&
                      tip.find("0`" + token + "\\x03") != std::string::npos;
    if (good) return;
    tally_.deviation("row " + std::to_string(row) + " sent " + token + " and shows \"" + reply +
                     "\", \"" + tip + "\"; " + std::to_string(changes_) +
                     " rows changed, the last was " + std::to_string(changed_row_));
  }
  void waitForLineFeed() {
    static_cast<void>(seat_.platform.eventLoop().waitUntil([this] { return last_heard_ == '\n'; },
                                                           seat_.program.console().life()));
    seat_.platform.eventLoop().runPending();
  }
  void lineTransfer(const LineTransfer&, std::string_view bytes) override {
    last_heard_ = bytes.back();
  }

  Seat& seat_;
  Tally& tally_;
  char last_heard_ = 0;
  long number_ = 0;
  int changes_ = 0, changed_row_ = 0;
  std::minstd_rand random_;
};

}  // namespace

void soakTransactions(const Share& share) {
  Seat seat({{stored::kMaxStrings, std::to_string(kRows)}, {stored::kRCVTimeout, "4000"}},
            [&share](int line) { FarEnd(share.tally).serve(line); });
  Rows rows(seat, share.tally);
  for (const bool oem : {false, true}) {
    seat.chooseProtocol(oem);
    for (int i = 0; i < kWarmUp; ++i) rows.exchange(oem);
  }
  share.tally.warmedUp();
  for (const bool oem : {false, true}) {
    seat.chooseProtocol(oem);
    for (long i = 0; i < share.count; ++i) {
      rows.exchange(oem);
      share.tally.count();
    }
  }
  share.tally.finished();
}

}  // namespace mvdirigo::bench
