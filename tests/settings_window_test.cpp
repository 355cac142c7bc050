#include "support/window_test.h"

using namespace mvdirigo;
using namespace std::chrono_literals;

const std::string kNothingFound =
    "No Devices were found. Please refer to your operators manual for instractions on settings up "
    "the communications.";

class SettingsWindow : public WindowTest {
 protected:
  void openDialog() {
    press("LoadButton(3)");
    ASSERT_TRUE(settings().isVisible());
  }
  void escape() { QTest::keyClick(&settings(), Qt::Key_Escape); }
  QListWidget& list(const std::string& name) { return find<QListWidget>(settings(), name); }

  /// Most strings, port, time-out, row of the rate and protocol, as the dialog shows them.
  std::string choices() {
    const QString texts = setting("MaxStrings").text() + "," + setting("CommPortSetting").text() +
                          "," + setting("RCVTimeout").text() + ",";
    return texts.toStdString() + std::to_string(list("lstBaudRate").currentRow()) +
           (settings().DTProtocol() ? ",DT" : "") + (settings().OEMProtocol() ? ",OEM" : "");
  }
  /// The port in force, and the row of the list that is highlighted for it.
  std::string picked() {
    QString picked = setting("CommPortSetting").text();
    for (const auto& row : list("lstPorts").selectionModel()->selectedRows()) {
      picked += "," + QString::number(row.row());
    }
    return picked.toStdString();
  }
  std::string details() {
    return find<QPlainTextEdit>(settings(), "PortDetails").toPlainText().toStdString();
  }
  /// What the search's button offers, and where a search is, as dialog and console show it.
  QString progress() {
    QApplication::processEvents();
    return find<QPushButton>(settings(), "AutoSetup").text() + "|" +
           setting("SearchProgress").text() + "|" + onConsole<QLineEdit>("Activity").text();
  }
  /// Runs a whole search and returns how long it took, in ms of virtual time.
  double search() {
    const SimTime from = platform_.now();
    press(settings(), "AutoSetup");
    return std::chrono::duration<double, std::milli>(platform_.now() - from).count();
  }
  /// What was stored since the last call.
  std::string takeSaves() {
    std::string saves;
    for (const auto& [address, value] : std::exchange(platform_.store().saves, {})) {
      saves += address.key + "=" + value + " ";
    }
    return saves;
  }
  /// What a search stores that found a unit or was stopped.
  static std::string savesAt(int port, int rate) {
    return "FirstTimeStartup=1 MaxStrings=11 CommPortSetting=" + std::to_string(port) +
           " BaudRate=" + std::to_string(rate) + " RCVTimeout=1000 ";
  }
};

