#include "platform/version.h"
#include "support/files.h"
#include "support/window_test.h"

using namespace mvdirigo;
using namespace std::chrono_literals;

class ConsoleWindow : public WindowTest {
 protected:
  bool canSend(int row) { return onConsole("SendCommand", row).isEnabled(); }
  QRect place(const std::string& name) {
    QWidget& control = onConsole(name);
    return {control.mapTo(&console(), QPoint()), control.size()};
  }
  /// The captions of the bar; those that can be pressed with a "+".
  std::string bar() {
    std::string bar;
    for (int index = 0; index < 8; ++index) {
      const auto& button = onConsole<QPushButton>("LoadButton", index);
      bar += (button.isEnabled() ? " +" : " ") + button.text().toStdString();
    }
    return bar;
  }
  /// The texts of the status strip.
  std::string strip() {
    QApplication::processEvents();
    return (onConsole<QLineEdit>("LineStatus").text() + " | " +
            onConsole<QLineEdit>("Activity").text())
        .toStdString();
  }
  std::string& sent() { return platform_.socket(1).sent; }
  std::string path(const std::string& name) { return folder_.path / name; }
  std::string title() { return console().windowTitle().toStdString(); }

  const std::string kSpoken = "Reply: " + kVersionReply;

  TemporaryFolder folder_;
};

