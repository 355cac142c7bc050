#include <string>

#include <QHelpEvent>
#include <QLabel>
#include <QListWidget>
#include <QRadioButton>
#include <gtest/gtest.h>

#include "support/window_test.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;

const std::string kNothingFound =
    "No Devices were found. Please refer to your operators manual for instractions on settings up "
    "the communications.";

class SettingsWindow : public WindowTest {
 protected:
  Settings& dialog() { return program_->settings(); }
  void type(const std::string& field, const std::string& text) {
    auto& edit = find<QLineEdit>(dialog(), field);
    edit.selectAll();
    QTest::keyClicks(&edit, QString::fromStdString(text));
    if (text.empty()) QTest::keyClick(&edit, Qt::Key_Backspace);
  }
  std::string field(const std::string& name) {
    return find<QLineEdit>(dialog(), name).text().toStdString();
  }
  int baudRow() { return find<QListWidget>(dialog(), "lstBaudRate").currentRow(); }
  std::string searchCaption() {
    return find<QPushButton>(dialog(), "AutoSetup").text().toStdString();
  }
  void openDialog() {
    press("LoadButton(3)");
    ASSERT_TRUE(dialog().isVisible());
  }
  /// Runs a whole search and returns how long it took, in ms of virtual time.
  double search() {
    const SimTime from = platform_.now();
    press(dialog(), "AutoSetup");
    return std::chrono::duration<double, std::milli>(platform_.now() - from).count();
  }
  /// A search that starts while the console holds a port finds every port taken.
  void closeConsolePort() {
    SerialPort& port = program_->console().MSComm1();
    if (port.PortOpen()) port.setPortOpen(false);
  }
  std::string lastSaves(std::size_t count) {
    const auto& saves = platform_.store().saves;
    std::string keys;
    for (std::size_t i = saves.size() - std::min(count, saves.size()); i < saves.size(); ++i) {
      keys += saves[i].address.key + "=" + saves[i].value + " ";
    }
    return keys;
  }

  SimulatedBus silent_{{}};
};

TEST_F(SettingsWindow, ShowsTheDefaultsOfAnEmptyStoreAndListsThePorts) {
  platform_.attach(2, silent_);
  platform_.attach(4, silent_);
  platform_.socket(4).refusal = Fault::kPortAlreadyOpen;
  platform_.socket(4).details = {"/dev/<i>", "UART", "In use by another program."};
  start();
  openDialog();
  EXPECT_EQ(dialog().windowTitle(), "Communications");
  EXPECT_EQ(field("MaxStrings") + "," + field("CommPortSetting") + "," + field("RCVTimeout"),
            "11,1,1000");
  EXPECT_EQ(baudRow(), 0);
  EXPECT_TRUE(find<QRadioButton>(dialog(), "DTProtocol").isChecked());
  auto& ports = find<QListWidget>(dialog(), "lstPorts");
  ASSERT_EQ(ports.count(), 16);
  EXPECT_EQ(ports.item(0)->text(), "COM1  (not available or no such port)");
  EXPECT_EQ(ports.item(1)->text(), "COM2  available");
  EXPECT_EQ(ports.item(3)->text(), "COM4  (not available or no such port)");
  EXPECT_EQ(ports.item(3)->data(Qt::AccessibleDescriptionRole),
            "/dev/<i>\nUART\nIn use by another program.");
  EXPECT_TRUE(ports.item(3)->toolTip().contains("/dev/&lt;i&gt;"));
  EXPECT_EQ(find<QLabel>(dialog(), "Baud").buddy()->objectName(), "lstBaudRate");
  EXPECT_EQ(find<QLabel>(dialog(), "ReceiveTimeout").buddy()->objectName(), "RCVTimeout");
  EXPECT_EQ(tabOrder(dialog()),
            "CommPortSetting lstBaudRate DTProtocol OEMProtocol FlowControl MaxStrings RCVTimeout "
            "lstPorts cmdRescanPorts AutoSetup ResponseString cmdUpdate cmdOK ");
}