TEST_F(SettingsWindow, ShowsTheDefaultsOfAnEmptyStoreAndListsThePortsToPickFrom) {
  platform_.attach(2, silent_);
  platform_.attach(4, silent_);
  platform_.socket(4).refusal = Fault::kPortAlreadyOpen;
  platform_.socket(4).details = {"/dev/<i>", "UART", "In use by another program."};
  start();
  openDialog();
  EXPECT_EQ(settings().windowTitle(), "Communications");
  EXPECT_EQ(choices(), "11,1,1000,0,DT");
  EXPECT_EQ(picked() + details(), "1,0Press Re-Scan Ports to look again.");
  EXPECT_EQ(tabOrder(settings()),
            "CommPortSetting lstBaudRate DTProtocol OEMProtocol FlowControl MaxStrings RCVTimeout "
            "lstPorts PortDetails cmdRescanPorts AutoSetup SearchProgress ResponseString "
            "cmdUpdate cmdOK ");
  auto& ports = list("lstPorts");
  EXPECT_EQ(ports.item(1)->text(), "COM2  available");
  const QListWidgetItem& taken = *ports.item(3);
  EXPECT_EQ(taken.text(), "COM4  (not available or no such port)");
  EXPECT_TRUE(taken.toolTip().contains("/dev/&lt;i&gt;"));
  EXPECT_TRUE(taken.data(Qt::ForegroundRole).isValid()) << "it looks apart";
  for (const auto& [typed, shown] :
       {std::pair{"4", "4,3/dev/<i>\nUART\nIn use by another program."},
        {"17", "17No port number from 1 to 16."},
        {" 2", " 2,1"}}) {
    setting("CommPortSetting").setText(typed);
    EXPECT_EQ(picked() + details(), shown);
  }

  const auto pressed = [&](Qt::MouseButton button, QPoint place) {
    QTest::mousePress(ports.viewport(), button, {}, place);
    return picked();
  };
  const auto middleOf = [&](int row) { return ports.visualItemRect(ports.item(row)).center(); };
  EXPECT_EQ(pressed(Qt::RightButton, middleOf(5)), " 2,1");
  EXPECT_EQ(pressed(Qt::LeftButton, middleOf(2)), "3,2");
  QTest::mouseMove(ports.viewport(), middleOf(7));
  EXPECT_EQ(picked(), "3,2") << "a drag picks nothing else";
  ports.setFixedHeight(ports.height() + 50);
  platform_.runFor(1);
  EXPECT_EQ(pressed(Qt::LeftButton, {5, ports.height() - 9}), "16,15") << "the nearest counts";
  std::string moves;
  for (const auto& key :
       QKeySequence::listFromString("Home; Down; Ctrl+Space; Ctrl+Down; PgDown; Down; Up; PgUp")) {
    QTest::keySequence(&ports, key);
    moves += picked() + " ";
  }
  EXPECT_EQ(moves, "1,0 2,1 2,1 3,2 16,15 16,15 15,14 1,0 ");
}

TEST_F(SettingsWindow, FindsNoPortWhileTheConsoleHoldsOneAndSaysSo) {
  for (const int port : {1, 2}) platform_.attach(port, silent_);
  start();
  openDialog();
  const auto& ports = list("lstPorts");
  const std::string reason =
      "Finds nothing while the console holds a port open. Press Settings on the console first: "
      "that closes it.";
  // Of row 2 and of both buttons, with a "*" for the reason.
  const auto hints = [&] {
    QString shown = ports.item(1)->toolTip();
    for (const char* name : {"cmdRescanPorts", "AutoSetup"}) {
      auto& button = find<QPushButton>(settings(), name);
      QHelpEvent hover(QEvent::ToolTip, {}, {});
      QApplication::sendEvent(&button, &hover);
      shown += "|" + button.toolTip();
    }
    return shown.replace('\n', ' ').replace(reason.c_str(), "*");
  };
  press("SendCommand(0)");
  EXPECT_EQ(hints(), "|*|*") << "a row that is available needs no words";
  press(settings(), "cmdRescanPorts");
  EXPECT_EQ(ports.item(1)->text(), "COM2  (not available or no such port)");
  EXPECT_EQ(hints(), "*|*|*");
  EXPECT_EQ(details(), reason);
  receive(std::string(5000, 'x') + "\r");
  EXPECT_EQ(setting("ResponseString").text(), QString(4000, 'x') + "\u2026");

  press("SendCommand(3)");
  openDialog();
  EXPECT_EQ(hints(), "Press Re-Scan Ports to look again.||");
  platform_.runFor(1000);
  EXPECT_FALSE(portOpen()) << "closed by the bar, so not reopened";
  press(settings(), "cmdRescanPorts");
  EXPECT_EQ(ports.item(0)->text(), "COM1  available");
  EXPECT_EQ(platform_.times_links_forgotten, 2);
  after(50ms, [&] {
    EXPECT_EQ(hints(), "||") << "the search itself holds the port";
    press(settings(), "AutoSetup");
  });
  search();
}

