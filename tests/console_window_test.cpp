#include <string>

#include <gtest/gtest.h>

#include "support/window_test.h"

namespace mvdirigo {
namespace {

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
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(0)").text(), "/1&");
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(19)").text(), "/1?11");
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(25)").text(), "/1?0");
  EXPECT_EQ(onConsole<QPushButton>("SendCommand(10)").text(), "Send String &10");
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(7)").accessibleName(), "Command string 7");
  EXPECT_FALSE(onConsole<QPushButton>("Command1").isVisible());
  EXPECT_TRUE(platform_.store().saves.empty()) << "nobody has chosen anything yet";
  EXPECT_TRUE(platform_.socket(1).sent.empty());
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
  EXPECT_TRUE(onConsole<QLineEdit>("ReceiveString(0)").toolTip().contains("\\xFF/0`") ||
              onConsole<QLineEdit>("ReceiveString(0)").toolTip().contains("/0`Movane"));
  platform_.runFor(400);
  EXPECT_EQ(light(0), "white");
}

TEST_F(ConsoleWindow, GivesTheFocusBackToAPressedButton) {
  startWithUnit();
  onConsole<QPushButton>("SendCommand(1)").setFocus();
  press("SendCommand(1)");
  QTest::keyClick(program_->console().focusWidget(), Qt::Key_Space);
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(2)").text(), "/1A1000A0R");
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
    EXPECT_EQ(place("LoadButton(0)").left(), first.left());
    EXPECT_LT(place("LoadButton(0)").bottom(), place("Frame1").top());
    EXPECT_GE(place("LoadButton(3)").top(), 0);
    EXPECT_EQ(program_->console().controls().height(),
              place("SendCommand" + last).top() + 3 * first.height());
    program_->console().SetupScreen();
    EXPECT_EQ(place("SendCommand(0)"), first);
    EXPECT_EQ(shownRows(), rows);
  }
}

TEST_F(ConsoleWindow, TakesOddRowCountsAsTheyStand) {
  const struct {
    std::string stored;
    int rows;
  } cases[] = {{"abc", 10}, {"", 10}, {"0", 0}, {"-3", 0}, {"-99999", 10}, {"2.5", 2}};
  for (const auto& c : cases) {
    store("Settings", "MaxStrings", c.stored);
    start();
    EXPECT_EQ(shownRows(), c.rows) << c.stored;
    EXPECT_GT(program_->console().controls().height(), 200) << c.stored;
  }
  store("Settings", "MaxStrings", "60");
  platform_.script().expectBox("Maximum number of strings allowed is 25", box::kOkOnly);
  start();
  EXPECT_EQ(shownRows(), 25);
}

TEST_F(ConsoleWindow, KeepsItsIntervalForATimeOutThatIsNone) {
  for (const std::string timeout : {"abc", "", "0", "-5"}) {
    store("Settings", "RCVTimeout", timeout);
    start();
    EXPECT_EQ(program_->console().tmrReceiveTimeOut().Interval(), 4000) << timeout;
  }
  store("Settings", "RCVTimeout", "90000");
  start();
  EXPECT_EQ(program_->console().tmrReceiveTimeOut().Interval(), 90000);
}

TEST_F(ConsoleWindow, SavesAllRowsAndClosesThePortInEveryState) {
  enum class State { kIdle, kWaiting, kTimedOut, kVanished };
  for (const State state : {State::kIdle, State::kWaiting, State::kTimedOut, State::kVanished}) {
    SimulatedBus deaf{{}};
    platform_.attach(1, deaf);
    platform_.store().saves.clear();
    start();
    onConsole<QLineEdit>("StringToSend(24)").setText("/1hidden,\"\u20AC\"");
    onConsole<QLineEdit>("StringToSend(25)").setText("");
    if (state != State::kIdle) press("SendCommand(3)");
    if (state == State::kTimedOut) platform_.runFor(1001);
    if (state == State::kVanished) platform_.detach(1);
    program_->console().close();
    EXPECT_TRUE(ended_);
    EXPECT_FALSE(program_->console().MSComm1().PortOpen());
    ASSERT_EQ(platform_.store().saves.size(), 26U);
    EXPECT_EQ(platform_.store().saves[0].address.key, "StringToSend0");
    EXPECT_EQ(stored("Strings", "StringToSend24"), "/1hidden,\"\u20AC\"");
    EXPECT_EQ(stored("Strings", "StringToSend25"), "");
    EXPECT_FALSE(program_->console().isVisible() || program_->settings().isVisible());
    platform_.runFor(5000);
    EXPECT_NE(reply(3), state == State::kWaiting ? "No Movane detected. Check connections" : "x");
    platform_.detach(1);
  }
}

TEST_F(ConsoleWindow, ClosesThePortAtEveryClickOfTheBar) {
  startWithUnit();
  for (const int button : {3, 6, 7}) {
    press("SendCommand(0)");
    platform_.runFor(100);
    EXPECT_TRUE(program_->console().MSComm1().PortOpen());
    press("LoadButton(" + std::to_string(button) + ")");
    EXPECT_FALSE(program_->console().MSComm1().PortOpen()) << button;
  }
}

TEST_F(ConsoleWindow, LoadsTheStoredStringsAgain) {
  store("Strings", "StringToSend2", "/2stored");
  start();
  onConsole<QLineEdit>("StringToSend(2)").setText("changed");
  onConsole<QLineEdit>("StringToSend(3)").setText("changed");
  press("LoadButton(6)");
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(2)").text(), "/2stored");
  EXPECT_EQ(onConsole<QLineEdit>("StringToSend(3)").text(), "/1P1000D500R");
}

}  // namespace
}  // namespace mvdirigo