TEST_F(SettingsWindow, FindsNoPortWhileTheConsoleHoldsOneAndSaysSo) {
  platform_.attach(1, silent_);
  platform_.attach(2, silent_);
  start();
  openDialog();
  const auto& ports = find<QListWidget>(dialog(), "lstPorts");
  const auto hints = [&] {
    std::string shown = ports.item(1)->toolTip().toStdString() + "|";
    for (const char* name : {"cmdRescanPorts", "AutoSetup"}) {
      auto& button = find<QPushButton>(dialog(), name);
      QHelpEvent hover(QEvent::ToolTip, {}, {});
      QApplication::sendEvent(&button, &hover);
      shown += button.toolTip().toStdString() + "|";
    }
    return shown;
  };
  const std::string hint =
      "Finds nothing while the console holds a port open. Press Settings on the console first: "
      "that closes it.|";
  press("SendCommand(0)");
  EXPECT_EQ(hints(), "|" + hint + hint) << "a row that is available needs no words";
  press(dialog(), "cmdRescanPorts");
  EXPECT_EQ(ports.item(1)->text(), "COM2  (not available or no such port)");
  EXPECT_EQ(hints(), hint + hint + hint);
  platform_.socket(1).deliver(std::string(5000, 'x') + "\r");
  platform_.runFor(1);
  EXPECT_EQ(field("ResponseString"), std::string(4000, 'x') + "\u2026");
  press("LoadButton(3)");
  EXPECT_EQ(hints(), "Press Re-Scan Ports to look again.|||");
  press(dialog(), "cmdRescanPorts");
  EXPECT_EQ(ports.item(0)->text(), "COM1  available");
  EXPECT_EQ(platform_.times_links_forgotten, 2);
  after(50ms, [&] {
    EXPECT_EQ(hints(), "|||") << "the search itself holds the port";
    press(dialog(), "AutoSetup");
  });
  search();
}

TEST_F(SettingsWindow, PicksThePortOfTheClickedRow) {
  start();
  openDialog();
  auto& ports = find<QListWidget>(dialog(), "lstPorts");
  const auto click = [&](QPoint at, Qt::MouseButton button = Qt::LeftButton) {
    QTest::mouseClick(ports.viewport(), button, {}, at);
  };
  click(ports.visualItemRect(ports.item(2)).center());
  EXPECT_EQ(field("CommPortSetting"), "3");
  EXPECT_EQ(ports.currentRow(), 2);
  click(ports.visualItemRect(ports.item(5)).center(), Qt::RightButton);
  EXPECT_EQ(field("CommPortSetting"), "3");
  const QPoint port_3 = ports.visualItemRect(ports.item(2)).center();
  QTest::mousePress(ports.viewport(), Qt::LeftButton, {}, port_3);
  QTest::mouseMove(ports.viewport(), ports.visualItemRect(ports.item(7)).center());
  EXPECT_EQ(ports.currentRow(), 2) << "a drag picks nothing else";
  QTest::mouseRelease(ports.viewport(), Qt::LeftButton, {}, port_3);
  ports.setFixedHeight(ports.height() + 50);
  platform_.runFor(1);
  click({5, ports.viewport()->height() - 2});
  EXPECT_EQ(field("CommPortSetting"), "16") << "below the last row the nearest one counts";
}

TEST_F(SettingsWindow, StopsLoadingSilentlyAtABadBaudRate) {
  for (const std::string row : {"9", "x", "-1", "6"}) {
    store("Settings", "BaudRate", row);
    store("Settings", "RCVTimeout", "777");
    store("Settings", "CommPortSetting", "5");
    start();
    EXPECT_EQ(field("CommPortSetting"), "5");
    EXPECT_EQ(field("RCVTimeout"), "3000") << row;
    EXPECT_EQ(program_->console().tmrReceiveTimeOut().Interval(), 3000) << "as the field shows";
  }
}

TEST_F(SettingsWindow, RefusesMoreThan25StringsAtEveryEdit) {
  start();
  openDialog();
  type("MaxStrings", "25");
  EXPECT_EQ(field("MaxStrings"), "25");
  platform_.script().expectBox("Maximum number of strings allowed is 25", box::kOkOnly);
  type("MaxStrings", "26");
  EXPECT_EQ(field("MaxStrings"), "25");
  platform_.script().expectBox("Maximum number of strings allowed is 25", box::kOkOnly);
  find<QLineEdit>(dialog(), "MaxStrings").setText("25.5");
  EXPECT_EQ(field("MaxStrings"), "25");
  type("MaxStrings", "abc");
  EXPECT_EQ(field("MaxStrings"), "abc");
}

