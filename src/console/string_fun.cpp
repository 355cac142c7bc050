#include "console/string_fun.h"

#include <algorithm>

#include <QApplication>
#include <QCloseEvent>
#include <QScreen>
#include <QScrollArea>
#include <QStyle>
#include <QVBoxLayout>

#include "console/button_bar.h"
#include "console/command_file.h"
#include "console/tool_tip.h"
#include "core/stored_settings.h"
#include "platform/handler_edge.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr int kRowsWithoutSetting = 10;
constexpr int kLightTimeMs = 500;

std::size_t at(int row) { return static_cast<std::size_t>(row); }

/// What a tool tip tells of how a reply, or its absence, came about.
std::string storyOf(const Exchange& exchange, const std::string& time) {
  if (!exchange.obstacle.empty()) return "Nothing was sent: " + exchange.obstacle + "\nAt " + time;
  const std::string& raw = exchange.raw;
  return (raw.empty() ? "Nothing received" : "Received: " + shortVisibleText(raw)) + "\nAt " +
         time + ", " + std::to_string(exchange.elapsed_ms) + " ms after sending";
}

}  // namespace

StringFun::StringFun(Platform& platform, Neighbours& neighbours)
    : platform_(platform),
      neighbours_(neighbours),
      scroll_area_(new QScrollArea(this)),
      screen_(new ConsoleScreen(kRows, nullptr)),
      transaction_(
          platform, [this]() -> LiveSettings& { return neighbours_.liveSettings(); }, *this),
      recorder_(platform, *this) {
  setObjectName("StringFun");
  scroll_area_->setFrameShape(QFrame::NoFrame);
  scroll_area_->setFocusPolicy(Qt::NoFocus);
  scroll_area_->setWidget(screen_);
  screen_->installEventFilter(this);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(scroll_area_);

  for (int row = 0; row < kRows; ++row) {
    connect(screen_->SendCommand[at(row)], &QPushButton::clicked, this, [this, row] {
      atHandlerEdge(platform_.dialogs(), "SendCommand_Click", [&] { SendCommand_Click(row); });
    });
    ButtonTimer.push_back(platform_.makeTimer([this, row] {
      atHandlerEdge(platform_.dialogs(), "ButtonTimer_Timer",
                    [&] { setButtonShape(row, LightColour::kWhite); });
    }));
  }
  for (int index = 0; index < ConsoleScreen::kBarButtons; ++index) {
    connect(screen_->LoadButton[at(index)], &QPushButton::clicked, this,
            [this, index] { LoadButton_Click(index); });
  }
  auto* Command1 = new QPushButton("Command1", screen_);
  Command1->setObjectName("Command1");
  Command1->hide();
  connect(Command1, &QPushButton::clicked, this, [this] {
    atHandlerEdge(platform_.dialogs(), "Command1_Click", [this] { transaction_.Command1_Click(); });
  });
}

StringFun::~StringFun() = default;

void StringFun::Form_Load() {
  atHandlerEdge(platform_.dialogs(), "Form_Load", [this] {
    LoadSettings();
    platform_.eventLoop().runPending();
    SetupScreen();
    platform_.eventLoop().runPending();
  });
}

void StringFun::LoadSettings() {
  readRows(platform_.settingsStore(),
           [this](int row, const std::string& text) { setCommand(row, text); });
  transaction_.resetSequence();
}

void StringFun::SetupScreen() {
  LiveSettings& settings = neighbours_.liveSettings();
  // A layout in mid-transaction leaves no button behind in the state of the count before.
  const bool idle = screen_->SendCommand[0]->isEnabled();
  enableSendCommands(true);
  NumStrings = kRowsWithoutSetting;
  skipOnError([&] { NumStrings = textToInt16(settings.MaxStrings()); });
  enableSendCommands(idle);
  closePort();
  screen_->layOutRows(NumStrings);
  for (int row = 0; row < std::min(NumStrings, kRows); ++row) {
    ButtonTimer[at(row)]->setInterval(kLightTimeMs);
  }
  fitToScreen();
  setWindowTitle("Dirigo Version " MVDIRIGO_VERSION);
  skipOnError([&] { setReplyTimeOut(settings.RCVTimeout()); });
}

void StringFun::setReplyTimeOut(const std::string& text) {
  const int timeout_ms = textToInt32(text);
  if (timeout_ms > 0) transaction_.tmrReceiveTimeOut().setInterval(timeout_ms);
}

void StringFun::fitToScreen() {
  const QSize room = screen()->availableSize() - QSize(40, 60);
  QSize size = screen_->size();
  const bool fits = size.boundedTo(room) == size;
  if (!fits) size += QSize(1, 1) * style()->pixelMetric(QStyle::PM_ScrollBarExtent);
  resize(size.boundedTo(room));
  showScrollBarsAsNeeded();
}

void StringFun::showScrollBarsAsNeeded() {
  // At a scale factor such as 1.25 the window manager rounds the window to whole pixels of the
  // device, which can make it one logical pixel smaller than asked: too little to scroll for.
  const QSize enough = screen_->size() - QSize(1, 1);
  const bool whole = size().expandedTo(enough) == size();
  const auto bars = whole ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded;
  scroll_area_->setHorizontalScrollBarPolicy(bars);
  scroll_area_->setVerticalScrollBarPolicy(bars);
}

void StringFun::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  showScrollBarsAsNeeded();
}

