#include "traffic/line_traffic_window.h"

#include <algorithm>
#include <vector>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHideEvent>
#include <QKeyEvent>
#include <QListView>
#include <QPushButton>
#include <QSaveFile>
#include <QScrollBar>
#include <QShortcut>
#include <QShowEvent>
#include <QStyledItemDelegate>
#include <QVBoxLayout>
#include <QWindow>

#include "platform/handler_edge.h"

namespace mvdirigo {
namespace {

constexpr int kPauseMs = 100;
/// Bytes read within so much of each other are one burst: at 9600 bit/s they come one each
/// millisecond, and common adapters hold them back for up to 16 ms.
constexpr std::chrono::milliseconds kBurstGap(20);
/// A burst shows when it is over, or has so many bytes.
constexpr std::size_t kLongestBurst = 256;
constexpr QSize kSize(720, 420);

/// Gives every row the size of the longest, which the font's fixed width tells without a look at
/// the other rows, and lays out no more of a row than can be seen: a long one takes milliseconds.
class RowDelegate : public QStyledItemDelegate {
 public:
  RowDelegate(const LineTrafficModel& model, QObject* parent)
      : QStyledItemDelegate(parent), model_(model) {}

  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const override {
    const QFontMetricsF font(option.font);
    const double width = font.horizontalAdvance('0') * (model_.widestText() + 1);
    return {static_cast<int>(width), option.fontMetrics.height()};
  }

 protected:
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
    QStyledItemDelegate::initStyleOption(option, index);
    const double width = QFontMetricsF(option->font).horizontalAdvance('0');
    const int seen = option->widget->width() - option->rect.left();
    option->text.truncate(static_cast<qsizetype>(seen / width) + 2);
  }

 private:
  const LineTrafficModel& model_;
};

QListView* makeView(LineTrafficModel& model) {
  auto* view = new QListView;
  view->setObjectName("LineTrafficView");
  view->setAccessibleName("Line traffic");
  view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  view->setItemDelegate(new RowDelegate(model, view));
  view->setModel(&model);
  view->setUniformItemSizes(true);
  view->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
  return view;
}

QPushButton* makeButton(const char* caption, const char* name) {
  auto* button = new QPushButton(caption);
  button->setObjectName(name);
  return button;
}

/// Returns why it failed, empty when it did not. A file that was there before is replaced whole,
/// and nothing else than a file is.
QString writeFile(const QString& path, const QString& text) {
  const QFileInfo present(path);
  if (present.exists() && !present.isFile()) {
    return QString::fromStdString(RuntimeError(Fault::kPathFileAccess).description());
  }
  QSaveFile file(path);
  const QByteArray bytes = text.toUtf8();
  const bool written =
      file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
  return written ? QString() : file.errorString();
}

}  // namespace

LineTrafficWindow::LineTrafficWindow(Platform& platform)
    : platform_(platform),
      view_(makeView(model_)),
      save_(makeButton("&Save", "Save")),
      pause_(platform.makeTimer([this] { showPending(); })) {
  pause_->setInterval(kPauseMs);
  setObjectName("LineTraffic");
  setWindowTitle("Line Traffic");
  resize(kSize);

  auto* hex = new QCheckBox("&Hex");
  hex->setObjectName("Hex");
  auto* clear_button = makeButton("C&lear", "Clear");
  auto* copy_button = makeButton("&Copy", "Copy");

  auto* bar = new QHBoxLayout;
  bar->addWidget(hex);
  bar->addStretch();
  for (QPushButton* button : {clear_button, copy_button, save_}) bar->addWidget(button);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(view_);
  layout->addLayout(bar);

  connect(hex, &QCheckBox::toggled, this, [this](bool checked) { model_.showHex(checked); });
  connect(clear_button, &QPushButton::clicked, this, [this] { clear(); });
  connect(copy_button, &QPushButton::clicked, this, [this] { copy(); });
  connect(save_, &QPushButton::clicked, this, [this] { save(); });
  connect(new QShortcut(QKeySequence::Copy, this), &QShortcut::activated, this, [this] { copy(); });
  connect(new QShortcut(Qt::Key_Escape, this), &QShortcut::activated, this, &QWidget::close);
}

LineTrafficWindow::~LineTrafficWindow() {
  if (isVisible()) platform_.lineTraffic().watch(nullptr);
}

