// The piece rate of a firmware update, through the update dialog itself, against a bare loop that
// sends the same pieces to the same movane-sim: as fast as they go, and at the pace of a
// 57600 bit/s line. Then with the line traffic window open against closed. Also the CPU time of the
// update's waits.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <QApplication>
#include <QComboBox>
#include <QProcess>

#include "app/program.h"
#include "core/stored_settings.h"
#include "support.h"

namespace mvdirigo::bench {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kPieceLength = 6;
constexpr int kFreePieces = 64 * 1024 / kPieceLength;
constexpr int kPacedPieces = 2000;
constexpr int kUpdates = 5;
/// Start, eight data bits, stop.
constexpr Microseconds kByteTime = Microseconds(10s) / 57600;
/// A piece and its acknowledgement.
constexpr Microseconds kPieceTime = (kPieceLength + 1) * kByteTime;
/// How long the dialog waits between "Status: Transmitting data..." and the first piece.
constexpr Microseconds kStartPause = 10ms;
/// After so much silence a simulated unit leaves the update mode.
constexpr auto kUnitLeavesUpdateMode = 3500ms;
constexpr const char* kHeader = "00100";

/// movane-sim on a core of its own, with a unit on port 1 that listens at 57600 bit/s and expects
/// the image of `file`.
class Unit {
 public:
  Unit(const std::string& file, bool paced) {
    QStringList arguments{"--unit", "port=1,address=1,baud=57600,version=Movane Stepper v7.01",
                          "--check-image", QString::fromStdString(file)};
    if (paced) arguments << "--paced";
    sim_.setChildProcessModifier([] { pinTo(1); });
    // `cat` starts once the links stand, and echoes.
    sim_.start(MOVANE_SIM, arguments << "--"
                                     << "cat");
    sim_.write("x");
    require(sim_.waitForReadyRead(), "movane-sim");
  }
  ~Unit() {
    sim_.closeWriteChannel();
    sim_.waitForFinished();
    require(sim_.exitCode() == 0, "the unit got another image");
  }

 private:
  QProcess sim_;
};

/// An update file with a header for a partial update, and `pieces` pieces.
std::string imageOf(int pieces) {
  std::string image = kHeader;
  for (std::size_t i = 0; i < static_cast<std::size_t>(pieces) * kPieceLength; ++i) {
    image += static_cast<char>(i * 7);
  }
  return image;
}

/// Returns how long the pieces of `image` took.
Microseconds sendBare(const std::string& device, std::string_view image) {
  const int line = open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  require(line >= 0, "open");
  setRaw(line, B57600);
  require(writeAll(line, "/1[40617\r") && readThrough(line, '?'), "update mode");
  image.remove_prefix(std::string_view(kHeader).size());
  const auto start = Clock::now();
  for (; !image.empty(); image.remove_prefix(kPieceLength)) {
    require(writeAll(line, image.substr(0, kPieceLength)) && readThrough(line, '\r'), "piece");
  }
  const Microseconds time = Clock::now() - start;
  close(line);
  std::this_thread::sleep_for(kUnitLeavesUpdateMode);
  return time;
}

/// The update dialog, whose buttons are clicked.
class UpdateDialog {
 public:
  explicit UpdateDialog(UnattendedPlatform& platform)
      : platform_(platform), program_(platform, [] {}) {
    program_.start();
  }
  ~UpdateDialog() { program_.console().close(); }

  /// Returns how long the pieces of `file` took, with the line traffic window open or closed.
  Microseconds send(const std::string& file, bool with_traffic) {
    platform_.file_to_open = file;
    if (with_traffic) {
      program_.showLineTraffic();
    } else if (program_.lineTraffic() != nullptr) {
      program_.lineTraffic()->close();
    }
    find<QPushButton>(program_.settings(), "cmdUpdate").click();
    QWidget& dialog = *program_.update();
    find<QComboBox>(dialog, "cboBaud").setCurrentText("57600");
    QObject::connect(&find<QLineEdit>(dialog, "txtStatus"), &QLineEdit::textChanged,
                     [this](const QString& status) { onStatus(status); });
    find<QPushButton>(dialog, "cmdLoadImage").click();
    find<QPushButton>(dialog, "cmdUpdate").click();
    require(status_ == "Status: OK", status_.toUtf8().constData());
    find<QPushButton>(dialog, "cmdClose").click();
    std::this_thread::sleep_for(kUnitLeavesUpdateMode);
    return end_ - start_ - kStartPause;
  }

 private:
  /// The settle pause stands between the change of the baud rate and the validation.
  void onStatus(const QString& status) {
    if (status == "Status: Negotiating baud rate...") cpu_ = CpuShare();
    if (status == "Status: Validating ZRF update file...") print("settle pause");
    if (status == "Status: Transmitting data...") {
      cpu_ = CpuShare();
      start_ = Clock::now();
    }
    if (status == "Status: Transfer complete...") {
      end_ = Clock::now();
      print("transfer");
    }
    status_ = status;
  }
  void print(const char* phase) const {
    std::printf("  CPU in the %s: %.2f %% of a core\n", phase, cpu_.percent());
  }

  UnattendedPlatform& platform_;
  Program program_;
  QString status_;
  CpuShare cpu_;
  Clock::time_point start_, end_;
};

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void compare(const Desk& desk, UpdateDialog& dialog, int pieces, bool paced) {
  const std::string image = imageOf(pieces);
  const std::string file = desk.file("image.zrf");
  std::ofstream(file, std::ios::binary) << image;
  const Unit unit(file, paced);
  std::printf("%s, %d pieces\n", paced ? "paced at 57600 bit/s" : "unpaced", pieces);

  // The machine's own speed wavers, so each update is compared with the bare loops before and after
  // it.
  std::vector<double> to_bare, to_limit, open_to_closed;
  Microseconds before = sendBare(desk.portLink(), image);
  for (int i = 0; i < kUpdates; ++i) {
    const Microseconds update = dialog.send(file, false);
    const Microseconds after = sendBare(desk.portLink(), image);
    const Microseconds with_traffic = dialog.send(file, true);
    const Microseconds bare = (std::exchange(before, after) + after) / 2;
    std::printf("  bare loop %.1f us a piece, update %.1f us a piece, with traffic window %.1f\n",
                bare.count() / pieces, update.count() / pieces, with_traffic.count() / pieces);
    to_bare.push_back(bare / update);
    to_limit.push_back(kPieceTime * pieces / update);
    open_to_closed.push_back(update / with_traffic);
  }
  std::printf("  rate of the update to the bare loop, median: %.3f\n", median(to_bare));
  if (paced)
    std::printf("  rate of the update to the line's limit, median: %.3f\n", median(to_limit));
  std::printf("  rate with the line traffic window open to closed, median: %.3f\n",
              median(open_to_closed));
}

void run(int argc, char** argv) {
  chooseDisplay();
  QApplication application(argc, argv);
  const Desk desk;
  UnattendedPlatform platform;
  writeSetting(platform.settingsStore(), stored::kBaudRate, "3");
  pinTo(0);
  UpdateDialog dialog(platform);
  compare(desk, dialog, kFreePieces, false);
  compare(desk, dialog, kPacedPieces, true);
}

}  // namespace
}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  mvdirigo::bench::run(argc, argv);
  return 0;
}
