#include "support/window_test.h"

namespace mvdirigo {
namespace {

using HelpWindow = WindowTest;

TEST_F(HelpWindow, ExplainsTheFocusedControlOnTheHelpScreen) {
  start();
  press("LoadButton(7)");
  auto& help = find<QWidget>(console(), "StringFunHelp");
  help.activateWindow();
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&help)->role(), QAccessible::Window);
  EXPECT_TRUE(
      tabOrder(help).starts_with("StringToSend(0) SendCommand(0) ReceiveString(0) "
                                 "StringToSend(1) "))
      << tabOrder(help);
  EXPECT_TRUE(
      tabOrder(help).ends_with("ReceiveString(4) LoadButton(3) LoadButton(2) LoadButton(1) "
                               "LoadButton(0) LoadButton(7) LoadButton(6) LoadButton(5) "
                               "LoadButton(4) "))
      << tabOrder(help);

  const std::tuple<std::string, Qt::Key, std::string> keys[] = {
      {"ReceiveString(0)", Qt::Key_Return,
       "Responses from the motor drives will appear in these fields."},
      {"StringToSend(4)", Qt::Key_F1,
       "Enter your command strings in these fields. Click \"Send String\" to transmit the string"},
      {"LoadButton(7)", Qt::Key_Return, "This opens the Help Window."},
      {"LoadButton(7)", Qt::Key_F1, "This opens the Help Window."}};
  for (const auto& [name, key, text] : keys) {
    auto& control = find<QWidget>(help, name);
    EXPECT_EQ(control.accessibleDescription().toStdString(), text);
    EXPECT_EQ(control.cursor().shape(), Qt::WhatsThisCursor);
    control.setFocus();
    expectBox(text, box::kOkOnly);
    QTest::keyClick(&control, key);
    platform_.runFor(0);
    QKeyEvent held(QEvent::KeyPress, key, Qt::NoModifier, {}, true);
    QApplication::sendEvent(&control, &held);
  }

  // On a screen that is too small the rows scroll, and the bar stays in sight.
  const auto& view = *help.findChild<QScrollArea*>();
  const QSize whole = view.widget()->size();
  EXPECT_EQ(help.size().boundedTo(help.screen()->size()), help.size());
  ASSERT_GT(whole.width(), help.width());
  for (const char* corner : {"LoadButton(3)", "LoadButton(4)"}) {
    EXPECT_TRUE(help.rect().contains(find<QWidget>(help, corner).geometry())) << corner;
  }

  QTest::keyClick(&help, Qt::Key_Escape);
  EXPECT_FALSE(help.isVisible());
}

}  // namespace
}  // namespace mvdirigo
