#include "support/window_test.h"

using namespace mvdirigo;

using HelpWindow = WindowTest;

TEST_F(HelpWindow, ExplainsTheControlThatIsClickedOrFocused) {
  store("Settings", "MaxStrings", "25");
  startWithUnit();
  press("LoadButton(7)");
  auto& help = find<QWidget>(console(), "StringFunHelp");
  help.activateWindow();
  const std::string order = tabOrder(help);
  EXPECT_TRUE(order.starts_with("StringToSend(0) SendCommand(0) ReceiveString(0) ")) << order;
  EXPECT_NE(order.find(" ReceiveString(4) LoadButton(3) "), order.npos) << order;
  // On a screen that is too small the rows scroll, and the bar stays in sight.
  EXPECT_EQ(help.size().boundedTo(help.screen()->size()), help.size());
  ASSERT_GT(help.findChild<QScrollArea*>()->widget()->width(), help.width());
  for (const char* corner : {"LoadButton(3)", "LoadButton(4)"}) {
    EXPECT_TRUE(help.rect().contains(find<QWidget>(help, corner).geometry())) << corner;
  }

  const QString long_caption = "Dirigo Help - Click a control for its description.";
  const QString short_caption = "Dirigo Help";
  EXPECT_EQ(help.windowTitle(), long_caption);
  platform_.runFor(1000);
  EXPECT_EQ(help.windowTitle(), short_caption);
  platform_.runFor(500);
  constexpr auto kClick = Qt::Key();
  const std::tuple<std::string, Qt::Key, std::string> messages[] = {
      {"ReceiveString(4)", kClick, "Responses from the motor drives will appear in these fields."},
      {"LoadButton(3)", kClick,
       "This opens the settings window where you set the COM port, baud rate and number of strings "
       "to display."},
      {"SendCommand(0)", Qt::Key_Return,
       "Click \"Send String\" to transmit the command string to the Motor Drive."},
      {"StringToSend(4)", Qt::Key_Return,
       "Enter your command strings in these fields. Click \"Send String\" to transmit the string"},
      {"LoadButton(7)", Qt::Key_F1, "This opens the Help Window."}};
  QString meanwhile = long_caption;
  for (const auto& [name, key, text] : messages) {
    auto& control = find<QWidget>(help, name);
    EXPECT_EQ(control.accessibleDescription().toStdString(), text);
    EXPECT_EQ(control.cursor().shape(), Qt::WhatsThisCursor);
    platform_.script().expectBox(text, box::kOkOnly, BoxButton::kOk,
                                 [&] { EXPECT_EQ(help.windowTitle(), meanwhile); });
    control.setFocus();
    key == kClick ? QTest::mouseClick(&control, Qt::LeftButton) : QTest::keyClick(&control, key);
    platform_.runFor(2000);
    EXPECT_EQ(help.windowTitle(), short_caption) << "stopped after the first message";
    meanwhile = short_caption;
    QKeyEvent held(QEvent::KeyPress, key, Qt::NoModifier, {}, true);
    if (key != kClick) QApplication::sendEvent(&control, &held);
  }
  EXPECT_FALSE(settings().isVisible());
  EXPECT_EQ(platform_.socket(1).sent, "");
  QTest::keyClick(&help, Qt::Key_Escape);
  EXPECT_FALSE(help.isVisible());
  press("LoadButton(7)");
  EXPECT_EQ(help.windowTitle(), long_caption) << "loaded anew";
}
