#include "soak_seat.h"

#include <termios.h>

#include <random>

#include <QComboBox>
#include <QEventLoop>
#include <QMessageBox>
#include <QRadioButton>
#include <QTimer>

#include "soak.h"

namespace mvdirigo::bench {
namespace {

using namespace std::chrono_literals;

constexpr int kBoxStandsMs = 40;
constexpr const char* kHeader = "003A7";
constexpr std::size_t kImageBytes = 64 * 1024;
constexpr std::size_t kPieceBytes = 6;

/// Answers the topmost box.
void answerBox() {
  auto* shown = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
  if (shown == nullptr) return;
  QAbstractButton* yes = shown->button(QMessageBox::Yes);
  (yes != nullptr ? yes : shown->button(QMessageBox::Ok))->click();
}

/// As the controls of an array have it behind their names.
std::string indexText(int index) { return '(' + std::to_string(index) + ')'; }

int baudOf(int fd) {
  termios settings{};
  if (tcgetattr(fd, &settings) != 0) return 0;
  switch (cfgetospeed(&settings)) {
    case B9600:
      return 9600;
    case B19200:
      return 19200;
    case B38400:
      return 38400;
    case B57600:
      return 57600;
    default:
      return 0;
  }
}

}  // namespace

BoxButton AnsweringPlatform::Answers::messageBox(const std::string& text, int style) {
  platform_.boxes.push_back(text);
  QTimer::singleShot(kBoxStandsMs, answerBox);
  if (platform_.on_box) QTimer::singleShot(0, [this, text] { platform_.on_box(text); });
  return platform_.QtPlatform::dialogs().messageBox(text, style);
}

Seat::Seat(const StoredValues& values, const std::function<void(int)>& serve)
    : line_(serve ? std::make_optional<Line>(serve, Line::Cores::kAny) : std::nullopt),
      application_(argc_, argv_),
      program(platform, [] {}) {
  if (line_) {
    desk.plug(line_->path());
  } else {
    desk.unplug();
  }
  for (const auto& [setting, value] : values) {
    writeSetting(platform.settingsStore(), setting, value);
  }
  QApplication::setQuitOnLastWindowClosed(false);
  program.start();
  const QWidget& console = program.console();
  for (int number = 0; number < kStoredRows; ++number) {
    const std::string index = indexText(number);
    rows_.push_back({find<QPushButton>(console, ("SendCommand" + index).c_str()),
                     find<QLineEdit>(console, ("StringToSend" + index).c_str()),
                     find<QLineEdit>(console, ("ReceiveString" + index).c_str())});
  }
}

void Seat::clickBar(int button) {
  click(program.console(), ("LoadButton" + indexText(button)).c_str());
}

void Seat::chooseProtocol(bool oem) {
  find<QRadioButton>(program.settings(), oem ? "OEMProtocol" : "DTProtocol").click();
}

std::string Seat::exchange(int row_number, const std::string& text) {
  const Row& row = this->row(row_number);
  row.command.setText(QString::fromStdString(text));
  row.send.click();
  static_cast<void>(platform.eventLoop().waitUntil([&] { return row.send.isEnabled(); },
                                                   program.console().life()));
  return row.reply.text().toStdString();
}

std::string Seat::update(const std::string& file) {
  platform.file_to_open = file;
  click(program.settings(), "cmdUpdate");
  QWidget& dialog = *program.update();
  find<QComboBox>(dialog, "cboBaud").setCurrentText("57600");
  click(dialog, "cmdLoadImage");
  click(dialog, "cmdUpdate");
  return find<QLineEdit>(dialog, "txtStatus").text().toStdString();
}

void Seat::leaveUpdate() {
  if (program.update() != nullptr) click(*program.update(), "cmdClose");
  click(program.settings(), "cmdOK");
}

void Seat::run(int duration_ms) {
  QEventLoop loop;
  QTimer::singleShot(duration_ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
  loop.exec();
}

bool Seat::runUntil(const std::function<bool()>& done, int limit_ms) {
  constexpr int kLookMs = 5;
  for (const auto end = Clock::now() + std::chrono::milliseconds(limit_ms); !done();) {
    if (Clock::now() > end) return false;
    run(kLookMs);
  }
  return true;
}

std::string makeImage(long number) {
  std::mt19937 random(static_cast<std::uint32_t>(number));
  std::string image = kHeader;
  for (std::size_t i = 0; i < kImageBytes; ++i) image += static_cast<char>(random());
  return image;
}

std::string keptOf(const std::string& image) {
  std::string kept = image.substr(std::string_view(kHeader).size());
  kept.resize((kept.size() + kPieceBytes - 1) / kPieceBytes * kPieceBytes, ' ');
  return kept;
}

std::string FarUnit::answer(int fd, std::string_view bytes) {
  const auto now = std::chrono::duration_cast<SimTime>(Clock::now().time_since_epoch());
  const int baud = baudOf(fd);
  std::string answer;
  for (const char byte : bytes) {
    // The model's units are never asleep and don't answer what wakes them.
    if (byte == '\xAA' && !unit().updating()) {
      answer += '\r';
      continue;
    }
    bus_.receive(byte, baud, now);
    answer += bus_.advance(now, baud);
  }
  return answer;
}

}  // namespace mvdirigo::bench
