// Firmware updates through the update dialog, one after the other, each with an image of its own
// that is compared with what the unit has got.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <optional>
#include <string>

#include "soak.h"
#include "soak_seat.h"

namespace mvdirigo::bench {
namespace {

/// What the unit at the far end has got, byte by byte as it came.
struct Unit {
  static constexpr std::size_t kRoom = 128 * 1024;

  std::string image() const { return {bytes.begin(), bytes.begin() + size}; }

  /// Set by the host: the next bytes go to a unit that was just switched on.
  std::atomic<bool> restart = true;
  std::atomic<long> size = 0;
  std::array<char, kRoom> bytes{};
};

void serve(int line, Unit& shared) {
  std::optional<FarUnit> far_unit;
  std::array<char, 256> bytes{};
  for (ssize_t count; (count = read(line, bytes.data(), bytes.size())) > 0;) {
    if (shared.restart.exchange(false)) {
      far_unit.emplace();
      shared.size = 0;
    }
    const std::string answer =
        far_unit->answer(line, {bytes.data(), static_cast<std::size_t>(count)});
    // Before the host is told that it came.
    const std::string& image = far_unit->unit().image();
    const auto known = static_cast<std::size_t>(shared.size);
    if (image.size() > known && image.size() <= Unit::kRoom) {
      std::copy(image.begin() + shared.size, image.end(), shared.bytes.begin() + shared.size);
      shared.size = static_cast<long>(image.size());
    }
    if (!answer.empty() && !writeAll(line, answer)) return;
  }
}

void updateOnce(Seat& seat, Unit& unit, long number, Tally& tally) {
  const std::string image = makeImage(number);
  const std::string file = seat.desk.file("image.zrf");
  std::ofstream(file, std::ios::binary) << image;
  seat.platform.boxes.clear();
  unit.restart = true;
  const std::string status = seat.update(file);
  tally.expect(status == "Status: OK",
               "update " + std::to_string(number) + " ended with \"" + status + '"');
  seat.leaveUpdate();
  const std::string kept = keptOf(image), got = unit.image();
  const auto differs = std::ranges::mismatch(got, kept).in1 - got.begin();
  tally.expect(got == kept, "update " + std::to_string(number) + ": the unit has got " +
                                std::to_string(got.size()) + " bytes, which differ from byte " +
                                std::to_string(differs) + " on");
  const auto& boxes = seat.platform.boxes;
  tally.expect(boxes.size() == 1,
               boxes.empty() ? "there was no box" : "the last box says \"" + boxes.back() + '"');
}

}  // namespace

void soakUpdates(const Share& share) {
  auto& unit = makeShared<Unit>();
  Seat seat({}, [&unit](int line) { serve(line, unit); });
  for (long i = 0; i < share.count; ++i) {
    updateOnce(seat, unit, share.first + i, share.tally);
    // The first one loads what all need.
    if (i == 0) share.tally.warmedUp();
    share.tally.count();
  }
  share.tally.finished();
}

}  // namespace mvdirigo::bench
