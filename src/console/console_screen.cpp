#include "console/console_screen.h"

#include <algorithm>
#include <cmath>

#include <QEvent>
#include <QFontMetrics>
#include <QFrame>
#include <QValidator>

#include "console/command_file.h"
#include "console/logo.h"
#include "console/tool_tip.h"

namespace mvdirigo {
namespace {

/// Rows that the screen is sized for before a layout has shown any.
constexpr int kInitialRows = 10;
constexpr float kLeastButtonHeight = 330;
constexpr float kLeastButtonWidth = 1455;

struct BarButton {
  const char* caption;
  const char* tool_tip;
};

constexpr std::array<BarButton, ConsoleScreen::kBarButtons> kBar = {{
    {"Play Endless", "Playback a Sequence of Command Button Presses Endlessly"},
    {"Playback", "Playback a Sequence of Command Button Presses"},
    {"Record", "Record a Sequence of Command Button Presses"},
    {"Settings", "Settings for Comm Port, Baud Rate etc."},
    {"Save Strings", "Save Command Strings"},
    {"Load Strings", "Load Command Strings"},
    {"Load Default", "Load Default Strings"},
    {"Help", "Display Help"},
}};

/// The widest captions that a button of the screen ever takes.
constexpr std::array kWidestCaptions = {"Send String 24", "Stop Recording", "Stop Playback",
                                        "Play Endless", "Load Default"};

QRect pixels(const TwipsRect& twips) {
  const auto left = std::lround(twips.left / kTwipsPerPixel);
  const auto top = std::lround(twips.top / kTwipsPerPixel);
  const auto right = std::lround((twips.left + twips.width) / kTwipsPerPixel);
  const auto bottom = std::lround((twips.top + twips.height) / kTwipsPerPixel);
  return QRect(QPoint(static_cast<int>(left), static_cast<int>(top)),
               QSize(static_cast<int>(right - left), static_cast<int>(bottom - top)));
}

/// Lets a user type no command string that a command file could not take.
class CommandStringLimit : public QValidator {
 public:
  using QValidator::QValidator;
  State validate(QString& input, int&) const override {
    return input.toUtf8().size() <= static_cast<qsizetype>(kCommandFieldLimit) ? Acceptable
                                                                               : Invalid;
  }
};

QString indexed(const char* control, int index) {
  return QLatin1String(control) + QStringLiteral("(%1)").arg(index);
}

/// Names the first character of `command` that the line can't carry; empty when it carries all.
QString unsendable(const QString& command) {
  constexpr char32_t kLastOfTheLine = 0xFF;
  const auto characters = command.toUcs4();
  const auto found =
      std::ranges::find_if(characters, [](char32_t c) { return c > kLastOfTheLine; });
  if (found == characters.end()) return {};
  const char32_t code = *found;
  const bool visible = QChar::isPrint(code) && !QChar::isSpace(code);
  return QStringLiteral("Character %1, \"%2\", can't be sent: it goes out as \"?\".")
      .arg(QString::number(found - characters.begin() + 1),
           visible ? QString::fromUcs4(&code, 1)
                   : "U+" + QString::number(code, 16).toUpper().rightJustified(4, '0'));
}

}  // namespace

ConsoleScreen::ConsoleScreen(int row_count, QWidget* parent)
    : QWidget(parent), sized_for_rows_(std::min(kInitialRows, row_count)) {
  setObjectName("ConsoleScreen");
  // The frame's outline would cut through the last row, which its height ends in; its top line
  // alone parts the bar from the rows.
  auto* frame = new QFrame(this);
  frame->setObjectName("Frame1");
  Frame1 = frame;
  auto* top_line = new QFrame(frame);
  top_line->setFrameStyle(QFrame::HLine | QFrame::Sunken);
  top_line->setGeometry(0, 0, QWIDGETSIZE_MAX, 2);

  logo_ = new Logo(this);
  for (int row = 0; row < row_count; ++row) makeRow(row);
  makeBar();
  setTabOrderByEye();
}

void ConsoleScreen::makeRow(int row) {
  auto* send = new QPushButton(QStringLiteral("Send String &%1").arg(row), this);
  send->setObjectName(indexed("SendCommand", row));
  send->setToolTip("Click to send command string.");
  send->setAutoDefault(false);
  SendCommand.push_back(send);

  auto* string = new QLineEdit(this);
  string->setObjectName(indexed("StringToSend", row));
  string->setAccessibleName(QStringLiteral("Command string %1").arg(row));
  string->setMaxLength(static_cast<int>(kCommandFieldLimit));
  string->setValidator(new CommandStringLimit(string));
  connect(string, &QLineEdit::textChanged, string,
          [string](const QString& command) { setPlainToolTip(*string, unsendable(command)); });
  StringToSend.push_back(string);

  auto* reply = new QLineEdit(this);
  reply->setObjectName(indexed("ReceiveString", row));
  reply->setAccessibleName(QStringLiteral("Reply %1").arg(row));
  reply->setReadOnly(true);
  reply->setFocusPolicy(Qt::ClickFocus);
  ReceiveString.push_back(reply);

  auto* light = new StatusLight(this);
  light->setObjectName(indexed("ButtonShape", row));
  light->setAccessibleName(QStringLiteral("Status light %1").arg(row));
  ButtonShape.push_back(light);
}

void ConsoleScreen::makeBar() {
  for (int index = 0; index < kBarButtons; ++index) {
    auto* button = new QPushButton(this);
    button->setObjectName(indexed("LoadButton", index));
    button->setAutoDefault(false);
    LoadButton[static_cast<std::size_t>(index)] = button;
  }
}

void ConsoleScreen::setTabOrderByEye() {
  QWidget* previous = nullptr;
  const auto append = [&previous](QWidget* next) {
    if (previous != nullptr) setTabOrder(previous, next);
    previous = next;
  };
  for (std::size_t row = 0; row < SendCommand.size(); ++row) {
    append(StringToSend[row]);
    append(SendCommand[row]);
  }
  for (QPushButton* button : LoadButton) append(button);
}

void ConsoleScreen::layOutRows(int rows) {
  rows_ = std::clamp(rows, 0, rowCount());
  if (rows_ > 0) sized_for_rows_ = rows_;
  place();
  for (std::size_t row = 0; row < SendCommand.size(); ++row) {
    const bool shown = static_cast<int>(row) < rows_;
    SendCommand[row]->setVisible(shown);
    ButtonShape[row]->setVisible(shown);
    StringToSend[row]->setVisible(shown);
    ReceiveString[row]->setVisible(shown);
    if (shown) ButtonShape[row]->setFillColor(LightColour::kWhite);
  }
  for (std::size_t index = 0; index < LoadButton.size(); ++index) {
    LoadButton[index]->setText(kBar[index].caption);
    LoadButton[index]->setToolTip(kBar[index].tool_tip);
  }
}

void ConsoleScreen::place() {
  const ConsoleLayout layout(measure());
  for (int row = 0; row < rows_; ++row) {
    const auto at = static_cast<std::size_t>(row);
    SendCommand[at]->setGeometry(pixels(layout.sendCommand(row)));
    ButtonShape[at]->setGeometry(pixels(layout.buttonShape(row)));
    StringToSend[at]->setGeometry(pixels(layout.stringToSend(row)));
    ReceiveString[at]->setGeometry(pixels(layout.receiveString(row)));
  }
  for (int index = 0; index < kBarButtons; ++index) {
    LoadButton[static_cast<std::size_t>(index)]->setGeometry(pixels(layout.loadButton(index)));
  }
  Frame1->setGeometry(pixels(layout.frame(sized_for_rows_)));
  logo_->setGeometry(pixels(layout.logo()));
  setFixedSize(
      pixels({0, 0, layout.windowWidth(), layout.windowHeight(sized_for_rows_ - 1)}).size());
}

LayoutMetrics ConsoleScreen::measure() const {
  QPushButton sample;
  sample.setFont(font());
  float width = kLeastButtonWidth;
  for (const char* caption : kWidestCaptions) {
    sample.setText(caption);
    width = std::max(width, kTwipsPerPixel * static_cast<float>(sample.sizeHint().width()));
  }
  // Room for a line of text, the field's border and a pixel of air above and below.
  const float line = kTwipsPerPixel * static_cast<float>(QFontMetrics(font()).height() + 6);
  const float logo = kTwipsPerPixel * static_cast<float>(logo_->preferredWidth());
  return {width, std::max(kLeastButtonHeight, line), logo};
}

void ConsoleScreen::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) place();
}

}  // namespace mvdirigo