// Another font or style changes the size of the controls.
bool StringFun::eventFilter(QObject* watched, QEvent* event) {
  if (watched == screen_ && event->type() == QEvent::Resize) fitToScreen();
  return QWidget::eventFilter(watched, event);
}

void StringFun::LoadButton_Click(int Index) {
  atHandlerEdge(platform_.dialogs(), "LoadButton_Click", [&] {
    closePort();
    switch (Index) {
      case bar::kPlayEndless:
        return recorder_.clickPlayEndless();
      case bar::kPlayback:
        return recorder_.clickPlayback();
      case bar::kRecord:
        return recorder_.clickRecord();
      case bar::kSettings:
        return openSettings();
      case bar::kSaveStrings:
        return saveStrings();
      case bar::kLoadStrings:
        return loadStrings();
      case bar::kLoadDefault:
        return LoadSettings();
      case bar::kHelp:
        return neighbours_.showHelp();
      default:
        return;
    }
  });
}

void StringFun::openSettings() {
  const QRect button = barButtonPlace(bar::kSettings);
  neighbours_.showSettings(pos() + button.topLeft() - QPoint(button.width() / 2, 0));
}

void StringFun::saveStrings() {
  std::string path;
  const bool chosen = skipOnError([&] {
    path = platform_.dialogs().saveFile(
        {.title = "Save Protocol", .ask_before_overwriting = true, .cancel_is_error = true});
  });
  if (!chosen || life_.leaving()) return;
  const bool written = skipOnError([&] {
    writeCommandFile(
        path, [this](int row) { return StringToSend(row); }, recorder_.table());
  });
  if (!written) platform_.dialogs().messageBox(commandFileWriteError(path), box::kExclamation);
}

void StringFun::loadStrings() {
  std::string path;
  const bool chosen = skipOnError([&] {
    path = platform_.dialogs().openFile({.title = "Load Protocol", .cancel_is_error = true});
  });
  if (!chosen || life_.leaving()) return;
  const auto take_string = [this](int row, const std::string& text) {
    setCommand(row, text);
    screen_->ReceiveString[at(row)]->clear();
    setPlainToolTip(*screen_->ReceiveString[at(row)], {});
  };
  if (skipOnError([&] { readCommandFile(path, take_string, recorder_.table()); })) {
    // "[*]" in a title stands for a mark of unsaved changes; doubled, it stands for itself.
    setWindowTitle(QString::fromStdString(commandFileTitle(path)).replace("[*]", "[*][*]"));
  } else {
    platform_.dialogs().messageBox(commandFileReadError(path), box::kExclamation);
  }
}

void StringFun::closeEvent(QCloseEvent* event) {
  event->accept();
  if (life_.leaving()) return;
  atHandlerEdge(platform_.dialogs(), "Form_QueryUnload",
                [this] { platform_.eventLoop().runPending(); });
  Form_Unload();
}

void StringFun::Form_Unload() {
  if (life_.leaving()) return;
  life_.leave();
  atHandlerEdge(platform_.dialogs(), "Form_Unload", [this] {
    transaction_.tmrReceiveTimeOut().setEnabled(false);
    platform_.eventLoop().runPending();
    saveRows();
    closePort();
    platform_.eventLoop().runPending();
  });
  neighbours_.unloadAll();
}

void StringFun::saveRows() {
  writeRows(platform_.settingsStore(), [this](int row) { return StringToSend(row); });
}

std::string StringFun::StringToSend(int row) const {
  if (row < 0 || row >= kRows) return {};
  return screen_->StringToSend[at(row)]->text().toStdString();
}

void StringFun::setCommand(int row, const std::string& text) {
  screen_->StringToSend[at(row)]->setText(QString::fromStdString(text));
  screen_->StringToSend[at(row)]->setCursorPosition(0);
}

QRect StringFun::barButtonPlace(int button) const {
  return screen_->LoadButton[at(button)]->geometry();
}

void StringFun::setReceiveString(int row, const std::string& text, const Exchange& exchange) {
  QLineEdit* field = screen_->ReceiveString[at(row)];
  field->setText(QString::fromStdString(text));
  field->setCursorPosition(0);
  setPlainToolTip(*field, QString::fromStdString(storyOf(exchange, platform_.timeOfDay())));
}

void StringFun::setButtonShape(int row, LightColour colour) {
  screen_->ButtonShape[at(row)]->setFillColor(colour);
}

void StringFun::startButtonTimer(int row) { ButtonTimer[at(row)]->setEnabled(true); }

void StringFun::enableSendCommands(bool enabled) {
  const int last = std::clamp(NumStrings, -1, kRows - 1);
  // Disabling a focused button would hand the focus to the next row's text, where the user's next
  // key would replace it. The button gets it back unless the user has moved it meanwhile.
  auto* focused = qobject_cast<QPushButton*>(focusWidget());
  if (!enabled && focused != nullptr && std::ranges::count(screen_->SendCommand, focused) > 0) {
    focused_before_ = focused;
    screen_->setFocus();
  }
  for (int row = 0; row <= last; ++row) screen_->SendCommand[at(row)]->setEnabled(enabled);
  if (enabled && focused_before_ != nullptr && focusWidget() == screen_) {
    focused_before_->setFocus();
  }
}

void StringFun::setBarCaption(int button, const std::string& caption) {
  screen_->LoadButton[at(button)]->setText(QString::fromStdString(caption));
}

void StringFun::enableBarButton(int button, bool enabled) {
  screen_->LoadButton[at(button)]->setEnabled(enabled);
}

}  // namespace mvdirigo
