#include <string>

#include <QRadioButton>
#include <QScrollArea>
#include <QScrollBar>
#include <gtest/gtest.h>

#include "support/window_test.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;

class ConsoleWindow : public WindowTest {
 protected:
  int shownRows() {
    int rows = 0;
    while (onConsole<QWidget>("SendCommand(" + std::to_string(rows) + ")").isVisible()) ++rows;
    return rows;
  }
  QRect place(const std::string& name) { return onConsole<QWidget>(name).geometry(); }
};

TEST_F(ConsoleWindow, StartsWithTheDefaultsOfAnEmptyStore) {
  start();
  EXPECT_EQ(program_->console().windowTitle(), "Dirigo Version " MVDIRIGO_VERSION);
  EXPECT_EQ(shownRows(), 11);
  EXPECT_EQ(commandField(0).text(), "/1&");
  EXPECT_EQ(commandField(19).text(), "/1?11");
  EXPECT_EQ(commandField(25).text(), "/1?0");
  EXPECT_EQ(onConsole<QPushButton>("SendCommand(10)").text(), "Send String &10");
  EXPECT_EQ(commandField(7).accessibleName(), "Command string 7");
  EXPECT_EQ(onConsole<QWidget>("ButtonShape(7)").accessibleName(), "Status light 7");
  EXPECT_FALSE(onConsole<QPushButton>("Command1").isVisible());
  EXPECT_TRUE(platform_.store().saves.empty()) << "nobody has chosen anything yet";
  EXPECT_TRUE(platform_.socket(1).sent.empty());
  commandField(9).setFocus();
  for (const char* next : {"SendCommand(9)", "StringToSend(10)", "SendCommand(10)", "LoadButton(0)",
                           "LoadButton(1)"}) {
    QTest::keyClick(program_->console().focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(program_->console().focusWidget()->objectName(), next);
  }
}

TEST_F(ConsoleWindow, SendsARowAndShowsTheReplyForHalfASecondInGreen) {
  startWithUnit();
  press("SendCommand(0)");
  EXPECT_FALSE(onConsole<QPushButton>("SendCommand(11)").isEnabled()) << "one more than the rows";
  EXPECT_TRUE(onConsole<QPushButton>("SendCommand(12)").isEnabled());
  platform_.runFor(100);
  EXPECT_EQ(reply(0), "Movane Stepper v7.02 No Error");
  EXPECT_EQ(light(0), "green");
  EXPECT_TRUE(onConsole<QPushButton>("SendCommand(11)").isEnabled());
  platform_.runFor(400);
  EXPECT_EQ(light(0), "white");
  press("SendCommand(1)");
  platform_.socket(1).deliver("\xFF/0`<b>%1</b>\x03\r");
  platform_.runFor(0);
  EXPECT_EQ(replyField(1).accessibleDescription(),
            "Received: \u00FF/0`<b>%1</b>\\x03\\r\nAt 08:00:00, 0 ms after sending");
  EXPECT_TRUE(replyField(1).toolTip().contains("&lt;b&gt;%1")) << "letter by letter";
  platform_.socket(1).deliver("\xFF/0`" + std::string(5000, 'n') + "\x03\r");
  platform_.runFor(0);
  EXPECT_EQ(find<QLineEdit>(program_->settings(), "ResponseString").text().size(), 4001);

  press("SendCommand(1)");
  find<QLineEdit>(program_->settings(), "MaxStrings").setText("5");
  program_->console().SetupScreen();
  EXPECT_TRUE(onConsole<QPushButton>("SendCommand(11)").isEnabled()) << "in mid-transaction";
  EXPECT_FALSE(onConsole<QPushButton>("SendCommand(5)").isEnabled());
  platform_.runFor(1000);
  EXPECT_TRUE(onConsole<QPushButton>("SendCommand(5)").isEnabled());
}

TEST_F(ConsoleWindow, TellsWhyNothingWasSentAndWhatCantBe) {
  platform_.socket(1).details.obstacle = "There is no such device.";
  start();
  press("SendCommand(0)");
  platform_.runFor(1001);
  EXPECT_EQ(reply(0), "No Movane detected. Check connections");
  EXPECT_EQ(replyField(0).toolTip(), "Nothing was sent: There is no such device.\nAt 08:00:01");
  for (const auto& [command, tip] :
       {std::pair{"/1A\u22121000R\u20AC",
                  "Character 4, \"\u2212\", can't be sent: it goes out as \"?\"."},
        {"/\U0001F600", "Character 2, \"\U0001F600\", can't be sent: it goes out as \"?\"."},
        {"/1\u00B5\u200B", "Character 4, \"U+200B\", can't be sent: it goes out as \"?\"."},
        {"/1\u00B5\u00FF", ""}}) {
    commandField(0).setText(command);
    EXPECT_EQ(commandField(0).toolTip(), tip);
    EXPECT_EQ(commandField(0).accessibleDescription(), tip);
  }
}

TEST_F(ConsoleWindow, ReportsAFaultAtAHandlersEdgeAndGoesOn) {
  start();
  const auto tearNextIn = [this](const std::string& handler) {
    platform_.onRunPending = [this] {
      platform_.onRunPending = nullptr;
      throw std::runtime_error("torn");
    };
    platform_.script().expectBox(handler + "() Error #: 0 :: torn", box::kOkOnly);
  };
  tearNextIn("SendCommand_Click");
  press("SendCommand(0)");
  tearNextIn("Form_QueryUnload");
  program_->console().close();
  EXPECT_TRUE(ended_);
}

TEST_F(ConsoleWindow, FindsAUnitWhoseAnswerTheTimeOutMeets) {
  start();
  for (int late_ms = 0; late_ms <= 60; ++late_ms) {
    for (const char* protocol : {"DTProtocol", "OEMProtocol"}) {
      SimulatedBus bus({UnitOptions{.address = '9'}}, {.faults = {{FaultKind::kLate, late_ms}}});
      platform_.attach(1, bus);
      // Where the answer's first character came before the tick, a reset would lose the port.
      after(999ms, [&] {
        if (late_ms <= 32) platform_.socket(1).refusal = Fault::kPortAlreadyOpen;
      });
      after(1001ms, [&] { platform_.socket(1).refusal.reset(); });
      find<QRadioButton>(program_->settings(), protocol).click();
      press(program_->settings(), "AutoSetup");
      EXPECT_EQ(commandField(0).text(), "/9&") << late_ms;
      ASSERT_EQ(reply(0), "Movane Stepper v7.02 No Error") << late_ms;
      program_->console().MSComm1().setPortOpen(false);
      platform_.runFor(100);
      platform_.detach(1);
    }
  }
}

TEST_F(ConsoleWindow, ScrollsWhereItIsSmallerThanItsRows) {
  start();
  const auto& area = *program_->console().findChild<QScrollArea*>();
  const auto barsAt = [&](int missing) {
    program_->console().resize(program_->console().controls().size() - QSize(missing, missing));
    platform_.runFor(1);
    return area.horizontalScrollBar()->isVisible() + area.verticalScrollBar()->isVisible();
  };
  for (const int round : {1, 2}) {
    EXPECT_EQ(barsAt(0), 0) << round;
    EXPECT_EQ(barsAt(1), 0) << "a pixel that a fractional scale factor takes away";
    EXPECT_EQ(barsAt(50), 2);
  }
}

TEST_F(ConsoleWindow, GivesTheFocusBackToAPressedButton) {
  startWithUnit();
  onConsole<QPushButton>("SendCommand(1)").setFocus();
  press("SendCommand(1)");
  QTest::keyClick(program_->console().focusWidget(), Qt::Key_Space);
  EXPECT_EQ(commandField(2).text(), "/1A1000A0R");
  platform_.runFor(100);
  EXPECT_EQ(program_->console().focusWidget(), &onConsole<QPushButton>("SendCommand(1)"));
}

TEST_F(ConsoleWindow, LaysOutAnyRowCountTheSameWayTwice) {
  for (const int rows : {1, 10, 25}) {
    store("Settings", "MaxStrings", std::to_string(rows));
    start();
    const std::string last = "(" + std::to_string(rows - 1) + ")";
    EXPECT_EQ(shownRows(), rows);
    const QRect first = place("SendCommand(0)");
    EXPECT_NEAR(place("SendCommand" + last).top() - first.top(), (rows - 1) * 1.25 * first.height(),
                1);
    EXPECT_EQ(place("Frame1").top(), first.top() - first.height());
    EXPECT_NEAR(place("Frame1").height(), rows * 1.25 * first.height(), 1);
    EXPECT_EQ(place("ButtonShape(0)").left(), first.left() - 2 * place("ButtonShape(0)").width());
    EXPECT_NEAR(place("LoadButton(4)").right(), place("ReceiveString(0)").right(), 1);
    EXPECT_LT(place("LoadButton(0)").bottom(), place("Frame1").top());
    EXPECT_GE(place("LoadButton(3)").top(), 0);
    EXPECT_EQ(program_->console().controls().height(),
              place("SendCommand" + last).top() + 3 * first.height());
    program_->console().SetupScreen();
    EXPECT_EQ(place("SendCommand(0)"), first);
  }
}

TEST_F(ConsoleWindow, TakesOddRowCountsAndTimeOutsAsTheyStand) {
  const struct {
    std::string count, timeout;
    int rows, interval;
  } cases[] = {{"abc", "abc", 10, 4000}, {"", "", 10, 4000},     {"0", "0", 0, 4000},
               {"-3", "-5", 0, 4000},    {"-99999", "1", 10, 1}, {"2.5", "90000", 2, 90000}};
  for (const auto& c : cases) {
    store("Settings", "MaxStrings", c.count);
    store("Settings", "RCVTimeout", c.timeout);
    start();
    EXPECT_EQ(shownRows(), c.rows) << c.count;
    EXPECT_GT(program_->console().controls().height(), 200) << c.count;
    EXPECT_EQ(program_->console().tmrReceiveTimeOut().Interval(), c.interval) << c.timeout;
  }
  store("Settings", "MaxStrings", "60");
  platform_.script().expectBox("Maximum number of strings allowed is 25", box::kOkOnly);
  start();
  EXPECT_EQ(shownRows(), 25);
}

TEST_F(ConsoleWindow, SavesAllRowsAndClosesThePortInEveryState) {
  for (const std::string state : {"idle", "waiting", "timed out", "vanished"}) {
    SimulatedBus deaf{{}};
    platform_.attach(1, deaf);
    platform_.store().saves.clear();
    start();
    commandField(24).setText("/1hidden,\"\u20AC\"");
    commandField(25).setText("");
    if (state != "idle") press("SendCommand(3)");
    if (state == "timed out") platform_.runFor(1001);
    if (state == "vanished") platform_.detach(1);
    program_->console().close();
    EXPECT_TRUE(ended_);
    EXPECT_FALSE(program_->console().MSComm1().PortOpen());
    ASSERT_EQ(platform_.store().saves.size(), 26U);
    EXPECT_EQ(platform_.store().saves[0].address.key, "StringToSend0");
    EXPECT_EQ(stored("Strings", "StringToSend24"), "/1hidden,\"\u20AC\"");
    EXPECT_EQ(stored("Strings", "StringToSend25"), "");
    EXPECT_FALSE(program_->console().isVisible() || program_->settings().isVisible());
    platform_.runFor(5000);
    EXPECT_NE(reply(3), state == "waiting" ? "No Movane detected. Check connections" : "x");
    platform_.detach(1);
  }
}

TEST_F(ConsoleWindow, LoadsTheStoredStringsAgainAndStartsTheSequenceOver) {
  store("Strings", "StringToSend2", "/2stored");
  startWithUnit();
  EXPECT_EQ(commandField(2).cursorPosition(), 0) << "the head of a long command shows";
  commandField(2).setText("changed");
  commandField(3).setText("changed");
  find<QRadioButton>(program_->settings(), "OEMProtocol").click();
  for (int round = 0; round < 2; ++round) {
    press("SendCommand(0)");
    platform_.runFor(100);
    EXPECT_TRUE(program_->console().MSComm1().PortOpen());
    press("LoadButton(6)");
    EXPECT_FALSE(program_->console().MSComm1().PortOpen()) << "as every button of the bar does";
  }
  EXPECT_EQ(commandField(2).text(), "/2stored");
  EXPECT_EQ(commandField(2).cursorPosition(), 0);
  EXPECT_EQ(commandField(3).text(), "/1P1000D500R");
  const std::string sent = platform_.socket(1).sent;
  EXPECT_EQ(sent.substr(0, 6), sent.substr(6)) << "no repeat, and no next number";
}

}  // namespace
}  // namespace mvdirigo
