#include "support/files.h"
#include "support/window_test.h"

using namespace mvdirigo;

/// Markup, an entity, formats, a terminal's sequence, paths, and more than fits a screen.
static std::string hostile() {
  return "<img src=/etc/passwd><b>x</b>&lt;%1%n%s[*]\x1B]0;x\x07\x9B"
         "31m\t\v../../etc `id`" +
         std::string(5000, 'w');
}

class HostileText : public WindowTest {
 protected:
  ~HostileText() override { EXPECT_TRUE(stuck_.isEmpty()) << stuck_.left(2000).toStdString(); }

  /// Looks at every text of every window that a user, a window manager or an assistive tool is
  /// shown.
  void lookAround() {
    for (const QWidget* widget : QApplication::allWidgets()) {
      const QString name = widget->objectName() + " of " + widget->window()->windowTitle().left(30);
      shown(name + ", tip", widget->toolTip(), Qt::AutoText);
      shown(name + ", title", widget->windowTitle(), Qt::PlainText);
      shown(name + ", accessible name", widget->accessibleName(), Qt::PlainText);
      shown(name + ", description", widget->accessibleDescription(), Qt::PlainText);
      if (const auto* label = qobject_cast<const QLabel*>(widget)) {
        shown(name + ", label", label->text(), label->textFormat());
      }
    }
  }

 private:
  /// Keeps it if a screen is not to be given it.
  void shown(const QString& where, const QString& text, Qt::TextFormat format) {
    const bool markup = format != Qt::PlainText && Qt::mightBeRichText(text) &&
                        text.contains(QRegularExpression("<(img|b)\\b"));
    const bool control = text.contains(QRegularExpression(
        "[\\x00-\\x08\\x0B-\\x1F\\x7F-\\x9F\\x{202A}-\\x{202E}\\x{2028}\\x{2029}]"));
    const QString what = markup               ? " as markup: "
                         : control            ? " with controls: "
                         : text.size() > 2000 ? " endless: "
                                              : "";
    if (!what.isEmpty()) stuck_ += where + what + text.left(60) + "\n";
  }

  QString stuck_;
};

TEST_F(HostileText, IsShownAsTextWhereverItComesFrom) {
  const char* const keys[] = {"CommPortSetting", "BaudRate", "RCVTimeout"};
  for (const char* key : keys) store("Settings", key, hostile());
  store("Strings", "StringToSend2", hostile());
  platform_.socket(1).details = {hostile(), hostile(), hostile()};
  start();
  lookAround();
  program_.reset();
  for (const char* key : keys) platform_.store().values.erase({kApplicationName, "Settings", key});
  startWithUnit();
  lookAround();
  press("LoadButton(3)");
  lookAround();
  platform_.socket(1).refusal = Fault::kPermissionDenied;
  press("SendCommand(0)", 2000);
  lookAround();
  platform_.socket(1).refusal.reset();
  program_->showLineTraffic();
  for (const std::string& command : {std::string("/1&"), "/1" + hostile()}) {
    commandField(0).setText(QString::fromStdString(command));
    press("SendCommand(0)");
    receive("\xFF/0`" + hostile() + "\x03\r", 2000);
    lookAround();
  }

  const TemporaryFolder folder;
  const std::string name = "<img src=x><b>[*]%1\x1B]0;\n\t\u202E" + std::string(200, 'w');
  const std::string shown_name =
      "<img src=x><b>[*]%1\uFFFD]0;\uFFFD\uFFFD\uFFFD" + std::string(200, 'w') + ".txt";
  for (const bool readable : {false, true}) {
    const std::string file = folder.path / (name + ".txt");
    platform_.script().expectOpenFile(file);
    if (readable) {
      std::string fields;
      for (int field = 0; field < 1100; ++field) fields += "\"<b>x</b>\x1B]0;\x07\"\r\n";
      writeFile(file, fields);
    } else {
      expectBox("Error Reading file: " + folder.path.string() + "/" + shown_name,
                box::kExclamation);
    }
    press("LoadButton(5)");
    lookAround();
  }

  press(settings(), "cmdUpdate");
  platform_.script().expectOpenFile(folder.path / (name + ".zrf"));
  writeFile(folder.path / (name + ".zrf"), "11");
  press(*program_->update(), "cmdLoadImage");
  lookAround();
}
