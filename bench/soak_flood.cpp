// Replies without an end, as fast as the line takes them, in each of the program's receivers: the
// window lives, the memory stays, and afterwards everything works.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <QTimer>

#include "soak.h"
#include "soak_seat.h"

namespace mvdirigo::bench {
namespace {

constexpr std::int64_t kMiB = 1024 * 1024;
/// What a receiver keeps, and what a row shows of it.
constexpr std::int64_t kKept = 65'536;
constexpr int kShown = 4000;
constexpr int kTickMs = 10;
/// Somebody would call the window frozen.
constexpr auto kLongestGap = std::chrono::milliseconds(500);
constexpr long kRoomToGrowKib = 1024;
constexpr int kFloodLimitMs = 600'000;

/// A flood: the end of the command that brings it, and what stands before and behind it.
struct Flood {
  const char* name;
  std::string_view command;
  std::string_view before, behind;
};

// A digit or a control character in the flood would be one that a receiver looks for. Of the OEM
// frame the checksum is that of whole MiB of the flood.
constexpr Flood kFloods[] = {{"DT", "Q\r", "\xFF/0`", "\x03\r\n"},
                             {"OEM", "Q\x03",
                              "\x02"
                              "0`",
                              "\x03"},
                             {"update", "[40617\r", "", ""}};

struct FarEndNotes {
  std::atomic<int> flood = 0;
  std::atomic<std::int64_t> bytes = 0;
  Stamp begun;
  /// Set by the host: the next bytes go to a unit that was just switched on.
  std::atomic<bool> restart = false;
};

char floodByte(std::int64_t position) { return static_cast<char>('a' + position % 26); }

void sendFlood(int line, const Flood& flood, std::int64_t bytes) {
  char sum = 0;
  const auto send = [&](std::string_view text) {
    for (const char byte : text) sum = static_cast<char>(sum ^ byte);
    static_cast<void>(writeAll(line, text));
  };
  send(flood.before);
  std::string block;
  for (std::int64_t sent = 0; sent < bytes; sent += static_cast<std::int64_t>(block.size())) {
    block.clear();
    while (block.size() < 4096) {
      block += floodByte(sent + static_cast<std::int64_t>(block.size()));
    }
    send(block);
  }
  send(flood.behind);
  if (flood.before.starts_with('\x02')) static_cast<void>(writeAll(line, {&sum, 1}));
}

void serve(int line, FarEndNotes& notes) {
  std::optional<FarUnit> far_unit(std::in_place);
  std::array<char, 256> bytes{};
  for (ssize_t count; (count = read(line, bytes.data(), bytes.size())) > 0;) {
    const std::string_view heard(bytes.data(), static_cast<std::size_t>(count));
    if (notes.restart.exchange(false)) far_unit.emplace();
    const Flood& flood = kFloods[static_cast<std::size_t>(notes.flood)];
    if (notes.bytes > 0 && heard.find(flood.command) != std::string_view::npos) {
      notes.begun.take();
      sendFlood(line, flood, notes.bytes.exchange(0));
    } else {
      static_cast<void>(writeAll(line, far_unit->answer(line, heard)));
    }
  }
}

/// How long the windows' events had to wait at the worst, and how much memory there was at the
/// most, since it was made.
class Pulse {
 public:
  Pulse() {
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [this] { tick(); });
    timer_.start(kTickMs);
  }
  Clock::duration worst() const { return worst_; }
  long grownKib() const { return most_kib_ - before_kib_; }

 private:
  void tick() {
    worst_ = std::max(worst_, Clock::now() - last_ - std::chrono::milliseconds(kTickMs));
    constexpr int kTicksALook = 20;
    if (++ticks_ % kTicksALook == 0) {
      most_kib_ = std::max(most_kib_, Holdings::now().resident_kib);
      // What the first floods make for good is no growth.
      if (ticks_ == kTicksALook) before_kib_ = most_kib_;
    }
    last_ = Clock::now();
  }

  QTimer timer_;
  Clock::time_point last_ = Clock::now();
  Clock::duration worst_{};
  int ticks_ = 0;
  long most_kib_ = 0, before_kib_ = 0;
};

/// Counts what comes in, in whole MiB as the tally does.
class Heard : public LineTraffic::Watcher {
 public:
  explicit Heard(Tally& tally) : tally_(tally) {}
  void lineTransfer(const LineTransfer& transfer, std::string_view transferred) override {
    if (transfer.direction != LineTransfer::Direction::kIn) return;
    last = Clock::now();
    const std::int64_t before = std::exchange(bytes, bytes + std::ssize(transferred));
    if (counting) tally_.count(bytes / kMiB - before / kMiB);
  }

