#include <string>
#include <vector>

#include <QComboBox>
#include <QPlainTextEdit>
#include <gtest/gtest.h>

#include "support/files.h"
#include "support/window_test.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;

class UpdateWindow : public WindowTest {
 protected:
  /// Opens the update dialog with an image of `size` bytes loaded.
  void openWithImage(std::size_t size) {
    writeFile(image_, "103A7" + std::string(size, 'x'));
    startWithUnit();
    press("SendCommand(0)");
    platform_.runFor(100);
    press("LoadButton(3)");
    press(program_->settings(), "cmdUpdate");
    EXPECT_FALSE(program_->settings().isVisible());
    EXPECT_FALSE(find<QPushButton>(dialog(), "cmdUpdate").isEnabled());
    platform_.script().expectOpenFile(image_);
    press(dialog(), "cmdLoadImage");
    EXPECT_EQ(status(), "Status: Loaded " + image_);
  }
  void expectConfirmation(std::function<void()> while_open = {}) {
    platform_.script().expectBox(
        "Are you sure you want to continue? \r\n\r\n- Disconnect all other devices from serial "
        "bus.\r\n- Terminate connections for high baud rates.\r\n\r\n- DO NOT POWER OFF DEVICE "
        "until update is complete.",
        box::kYesNo + box::kInformation, BoxButton::kYes, std::move(while_open));
  }
  QWidget& dialog() { return *program_->update(); }
  std::string toolTip(const std::string& name) {
    return find<QWidget>(dialog(), name).toolTip().toStdString();
  }
  std::string status() { return find<QLineEdit>(dialog(), "txtStatus").text().toStdString(); }

  TemporaryFolder folder_;
  std::string image_ = folder_.path / "<b>.zrf";
};

TEST_F(UpdateWindow, UpdatesAUnitUndisturbedAndGivesTheLineBack) {
  openWithImage(600);
  EXPECT_EQ(tabOrder(dialog()),
            "cboID cboBaud CrashUpdate Verbose cmdLoadImage cmdUpdate cmdPause cmdClose Traffic ");
  const auto& line = find<QLineEdit>(dialog(), "txtStatus");
  EXPECT_EQ(line.cursorPosition(), line.text().size()) << "the file's name is to be seen";
  EXPECT_TRUE(line.toolTip().contains("/&lt;b&gt;.zrf"));
  find<QAbstractButton>(dialog(), "Verbose").click();
  const auto enabled = [this](const char* name) {
    return find<QWidget>(dialog(), name).isEnabled();
  };
  expectConfirmation();
  after(10500ms, [&] {
    EXPECT_EQ(status(), "Status: Transmitting data...");
    EXPECT_FALSE(enabled("cboID") || enabled("cboBaud") || enabled("cmdLoadImage"));
    EXPECT_EQ(dialog().focusWidget()->objectName(), "txtStatus") << "not \"Close\"";
    QTest::keyClick(&dialog(), Qt::Key_Escape);
    ASSERT_NE(program_->update(), nullptr);
    dialog().close();
    ASSERT_NE(program_->update(), nullptr);
    press(dialog(), "cmdLoadImage");
    EXPECT_TRUE(toolTip("cmdClose").starts_with("Ends the update at once."));
  });
  press(dialog(), "cmdUpdate");
  ASSERT_NE(program_->update(), nullptr);
  EXPECT_EQ(status(), "Status: OK");
  EXPECT_EQ(bus_.unit(0).image(), std::string(600, 'x'));
  EXPECT_EQ(dialog().size(), QSize(666, 300));
  EXPECT_TRUE(enabled("cboID") && enabled("cboBaud") && enabled("cmdLoadImage") &&
              enabled("cmdUpdate"));
  EXPECT_EQ(toolTip("cmdClose"), "");
  EXPECT_EQ(toolTip("cmdUpdate"), "For another update, close this dialog and open it again.");

  auto& traffic = find<QPlainTextEdit>(dialog(), "Traffic");
  platform_.socket(1).deliver(std::string(600, 'x') + "\r");
  platform_.runFor(100);
  EXPECT_TRUE(traffic.toPlainText().endsWith("\n" + QString(500, 'x')));
  platform_.socket(1).deliver(std::string(1500, '\r'));
  platform_.runFor(100);
  EXPECT_EQ(traffic.toPlainText().size() / 1024, 255);

  press(dialog(), "cmdClose");
  EXPECT_EQ(program_->update(), nullptr);
  EXPECT_TRUE(program_->settings().isVisible());
  platform_.runFor(10000);
  press("SendCommand(0)");
  platform_.runFor(100);
  EXPECT_EQ(reply(0), "Movane Stepper v7.02 No Error");
}

TEST_F(UpdateWindow, TakesTheLineFromAPlaybackWhenItIsConfirmed) {
  openWithImage(600);
  StringFun& console = program_->console();
  console.LoadButton_Click(2);
  console.SendCommand_Click(1);
  platform_.runFor(100);
  console.LoadButton_Click(2);
  console.LoadButton_Click(0);
  expectConfirmation([&] {
    platform_.runFor(2000);
    EXPECT_TRUE(console.MSComm1().PortOpen());
  });
  press(dialog(), "cmdUpdate");
  EXPECT_EQ(status(), "Status: OK");
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
  for (std::size_t i = 1; i < turns.size(); ++i) EXPECT_GE(turns[i] - turns[i - 1], 130ms);
}

TEST_F(UpdateWindow, EndsCleanlyWhenItOrTheConsoleIsClosedInAnyWait) {
  for (const int after_ms : {1, 4, 500, 5030, 5050, 6000, 10100, 10500}) {
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