TEST_F(SettingsWindow, TakesOddStoredSettingsAsTheyStandAndNoneBehindABadRate) {
  // Strings, time-out and rate as they are stored, and what becomes of them.
  const std::tuple<const char*, const char*, const char*, std::string, int, int> cases[] = {
      {"abc", "abc", "0", "abc,5,abc,0,DT", 10, 4000},
      {"0", "0", "2", "0,5,0,2,DT", 0, 4000},
      {"-3", "-5", "0", "-3,5,-5,0,DT", 0, 4000},
      {"-99999", "1", "0", "-99999,5,1,0,DT", 10, 1},
      {"2.5", "90000", "0", "2.5,5,90000,0,DT", 2, 90000},
      {"11", "777", "x", "11,5,3000,-1,DT", 11, 3000},
      {"11", "777", "-1", "11,5,3000,-1,DT", 11, 3000},
      {"11", "777", "6", "11,5,3000,-1,DT", 11, 3000}};
  store("Settings", "CommPortSetting", "5");
  for (const auto& [count, timeout, rate, shown, rows, timeout_ms] : cases) {
    store("Settings", "MaxStrings", count);
    store("Settings", "RCVTimeout", timeout);
    store("Settings", "BaudRate", rate);
    start();
    EXPECT_EQ(std::tuple(choices(), shownRows(), console().replyTimeOutMs()),
              std::tuple(shown, rows, timeout_ms));
    EXPECT_GT(onConsole("ConsoleScreen").sizeHint().height(), 200) << count;
  }
}

TEST_F(SettingsWindow, RefusesMoreThan25StringsAtEveryEdit) {
  start();
  for (const auto& [typed, shown] :
       {std::pair{"25", "25"}, {"26", "25"}, {"25.5", "25"}, {"abc", "abc"}}) {
    if (QString(typed) != shown) expectBox("Maximum number of strings allowed is 25");
    setting("MaxStrings").setText(typed);
    EXPECT_EQ(setting("MaxStrings").text(), shown);
  }
}

TEST_F(SettingsWindow, StoresOnOkAndAppliesAtTheNextSend) {
  SimulatedBus bus{{UnitOptions{.protocol = UnitProtocol::kOem, .baud = 38400}}};
  platform_.attach(7, bus);
  start();
  openDialog();
  setting("MaxStrings").clear();
  setting("RCVTimeout").setText("400");
  setting("CommPortSetting").setText("7");
  choose("OEMProtocol");
  platform_.runFor(1);
  list("lstBaudRate").setCurrentRow(2);
  platform_.runFor(1);
  EXPECT_TRUE(onConsole<QLineEdit>("LineStatus").text().startsWith("COM7 \u00B7 38400"));
  press(settings(), "cmdOK");
  EXPECT_EQ(platform_.times_links_forgotten, 1);
  EXPECT_FALSE(settings().isVisible());
  EXPECT_EQ(takeSaves(), "MaxStrings=10 CommPortSetting=7 BaudRate=2 RCVTimeout=400 ");
  EXPECT_EQ(console().replyTimeOutMs(), 400);
  EXPECT_FALSE(onConsole("SendCommand(10)").isVisible());
  press("SendCommand(0)", 100);
  EXPECT_EQ(reply(0), kVersionReply);
  press(settings(), "cmdOK");
  EXPECT_FALSE(portOpen()) << "the layout closes the port";
  start();
  EXPECT_EQ(choices(), "10,7,400,2,DT");
}

TEST_F(SettingsWindow, TakesBackOnEscapeWhatWasNotStored) {
  platform_.attach(2, silent_);
  start();
  openDialog();
  setting("CommPortSetting").setText("9");
  QTest::keyClick(&settings(), Qt::Key_Return);
  EXPECT_EQ(takeSaves(), "MaxStrings=11 CommPortSetting=9 BaudRate=0 RCVTimeout=1000 ");
  const std::function<void()> detours[] = {
      [this] { choose("OEMProtocol"); },
      [this] { press("SendCommand(0)"); },  // to try the port
      [this] { settings().hide(); },
      [this] { press(settings(), "cmdUpdate"), press(*program_->update(), "cmdClose"); },
  };
  for (const auto& detour : detours) {
    openDialog();
    setting("CommPortSetting").setText("2");
    detour();
    settings().show();
    escape();
    EXPECT_EQ(choices(), "11,9,1000,0,DT");
    EXPECT_FALSE(settings().isVisible() || portOpen());
  }
  EXPECT_EQ(takeSaves(), "");
}

