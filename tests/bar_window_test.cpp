#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/window_test.h"

namespace mvdirigo {
namespace {

/// The bar's buttons in the real window: recording, files, help and the update dialog.
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

class UpdateWindow : public BarWindow {
 protected:
  /// Opens the update dialog with an image of `size` bytes loaded.
  void openWithImage(std::size_t size) {
    writeFile(path("image.zrf"), "103A7" + std::string(size, 'x'));
    startWithUnit();
    press("SendCommand(0)");
    platform_.runFor(100);
    press("LoadButton(3)");
    press(program_->settings(), "cmdUpdate");
    EXPECT_FALSE(program_->settings().isVisible());
    EXPECT_FALSE(find<QPushButton>(dialog(), "cmdUpdate").isEnabled());
    platform_.script().expectOpenFile(path("image.zrf"));
    press(dialog(), "cmdLoadImage");
    EXPECT_EQ(status(), "Status: Loaded " + path("image.zrf"));
  }
  void expectConfirmation() {
    platform_.script().expectBox(
        "Are you sure you want to continue? \r\n\r\n- Disconnect all other devices from serial "
        "bus.\r\n- Terminate connections for high baud rates.\r\n\r\n- DO NOT POWER OFF DEVICE "
        "until update is complete.",
        box::kYesNo + box::kInformation, BoxButton::kYes);
  }
  QWidget& dialog() { return *program_->update(); }
  std::string status() { return find<QLineEdit>(dialog(), "txtStatus").text().toStdString(); }
};

TEST_F(UpdateWindow, UpdatesAUnitAndGivesTheLineBack) {
  openWithImage(6000);
  find<QAbstractButton>(dialog(), "Verbose").click();
  std::vector<SimTime> turns;
  QObject::connect(&find<QLineEdit>(dialog(), "txtSpinner"), &QLineEdit::textChanged,
                   [&](const QString& position) {
                     if (position != " ") turns.push_back(platform_.now());
                   });
  expectConfirmation();
  press(dialog(), "cmdUpdate");
  EXPECT_EQ(status(), "Status: OK");
  EXPECT_EQ(bus_.unit(0).image(), std::string(6000, 'x'));
  ASSERT_GT(turns.size(), 30);
  for (std::size_t i = 1; i < turns.size(); ++i)
    EXPECT_GE(turns[i] - turns[i - 1], std::chrono::milliseconds(130)) << "no faster than one sees";
  EXPECT_TRUE(find<QPushButton>(dialog(), "cmdUpdate").isEnabled());
  EXPECT_EQ(dialog().size(), QSize(666, 300));
  press(dialog(), "cmdClose");
  EXPECT_EQ(program_->update(), nullptr);
  EXPECT_TRUE(program_->settings().isVisible());
  platform_.runFor(10000);
  press("SendCommand(0)");
  platform_.runFor(100);
  EXPECT_EQ(reply(0), "Movane Stepper v7.02 No Error");
}

TEST_F(UpdateWindow, EndsCleanlyWhenItOrTheConsoleIsClosedInAnyWait) {
  for (const int after_ms : {1, 4, 500, 5030, 5050, 5100, 5200, 6000}) {
    for (const bool console : {false, true}) {
      openWithImage(6000);
      expectConfirmation();
      after(std::chrono::milliseconds(after_ms),
            [&] { console ? void(program_->console().close()) : press(dialog(), "cmdClose"); });
      press(dialog(), "cmdUpdate");
      EXPECT_EQ(program_->settings().isVisible(), !console) << after_ms;
      EXPECT_EQ(ended_, console);
      program_->console().MSComm1().setCommPort(1);
      program_->console().MSComm1().setPortOpen(true);
      program_.reset();
      platform_.detach(1);
      bus_ = SimulatedBus({UnitOptions{}});
    }
  }
}

}  // namespace
}  // namespace mvdirigo
