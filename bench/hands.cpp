// Hands inside the console as it is built: a library loaded before it that takes the steps of
// MVDIRIGO_HANDS, separated by ";", and tells what it sees. NAME may be WINDOW.NAME.
//   press NAME | type NAME TEXT | wait NAME PROPERTY TEXT | tell NAME PROPERTY
//   file PATH, for the next file dialog | stay PATH, until there is that file
// Boxes are told and accepted. At the end it closes the console, and tells the longest time that
// the event loop was away and the peak of the memory.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <QAbstractButton>
#include <QApplication>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

namespace {

constexpr int kPatienceMs = 30'000, kFileDialogMs = 1000;

void tell(const QString& line) {
  std::printf("%s\n", line.toUtf8().constData());
  std::fflush(stdout);
}

QWidget* find(const QString& name) {
  for (QWidget* widget : QApplication::allWidgets()) {
    const QString own = widget->objectName();
    if (own == name || widget->window()->objectName() + '.' + own == name) return widget;
  }
  return nullptr;
}

class Hands : public QTimer {
 public:
  Hands() {
    since_tick_.start(), since_step_.start();
    callOnTimeout(this, [this] { tick(); });
    start(1);
  }

 private:
  void tick() {
    longest_ms_ = std::max(longest_ms_, since_tick_.restart());
    if (QWidget* modal = QApplication::activeModalWidget(); answers(modal) || pressing_) return;
    if (steps_.isEmpty()) return end();
    if (takes(steps_.first().trimmed())) {
      steps_.removeFirst();
      since_step_.restart();
    } else if (since_step_.hasExpired(kPatienceMs)) {
      tell("in vain: " + steps_.first());
      _exit(3);
    }
  }

  bool answers(QWidget* modal) {
    auto* files = qobject_cast<QFileDialog*>(modal);
    auto* box = qobject_cast<QMessageBox*>(modal);
    if (modal == answered_) {
      // A folder is entered, not chosen.
      if (files && since_step_.hasExpired(kFileDialogMs)) files->reject();
    } else if (files) {
      since_step_.restart();
      files->findChild<QLineEdit*>("fileNameEdit")->setText(file_);
      singleShot(0, files, [files] { static_cast<QDialog*>(files)->accept(); });
    } else if (box) {
      tell("box: " + box->text().remove(QChar(0x200B)));
      auto* yes = box->button(QMessageBox::Yes);
      singleShot(0, yes ? yes : box->button(QMessageBox::Ok), &QAbstractButton::click);
    }
    answered_ = files || box ? modal : nullptr;
    return answered_;
  }

  bool takes(const QString& step) {
    const QString verb = step.section(' ', 0, 0), name = step.section(' ', 1, 1);
    if (verb == "file") return file_ = name, true;
    if (verb == "stay") return QFile::exists(name);
    QWidget* control = find(name);
    if (!control || !control->isVisible() || !control->isEnabled()) return false;
    if (verb == "press") return press(qobject_cast<QAbstractButton*>(control));
    if (verb == "type") return control->setProperty("text", step.section(' ', 2));
    const QByteArray property = step.section(' ', 2, 2).toLatin1();
    const QString seen = control->property(property).toString().simplified();
    if (verb == "wait") return seen.contains(step.section(' ', 3));
    return tell(seen), true;
  }

  bool press(QAbstractButton* button) {
    pressing_ = true;
    singleShot(0, button, [this, button] { button->click(), pressing_ = false; });
    return true;
  }

  void end() {
    stop();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    tell(QString("(away %1 ms, %2 MB)").arg(longest_ms_).arg(usage.ru_maxrss / 1024));
    find("StringToSend(0)")->window()->close();
  }

  QElapsedTimer since_tick_, since_step_;
  qint64 longest_ms_ = 0;
  QStringList steps_ = qEnvironmentVariable("MVDIRIGO_HANDS").split(';');
  QString file_;
  QPointer<QWidget> answered_;
  bool pressing_ = false;
};

void lend() { new Hands; }
Q_COREAPP_STARTUP_FUNCTION(lend)

}  // namespace
