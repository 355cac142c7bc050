#include <string>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/window_test.h"

namespace mvdirigo {
namespace {

/// The bar's buttons in the real window: recording, files and help.
class BarWindow : public WindowTest {
 protected:
  std::string captions() {
    std::string captions;
    for (int index = 0; index < 8; ++index) {
      const auto& button = onConsole<QPushButton>("LoadButton(" + std::to_string(index) + ")");
      captions += (button.isEnabled() ? "" : "-") + button.text().toStdString() + "|";
    }
    return captions;
  }
  std::string path(const std::string& name) { return folder_.path / name; }
  std::string title() { return program_->console().windowTitle().toStdString(); }

  TemporaryFolder folder_;
};

const std::string kOthers = "|Settings|Save Strings|Load Strings|Load Default|Help|";
const std::string kOthersWhileBusy = "|-Settings|-Save Strings|-Load Strings|Load Default|Help|";
const std::string kIdle = "Play Endless|Playback|Record" + kOthers;
const std::string kAfterPlayback = "Play Endless|Play|Record" + kOthers;

TEST_F(BarWindow, PlaysPressesBackWithTheirTicksThoughTheUnitIsSilentByThen) {
  SimulatedBus deaf{{}};
  startWithUnit();
  EXPECT_EQ(captions(), kIdle);
  press("LoadButton(2)");
  EXPECT_EQ(captions(), "-Play Endless|-Playback|Stop Recording" + kOthersWhileBusy);
  for (const int row : {1, 9}) {
    platform_.runFor(350);
    press("SendCommand(" + std::to_string(row) + ")");
  }
  platform_.runFor(1100);
  press("LoadButton(2)");
  EXPECT_EQ(captions(), kIdle);

  platform_.attach(1, deaf);
  press("LoadButton(1)");
  EXPECT_EQ(captions(), "-Play Endless|Stop Playback|-Record" + kOthersWhileBusy);
  std::string& sent = platform_.socket(1).sent;
  sent.clear();
  platform_.runFor(350);
  EXPECT_EQ(sent, "/1?0\r") << "on the first tick";
  platform_.runFor(70);
  EXPECT_EQ(sent, "/1?0\r/1F\r") << "seven ticks later";
  platform_.runFor(1100);
  EXPECT_EQ(reply(9), "No Movane detected. Check connections");
  EXPECT_EQ(captions(), kAfterPlayback);
  press("LoadButton(0)");
  platform_.runFor(1600);
  EXPECT_EQ(sent, "/1?0\r/1F\r/1?0\r/1F\r/1?0\r");
  press("LoadButton(1)");
  EXPECT_EQ(captions(), kAfterPlayback);
  program_->console().SetupScreen();
  EXPECT_EQ(captions(), kIdle);
}

TEST_F(BarWindow, KeepsStringsAndRecordingInACommandFile) {
  startWithUnit();
  platform_.script().expectSaveFile(std::nullopt);
  press("LoadButton(4)");
  platform_.script().expectOpenFile(std::nullopt);
  press("LoadButton(5)");
  const std::string version_title = title();
  commandField(24).setText("/1\"a\", \u20AC");
  press("LoadButton(2)");
  press("SendCommand(1)");
  platform_.runFor(120);
  press("LoadButton(2)");
  platform_.script().expectSaveFile(path("first"));
  press("LoadButton(4)");
  EXPECT_EQ(title(), version_title);
  EXPECT_TRUE(platform_.script().fileRequests().back().ask_before_overwriting);

  start();
  press("SendCommand(1)");
  platform_.runFor(100);
  platform_.script().expectOpenFile(path("first"));
  press("LoadButton(5)");
  EXPECT_EQ(title(), "Current Command File: " + path("first"));
  EXPECT_EQ(reply(1), "");
  EXPECT_EQ(commandField(24).text(), "/1\"a\", \u20AC");
  press("LoadButton(1)");
  platform_.socket(1).sent.clear();
  platform_.runFor(150);
  EXPECT_EQ(platform_.socket(1).sent, "/1?0\r") << "the loaded sequence plays";

  platform_.script().expectSaveFile(path(""));
  platform_.script().expectBox("Error Writing File: " + path(""), box::kExclamation);
  press("LoadButton(4)");
  writeFile(path("short"), "\"/9\"\r\n");
  platform_.script().expectOpenFile(path("short"));
  platform_.script().expectBox("Error Reading file: " + path("short"), box::kExclamation);
  press("LoadButton(5)");
  EXPECT_EQ(commandField(0).text(), "/9") << "what was read stays";
  EXPECT_EQ(title(), "Current Command File: " + path("first"));
}

TEST_F(BarWindow, ExplainsItsControlsOnTheHelpScreen) {
  store("Settings", "MaxStrings", "25");
  startWithUnit();
  press("LoadButton(7)");
  auto& help = find<QWidget>(program_->console(), "StringFunHelp");
  EXPECT_TRUE(help.isVisible());
  const auto caption = [&help] { return help.windowTitle().toStdString(); };
  const std::string long_caption = "Dirigo Help - Click a control for its description.";
  EXPECT_EQ(help.findChildren<QPushButton*>(QRegularExpression("SendCommand")).size(), 5);
  EXPECT_EQ(caption(), long_caption);
  platform_.runFor(1000);
  EXPECT_EQ(caption(), "Dirigo Help");
  platform_.runFor(500);
  EXPECT_EQ(caption(), long_caption);

  const struct {
    std::string control, caption_meanwhile, text;
  } messages[] = {
      {"ReceiveString(4)", long_caption,
       "Responses from the motor drives will appear in these fields."},
      {"LoadButton(3)", "Dirigo Help",
       "This opens the settings window where you set the COM port, baud rate and number of strings "
       "to display."},
      {"SendCommand(0)", "Dirigo Help",
       "Click \"Send String\" to transmit the command string to the Motor Drive."},
      {"StringToSend(0)", "Dirigo Help",
       "Enter your command strings in these fields. Click \"Send String\" to transmit the string"}};
  for (const auto& message : messages) {
    platform_.script().expectBox(message.text, box::kOkOnly, BoxButton::kOk,
                                 [&] { EXPECT_EQ(caption(), message.caption_meanwhile); });
    QTest::mouseClick(&find<QWidget>(help, message.control), Qt::LeftButton);
    platform_.runFor(2000);
    EXPECT_EQ(caption(), "Dirigo Help") << "stopped after the first message";
  }
  EXPECT_FALSE(program_->settings().isVisible());
  EXPECT_TRUE(platform_.socket(1).sent.empty());
  help.close();
  press("LoadButton(7)");
  EXPECT_EQ(caption(), long_caption) << "loaded anew";
  program_->console().close();
  EXPECT_FALSE(help.isVisible());
}

}  // namespace
}  // namespace mvdirigo