// An application-modal window blocks all but its transient children.
void LineTrafficWindow::standBeside(QWidget* modal) {
  winId();
  windowHandle()->setTransientParent(modal ? modal->windowHandle() : nullptr);
  save_->setEnabled(modal == nullptr);
  save_->setToolTip(modal ? "Can be used when the update dialog is closed" : "");
}

void LineTrafficWindow::unload() {
  life_.leave();
  hide();
}

// Spontaneous events tell of a minimised window, which goes on watching.
void LineTrafficWindow::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (!event->spontaneous()) platform_.lineTraffic().watch(this);
}

void LineTrafficWindow::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  if (event->spontaneous()) return;
  platform_.lineTraffic().watch(nullptr);
  showPending();
}

void LineTrafficWindow::keyPressEvent(QKeyEvent* event) {
  auto* button = qobject_cast<QAbstractButton*>(focusWidget());
  const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  if (enter && button != nullptr && !event->isAutoRepeat()) {
    button->click();
  } else {
    QWidget::keyPressEvent(event);
  }
}

void LineTrafficWindow::lineTransfer(const LineTransfer& transfer, std::string_view bytes) {
  if (continues(transfer)) {
    pending_.back().append(bytes);
    // A command and its reply show when the reply is over, but a stream that never is shows, too.
    if (pending_.size() <= 2) pause_->setEnabled(false);
  } else {
    pending_.emplace_back(transfer, bytes);
  }
  newest_ = transfer.time_of_day;
  if (pending_.size() > LineTrafficModel::kLines) pending_.pop_front();
  pause_->setEnabled(true);
}

bool LineTrafficWindow::continues(const LineTransfer& transfer) const {
  if (pending_.empty()) return false;
  const LineTrafficModel::Line& newest = pending_.back();
  const auto gap = transfer.time_of_day - newest_;
  return transfer.direction == LineTransfer::Direction::kIn &&
         newest.transfer.direction == LineTransfer::Direction::kIn &&
         newest.transfer.comm_port == transfer.comm_port && newest.length < kLongestBurst &&
         gap >= gap.zero() && gap <= kBurstGap;
}

void LineTrafficWindow::showPending() {
  pause_->setEnabled(false);
  QScrollBar* bar = view_->verticalScrollBar();
  const int top_row = bar->value();
  const bool follows = top_row == bar->maximum();
  const int dropped = model_.append(pending_);
  if (follows) {
    view_->scrollToBottom();
  } else if (dropped > 0) {
    // The rows seen stay where they are. That the view has scrolled to its current row, if that one
    // was dropped, is undone as well.
    bar->setValue(top_row - dropped);
  }
}

void LineTrafficWindow::clear() {
  pending_.clear();
  model_.clear();
}

void LineTrafficWindow::copy() {
  showPending();
  QApplication::clipboard()->setText(selectedText());
}

void LineTrafficWindow::save() {
  atHandlerEdge(platform_.dialogs(), "Save_Click", [this] {
    showPending();
    // As it is now: the line goes on while the dialog is open.
    const QString text = allText();
    const std::string path =
        platform_.dialogs().saveFile({.title = "Save Line Traffic",
                                      .filter = "Text Files (*.txt)|*.txt|All Files (*)|*",
                                      .default_extension = "txt",
                                      .ask_before_overwriting = true});
    if (path.empty() || life_.leaving()) return;
    const std::string reason = writeFile(QString::fromStdString(path), text).toStdString();
    if (reason.empty()) return;
    platform_.dialogs().messageBox("Error Writing File: " + path + "\r\n" + reason,
                                   box::kExclamation);
  });
}

QString LineTrafficWindow::selectedText() const {
  std::vector<int> rows;
  for (const QModelIndex& index : view_->selectionModel()->selectedRows()) {
    rows.push_back(index.row());
  }
  if (rows.empty()) return allText();
  std::sort(rows.begin(), rows.end());
  QString text;
  for (const int row : rows) text += model_.text(row) + '\n';
  return text;
}

QString LineTrafficWindow::allText() const {
  QString text;
  for (int row = 0; row < model_.rowCount(); ++row) text += model_.text(row) + '\n';
  return text;
}

}  // namespace mvdirigo
