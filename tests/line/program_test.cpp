#include <signal.h>
#include <unistd.h>

#include <functional>

#include <QAccessible>
#include <QApplication>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

#include "core/stored_settings.h"
#include "support/config_home.h"

/// What `mvdirigo` starts with.
int programMain(int argc, char** argv);

using namespace mvdirigo;

static constexpr const char* kProgram = "--program";

/// What happens to the program: "keyboard" or "assistive" for how it is worked, or where and how it
/// is to end: "shown" or "box", and "exit", "session" or the number of a signal.
static std::string deed;

template <class Control>
static Control* find(const char* name) {
  for (QWidget* widget : QApplication::allWidgets()) {
    if (widget->objectName() == name) return qobject_cast<Control*>(widget);
  }
  return nullptr;
}

static void end() {
  find<QLineEdit>("StringToSend(1)")->setText("typed");
  for (const int failed_write : {SIGPIPE, SIGXFSZ}) kill(getpid(), failed_write);
  const std::string how = deed.substr(deed.find(' ') + 1);
  QEvent session_ends(QEvent::Quit);
  if (how == "exit") std::exit(1);  // As Qt does when the display server is gone.
  if (how == "session") return void(QApplication::sendEvent(qApp, &session_ends));
  kill(getpid(), std::stoi(how));
}

static void once(std::function<bool()> when, std::function<void()> act) {
  auto* timer = new QTimer(qApp);
  QObject::connect(timer, &QTimer::timeout, [=] {
    if (!when()) return;
    timer->stop();
    act();
  });
  timer->start(1);
}

static void closeConsole() { find<QWidget>("StringFun")->close(); }

static void key(int code, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
  QTest::keyClick(QApplication::focusWidget(), static_cast<Qt::Key>(code), modifiers);
}

/// Tab, until the control of that name has the focus.
static void goTo(const QString& name) {
  for (int presses = 0; QApplication::focusWidget()->objectName() != name && presses < 60;) {
    key(Qt::Key_Tab), ++presses;
  }
}

/// Types a command, sends it, and copies its reply into the second row.
static void workByKeyboard() {
  QTest::keyClick(find<QWidget>("StringFun"), Qt::Key_Tab);
  goTo("StringToSend(0)");
  key(Qt::Key_A, Qt::ControlModifier);
  QTest::keyClicks(QApplication::focusWidget(), "/1?0");
  key(Qt::Key_Return);
  const auto* reply = find<QLineEdit>("ReceiveString(0)");
  once([=] { return reply->text().startsWith("0 No Error"); },
       [] {
         key(Qt::Key_F6);
         key(Qt::Key_A, Qt::ControlModifier);
         key(Qt::Key_C, Qt::ControlModifier);
         key(Qt::Key_Down);
         key(Qt::Key_F6);
         key(Qt::Key_A, Qt::ControlModifier);
         key(Qt::Key_V, Qt::ControlModifier);
         closeConsole();
       });
}

/// What assistive tools see under that name.
static QAccessibleInterface* named(const char* name) {
  for (QWidget* widget : QApplication::allWidgets()) {
    auto* control = QAccessible::queryAccessibleInterface(widget);
    if (control->text(QAccessible::Name) == name) return control;
  }
  return nullptr;
}

/// Sends a command and puts the reply and what the strip says into the second row, all of it as an
/// assistive tool would. Then opens every window.
static void workByAssistiveTool() {
  const auto text = [](const char* name) { return named(name)->text(QAccessible::Value); };
  const auto press = [](const char* name) {
    named(name)->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
  };
  const auto stands = [](const char* window) {
    return [=] { return find<QWidget>(window) && find<QWidget>(window)->isVisible(); };
  };
  named("Command string 0")->setText(QAccessible::Value, "/1?0");
  press("Send String 0");
  once([=] { return text("Activity").contains("answered"); },
       [=] {
         const bool open = text("Line status").endsWith("open");
         const QString light = named("Status light 0")->text(QAccessible::Description);
         named("Command string 1")
             ->setText(QAccessible::Value, text("Reply 0") + (open ? ", open, " : ", ?") + light);
         for (const char* window : {"Traffic", "Help", "Settings"}) press(window);
         once(stands("frmFlash"), [] {
           find<QWidget>("frmFlash")->close();
           closeConsole();
         });
         once(stands("Settings"), [] { find<QPushButton>("cmdUpdate")->click(); });
       });
}

/// The hands inside the program, which are there from its first event on.
static void lendHands() {
  if (deed.starts_with("box")) return once(QApplication::activeModalWidget, end);
  const auto console_stands = [] {
    const auto* button = find<QPushButton>("SendCommand(0)");
    // Keys go to an active window only.
    return button && button->isVisible() && (deed != "keyboard" || button->isActiveWindow());
  };
  once(console_stands, deed == "keyboard"    ? workByKeyboard
                       : deed == "assistive" ? workByAssistiveTool
                                             : end);
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

  void workBy(const char* hands, const char* result) {
    writeFile(store_, "[Settings]\nRCVTimeout=20000\n");
    std::filesystem::remove(home_.portLink(1));
    EXPECT_EQ(run(hands, {MOVANE_SIM, "--"}), 0);
    EXPECT_EQ(kept(), result);
  }

  ConfigHome home_;
  const std::filesystem::path store_ = home_.path() / "Tolvaris MVDirigo.ini";
};

TEST_F(ProgramTest, IsWorkedByKeyboardAlone) { workBy("keyboard", "0 No Error"); }

TEST_F(ProgramTest, IsWorkedByAnAssistiveToolAlone) {
  workBy("assistive", "0 No Error, open, green");
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

int main(int argc, char** argv) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  if (argc == 3 && argv[1] == std::string(kProgram)) {
    deed = argv[2];
    qAddPreRoutine(lendHands);
    return programMain(argc, argv);
  }
  const QCoreApplication application(argc, argv);
  QCoreApplication::setApplicationName(kApplicationName);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
