// The console on the serial drivers of the system it runs on. scripts/real-drivers starts it in a
// virtual machine, with two 16550A as COM1 and COM2, an adapter as COM5, and simulated units.
// Prints a line a check; what it prints behind "monitor " are commands to the machine.
#include <unistd.h>

#include <algorithm>

#include <QApplication>
#include <QComboBox>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include "app/program.h"
#include "core/stored_settings.h"
#include "support.h"

namespace mvdirigo::bench {
namespace {

/// The units on COM1 and COM5, one for each of the console's rates. A search asks the first last.
const QStringList kUnits = {"9", "2", "3", "4", "5", "6"};
const QString kAnswer = "Movane Stepper v7.01 No Error";
const QString kFailed = "Communications Error, no Movane found";
const QString kNoReply = "No Movane detected. Check connections";
const QString kNothingSent = "Nothing was sent: ";
const QString kNoPort = "  (not available or no such port)  /dev/tty";
constexpr const char* kAdapter = "/dev/ttyUSB0";
constexpr int kTimeOutMs = 1500;
/// From when a state is shown until the adapter is pulled out.
constexpr int kPullMs = 700;
/// A unit ends its reply with a line feed, and leaves the update mode after some silence.
constexpr int kLineFeedMs = 20, kUnitRestartMs = 4000;

void check(const QString& what, const QString& got, const QString& expected) {
  if (got == expected) return void(std::printf("ok    %s\n", qPrintable(what)));
  std::printf("FAIL  %s\n      %s\n", qPrintable(what), qPrintable(got + "\n   != " + expected));
}

bool wait(const std::function<bool()>& done) { return QTest::qWaitFor(done, 60'000); }

bool isThere(const char* device) { return access(device, R_OK | W_OK) == 0; }

void unplug(const char* adapter) { std::printf("monitor device_del %s\n", adapter); }

/// An adapter's name is also its serial number.
void plug(const char* name, const char* line, const char* device) {
  std::printf("monitor device_add usb-serial,id=%s,serial=%s,chardev=%s\n", name, name, line);
  wait([&] { return isThere(device); });
}

/// Another program that holds a device until its end, and tells then at which rate the device is.
struct Holder : QProcess {
  explicit Holder(const QString& device) {
    const QString work = "stty 19200 <%1; echo taken; cat; stty speed <%1";
    start("flock", {"--nonblock", device, "--command", work.arg(device)});
    waitForReadyRead();
  }
  ~Holder() override { end(); }
  void end() { closeWriteChannel(), waitForFinished(); }
};

/// The control of that name; of several, one that is shown.
template <class Control>
Control& the(const QString& name) {
  Control* found = nullptr;
  for (QWidget* widget : QApplication::allWidgets()) {
    if (widget->objectName() != name || (found && !widget->isVisible())) continue;
    found = qobject_cast<Control*>(widget);
  }
  require(found, qPrintable(name));
  return *found;
}

void press(const QString& button) { the<QAbstractButton>(button).click(); }
QString textOf(const QString& field) { return the<QLineEdit>(field).text(); }

void choose(int port, int rate = 0, const QString& protocol = "DT") {
  press("LoadButton(6)");  // Each of the bar closes the port; this one gives the rows their texts.
  the<QLineEdit>("CommPortSetting").setText(QString::number(port));
  the<QListWidget>("lstBaudRate").setCurrentRow(rate);
  press(protocol + "Protocol");
}

void send(int rate) {
  the<QLineEdit>("StringToSend(0)").setText("/" + kUnits[rate] + "&");
  press("SendCommand(0)");
}

/// Asks the unit of that rate for its version, and returns the row's text.
QString exchange(int rate = 0) {
  const auto idle = [] { return the<QAbstractButton>("SendCommand(0)").isEnabled(); };
  wait(idle);
  the<QLineEdit>("ReceiveString(0)").clear();
  send(rate);
  wait(idle);
  QTest::qWait(kLineFeedMs);
  return textOf("ReceiveString(0)");
}

QString exchangeOn(int port, int rate = 0) { return choose(port, rate), exchange(rate); }

/// What the reply's tool tip says, without its time.
QString why() {
  const QString tip = the<QLineEdit>("ReceiveString(0)").toolTip();
  return tip.section('\n', 1).section("\nAt ", 0, 0).replace('\n', ' ');
}

QString search() {
  choose(5);
  press("AutoSetup");
  return "COM" + textOf("CommPortSetting") + ", " + textOf("ResponseString");
}

/// Returns what the update's status says in the end.
QString update(int port, const QString& rate = "57600") {
  choose(port);
  press("cmdUpdate");
  the<QComboBox>("cboID").setCurrentText(kUnits[0]);
  the<QComboBox>("cboBaud").setCurrentText(rate);
  for (const char* button : {"cmdLoadImage", "cmdUpdate"}) press(button);
  const QString status = textOf("txtStatus");
  press("cmdClose");
  QTest::qWait(kUnitRestartMs);
  return status;
}

void checkRate(int port, int rate) {
  for (const char* protocol : {"DT", "OEM"}) {
    choose(port, rate, protocol);
    QSet<QString> replies;
    for (int i = 0; i < 10; ++i) replies << exchange(rate);
    const QString baud = the<QListWidget>("lstBaudRate").item(rate)->text();
    check(QString("COM%1: ten exchanges at %2, %3").arg(port).arg(baud, protocol),
          replies.values().join(" | "), kAnswer);
  }
}

void checkUse(int port, const char* device) {
  const QString com = QString("COM%1: ").arg(port);
  exchangeOn(port);
  check(com + "others are kept away", Holder(device).readAll(), "");
  choose(port);
  Holder other(device);
  exchange();
  check(com + "in use", why(), kNothingSent + "It is in use by the program flock.");
  other.end();
  check(com + "the other's rate was left alone", other.readAll(), "taken\n19200\n");
  check(com + "free again", exchange(), kAnswer);
}

/// Something that the console is doing when the adapter is pulled out.
struct State {
  QString name;
  std::function<void()> start;
  /// What a field shows then, and what is told from then on.
  QString shown, told;
  std::function<void()> end = [] {};
};

bool isShown(const QString& text) {
  return std::ranges::any_of(QApplication::allWidgets(), [&](QWidget* widget) {
    const auto* field = qobject_cast<QLineEdit*>(widget);
    return field && field->isVisible() && field->text().contains(text);
  });
}

void checkUnplugging(QStringList& told, const State& state) {
  choose(5);
  wait([] { return !isShown(" open"); });
  QTimer look;
  QObject::connect(&look, &QTimer::timeout, [&] {
    if (!isShown(state.shown)) return;
    look.stop();
    QTimer::singleShot(kPullMs, qApp, [&] { told.clear(), unplug("first"); });
  });
  look.start(1);
  state.start();
  wait([] { return !isThere(kAdapter); });
  QTest::qWait(kTimeOutMs + kPullMs);
  check("unplugged: " + state.name, told.join(" | "), state.told);
  plug("first", "com5", kAdapter);
  state.end();
  check("back after: " + state.name, exchangeOn(5), kAnswer);
}

void checkUnpluggingInEachState(QStringList& told) {
  const QString scan = "Auto Scan in Progress. Searching for Devices on serial bus. ";
  const QString fault = "MSComm_OnComm() Error #: 57 :: Device I/O error";
  const auto record = [] { press("LoadButton(2)"), exchange(), exchange(); };
  const auto end_recording = [] { press("LoadButton(2)"); };
  const auto play = [&] { record(), end_recording(), press("LoadButton(0)"); };
  const auto end_playing = [] {
    wait([] { return textOf("ReceiveString(0)") == kAnswer; });
    check("the playback goes on by itself", textOf("ReceiveString(0)"), kAnswer);
    press("LoadButton(1)");
  };
  const auto update_again = [] { check("COM5: update after half a one", update(5), "Status: OK"); };
  const State states[] = {
      {"idle", [] { exchange(); }, " open", kFailed},
      {"waiting for a reply", [] { send(1); }, " open", kFailed + " | " + kNoReply},
      {"recording", record, "Recording: 2", kFailed, end_recording},
      {"playing", play, "Playing", kFailed + " | " + kNoReply, end_playing},
      {"searching", [] { search(); }, "unit 3",
       QStringList{kFailed, scan, "No Devices were found", kNoReply}.join(" | ")},
      {"update, waking the unit", [] { update(5); }, "Status: Loaded", fault},
      {"update, settling", [] { update(5, "9600"); }, "Negotiating", fault},
      {"update, sending", [] { update(5); }, "Transmitting", fault, update_again}};
  for (const State& state : states) checkUnplugging(told, state);
}

void checkPortList(const QString& user, const QStringList& rows) {
  for (const QString& row : rows) {
    const auto* item = the<QListWidget>("lstPorts").item(row.mid(3, 1).toInt() - 1);
    const QString tip = item->toolTip().replace('\n', ' ');
    check(user + "port list, " + row.left(4), item->text() + "  " + tip, row);
  }
}

void checkMember(QStringList& told) {
  checkPortList("", {"COM1  available  /dev/ttyS0", "COM2  available  /dev/ttyS1",
                     "COM5  available  /dev/ttyUSB0 QEMU QEMU USB SERIAL",
                     "COM3" + kNoPort + "S2 There is no hardware behind this device."});
  for (int rate = 0; rate < 5; ++rate) checkRate(1, rate);
  for (int rate = 0; rate < 6; ++rate) checkRate(5, rate);
  exchangeOn(1, 5);
  check("COM1: 230400 is refused", why(), kNothingSent + "This port can't do 230400 baud.");
  checkUse(1, "/dev/ttyS0");
  checkUse(5, kAdapter);
  check("search: the first port", search(), "COM1, Movane Stepper v7.01");
  choose(5);
  Holder com1("/dev/ttyS0");
  check("search: past a port in use, at 38400", search(), "COM2, Movane Servo v7.01");
  choose(5);
  const Holder com2("/dev/ttyS1");
  check("search: the adapter", search(), "COM5, Movane Stepper v7.01");
  checkUnpluggingInEachState(told);
  com1.end();
  check("COM1: update", update(1), "Status: OK");
  check("COM1: the updated unit answers", exchangeOn(1), kAnswer);

  exchangeOn(5);
  unplug("first");
  wait([] { return !isThere(kAdapter); });
  plug("second", "com6", kAdapter);
  check("another adapter in its place is not taken for it", exchangeOn(5), kNoReply);
  plug("first", "com5", "/dev/ttyUSB1");
  check("the adapter is found under another name", exchange(), kAnswer);
  press("cmdOK");
  check("OK in the settings lets the number go", exchange(), "Movane Servo v7.01 No Error");
}

void checkStranger() {
  const QString obstacle =
      "You have no permission to use it. Add yourself to the group \"dialout\" and log in again.";
  checkPortList("no permission: ", {"COM1" + kNoPort + "S0 " + obstacle,
                                    "COM5" + kNoPort + "USB0 QEMU QEMU USB SERIAL " + obstacle});
  exchangeOn(5);
  check("no permission: a send", why(), kNothingSent + obstacle);
}

}  // namespace
}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  using namespace mvdirigo;
  using namespace mvdirigo::bench;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const QApplication application(argc, argv);
  const Desk desk;
  UnattendedPlatform machine;
  machine.file_to_open = "/image.zrf";
  writeSetting(machine.settingsStore(), stored::kRCVTimeout, std::to_string(kTimeOutMs));
  Program program(machine, [] {});
  program.start();
  const auto tell = [&](const QString& text) { machine.boxes << text; };
  QObject::connect(&the<QLineEdit>("ReceiveString(0)"), &QLineEdit::textChanged, tell);
  argc == 1 ? checkMember(machine.boxes) : checkStranger();
  program.console().close();
}