TEST_F(ConsoleWindow, StartsWithTheDefaultsOfAnEmptyStore) {
  start();
  EXPECT_EQ(title(), std::string("Dirigo Version ") + kVersion);
  EXPECT_EQ(commandField(19).text() + commandField(25).text(), "/1?11/1?0");
  EXPECT_FALSE(onConsole("Command1").isVisible());
  EXPECT_TRUE(platform_.store().saves.empty()) << "nobody has chosen anything yet";
  commandField(9).setFocus();
  for (const char* next : {"SendCommand(9)", "StringToSend(10)", "SendCommand(10)", "LoadButton(3)",
                           "LoadButton(2)", "LoadButton(1)", "LoadButton(0)", "LoadButton(7)",
                           "LoadButton(6)", "LoadButton(5)", "LoadButton(4)", "cmdTraffic"}) {
    QTest::keyClick(console().focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(console().focusWidget()->objectName(), next);
  }
}

TEST_F(ConsoleWindow, SendsARowAndShowsTheReplyForHalfASecondInGreen) {
  startWithUnit();
  onConsole("SendCommand(0)").setFocus();
  press("SendCommand(0)");
  EXPECT_EQ(console().focusWidget()->accessibleName(), "Waiting for the reply");
  QTest::keyClick(console().focusWidget(), Qt::Key_Space);
  EXPECT_EQ(commandField(1).text(), "/1?0") << "the focus went to no row's text";
  EXPECT_FALSE(canSend(11)) << "one more than the rows";
  EXPECT_TRUE(canSend(12));
  platform_.runFor(100);
  EXPECT_EQ(console().focusWidget(), &onConsole("SendCommand(0)"));
  EXPECT_EQ(console().focusWidget()->accessibleDescription().toStdString(), kSpoken);
  EXPECT_EQ(light(0), "green");
  EXPECT_TRUE(canSend(11));
  platform_.runFor(400);
  EXPECT_EQ(light(0), "white");
  press("SendCommand(1)");
  receive("\xFF/0`<b>%1</b>\x03\r");
  EXPECT_EQ(replyField(1).accessibleDescription(),
            "<b>%1</b> No Error\nReceived: \u00FF/0`<b>%1</b>\\x03\\r\nAt 08:00:00, 0 ms "
            "after sending");

  press("SendCommand(1)");
  setting("MaxStrings").setText("5");
  console().SetupScreen();
  EXPECT_TRUE(canSend(11)) << "in mid-transaction";
  EXPECT_FALSE(canSend(5));
  platform_.runFor(1000);
  EXPECT_TRUE(canSend(5));
}

TEST_F(ConsoleWindow, TellsWhyNothingWasSentAndWhatCantBe) {
  platform_.socket(2).details.obstacle = "There is no such device.";
  start();
  auto& baud_rates = find<QListWidget>(settings(), "lstBaudRate");
  const std::tuple<const char*, int, std::string> cases[] = {
      {"x", 0, "\"x\" is no port number from 1 to 16."},
      {"17", 0, "\"17\" is no port number from 1 to 16."},
      {"2", 0, "There is no such device."},
      {"3", 0, "The port can't be opened."},
      {"1", -1, "No baud rate is chosen."}};
  for (const auto& [port, rate, obstacle] : cases) {
    setting("CommPortSetting").setText(port);
    baud_rates.setCurrentRow(rate);
    press("SendCommand(0)", 1001);
    const std::string tip = replyField(0).toolTip().toStdString();
    EXPECT_TRUE(tip.starts_with(kSilent + "\nNothing was sent: " + obstacle + "\nAt 08:0")) << tip;
    EXPECT_FALSE(portOpen());
  }
  const std::pair<const char*, const char*> commands[] = {{"/1A\u22121000R\u20AC", "4, \"\u2212\""},
                                                          {"/\U0001F600", "2, \"\U0001F600\""},
                                                          {"/1\u00B5\u200B", "4, \"U+200B\""},
                                                          {"/1\u00B5\u00FF", ""}};
  for (const auto& [command, culprit] : commands) {
    const QString tip = QString("Character %1, can't be sent: it goes out as \"?\".").arg(culprit);
    commandField(0).setText(command);
    EXPECT_EQ(commandField(0).toolTip(), *culprit == 0 ? "" : tip);
    EXPECT_EQ(commandField(0).accessibleDescription(), commandField(0).toolTip());
  }
}

TEST_F(ConsoleWindow, TellsUnderTheRowsWhatLineAndMotorsAreDoing) {
  startWithUnit();
  platform_.socket(1).details = {.device = "/dev/ttyUSB0", .hardware = {}, .obstacle = {}};
  const std::string line = "COM1  /dev/ttyUSB0 \u00B7 9600 baud \u00B7 DT \u00B7 ";
  press("SendCommand(0)");
  EXPECT_EQ(strip(), line + "open | Row 0: waiting for the reply");
  platform_.runFor(500);
  EXPECT_EQ(strip(), line + "open | Row 0 answered in 31 ms");
  const std::string at_rest = bar();
  EXPECT_EQ(at_rest,
            " +Play Endless +Playback +Record +Settings +Save Strings +Load Strings +Load Default "
            "+Help");
  press("LoadButton(2)");
  EXPECT_EQ(strip(), line + "closed | Recording: 0 presses");
  press("SendCommand(1)", 100);
  EXPECT_EQ(strip(), line + "open | Recording: 1 press");
  press("SendCommand(9)", 100);
  press("LoadButton(2)");
  EXPECT_EQ(bar(), at_rest);
  press("LoadButton(0)", 60);
  EXPECT_TRUE(bar().ends_with(" +Load Default +Help"));
  EXPECT_EQ(strip(), line + "open | Playing, endless: press 1 of 2");
  platform_.runFor(140);
  EXPECT_EQ(strip(), line + "open | Playing, endless: press 2 of 2");
  QTest::keyClick(&console(), Qt::Key_Escape);
  platform_.runFor(500);
  EXPECT_EQ(strip(), line + "closed | Row 9 answered in 11 ms");
  EXPECT_TRUE(bar().starts_with(" +Play Endless +Play +Record"));
  console().SetupScreen();
  EXPECT_EQ(bar(), at_rest);

  platform_.attach(1, silent_);
  press("SendCommand(1)", 1001);
  EXPECT_EQ(strip(), line + "open | Row 1: no reply in 1000 ms");
  press("LoadButton(6)");
  platform_.socket(1).refusal = Fault::kPermissionDenied;
  platform_.socket(1).details.obstacle = "No permission for /dev/ttyUSB0.";
  press("SendCommand(1)", 1);
  EXPECT_EQ(strip(), line +
                         "No permission for /dev/ttyUSB0. | Row 1: nothing was sent: No "
                         "permission for /dev/ttyUSB0.");
  platform_.runFor(1000);
  setting("CommPortSetting").setText("<b>9</b>");
  EXPECT_TRUE(strip().starts_with("COM<b>9</b> \u00B7 9600")) << strip();
}

TEST_F(ConsoleWindow, IsWorkedFromTheKeyboardAlone) {
  startWithUnit();
  console().activateWindow();
  const auto key = [&](int code, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QTest::keyClick(console().focusWidget(), static_cast<Qt::Key>(code), modifiers);
    return console().focusWidget()->objectName().toStdString();
  };
  EXPECT_EQ(console().focusWidget(), &commandField(0)) << "from the start";
  EXPECT_EQ(key(Qt::Key_Up), "StringToSend(0)");
  key(Qt::Key_Return);
  EXPECT_EQ(key(Qt::Key_Return), "StringToSend(0)") << "the hand stays where it types";
  platform_.runFor(100);
  EXPECT_EQ(sent(), "/1&\r") << "one at a time";
  EXPECT_EQ(commandField(0).accessibleDescription().toStdString(), kSpoken);
  commandField(0).setText("/2&");
  EXPECT_EQ(commandField(0).accessibleDescription(), "");
  EXPECT_EQ(key(Qt::Key_Down), "StringToSend(1)");
  sent().clear();
  EXPECT_EQ(key(Qt::Key_3, Qt::AltModifier), "StringToSend(1)");
  EXPECT_FALSE(canSend(3)) << "at once";
  platform_.runFor(100);
  EXPECT_EQ(key(Qt::Key_1, Qt::AltModifier), "SendCommand(1)") << "rows 1 and 10 share it";
  key(Qt::Key_Return);
  platform_.runFor(100);
  EXPECT_EQ(sent(), "/1P1000D500R\r/1?0\r");
  commandField(10).setFocus();
  EXPECT_EQ(key(Qt::Key_Down), "StringToSend(10)") << "the last that is shown";
  platform_.script().expectSaveFile(std::nullopt);
  key(Qt::Key_S, Qt::ControlModifier);
  platform_.script().expectOpenFile(std::nullopt);
  key(Qt::Key_O, Qt::ControlModifier);
  onConsole("LoadButton(0)").setFocus();
  EXPECT_EQ(key(Qt::Key_Return), "LoadButton(1)") << "which stops the playback";
  key(Qt::Key_Return);
  key(Qt::Key_Comma, Qt::ControlModifier);
  EXPECT_TRUE(settings().isVisible());
}

TEST_F(ConsoleWindow, CopiesAndClearsRepliesFromTheirMenu) {
  startWithUnit();
  press("SendCommand(0)", 100);
  const auto choose = [&](const char* action) {
    QContextMenuEvent asks(QContextMenuEvent::Keyboard, QPoint(), QPoint());
    QApplication::sendEvent(&replyField(0), &asks);
    auto* menu = replyField(0).findChild<QMenu*>();
    for (QAction* entry : menu->actions()) {
      if (entry->text().remove('&') == action) entry->trigger();
    }
    menu->close();
    delete menu;
    return QApplication::clipboard()->text().toStdString();
  };
  EXPECT_EQ(choose("Copy"), kVersionReply);
  EXPECT_EQ(choose("Copy Command and Reply"), "/1&\t" + kVersionReply);
  EXPECT_TRUE(choose("Copy All Rows").starts_with("0\t/1&\t" + kVersionReply + "\n1\t/1?0\t\n"));
  choose("Clear Replies");
  EXPECT_EQ(reply(0) + replyField(0).toolTip().toStdString(), "");
}

TEST_F(ConsoleWindow, ReportsAFaultAtAHandlersEdgeAndGoesOn) {
  start();
  const auto tearNextIn = [this](const std::string& handler) {
    after(0s, [] { throw std::runtime_error("torn"); });
    expectBox(handler + "() Error #: 0 :: torn");
  };
  tearNextIn("SendCommand_Click");
  press("SendCommand(0)");
  tearNextIn("Form_QueryUnload");
  console().close();
  EXPECT_TRUE(ended_);
}

TEST_F(ConsoleWindow, FindsAUnitWhoseAnswerTheTimeOutMeets) {
  store("Settings", "RCVTimeout", "990");
  for (const char* protocol : {"DTProtocol", "OEMProtocol"}) {
    for (int late_ms = 0; late_ms <= 60; ++late_ms) {
      SimulatedBus bus({UnitOptions{.address = '9'}}, {.faults = {{FaultKind::kLate, late_ms}}});
      platform_.attach(1, bus);
      start();
      // Where the answer's first character came before the tick, a reset would lose the port.
      after(989ms, [&] {
        if (late_ms <= 22) platform_.socket(1).refusal = Fault::kPortAlreadyOpen;
      });
      after(991ms, [&] {
        platform_.socket(1).refusal.reset();
        EXPECT_EQ(light(0), "yellow");
      });
      choose(protocol);
      press(settings(), "AutoSetup");
      platform_.runFor(100);
      ASSERT_EQ(commandField(0).text().toStdString() + reply(0), "/9&" + kVersionReply) << late_ms;
      platform_.detach(1);
    }
  }
}

TEST_F(ConsoleWindow, LaysOutAnyRowCountTheSameWayTwiceAndScrollsInASmallerWindow) {
  for (const int rows : {1, 10, 25}) {
    store("Settings", "MaxStrings", std::to_string(rows));
    start();
    console().resize(onConsole("ConsoleScreen").sizeHint());
    const QRect first = place("SendCommand(0)");
    const QRect last = place("SendCommand(" + std::to_string(rows - 1) + ")");
    const QRect frame = place("Frame1");
    EXPECT_NEAR(last.top() - first.top(), (rows - 1) * 1.25 * first.height(), 1);
    EXPECT_EQ(frame.top(), first.top() - first.height());
    EXPECT_NEAR(frame.height(), rows * 1.25 * first.height(), 1);
    EXPECT_EQ(place("ButtonShape(0)").left(), first.left() - 2 * place("ButtonShape(0)").width());
    EXPECT_NEAR(place("LoadButton(4)").right(), place("ReceiveString(0)").right(), 1);
    EXPECT_LT(place("LoadButton(0)").bottom(), frame.top());
    EXPECT_GE(place("LoadButton(3)").top(), 0);
    EXPECT_EQ(console().height(), last.top() + 3 * first.height());
    console().SetupScreen();
    EXPECT_EQ(place("SendCommand(0)"), first);
    EXPECT_EQ(first.height() % 4, 0) << "so that rows follow each other by whole pixels";
  }
  const auto& area = *console().findChild<QScrollArea*>();
  // A pixel can be missing at a fractional scale factor.
  for (const auto& [missing, bars] : {std::pair{50, 2}, {0, 0}, {50, 2}, {1, 0}}) {
    console().resize(onConsole("ConsoleScreen").sizeHint() - QSize(missing, missing));
    platform_.runFor(1);
    EXPECT_EQ(area.horizontalScrollBar()->isVisible() + area.verticalScrollBar()->isVisible(),
              bars);
  }
}

TEST_F(ConsoleWindow, LoadsTheStoredStringsAgainAndStartsTheSequenceOver) {
  store("Strings", "StringToSend2", "/2stored");
  startWithUnit();
  commandField(2).setText("changed");
  choose("OEMProtocol");
  for (int round = 0; round < 2; ++round) {
    press("SendCommand(0)", 100);
    press("LoadButton(6)");
  }
  EXPECT_EQ(commandField(2).text(), "/2stored");
  EXPECT_EQ(commandField(2).cursorPosition(), 0) << "the head of a long command shows";
  EXPECT_EQ(sent().substr(0, 6), sent().substr(6)) << "no repeat, and no next number";
}

TEST_F(ConsoleWindow, KeepsStringsAndRecordingInACommandFile) {
  startWithUnit();
  commandField(24).setText("/1\"a\", \u20AC");
  press("LoadButton(2)");
  press("SendCommand(1)", 120);
  press("LoadButton(2)");
  platform_.script().expectSaveFile(path("first"));
  press("LoadButton(4)");
  EXPECT_TRUE(title().starts_with("Dirigo Version ")) << "a save gives it no name";
  EXPECT_TRUE(platform_.script().fileRequests().back().ask_before_overwriting);

  start();
  press("SendCommand(1)", 100);
  platform_.script().expectOpenFile(path("first"));
  press("LoadButton(5)");
  EXPECT_EQ(title(), "Current Command File: " + path("first"));
  EXPECT_EQ(reply(1) + replyField(1).toolTip().toStdString(), "");
  EXPECT_EQ(commandField(24).text(), "/1\"a\", \u20AC");
  press("LoadButton(1)");
  sent().clear();
  platform_.runFor(150);
  EXPECT_EQ(sent(), "/1?0\r") << "the loaded sequence plays";

  platform_.script().expectSaveFile(path(""));
  expectBox("Error Writing File: " + path(""), box::kExclamation);
  press("LoadButton(4)");
  EXPECT_EQ(title(), "Current Command File: " + path("first"));
}
