#pragma once

#include <string>

#include <QWidget>

#include "console/console_screen.h"
#include "help/caption_blink.h"
#include "platform/platform.h"

namespace mvdirigo {

/// The help screen: a look-alike of the console on which a click on any control explains it, as
/// Return and F1 do for the control that has the keyboard focus.
class StringFunHelp : public QWidget {
 public:
  StringFunHelp(Platform& platform, QWidget* owner);

  void Form_Load();
  void Form_Unload();

 protected:
  void closeEvent(QCloseEvent* event) override;
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void SetupHelpScreen();
  void describeControls();
  void fitToScreen();
  void explainFocusedControl();
  void explainField(const QObject* field);
  void LoadButton_Click(int Index);
  void explainRowControl(const std::string& procedure, const std::string& text);

  Platform& platform_;
  WindowLife life_;
  ConsoleScreen* screen_;
  CaptionBlink blink_;
};

}  // namespace mvdirigo
