#include "platform/qt/qt_dialogs.h"

#include <utility>

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPointer>
#include <QStringList>

#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

/// The window that a box belongs to, so that it stands above it.
QWidget* owner() {
  if (QWidget* active = QApplication::activeWindow()) return active;
  if (QWidget* modal = QApplication::activeModalWidget()) return modal;
  QWidget* shown = nullptr;
  for (QWidget* window : QApplication::topLevelWidgets()) {
    if (!window->isVisible()) continue;
    if (!shown || window->windowFlags().testFlag(Qt::WindowStaysOnTopHint)) shown = window;
  }
  return shown;
}

/// Shows `dialog` until it is answered. Its owner may be destroyed meanwhile, and the dialog with
/// it.
template <class Dialog>
int run(const QPointer<Dialog>& dialog) {
  for (const QWidget* window : QApplication::topLevelWidgets()) {
    if (window->isVisible() && window->windowFlags().testFlag(Qt::WindowStaysOnTopHint)) {
      dialog->setWindowFlag(Qt::WindowStaysOnTopHint);
    }
  }
  return dialog->exec();
}

QMessageBox::Icon iconOf(int style) {
  // 48 contains the bit of 16, so it is looked for first; an added 64 doesn't soften it.
  if ((style & box::kExclamation) == box::kExclamation) return QMessageBox::Warning;
  if (style & box::kStop) return QMessageBox::Critical;
  if (style & box::kInformation) return QMessageBox::Information;
  return QMessageBox::NoIcon;
}

/// "Text (*.a;*.b)|*.a;*.b" as Qt wants it, "Text (*.a *.b)".
QStringList nameFilters(const std::string& filter) {
  QStringList filters;
  const QStringList parts = QString::fromStdString(filter).split('|', Qt::SkipEmptyParts);
  for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
    const QString description = parts[i].section('(', 0, 0).trimmed();
    filters << description + " (" + QString(parts[i + 1]).replace(';', ' ') + ')';
  }
  return filters;
}

/// Takes a name as it is typed when there is such a file, and else with the default extension.
class FileDialog : public QFileDialog {
 public:
  FileDialog(QWidget* owner, QString default_extension)
      : QFileDialog(owner), default_extension_(std::move(default_extension)) {}

 protected:
  void accept() override {
    setDefaultSuffix({});
    const QStringList typed = selectedFiles();
    const bool exists = !typed.isEmpty() && QFileInfo::exists(typed.first());
    if (!exists) setDefaultSuffix(default_extension_);
    QFileDialog::accept();
  }

 private:
  QString default_extension_;
};

}  // namespace

BoxButton QtDialogs::messageBox(const std::string& text, int style) {
  QPointer<QMessageBox> message = new QMessageBox(owner());
  message->setTextFormat(Qt::PlainText);
  constexpr const char* kZeroWidthSpace = "\u200B";
  message->setText(QString::fromStdString(breakLongStretches(text, kZeroWidthSpace))
                       .replace("\r\n", "\n")
                       .replace('\r', '\n'));
  message->setWindowTitle(QApplication::applicationName());
  message->setIcon(iconOf(style));

  BoxButton when_closed = BoxButton::kOk;
  QMessageBox::StandardButtons buttons = QMessageBox::Ok;
  if (style & box::kYesNo) {
    buttons = QMessageBox::Yes | QMessageBox::No;
    when_closed = BoxButton::kNo;
  } else if (style & box::kOkCancel) {
    buttons = QMessageBox::Ok | QMessageBox::Cancel;
    when_closed = BoxButton::kCancel;
  }
  message->setStandardButtons(buttons);

  const int answer = run(message);
  delete message;
  switch (answer) {
    case QMessageBox::Ok:
      return BoxButton::kOk;
    case QMessageBox::Yes:
      return BoxButton::kYes;
    default:
      return when_closed;
  }
}

std::string QtDialogs::openFile(const FileRequest& request) {
  return askForFile(request, Purpose::kOpen);
}

std::string QtDialogs::saveFile(const FileRequest& request) {
  return askForFile(request, Purpose::kSave);
}

std::string QtDialogs::askForFile(const FileRequest& request, Purpose purpose) {
  QPointer<QFileDialog> dialog =
      new FileDialog(owner(), QString::fromStdString(request.default_extension));
  dialog->setOption(QFileDialog::DontUseNativeDialog);
  if (!request.title.empty()) dialog->setWindowTitle(QString::fromStdString(request.title));
  if (!request.filter.empty()) dialog->setNameFilters(nameFilters(request.filter));
  if (!folder_.isEmpty()) dialog->setDirectory(folder_);
  dialog->setFileMode(request.file_must_exist ? QFileDialog::ExistingFile : QFileDialog::AnyFile);
  if (purpose == Purpose::kSave) {
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setOption(QFileDialog::DontConfirmOverwrite, !request.ask_before_overwriting);
  }

  const bool accepted = run(dialog) == QDialog::Accepted && dialog;
  const QStringList chosen = accepted ? dialog->selectedFiles() : QStringList();
  if (accepted) folder_ = dialog->directory().absolutePath();
  delete dialog;
  if (chosen.isEmpty() && request.cancel_is_error) throw RuntimeError(Fault::kCancelled);
  return chosen.isEmpty() ? std::string() : chosen.first().toStdString();
}

}  // namespace mvdirigo
