// The piece rate of a firmware update, through the update dialog itself, against a bare loop that
// sends the same pieces to the same unit: as fast as they go, and at the pace of a 57600 bit/s
// line. Then the CPU time of the update's waits.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>

#include <QApplication>
#include <QComboBox>

#include "app/program.h"
#include "support.h"

namespace mvdirigo::bench {
namespace {

constexpr int kPieceLength = 6;
constexpr int kFreePieces = 64 * 1024 / kPieceLength;
constexpr int kPacedPieces = 8000;
/// Start, eight data bits, stop.
constexpr auto kByteTime = std::chrono::nanoseconds(std::chrono::seconds(10)) / 57600;
/// A piece and its acknowledgement.
constexpr auto kPieceTime = (kPieceLength + 1) * kByteTime;

struct Unit {
  /// How many pieces the unit takes before it listens to commands again.
  std::atomic<int> pieces = 0;
  std::atomic<bool> paced = false;
  Stamp first_piece, last_acknowledgement;

  Microseconds transferTime() const { return last_acknowledgement.get() - first_piece.get(); }
};

/// Takes `unit.pieces` pieces. A pace is kept by watching the clock: sleeping is not precise
/// enough.
bool takePieces(int line, Unit& unit) {
  for (int taken = 0; taken < unit.pieces; ++taken) {
    std::array<char, kPieceLength> piece{};
    for (std::size_t have = 0; have < piece.size();) {
      const ssize_t count = read(line, piece.data() + have, piece.size() - have);
      if (count <= 0) return false;
      have += static_cast<std::size_t>(count);
    }
    if (taken == 0) unit.first_piece.take();
    if (unit.paced) {
      const auto due = Clock::now() + kPieceTime;
      while (Clock::now() < due) {
      }
    }
    // In time for the host, which may look as soon as it has the last one.
    unit.last_acknowledgement.take();
    if (!writeAll(line, "\r")) return false;
  }
  return true;
}

/// A unit with a version that needs no further question, and its update mode.
void answer(int line, Unit& unit) {
  std::string command;
  for (char byte = 0; read(line, &byte, 1) == 1;) {
    if (byte == '\xAA') {
      writeAll(line, "\r");
      continue;
    }
    if (byte != '\r') {
      command += byte;
      continue;
    }
    if (command.find('[') != std::string::npos) {
      writeAll(line, "?");
      if (!takePieces(line, unit)) return;
    } else if (command.find('b') == std::string::npos) {
      writeAll(line, "\xFF/0@Movane Stepper v7.01\x03\r\n");
    }
    command.clear();
  }
}

/// An update file with a header for a partial update, and `pieces` pieces.
std::string imageOf(int pieces) {
  std::string image = "00100";
  for (int i = 0; i < pieces * kPieceLength; ++i) image += static_cast<char>(i * 7);
  return image;
}

Microseconds sendBare(const Line& line, Unit& unit, std::string_view image) {
  line.setRaw();
  require(writeAll(line.fd(), "/1[40617\r") && readThrough(line.fd(), '?'), "update mode");
  for (image.remove_prefix(5); !image.empty(); image.remove_prefix(kPieceLength)) {
    require(writeAll(line.fd(), image.substr(0, kPieceLength)) && readThrough(line.fd(), '\r'),
            "piece");
  }
  return unit.transferTime();
}

/// The update dialog, whose buttons are clicked.
class UpdateDialog {
 public:
  explicit UpdateDialog(UnattendedPlatform& platform)
      : platform_(platform), program_(platform, [] {}) {
    program_.start();
    find<QPushButton>(program_.settings(), "cmdUpdate").click();
    find<QComboBox>(*program_.update(), "cboBaud").setCurrentText("57600");
    QObject::connect(&find<QLineEdit>(*program_.update(), "txtStatus"), &QLineEdit::textChanged,
                     [this](const QString& status) { onStatus(status); });
  }
  ~UpdateDialog() { program_.console().close(); }

  void send(const std::string& file) {
    platform_.file_to_open = file;
    find<QPushButton>(*program_.update(), "cmdLoadImage").click();
    find<QPushButton>(*program_.update(), "cmdUpdate").click();
    require(status_ == "Status: OK", "update");
    find<QPushButton>(*program_.update(), "cmdClose").click();
    find<QPushButton>(program_.settings(), "cmdUpdate").click();
  }

 private:
  /// The settle pause stands between the change of the baud rate and the validation.
  void onStatus(const QString& status) {
    if (status == "Status: Negotiating baud rate...") cpu_ = CpuShare();
    if (status == "Status: Validating ZRF update file...") print("settle pause");
    if (status == "Status: Transmitting data...") cpu_ = CpuShare();
    if (status == "Status: Transfer complete...") print("transfer");
    status_ = status;
  }
  void print(const char* phase) const {
    std::printf("  CPU in the %s: %.2f %% of a core\n", phase, cpu_.percent());
  }

  UnattendedPlatform& platform_;
  Program program_;
  QString status_;
  CpuShare cpu_;
};

void compare(const Line& line, Unit& unit, const Desk& desk, UpdateDialog& dialog, int pieces,
             bool paced) {
  unit.pieces = pieces;
  unit.paced = paced;
  const std::string image = imageOf(pieces);
  std::ofstream(desk.file("image.zrf"), std::ios::binary) << image;

  const Microseconds before = sendBare(line, unit, image);
  dialog.send(desk.file("image.zrf"));
  const Microseconds update = unit.transferTime();
  const Microseconds after = sendBare(line, unit, image);

  const Microseconds bare = (before + after) / 2;
  const auto print = [&](const char* name, Microseconds time) {
    std::printf("  %-12s %8.1f us a piece %10.0f pieces/s\n", name, time.count() / pieces,
                pieces / std::chrono::duration<double>(time).count());
  };
  std::printf("%s, %d pieces\n", paced ? "paced at 57600 bit/s" : "unpaced", pieces);
  print("bare, before", before);
  print("bare, after", after);
  print("update", update);
  if (paced) print("line's limit", kPieceTime * pieces);
  std::printf("  rate of the update to the bare loop %.3f", bare / update);
  if (paced)
    std::printf(", to the line's limit %.3f, of the bare loop to the line's limit %.3f",
                kPieceTime * pieces / update, kPieceTime * pieces / bare);
  std::printf("\n");
}

void run(int argc, char** argv) {
  auto& unit = makeShared<Unit>();
  const Line line([&unit](int far_end) { answer(far_end, unit); });
  chooseDisplay();
  QApplication application(argc, argv);
  const Desk desk(line);
  UnattendedPlatform platform;
  UpdateDialog dialog(platform);
  compare(line, unit, desk, dialog, kFreePieces, false);
  if (!getenv("UB")) compare(line, unit, desk, dialog, kPacedPieces, true);
}

}  // namespace
}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  mvdirigo::bench::run(argc, argv);
  return 0;
}
