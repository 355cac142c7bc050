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
    press("SendCommand(0)", 100);
    press("LoadButton(3)");
    press(settings(), "cmdUpdate");
    EXPECT_FALSE(settings().isVisible() || enabled("cmdUpdate"));
    platform_.script().expectOpenFile(image_);
    press(dialog(), "cmdLoadImage");
    EXPECT_EQ(display("txtStatus").text().toStdString(), "Status: Loaded " + image_);
  }
  /// Presses "Update" and confirms it.
  void update(std::function<void()> while_asked = {}) {
    platform_.script().expectBox(
        "Are you sure you want to continue? \r\n\r\n- Disconnect all other devices from serial "
        "bus.\r\n- Terminate connections for high baud rates.\r\n\r\n- DO NOT POWER OFF DEVICE "
        "until update is complete.",
        box::kYesNo + box::kInformation, BoxButton::kYes, std::move(while_asked));
    press(dialog(), "cmdUpdate");
  }
  QWidget& dialog() { return *program_->update(); }
  bool enabled(const char* name) { return find<QWidget>(dialog(), name).isEnabled(); }
  QString toolTip(const char* name) { return find<QWidget>(dialog(), name).toolTip(); }
  QLineEdit& display(const char* name) { return find<QLineEdit>(dialog(), name); }

  TemporaryFolder folder_;
  std::string image_ = folder_.path / "<b>.zrf";
};

TEST_F(UpdateWindow, UpdatesAUnitUndisturbedAndGivesTheLineBack) {
  openWithImage(600);
  EXPECT_EQ(tabOrder(dialog()),
            "cboID cboBaud CrashUpdate Verbose cmdLoadImage cmdUpdate cmdPause cmdClose Traffic ");
  auto& status = display("txtStatus");
  EXPECT_EQ(status.cursorPosition(), status.text().size()) << "the file's name is to be seen";
  EXPECT_TRUE(status.toolTip().contains("/&lt;b&gt;.zrf"));
  find<QAbstractButton>(dialog(), "Verbose").click();
  after(10500ms, [&] {
    EXPECT_EQ(status.text(), "Status: Transmitting data...");
    EXPECT_FALSE(enabled("cboID") || enabled("cboBaud") || enabled("cmdLoadImage"));
    EXPECT_EQ(dialog().focusWidget(), &status) << "not \"Close\"";
    QTest::keyClick(&dialog(), Qt::Key_Escape);
    ASSERT_NE(program_->update(), nullptr);
    dialog().close();
    ASSERT_NE(program_->update(), nullptr);
    EXPECT_TRUE(toolTip("cmdClose").startsWith("Ends the update at once."));
  });
  update();
  ASSERT_NE(program_->update(), nullptr);
  EXPECT_EQ(status.text(), "Status: OK");
  EXPECT_EQ(bus_->unit(0).image(), std::string(600, 'x'));
  EXPECT_EQ(dialog().size(), QSize(666, 300));
  EXPECT_TRUE(enabled("cboID") && enabled("cboBaud") && enabled("cmdLoadImage") &&
              enabled("cmdUpdate"));
  EXPECT_EQ(toolTip("cmdClose"), "");
  EXPECT_EQ(toolTip("cmdUpdate"), "For another update, close this dialog and open it again.");

  auto& traffic = find<QPlainTextEdit>(dialog(), "Traffic");
  receive(std::string(600, 'x') + "\r", 100);
  EXPECT_TRUE(traffic.toPlainText().endsWith("\n" + QString(500, 'x')));
  receive(std::string(1500, '\r'), 100);
  EXPECT_EQ(traffic.toPlainText().size() / 1024, 255);

  press(dialog(), "cmdClose");
  EXPECT_TRUE(program_->update() == nullptr && settings().isVisible());
  platform_.runFor(10000);
  press("SendCommand(0)", 100);
  EXPECT_EQ(reply(0), kVersionReply);
}

TEST_F(UpdateWindow, TakesTheLineFromAPlaybackAndTurnsTheSpinnerNoFasterThanOneSees) {
  openWithImage(30000);
  console().LoadButton_Click(2);
  console().SendCommand_Click(1);
  platform_.runFor(100);
  console().LoadButton_Click(2);
  console().LoadButton_Click(0);
  find<QComboBox>(dialog(), "cboBaud").setCurrentText("57600");
  int turns = 0;
  SimTime next_turn{0};
  QObject::connect(&display("txtSpinner"), &QLineEdit::textChanged, [&](const QString& position) {
    turns += position != " ";
    EXPECT_TRUE(position == " " || platform_.now() >= next_turn);
    next_turn = platform_.now() + 130ms;
  });
  update([this] {
    platform_.runFor(2000);
    EXPECT_TRUE(portOpen()) << "the playback holds it until the confirmation";
  });
  EXPECT_EQ(display("txtStatus").text(), "Status: OK");
  platform_.runFor(1000);
  EXPECT_EQ(display("txtSpinner").text(), " ");
  EXPECT_GT(turns, 30);
}

TEST_F(UpdateWindow, EndsCleanlyWhenItOrTheConsoleIsClosedInAnyWait) {
  for (const int after_ms : {1, 4, 500, 5030, 5050, 6000, 10100, 10500}) {
    for (const bool whole : {false, true}) {
      openWithImage(6000);
      after(std::chrono::milliseconds(after_ms), [&] {
        if (whole) {
          console().close();
        } else {
          press(dialog(), "cmdClose");
        }
      });
      update();
      EXPECT_EQ(settings().isVisible(), !whole) << after_ms;
      EXPECT_EQ(ended_, whole);
      EXPECT_TRUE(console().PortAvailable(1)) << after_ms;
      program_.reset();
      platform_.detach(1);
    }
  }
}

}  // namespace
}  // namespace mvdirigo
