#include "console/console_screen.h"

#include <algorithm>
#include <cmath>

#include <QEvent>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QFrame>
#include <QLabel>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QValidator>

#include "console/button_bar.h"
#include "console/colours.h"
#include "console/command_file.h"
#include "console/icons.h"
#include "console/logo.h"
#include "console/part_line.h"
#include "console/tool_tip.h"

namespace mvdirigo {
namespace {

/// Rows that the screen is sized for before a layout has shown any.
constexpr int kInitialRows = 10;
constexpr float kLeastButtonHeight = 330;
/// Rows that are so many pixels high, or a multiple of it, follow each other by whole pixels.
constexpr float kHeightStep = 4 * kTwipsPerPixel;
constexpr float kLeastButtonWidth = 1455;

struct BarButton {
  const char* caption;
  Glyph glyph;
  const char* tool_tip;
};

constexpr std::array<BarButton, ConsoleScreen::kBarButtons> kBar = {{
    {"Play Endless", Glyph::kPlayEndless,
     "Playback a Sequence of Command Button Presses Endlessly"},
    {"Playback", Glyph::kPlayback, "Playback a Sequence of Command Button Presses"},
    {"Record", Glyph::kRecord, "Record a Sequence of Command Button Presses"},
    {"Settings", Glyph::kSettings, "Settings for Comm Port, Baud Rate etc."},
    {"Save Strings", Glyph::kSaveStrings, "Save Command Strings"},
    {"Load Strings", Glyph::kLoadStrings, "Load Command Strings"},
    {"Load Default", Glyph::kLoadDefault, "Load Default Strings"},
    {"Help", Glyph::kHelp, "Display Help"},
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

QFont fixedWidthFont(const QFont& size_from) {
  QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  if (size_from.pointSizeF() > 0) {
    font.setPointSizeF(size_from.pointSizeF());
  } else {
    font.setPixelSize(size_from.pixelSize());
  }
  return font;
}

/// The bar's buttons as the eye meets them: from the top, the left column first.
constexpr std::array kBarByEye = {bar::kSettings,    bar::kRecord,     bar::kPlayback,
                                  bar::kPlayEndless, bar::kHelp,       bar::kLoadDefault,
                                  bar::kLoadStrings, bar::kSaveStrings};

std::size_t at(int index) { return static_cast<std::size_t>(index); }

}  // namespace

ConsoleScreen::ConsoleScreen(int row_count, QWidget* foot, QWidget* parent)
    : QWidget(parent),
      head_(new QWidget(this)),
      scroll_area_(new QScrollArea(this)),
      rows_area_(new QWidget),
      foot_(foot),
      sized_for_rows_(std::min(kInitialRows, row_count)) {
  setObjectName("ConsoleScreen");
  setAccessibleName("Console");
  head_->setAccessibleName("Buttons");
  scroll_area_->setAccessibleName("Rows");
  scroll_area_->horizontalScrollBar()->setAccessibleName("Scroll across");
  scroll_area_->verticalScrollBar()->setAccessibleName("Scroll down");
  scroll_area_->setFrameShape(QFrame::NoFrame);
  scroll_area_->setFocusPolicy(Qt::NoFocus);
  scroll_area_->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  scroll_area_->setWidget(rows_area_);
  connect(scroll_area_->horizontalScrollBar(), &QScrollBar::valueChanged, this,
          [this] { placeHead(ConsoleLayout(metrics_)); });
  if (foot_ != nullptr) foot_->setParent(this);
  makeHead();
  for (int row = 0; row < row_count; ++row) makeRow(row);
  setTabOrderByEye();
  adaptColours();
}

void ConsoleScreen::makeHead() {
  // The frame's outline would cut through the last row, which its height ends in; the line on its
  // top edge alone parts the bar from the rows.
  Frame1 = new QWidget(this);
  Frame1->setObjectName("Frame1");
  Frame1->setAttribute(Qt::WA_TransparentForMouseEvents);
  Frame1->lower();
  line_ = new PartLine(head_);
  logo_ = new Logo(head_);
  command_heading_ = new QLabel("Command", head_);
  reply_heading_ = new QLabel("Reply", head_);
  for (int index = 0; index < kBarButtons; ++index) {
    auto* button = new PressButton(head_);
    button->setObjectName(indexed("LoadButton", index));
    LoadButton[at(index)] = button;
  }
}

void ConsoleScreen::makeRow(int row) {
  auto* send = new PressButton(QStringLiteral("Send String &%1").arg(row), rows_area_);
  send->setObjectName(indexed("SendCommand", row));
  send->setToolTip("Click to send command string.");
  SendCommand.push_back(send);

  auto* string = new QLineEdit(rows_area_);
  string->setObjectName(indexed("StringToSend", row));
  string->setAccessibleName(QStringLiteral("Command string %1").arg(row));
  string->setMaxLength(static_cast<int>(kCommandFieldLimit));
  string->setValidator(new CommandStringLimit(string));
  connect(string, &QLineEdit::textChanged, string,
          [string](const QString& command) { setPlainToolTip(*string, unsendable(command)); });
  StringToSend.push_back(string);

  auto* reply = new ReplyField(rows_area_);
  reply->setObjectName(indexed("ReceiveString", row));
  reply->setAccessibleName(QStringLiteral("Reply %1").arg(row));
  ReceiveString.push_back(reply);

  auto* light = new StatusLight(rows_area_);
  light->setObjectName(indexed("ButtonShape", row));
  light->setAccessibleName(QStringLiteral("Status light %1").arg(row));
  ButtonShape.push_back(light);

  for (QWidget* control : std::initializer_list<QWidget*>{send, string, reply, light}) {
    control->hide();
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
  for (const int button : kBarByEye) append(LoadButton[at(button)]);
  if (foot_ != nullptr) append(foot_);
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
    setBarCaption(static_cast<int>(index), kBar[index].caption);
    LoadButton[index]->setToolTip(kBar[index].tool_tip);
  }
}

void ConsoleScreen::setBarCaption(int button, const QString& caption) {
  Glyph glyph = kBar[at(button)].glyph;
  if (caption == "Stop Recording") glyph = Glyph::kStopRecording;
  if (caption == "Stop Playback") glyph = Glyph::kStopPlayback;
  LoadButton[at(button)]->setText(caption);
  LoadButton[at(button)]->setIcon(icon(glyph));
}

void ConsoleScreen::place() {
  metrics_ = measure();
  const ConsoleLayout layout(metrics_);
  full_size_ =
      pixels({0, 0, layout.windowWidth(), layout.windowHeight(sized_for_rows_ - 1)}).size();
  const int icon_side = iconSide(font());
  for (PressButton* button : LoadButton) button->setIconSize({icon_side, icon_side});
  placeRows(layout);
  updateGeometry();
  placeHead(layout);
}

/// Everything under the head, measured from its lower edge.
void ConsoleScreen::placeRows(const ConsoleLayout& layout) {
  const QFont font = fixedWidthFont(this->font());
  const int head_height = pixels(layout.head()).height();
  const auto below_head = [head_height](const TwipsRect& twips) {
    return pixels(twips).translated(0, -head_height);
  };
  for (int row = 0; row < rows_; ++row) {
    SendCommand[at(row)]->setGeometry(below_head(layout.sendCommand(row)));
    ButtonShape[at(row)]->setGeometry(below_head(layout.buttonShape(row)));
    StringToSend[at(row)]->setGeometry(below_head(layout.stringToSend(row)));
    ReceiveString[at(row)]->setGeometry(below_head(layout.receiveString(row)));
    for (QLineEdit* field :
         std::initializer_list<QLineEdit*>{StringToSend[at(row)], ReceiveString[at(row)]}) {
      if (field->font() != font) field->setFont(font);
    }
  }
  const int foot_top = pixels(layout.foot(sized_for_rows_)).top();
  rows_area_->setFixedSize(full_size_.width(), foot_top - head_height);
}

/// Head, frame and foot in the width that there is.
void ConsoleScreen::placeHead(const ConsoleLayout& layout) {
  const QRect head = pixels(layout.head());
  const QRect foot = pixels(layout.foot(sized_for_rows_));
  const QSize between(width(), std::max(0, height() - head.height() - foot.height()));
  scroll_area_->setGeometry(QRect({0, head.height()}, between));
  const int room = between.width() - showScrollBarsAsNeeded(between);
  const int left = std::max(0, (room - full_size_.width()) / 2);
  // What is missing of the full width, the right column moves to the left.
  const int missing = std::max(0, full_size_.width() - room);

  head_->setGeometry(left, 0, full_size_.width() - missing, head.height());
  for (int index = 0; index < kBarButtons; ++index) {
    const QRect button = pixels(layout.loadButton(index));
    const bool right_column = index >= bar::kSaveStrings;
    LoadButton[at(index)]->setGeometry(right_column ? button.translated(-missing, 0) : button);
  }
  const QRect logo = pixels(layout.logo()).translated(-missing / 2, 0);
  logo_->setGeometry(logo);
  logo_->setVisible(logo.left() > pixels(layout.loadButton(bar::kSettings)).right() &&
                    logo.right() < LoadButton[bar::kHelp]->x());

  const QRect frame = pixels(layout.frame(sized_for_rows_));
  Frame1->setGeometry(frame.translated(left, 0));
  const int line_left = pixels(layout.buttonShape(0)).left();
  const int line_right = pixels(layout.receiveString(0)).right() - missing;
  line_->setGeometry(line_left, frame.top(), line_right - line_left + 1, 1);
  const int heading_top = frame.top() + 2;
  const auto place_heading = [&](QLabel* heading, const TwipsRect& field) {
    // They go with the rows that scroll across.
    heading->setGeometry(pixels(field).left() - scroll_area_->horizontalScrollBar()->value(),
                         heading_top, heading->sizeHint().width(), head.height() - heading_top);
  };
  place_heading(command_heading_, layout.stringToSend(0));
  place_heading(reply_heading_, layout.receiveString(0));
  if (foot_ != nullptr) {
    foot_->setGeometry(left + line_left, height() - foot.height(), line_right - line_left + 1,
                       foot.height());
  }
}

LayoutMetrics ConsoleScreen::measure() const {
  QPushButton sample;
  sample.setFont(font());
  sample.setIcon(icon(Glyph::kRecord));
  sample.setIconSize({iconSide(font()), iconSide(font())});
  float width = kLeastButtonWidth;
  for (const char* caption : kWidestCaptions) {
    sample.setText(caption);
    width = std::max(width, kTwipsPerPixel * static_cast<float>(sample.sizeHint().width()));
  }
  // Room for a line of text, the field's border and a pixel of air above and below.
  const int text =
      std::max(QFontMetrics(font()).height(), QFontMetrics(fixedWidthFont(font())).height());
  const float line = std::max(kLeastButtonHeight, kTwipsPerPixel * static_cast<float>(text + 6));
  const float logo = kTwipsPerPixel * static_cast<float>(logo_->preferredWidth());
  return {width, kHeightStep * std::ceil(line / kHeightStep), logo};
}

QSize ConsoleScreen::minimumSizeHint() const {
  const ConsoleLayout layout(metrics_);
  const QRect settings = pixels(layout.loadButton(bar::kSettings));
  const int foot = pixels(layout.foot(1)).height();
  const QSize least(
      2 * (settings.right() + settings.left() / 2),
      pixels(layout.head()).height() + 2 * pixels(layout.sendCommand(0)).height() + foot);
  return least.boundedTo(full_size_);
}

QSize ConsoleScreen::sizeWithin(QSize room) const {
  QSize size = full_size_;
  const int bar = style()->pixelMetric(QStyle::PM_ScrollBarExtent);
  if (size.height() > room.height()) size.rwidth() += bar;
  if (full_size_.width() > room.width()) size.rheight() += bar;
  return size.boundedTo(room);
}

/// For rows that are seen through an area of that size. Returns the width of the vertical bar, 0
/// when there is none.
int ConsoleScreen::showScrollBarsAsNeeded(QSize area) {
  // At a scale factor such as 1.25 the window manager rounds the window to whole pixels of the
  // device, which can make it one logical pixel smaller than asked: too little to scroll for.
  const QSize enough = rows_area_->size() - QSize(1, 1);
  const int bar = style()->pixelMetric(QStyle::PM_ScrollBarExtent);
  bool across = enough.width() > area.width();
  const bool down = enough.height() > area.height() - (across ? bar : 0);
  across = enough.width() > area.width() - (down ? bar : 0);
  const auto policy = [](bool needed) {
    return needed ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff;
  };
  scroll_area_->setHorizontalScrollBarPolicy(policy(across));
  scroll_area_->setVerticalScrollBarPolicy(policy(down));
  return down ? bar : 0;
}

void ConsoleScreen::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  placeHead(ConsoleLayout(metrics_));
}

void ConsoleScreen::showRow(QWidget* control) { scroll_area_->ensureWidgetVisible(control, 0, 0); }

void ConsoleScreen::adaptColours() {
  for (QLabel* heading : {command_heading_, reply_heading_}) {
    QPalette quiet;
    quiet.setColor(QPalette::WindowText, quietColour(palette()));
    heading->setPalette(quiet);
  }
  // What can't be changed stands on the window's ground, not on that of a field.
  for (ReplyField* field : ReceiveString) {
    QPalette read_only;
    read_only.setColor(QPalette::Base, palette().color(QPalette::Window));
    field->setPalette(read_only);
  }
}

void ConsoleScreen::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) place();
  if (event->type() == QEvent::PaletteChange) adaptColours();
}

}  // namespace mvdirigo