TEST_F(SettingsWindow, StoresOnOkAndAppliesAtTheNextSend) {
  SimulatedBus bus{{UnitOptions{.protocol = UnitProtocol::kOem, .baud = 38400}}};
  platform_.attach(7, bus);
  start();
  openDialog();
  type("CommPortSetting", "7");
  type("MaxStrings", "");
  type("RCVTimeout", "400");
  find<QListWidget>(dialog(), "lstBaudRate").setCurrentRow(2);
  find<QRadioButton>(dialog(), "OEMProtocol").click();
  press(dialog(), "cmdOK");
  EXPECT_EQ(platform_.times_links_forgotten, 1);
  EXPECT_FALSE(dialog().isVisible());
  EXPECT_EQ(lastSaves(9), "MaxStrings=10 CommPortSetting=7 BaudRate=2 RCVTimeout=400 ");
  EXPECT_EQ(program_->console().tmrReceiveTimeOut().Interval(), 400);
  EXPECT_FALSE(onConsole<QWidget>("SendCommand(10)").isVisible());
  press("SendCommand(0)");
  platform_.runFor(100);
  EXPECT_EQ(reply(0), "Movane Stepper v7.02 No Error");
  EXPECT_TRUE(program_->console().MSComm1().PortOpen());
  press(dialog(), "cmdOK");
  EXPECT_FALSE(program_->console().MSComm1().PortOpen()) << "the layout closes the port";

  start();
  EXPECT_TRUE(find<QRadioButton>(dialog(), "DTProtocol").isChecked());
  EXPECT_EQ(field("CommPortSetting") + "," + std::to_string(baudRow()), "7,2");
}

TEST_F(SettingsWindow, TakesBackOnEscapeWhatWasNotStored) {
  start();
  openDialog();
  type("CommPortSetting", "9");
  find<QRadioButton>(dialog(), "OEMProtocol").click();
  QTest::keyClick(&dialog(), Qt::Key_Escape);
  EXPECT_FALSE(dialog().isVisible());
  EXPECT_EQ(field("CommPortSetting"), "1");
  EXPECT_TRUE(program_->settings().DTProtocol());
  EXPECT_TRUE(platform_.store().saves.empty());
  openDialog();
  type("CommPortSetting", "9");
  QTest::keyClick(&dialog(), Qt::Key_Return);
  EXPECT_EQ(stored("Settings", "CommPortSetting"), "9");

  platform_.attach(2, silent_);
  const std::function<void()> detours[] = {[this] {
                                             press("SendCommand(0)");
                                             EXPECT_TRUE(program_->console().MSComm1().PortOpen())
                                                 << "to try the port";
                                           },
                                           [this] { dialog().hide(); },
                                           [this] {
                                             press(dialog(), "cmdUpdate");
                                             press(*program_->update(), "cmdClose");
                                           }};
  for (const auto& detour : detours) {
    openDialog();
    type("CommPortSetting", "2");
    detour();
    dialog().show();
    QTest::keyClick(&dialog(), Qt::Key_Escape);
    EXPECT_EQ(field("CommPortSetting"), "9");
    EXPECT_FALSE(program_->console().MSComm1().PortOpen());
  }
}

TEST_F(SettingsWindow, FindsAUnitAnywhereInTheSearchSpace) {
  start();
  const int rates[] = {9600, 19200, 38400};
  for (int port = 1; port <= 16; ++port) {
    for (int row = 0; row < 3; ++row) {
      for (int address = 1; address <= 16; ++address) {
        const char character = static_cast<char>('0' + address);
        SimulatedBus bus{{UnitOptions{.address = character, .baud = rates[row]}}};
        platform_.attach(port, bus);
        closeConsolePort();
        search();
        const std::string found = field("CommPortSetting") + "/" + std::to_string(baudRow()) +
                                  onConsole<QLineEdit>("StringToSend(0)").text().toStdString();
        ASSERT_EQ(found, std::to_string(port) + "/" + std::to_string(row) + "/" + character + "&");
        ASSERT_EQ(lastSaves(5),
                  "FirstTimeStartup=1 MaxStrings=11 CommPortSetting=" + std::to_string(port) +
                      " BaudRate=" + std::to_string(row) + " RCVTimeout=1000 ");
        ASSERT_EQ(field("ResponseString"), "Movane Stepper v7.02");
        ASSERT_TRUE(program_->console().MSComm1().PortOpen());
        platform_.detach(port);
        platform_.runFor(1);
      }
    }
  }
  EXPECT_EQ(searchCaption(), "Auto Set Comm");
}

