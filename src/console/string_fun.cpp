#include "console/string_fun.h"

#include <algorithm>
#include <utility>

#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QMenu>
#include <QRegularExpression>
#include <QShortcut>
#include <QVBoxLayout>

#include "console/button_bar.h"
#include "console/command_file.h"
#include "console/screen_room.h"
#include "console/tool_tip.h"
#include "console/window_role.h"
#include "core/stored_settings.h"
#include "platform/at_exit.h"
#include "platform/handler_edge.h"
#include "platform/text.h"
#include "platform/version.h"

namespace mvdirigo {
namespace {

constexpr int kRowsWithoutSetting = 10;
constexpr int kLightTimeMs = 500;

std::size_t at(int row) { return static_cast<std::size_t>(row); }

/// What a tool tip tells of how a reply, or its absence, came about.
std::string storyOf(const Exchange& exchange, const std::string& time) {
  if (!exchange.obstacle.empty()) {
    const QString obstacle = shortened(QString::fromStdString(exchange.obstacle));
    return "Nothing was sent: " + obstacle.toStdString() + "\nAt " + time;
  }
  const std::string& raw = exchange.raw;
  return (raw.empty() ? "Nothing received" : "Received: " + shortVisibleText(raw)) + "\nAt " +
         time + ", " + std::to_string(exchange.elapsed_ms) + " ms after sending";
}

ReplyMark markOf(const Exchange& exchange) {
  if (exchange.outcome != Exchange::Outcome::kAnswered) return ReplyMark::kNoAnswer;
  return exchange.status_code == 0 ? ReplyMark::kAnswered : ReplyMark::kAnsweredWithError;
}

}  // namespace

StringFun::StringFun(Platform& platform, Neighbours& neighbours)
    : platform_(platform),
      neighbours_(neighbours),
      strip_(new StatusStrip([this] { neighbours_.showLineTraffic(); })),
      screen_(new ConsoleScreen(kRows, strip_, this)),
      transaction_(
          platform, [this]() -> LiveSettings& { return neighbours_.liveSettings(); }, *this),
      recorder_(platform, *this) {
  setObjectName("StringFun");
  installWindowRole();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(screen_);
  connectRows();
  makeShortcuts();

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

void StringFun::connectRows() {
  for (int row = 0; row < kRows; ++row) {
    connect(screen_->SendCommand[at(row)], &QPushButton::clicked, this, [this, row] {
      atHandlerEdge(platform_.dialogs(), "SendCommand_Click", [&] { SendCommand_Click(row); });
    });
    screen_->ReceiveString[at(row)]->extendMenu(
        [this, row](QMenu& menu) { extendReplyMenu(menu, row); });
    ButtonTimer.push_back(platform_.makeTimer([this, row] {
      atHandlerEdge(platform_.dialogs(), "ButtonTimer_Timer",
                    [&] { setButtonShape(row, LightColour::kWhite); });
      // A wait that goes on is told; most end before there is anything to see.
      if (waiting_) showStripSoon();
    }));
  }
  keys_ = std::make_unique<RowKeys>(*screen_,
                                    [this](int row) { screen_->SendCommand[at(row)]->click(); });
}

void StringFun::makeShortcuts() {
  const std::pair<QKeySequence, int> buttons[] = {{Qt::Key_F1, bar::kHelp},
                                                  {Qt::CTRL | Qt::Key_S, bar::kSaveStrings},
                                                  {Qt::CTRL | Qt::Key_O, bar::kLoadStrings},
                                                  {Qt::CTRL | Qt::Key_Comma, bar::kSettings}};
  for (const auto& [keys, button] : buttons) {
    connect(new QShortcut(keys, this), &QShortcut::activated, screen_->LoadButton[at(button)],
            &QPushButton::click);
  }
  connect(new QShortcut(Qt::Key_Escape, this), &QShortcut::activated, this, [this] {
    if (recorder_.Playing()) LoadButton_Click(bar::kPlayback);
  });
  connect(new QShortcut(Qt::Key_F12, this, nullptr, nullptr, Qt::ApplicationShortcut),
          &QShortcut::activated, this, [this] { neighbours_.showLineTraffic(); });
}

StringFun::~StringFun() = default;

void StringFun::Form_Load() {
  atHandlerEdge(platform_.dialogs(), "Form_Load", [this] {
    LoadSettings();
    platform_.eventLoop().runPending();
    SetupScreen();
    screen_->StringToSend[0]->setFocus();
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
  setWindowTitle(QString("Dirigo Version ") + kVersion);
  showStripSoon();
  skipOnError([&] { setReplyTimeOut(settings.RCVTimeout()); });
}

void StringFun::setReplyTimeOut(const std::string& text) {
  const int timeout_ms = textToInt32(text);
  if (timeout_ms > 0) transaction_.tmrReceiveTimeOut().setInterval(timeout_ms);
}

void StringFun::fitToScreen() {
  fitted_size_ = screen_->sizeHint();
  resize(screen_->sizeWithin(roomOnScreen(*this)));
}

// Another font or style changes the size of the controls.
bool StringFun::event(QEvent* event) {
  const bool handled = QWidget::event(event);
  if (event->type() == QEvent::LayoutRequest && screen_->sizeHint() != fitted_size_) fitToScreen();
  return handled;
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
    screen_->ReceiveString[at(row)]->clearReply();
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
  const QWidget* control = screen_->LoadButton[at(button)];
  return {control->mapTo(this, QPoint()), control->size()};
}

void StringFun::setReceiveString(int row, const std::string& text, const Exchange& exchange) {
  ReplyField* field = screen_->ReceiveString[at(row)];
  field->showReply(QString::fromStdString(text), markOf(exchange));
  field->tellStory(QString::fromStdString(storyOf(exchange, platform_.timeOfDay())));
  tellAssistiveTools(row);
  last_row_ = row;
  last_exchange_ = exchange;
  waiting_ = false;
  showStripSoon();
}

// They read out a change of what has the focus, and what gets it back.
void StringFun::tellAssistiveTools(int row) {
  const QString reply = "Reply: " + shortened(screen_->ReceiveString[at(row)]->text());
  screen_->SendCommand[at(row)]->setAccessibleDescription(reply);
  if (screen_->StringToSend[at(row)]->hasFocus()) {
    screen_->StringToSend[at(row)]->setAccessibleDescription(reply);
  }
}

void StringFun::setButtonShape(int row, LightColour colour) {
  screen_->ButtonShape[at(row)]->setFillColor(colour);
}

void StringFun::startButtonTimer(int row) {
  ButtonTimer[at(row)]->setEnabled(true);
  last_row_ = row;
  waiting_ = true;
}

void StringFun::enableSendCommands(bool enabled) {
  const int last = std::clamp(NumStrings, -1, kRows - 1);
  // Disabling a focused button would hand the focus to the next row's text, where the user's next
  // key would replace it. The button gets it back unless the user has moved it meanwhile.
  auto* focused = qobject_cast<QPushButton*>(focusWidget());
  if (!enabled && focused != nullptr && std::ranges::count(screen_->SendCommand, focused) > 0) {
    focused_before_ = focused;
    screen_->setAccessibleName("Waiting for the reply");
    screen_->setFocus();
  }
  for (int row = 0; row <= last; ++row) screen_->SendCommand[at(row)]->setEnabled(enabled);
  if (enabled && focused_before_ != nullptr && focusWidget() == screen_) {
    focused_before_->setFocus();
  }
  if (enabled) screen_->setAccessibleName("Console");
}

void StringFun::setBarCaption(int button, const std::string& caption) {
  screen_->setBarCaption(button, QString::fromStdString(caption));
}

void StringFun::enableBarButton(int button, bool enabled) {
  PressButton* control = screen_->LoadButton[at(button)];
  // The focus goes to what ends the recording or playback, and not to the next button.
  if (!enabled && control->hasFocus()) {
    screen_->LoadButton[at(recorder_.Playing() ? bar::kPlayback : bar::kRecord)]->setFocus();
  }
  control->setEnabled(enabled);
}

void StringFun::extendReplyMenu(QMenu& menu, int row) {
  menu.addAction("Copy Command and &Reply", this,
                 [this, row] { QApplication::clipboard()->setText(cellsOf(row)); });
  menu.addAction("Copy &All Rows", this, [this] { copyAllRows(); });
  menu.addSeparator();
  menu.addAction("C&lear Replies", this, [this] { clearReplies(); });
}

// A spreadsheet ends a cell or a row at these characters.
QString StringFun::cellsOf(int row) const {
  const QRegularExpression ends("[\\t\\r\\n]");
  return screen_->StringToSend[at(row)]->text().replace(ends, " ") + '\t' +
         screen_->ReceiveString[at(row)]->text().replace(ends, " ");
}

void StringFun::copyAllRows() {
  QString rows;
  for (int row = 0; row < std::min(NumStrings, kRows); ++row) {
    rows += QString::number(row) + '\t' + cellsOf(row) + '\n';
  }
  QApplication::clipboard()->setText(rows);
}

void StringFun::clearReplies() {
  for (ReplyField* reply : screen_->ReceiveString) reply->clearReply();
}

void StringFun::lineSettingsChanged() {
  transaction_.link().forgetObstacle();
  showStripSoon();
}

void StringFun::SendCommand_Click(int Index) {
  sending_ = true;
  const AtExit sent([this] {
    sending_ = false;
    if (std::exchange(strip_due_, false)) showStripSoon();
  });
  transaction_.SendCommand_Click(Index);
}

// Once for all that happens in a turn of the event loop, and after what is to be quick: the first
// byte on the line and the reply in its field.
void StringFun::showStripSoon() {
  if (std::exchange(strip_due_, true) || sending_) return;
  QMetaObject::invokeMethod(
      this, [this] { showStrip(); }, Qt::QueuedConnection);
}

void StringFun::showStrip() {
  if (sending_) return;
  strip_due_ = false;
  if (life_.leaving()) return;
  strip_->showLine(lineText());
  const QString presses = QString::number(recorder_.presses());
  if (recorder_.Recording()) {
    strip_->showActivity("Recording: " + presses + (presses == "1" ? " press" : " presses"),
                         StatusStrip::Sign::kRecording);
  } else if (recorder_.Playing()) {
    const QString playing = recorder_.PlayEndless() ? "Playing, endless: " : "Playing: ";
    const int all = recorder_.pressesOfAll();
    strip_->showActivity(
        playing + (all == 0 ? "no presses are recorded"
                            : QStringLiteral("press %1 of %2").arg(presses).arg(all)),
        StatusStrip::Sign::kPlaying);
  } else {
    const std::string search = neighbours_.liveSettings().searchProgress();
    strip_->showActivity(
        search.empty() ? exchangeText() : QString::fromStdString("Searching: " + search),
        StatusStrip::Sign::kNone);
  }
}

QString StringFun::lineText() {
  LiveSettings& settings = neighbours_.liveSettings();
  const SerialLink& link = transaction_.link();
  std::string port = settings.CommPortSetting();
  std::string rate = settings.BaudRate();
  if (link.PortOpen()) {
    port = std::to_string(link.CommPort());
    rate = link.Settings();
  }
  PortDetails details;
  skipOnError([&] {
    const int number = textToInt16(port);
    if (SerialPort::isPort(number)) details = platform_.portDetails(number);
  });
  const std::string& obstacle = link.obstacle().empty() ? details.obstacle : link.obstacle();
  const auto shown = [](const std::string& utf8) {
    // What is no number must not push the port's state out of the line.
    constexpr std::size_t kLongestShown = 20;
    return QString::fromStdString(shortVisibleText(latin1FromUtf8(utf8), kLongestShown));
  };
  QStringList parts{"COM" + shown(port) + (details.device.empty() ? "" : "  ") +
                    QString::fromStdString(details.device)};
  if (!rate.empty()) parts << shown(rate) + " baud";
  parts << (settings.DTProtocol() ? "DT" : "OEM");
  if (link.PortOpen()) {
    parts << "open";
  } else {
    parts << (obstacle.empty() ? "closed" : QString::fromStdString(obstacle));
  }
  return parts.join(QStringLiteral(" \u00B7 "));
}

QString StringFun::exchangeText() {
  if (last_row_ < 0) return {};
  const QString row = QStringLiteral("Row %1").arg(last_row_);
  const std::string& obstacle = transaction_.link().obstacle();
  if (waiting_ && obstacle.empty()) return row + ": waiting for the reply";
  if (waiting_) return row + ": nothing was sent: " + QString::fromStdString(obstacle);
  switch (last_exchange_.outcome) {
    case Exchange::Outcome::kAnswered:
      return row + QStringLiteral(" answered in %1 ms").arg(last_exchange_.elapsed_ms);
    case Exchange::Outcome::kNoReply:
      return row + QStringLiteral(": no reply in %1 ms").arg(replyTimeOutMs());
    case Exchange::Outcome::kNothingSent:
      return row + ": nothing was sent: " + QString::fromStdString(last_exchange_.obstacle);
    case Exchange::Outcome::kLineFailed:
      return row + ": the line failed";
  }
  return {};
}

}  // namespace mvdirigo
