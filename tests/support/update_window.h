#pragma once

#include "support/files.h"
#include "support/window_test.h"

namespace mvdirigo {

/// A box that is to show, and what happens while it is open and ends it.
struct Box {
  std::string text;
  int style = box::kOkOnly;
  BoxButton answer = BoxButton::kOk;
  std::function<void()> while_open = {};
};

inline const Box kUnable = {"Unable to validate ZRF file!", 49, BoxButton::kCancel};
inline const Box kPieceTimeout = {" 5 Timeout waiting for response, Exiting"};
inline const std::string kLineTimeout = "Timeout. No Movane detected.";

/// The whole program with its update dialog open.
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
    load(image_);
  }
  void load(const std::string& file) {
    platform_.script().expectOpenFile(file);
    press(dialog(), "cmdLoadImage");
    const QString shown = QString::fromStdString(file).replace('\n', QChar(0xFFFD));
    EXPECT_EQ(display("txtStatus").text(), "Status: Loaded " + shown);
    EXPECT_TRUE(enabled("cmdUpdate"));
  }
  void expectBoxes(const std::vector<Box>& boxes) {
    for (const auto& [text, style, answer, while_open] : boxes) {
      platform_.script().expectBox(text, style, answer, while_open);
    }
  }
  void expectConfirmation(std::function<void()> while_asked = {},
                          BoxButton answer = BoxButton::kYes) {
    platform_.script().expectBox(
        "Are you sure you want to continue? \r\n\r\n- Disconnect all other devices from serial "
        "bus.\r\n- Terminate connections for high baud rates.\r\n\r\n- DO NOT POWER OFF DEVICE "
        "until update is complete.",
        box::kYesNo + box::kInformation, answer, std::move(while_asked));
  }
  /// Presses "Update" and confirms it, or declines.
  void update(std::function<void()> while_asked = {}, BoxButton answer = BoxButton::kYes) {
    expectConfirmation(std::move(while_asked), answer);
    press(dialog(), "cmdUpdate");
  }
  QWidget& dialog() { return *program_->update(); }
  bool enabled(const char* name) { return find<QWidget>(dialog(), name).isEnabled(); }
  QString toolTip(const char* name) { return find<QWidget>(dialog(), name).toolTip(); }
  QStringList summary() { return find<QLabel>(dialog(), "Summary").text().split('\n'); }
  QString bar() { return find<QProgressBar>(dialog(), "pgbUpdate").text(); }
  QLineEdit& display(const char* name) { return find<QLineEdit>(dialog(), name); }

  TemporaryFolder folder_;
  std::string image_ = folder_.path / "<b>.zrf";
};

}  // namespace mvdirigo
