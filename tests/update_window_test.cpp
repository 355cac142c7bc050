#include <string>
#include <vector>

#include <QComboBox>
#include <gtest/gtest.h>

#include "support/files.h"
#include "support/window_test.h"

namespace mvdirigo {
namespace {

class UpdateWindow : public WindowTest {
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
  std::string path(const std::string& name) { return folder_.path / name; }
  std::string status() { return find<QLineEdit>(dialog(), "txtStatus").text().toStdString(); }

  TemporaryFolder folder_;
};

TEST_F(UpdateWindow, UpdatesAUnitAndGivesTheLineBack) {
  openWithImage(600);
  find<QAbstractButton>(dialog(), "Verbose").click();
  expectConfirmation();
  press(dialog(), "cmdUpdate");
  EXPECT_EQ(status(), "Status: OK");
  EXPECT_EQ(bus_.unit(0).image(), std::string(600, 'x'));
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

TEST_F(UpdateWindow, TurnsTheSpinnerNoFasterThanOneSees) {
  openWithImage(30000);
  find<QComboBox>(dialog(), "cboBaud").setCurrentText("57600");
  auto& spinner = find<QLineEdit>(dialog(), "txtSpinner");
  std::vector<SimTime> turns;
  QObject::connect(&spinner, &QLineEdit::textChanged, [&](const QString& position) {
    if (position != " ") turns.push_back(platform_.now());
  });
  expectConfirmation();
  press(dialog(), "cmdUpdate");
  platform_.runFor(1000);
  EXPECT_EQ(spinner.text(), " ");
  ASSERT_GT(turns.size(), 30);
  for (std::size_t i = 1; i < turns.size(); ++i)
    EXPECT_GE(turns[i] - turns[i - 1], std::chrono::milliseconds(130));
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