TEST_F(SettingsWindow, FindsNothingOnSilentPortsAndFasterUnits) {
  SimulatedBus fast{{UnitOptions{.baud = 57600}}};
  platform_.attach(3, fast);
  start();
  platform_.script().expectBox(kNothingFound, box::kOkOnly, BoxButton::kOk, [this] {
    EXPECT_EQ(reply(0), "Auto Scan in Progress. Searching for Devices on serial bus. ");
  });
  EXPECT_NEAR(search(), 5760, 0.001);
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(0)").text(), "/1&");
  EXPECT_EQ(baudRow(), 0);
  EXPECT_EQ(lastSaves(5), "FirstTimeStartup=0 ");
  EXPECT_EQ(searchCaption(), "Auto Set Comm");

  for (int port = 1; port <= 16; ++port) platform_.attach(port, silent_);
  platform_.script().expectBox(kNothingFound, box::kOkOnly);
  EXPECT_NEAR(search(), 92160, 0.001);

  for (int port = 1; port <= 16; ++port) platform_.detach(port);
  platform_.script().expectBox(kNothingFound, box::kOkOnly);
  EXPECT_EQ(search(), 0);
}

TEST_F(SettingsWindow, StopsAtEveryStageAndStoresWhatWasTried) {
  for (int port = 1; port <= 16; ++port) platform_.attach(port, silent_);
  start();
  const struct {
    int after_ms;
    std::string port, row;
  } stages[] = {
      {1, "1", "0"}, {119, "1", "0"}, {1921, "1", "1"}, {5761, "2", "0"}, {92000, "16", "2"}};
  for (const auto& stage : stages) {
    for (const std::string by : {"AutoSetup", "cmdOK", "Escape"}) {
      openDialog();
      after(std::chrono::milliseconds(stage.after_ms), [&] {
        EXPECT_EQ(searchCaption(), "Stop Auto Set");
        by == "Escape" ? QTest::keyClick(&dialog(), Qt::Key_Escape) : press(dialog(), by);
      });
      EXPECT_LE(search(), stage.after_ms + (by == "cmdOK" ? 120 : 0));
      EXPECT_EQ(lastSaves(5), "FirstTimeStartup=1 MaxStrings=11 CommPortSetting=" + stage.port +
                                  " BaudRate=" + stage.row + " RCVTimeout=1000 ");
      EXPECT_EQ(searchCaption(), "Auto Set Comm");
      EXPECT_EQ(dialog().isVisible(), by == "AutoSetup");
      platform_.runFor(2000);
    }
  }
  openDialog();
  after(50ms, [&] {
    press(dialog(), "AutoSetup");
    press(dialog(), "AutoSetup");
  });
  EXPECT_LE(search(), 50) << "a double click on the stop starts no search within the search";
}

TEST_F(SettingsWindow, LeavesThePortClosedForNewSettingsAndForTheUpdate) {
  platform_.attach(1, silent_);
  start();
  press("SendCommand(3)");
  openDialog();
  platform_.runFor(1000);
  EXPECT_EQ(reply(3), "No Movane detected. Check connections");
  EXPECT_FALSE(program_->console().MSComm1().PortOpen()) << "closed by the bar, so not reopened";
  after(300ms, [this] { press(dialog(), "cmdUpdate"); });
  EXPECT_LE(search(), 300);
  EXPECT_EQ(stored("Settings", "FirstTimeStartup"), "1");
  platform_.runFor(2000);
  EXPECT_FALSE(program_->console().MSComm1().PortOpen()) << "the update dialog owns the line";
}

TEST_F(SettingsWindow, EndsTheSearchWhenTheConsoleIsClosed) {
  platform_.attach(1, silent_);
  start();
  after(300ms, [this] { program_->console().close(); });
  EXPECT_LE(search(), 300);
  EXPECT_TRUE(ended_);
  EXPECT_EQ(stored("Settings", "FirstTimeStartup"), "(none)");
  EXPECT_FALSE(program_->console().MSComm1().PortOpen());
}

}  // namespace
}  // namespace mvdirigo