  std::int64_t bytes = 0;
  Clock::time_point last;
  bool counting = false;

 private:
  Tally& tally_;
};

class Floods {
 public:
  Floods(const Share& share, FarEndNotes& notes)
      : tally_(share.tally),
        notes_(notes),
        bytes_(share.count * kMiB),
        seat_({{stored::kRCVTimeout, "3600000"}}, [&notes](int line) { serve(line, notes); }),
        heard_(share.tally) {
    seat_.platform.lineTraffic().watch(&heard_);
    std::ofstream(file_, std::ios::binary) << makeImage(0);
  }
  ~Floods() { seat_.platform.lineTraffic().watch(nullptr); }

  void run() {
    expectAllWorks();
    floodConsole(0, kMiB);
    tally_.warmedUp();
    heard_.counting = true;
    floodConsole(0, bytes_);
    seat_.chooseProtocol(true);
    floodConsole(1, bytes_);
    seat_.chooseProtocol(false);
    floodUpdate();
    heard_.counting = false;
    expectAllWorks();
    tally_.finished();
  }

 private:
  void start(int flood, std::int64_t bytes) {
    notes_.flood = flood;
    notes_.bytes = bytes;
    heard_.bytes = 0;
  }
  void floodConsole(int flood, std::int64_t bytes) {
    start(flood, bytes);
    const Pulse pulse;
    const std::string reply = seat_.exchange(0, "/1Q");
    report(kFloods[static_cast<std::size_t>(flood)].name, pulse);
    expectNewestShown(reply, flood, bytes);
    tally_.expect(heard_.bytes >= bytes, "the line lost bytes");
    expectExchangeWorks();
  }
  /// The last byte before the ETX of the reply is the last of the flood.
  void expectNewestShown(const std::string& reply, int flood, std::int64_t bytes) {
    // The DT decoder passes over four characters, the OEM one over two.
    const std::int64_t first = bytes + 1 - kKept + (flood == 0 ? 4 : 2);
    std::string expected;
    for (int i = 0; i < kShown; ++i) expected += floodByte(first + i);
    // The OEM decoder takes one of the characters for the status.
    tally_.expect(
        reply.starts_with(expected + "\u2026 "),
        "the row does not show the newest 65,536 characters, but \"" + reply.substr(0, 60) + '"');
    tally_.expect(seat_.row(0).reply.toolTip().size() < 1000, "the tool tip is too long");
  }
  void floodUpdate() {
    start(2, bytes_);
    const Pulse pulse;
    seat_.platform.boxes.clear();
    notes_.restart = true;
    seat_.update(file_);
    tally_.expect(seat_.runUntil([this] { return heard_.bytes >= bytes_; }, kFloodLimitMs),
                  "the update's line lost bytes");
    report("update", pulse);
    tally_.expect(seat_.platform.boxes.size() == 2 &&
                      seat_.platform.boxes.back() == " 20 Unrecognized response from Unit, Exiting",
                  "there were other boxes than the confirmation and the missing prompt");
    seat_.leaveUpdate();
  }

  void expectExchangeWorks() {
    // A line feed that comes after the press is, by the rules, the first character of its reply.
    seat_.run(kTickMs);
    const std::string reply = seat_.exchange(1, "/1&");
    tally_.expect(reply == UnitOptions{}.version + " No Error",
                  "an exchange brought \"" + reply + '"');
    seat_.row(1).reply.clear();
  }
  void expectAllWorks() {
    notes_.restart = true;
    expectExchangeWorks();
    const std::string status = seat_.update(file_);
    tally_.expect(status == "Status: OK", "an update ended with \"" + status + '"');
    seat_.leaveUpdate();
    notes_.restart = true;
    expectExchangeWorks();
  }
  void report(const char* receiver, const Pulse& pulse) {
    const double seconds = std::chrono::duration<double>(heard_.last - notes_.begun.get()).count();
    const double worst_ms = std::chrono::duration<double, std::milli>(pulse.worst()).count();
    std::printf("  %s: %.2f MiB/s, a tick %.1f ms late at the worst, %ld KiB grown\n", receiver,
                static_cast<double>(heard_.bytes) / kMiB / seconds, worst_ms, pulse.grownKib());
    tally_.expect(pulse.worst() < kLongestGap, "the window froze");
    tally_.expect(pulse.grownKib() < kRoomToGrowKib, "memory has grown in a flood");
  }

  Tally& tally_;
  FarEndNotes& notes_;
  const std::int64_t bytes_;
  Seat seat_;
  const std::string file_ = seat_.desk.file("image.zrf");
  Heard heard_;
};

}  // namespace

void soakFlood(const Share& share) { Floods(share, makeShared<FarEndNotes>()).run(); }

}  // namespace mvdirigo::bench
