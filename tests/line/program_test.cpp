#include <signal.h>
#include <unistd.h>

#include <functional>

#include <QApplication>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <gtest/gtest.h>

#include "core/stored_settings.h"
#include "support/config_home.h"

/// What `mvdirigo` starts with.
int programMain(int argc, char** argv);

namespace mvdirigo {
namespace {

constexpr const char* kProgram = "--program";

/// What happens to the program: "exchange", or where and how it is to end: "shown" or "box", and
/// "exit", "session" or the number of a signal.
std::string deed;

template <class Control>
Control* find(const char* name) {
  for (QWidget* widget : QApplication::allWidgets()) {
    if (widget->objectName() == name) return qobject_cast<Control*>(widget);
  }
  return nullptr;
}

void type(const QString& text) { find<QLineEdit>("StringToSend(1)")->setText(text); }

void end() {
  type("typed");
  const std::string how = deed.substr(deed.find(' ') + 1);
  QEvent session_ends(QEvent::Quit);
  if (how == "exit") std::exit(1);  // As Qt does when the display server is gone.
  if (how == "session") return void(QApplication::sendEvent(qApp, &session_ends));
  kill(getpid(), std::stoi(how));
}

void once(std::function<bool()> when, std::function<void()> act) {
  auto* timer = new QTimer(qApp);
  QObject::connect(timer, &QTimer::timeout, [=] {
    if (!when()) return;
    timer->stop();
    act();
  });
  timer->start(1);
}

void exchange() {
  find<QPushButton>("SendCommand(0)")->click();
  const auto* reply = find<QLineEdit>("ReceiveString(0)");
  once([=] { return !reply->text().isEmpty(); },
       [=] { type(reply->text()), reply->window()->close(); });
}

/// The hands inside the program, which are there from its first event on.
void lendHands() {
  if (deed.starts_with("box")) return once(QApplication::activeModalWidget, end);
  const auto console_stands = [] {
    const auto* button = find<QPushButton>("SendCommand(0)");
    return button && button->isVisible();
  };
  once(console_stands, deed == "exchange" ? exchange : end);
}

class ProgramTest : public ::testing::Test {
 protected:
  /// Keeps the program, which tries every port at its start, off this computer's own.
  ProgramTest() {
    for (int port = 1; port <= 16; ++port) home_.link(port, "/dev/no-device");
  }

  /// Runs the program, behind `command` if there is one, does the deed, and returns the exit code.
  static int run(const std::string& what, QStringList command = {}) {
    command << QCoreApplication::applicationFilePath() << kProgram << what.c_str();
    QProcess program;
    program.setProcessChannelMode(QProcess::ForwardedChannels);
    program.start(command.takeFirst(), command);
    EXPECT_TRUE(program.waitForFinished());
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
    return program.exitCode();
  }
  /// The second row as it was kept, if all 26 were.
  std::string kept() const {
    const QSettings store(store_.c_str(), QSettings::IniFormat);
    EXPECT_EQ(store.allKeys().filter("Strings/StringToSend").size(), kStoredRows);
    return store.value("Strings/StringToSend1").toString().toStdString();
  }

  ConfigHome home_;
  const std::filesystem::path store_ = home_.path() / "Tolvaris MVDirigo.ini";
};

TEST_F(ProgramTest, ExchangesAStringWithAUnit) {
  writeFile(store_, "[Settings]\nRCVTimeout=20000\n");
  std::filesystem::remove(home_.portLink(1));
  EXPECT_EQ(run("exchange", {MOVANE_SIM, "--"}), 0);
  EXPECT_EQ(kept(), "Movane Stepper v7.02 No Error");
}

TEST_F(ProgramTest, KeepsItsRowsHoweverItIsEnded) {
  const std::pair<const char*, int> ways[] = {
      {"shown 1", 0},    {"shown 2", 0}, {"shown 15", 0},   {"shown session", 0},
      {"shown exit", 1}, {"box 15", 0},  {"box session", 0}};
  for (const auto& [way, code] : ways) {
    writeFile(store_, "[Settings]\nMaxStrings=30\n");  // Too many, so a box of the start says so.
    if (way[0] == 's') std::filesystem::remove(store_);
    EXPECT_EQ(run(way), code) << way;
    EXPECT_EQ(kept(), "typed") << way;
  }
}

}  // namespace
}  // namespace mvdirigo

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  if (argc == 3 && argv[1] == std::string(mvdirigo::kProgram)) {
    mvdirigo::deed = argv[2];
    qAddPreRoutine(mvdirigo::lendHands);
    return programMain(argc, argv);
  }
  const QCoreApplication application(argc, argv);
  QCoreApplication::setApplicationName(mvdirigo::kApplicationName);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
