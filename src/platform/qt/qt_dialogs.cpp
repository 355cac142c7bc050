#include "platform/qt/qt_dialogs.h"

#include <algorithm>
#include <utility>

#include <QApplication>
#include <QDateTime>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLocale>
#include <QMessageBox>
#include <QPointer>
#include <QScreen>
#include <QShowEvent>
#include <QStringList>
#include <QStyle>
#include <QTreeView>

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

  /// The toolkit's own questions name the file, whose name may look like markup.
  void childEvent(QChildEvent* event) override {
    QFileDialog::childEvent(event);
    auto* question = qobject_cast<QMessageBox*>(event->child());
    if (question != nullptr && event->polished()) question->setTextFormat(Qt::PlainText);
  }

  void showEvent(QShowEvent* event) override {
    if (!event->spontaneous()) fitToColumns();
    QFileDialog::showEvent(event);
  }

 private:
  /// Makes room for every column of the files and their usual contents, as far as the screen has
  /// it.
  void fitToColumns() {
    const auto* files = findChild<QTreeView*>();
    if (files == nullptr) return;
    QHeaderView* header = files->header();
    const QDateTime long_date({2028, 12, 28}, {22, 58, 58});
    const std::pair<int, QString> contents[] = {
        {1, "1023.99 KiB"},
        {2, "Markdown document"},
        {3, QLocale().toString(long_date, QLocale::ShortFormat)}};
    const int margins = 4 * header->style()->pixelMetric(QStyle::PM_HeaderMargin);
    for (const auto& [column, text] : contents) {
      const int width = files->fontMetrics().horizontalAdvance(text) + margins;
      header->resizeSection(column, std::max(header->sectionSize(column), width));
    }
    const int scroll_bar = style()->pixelMetric(QStyle::PM_ScrollBarExtent);
    const int lacking = std::max(0, header->length() + scroll_bar - files->viewport()->width());
    // The window's own frame needs room, too.
    const QSize room = screen()->availableSize() - QSize(40, 60);
    const int width_before = width();
    resize((size() + QSize(lacking, 0)).boundedTo(room));
    // What the screen lacks is taken from the names.
    const int still_lacking = lacking - (width() - width_before);
    const int least_name = files->fontMetrics().horizontalAdvance("a name of a file.txt");
    header->resizeSection(0, std::max(least_name, header->sectionSize(0) - still_lacking));
  }

  QString default_extension_;
};

}  // namespace

BoxButton QtDialogs::messageBox(const std::string& text, int style) {
  QPointer<QMessageBox> message = new QMessageBox(owner());
  message->setTextFormat(Qt::PlainText);
  constexpr const char* kZeroWidthSpace = "\u200B";
  // So many wide characters fit a box on a small screen.
  constexpr int kLongestStretch = 40;
  const QString lines = QString::fromStdString(text).replace("\r\n", "\n").replace('\r', '\n');
  message->setText(QString::fromStdString(
      breakLongStretches(printable(lines.toStdString()), kZeroWidthSpace, kLongestStretch)));
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