TEST_F(SettingsWindow, FindsAUnitAnywhereInTheSearchSpace) {
  start();
  for (int number = 1; number <= 16; ++number) {
    for (int row = 0; row < 3; ++row) {
      for (char address = '1'; address < '1' + 16; ++address) {
        SimulatedBus bus{{UnitOptions{.address = address, .baud = 9600 << row}}};
        platform_.attach(number, bus);
        settings().closeConsolePort();
        search();
        ASSERT_EQ(commandField(0).text() + setting("ResponseString").text(),
                  QString("/%1&Movane Stepper v7.02").arg(address));
        ASSERT_EQ(takeSaves(), savesAt(number, row));
        ASSERT_TRUE(portOpen());
        platform_.detach(number);
        platform_.runFor(1);
      }
    }
  }
}

TEST_F(SettingsWindow, FindsNothingOnSilentPortsAndFasterUnits) {
  SimulatedBus fast{{UnitOptions{.baud = 57600}}};
  platform_.attach(3, fast);
  platform_.attach(16, silent_);
  start();
  platform_.script().expectBox(kNothingFound, box::kOkOnly, BoxButton::kOk, [this] {
    EXPECT_EQ(progress(), "Stop Auto Set||Row 0: waiting for the reply");
  });
  EXPECT_NEAR(search(), 2 * 5760, 0.001);
  EXPECT_EQ(list("lstBaudRate").currentRow(), 0);
  EXPECT_EQ(takeSaves(), "FirstTimeStartup=0 ");
  for (const int port : {3, 16}) platform_.detach(port);
  expectBox(kNothingFound);
  EXPECT_EQ(search(), 0);
}

TEST_F(SettingsWindow, StopsAtEveryStageAndStoresWhatWasTried) {
  for (int port = 1; port <= 16; ++port) platform_.attach(port, silent_);
  start();
  const std::tuple<int, int, int, QString> stages[] = {
      {0, 1, 0, "port 1 of 16, 9600 baud, unit 1"},
      {1921, 1, 1, "port 1 of 16, 19200 baud, unit 1"},
      {5761, 2, 0, "port 2 of 16, 9600 baud, unit 1"},
      {92000, 16, 2, "port 16 of 16, 38400 baud, unit 15"}};
  for (const auto& [stop_ms, port, rate, where] : stages) {
    // The console's strip tells it once the first query is on its way.
    const QString on_console = stop_ms > 0 ? "Searching: " + where : "";
    for (const std::string by : {"AutoSetup", "cmdOK", "Escape", "cmdUpdate"}) {
      openDialog();
      takeSaves();
      after(std::chrono::milliseconds(stop_ms), [&, where = where] {
        EXPECT_TRUE(progress().startsWith("Stop Auto Set|" + where + "|" + on_console));
        by == "Escape" ? escape() : press(settings(), by);
      });
      EXPECT_LE(search(), stop_ms + (by == "cmdOK" ? 120 : 0));
      EXPECT_TRUE(takeSaves().ends_with(savesAt(port, rate)));
      EXPECT_TRUE(progress().startsWith("Auto Set Comm||Row 0"));
      EXPECT_EQ(settings().isVisible(), by == "AutoSetup");
      platform_.runFor(2000);
      EXPECT_EQ(portOpen(), by == "AutoSetup") << "the update dialog owns the line";
      if (by == "cmdUpdate") press(*program_->update(), "cmdClose");
    }
  }
  openDialog();
  after(50ms, [] { throw std::runtime_error("torn"); });
  expectBox("AutoSetup_Click() Error #: 0 :: torn");
  search();
  EXPECT_TRUE(progress().startsWith("Auto Set Comm|"));
  openDialog();
  after(50ms, [&] {
    press(settings(), "AutoSetup");
    press(settings(), "AutoSetup");
  });
  EXPECT_LE(search(), 50) << "a double click on the stop starts no search within the search";
  openDialog();
  takeSaves();
  after(300ms, [this] { console().close(); });
  EXPECT_LE(search(), 300);
  EXPECT_TRUE(takeSaves().find("FirstTimeStartup") == std::string::npos);
  EXPECT_TRUE(ended_ && !portOpen());
}
