#include "settings/settings.h"

#include <algorithm>
#include <utility>

#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QScrollBar>

#include "console/button_bar.h"
#include "console/colours.h"
#include "console/screen_room.h"
#include "console/tool_tip.h"
#include "core/stored_settings.h"
#include "platform/handler_edge.h"
#include "platform/text.h"
#include "settings/port_list.h"

namespace mvdirigo {
namespace {

constexpr int kMostStrings = 25;
/// Device, adapter and obstacle, of which the last ones may take two and three lines.
constexpr int kPortDetailsLines = 6;
constexpr const char* kLongestProgress = "port 16 of 16, 38400 baud, unit 16";
constexpr const char* kStringsWhenEmpty = "10";
constexpr const char* kBaudRates[] = {"9600", "19200", "38400", "57600", "115200", "230400"};

QString text(const std::string& utf8) { return QString::fromStdString(utf8); }

/// Labels `field` in `form` so that assistive tools and the label's own click find the field.
QLabel* addField(QFormLayout* form, const char* label, QWidget* field, const char* name,
                 const char* label_name = "") {
  field->setObjectName(name);
  field->setAccessibleName(label);
  auto* buddy = new QLabel(label);
  buddy->setObjectName(label_name);
  buddy->setBuddy(field);
  form->addRow(buddy, field);
  return buddy;
}

/// Makes a list exactly as high as its rows and as wide as the widest.
void fitToRows(QListWidget* list) {
  const int frame = 2 * list->frameWidth();
  list->setFixedHeight(list->sizeHintForRow(0) * list->count() + frame);
  list->setMinimumWidth(list->sizeHintForColumn(0) + frame + 12);
  list->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

}  // namespace

Settings::Settings(Platform& platform, StringFun& console, std::function<void()> show_update)
    : platform_(platform),
      console_(console),
      show_update_(std::move(show_update)),
      search_(platform, *this) {
  setObjectName("Settings");
  setWindowTitle("Communications");
  // It stands beside the console, which mostly is the active window.
  setAttribute(Qt::WA_AlwaysShowToolTips);

  auto* cmdUpdate = new QPushButton("Update Firmware");
  cmdUpdate->setObjectName("cmdUpdate");
  auto* cmdOK = new QPushButton("OK");
  cmdOK->setObjectName("cmdOK");

  // On a small screen the dialog scrolls.
  page_ = new QWidget;
  page_->installEventFilter(this);
  scroll_area_ = new QScrollArea(this);
  scroll_area_->setFrameShape(QFrame::NoFrame);
  scroll_area_->setFocusPolicy(Qt::NoFocus);
  scroll_area_->setAccessibleName("Communications");
  scroll_area_->horizontalScrollBar()->setAccessibleName("Scroll across");
  scroll_area_->verticalScrollBar()->setAccessibleName("Scroll down");
  scroll_area_->setWidget(page_);
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  whole->addWidget(scroll_area_);
  auto* grid = new QGridLayout(page_);
  grid->addWidget(makeLineGroup(), 0, 0);
  grid->addWidget(makeConsoleGroup(), 1, 0);
  grid->addWidget(makeSearchGroup(), 0, 1, 3, 1);
  grid->setRowStretch(2, 1);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(cmdUpdate);
  buttons->addStretch();
  buttons->addWidget(cmdOK);
  grid->addLayout(buttons, 3, 0, 1, 2);
  grid->setSizeConstraint(QLayout::SetFixedSize);
  cmdOK->setDefault(true);
  fitToFont();
  showNotUsed();

  connect(cmdOK, &QPushButton::clicked, this, [this] { cmdOK_Click(); });
  connect(cmdUpdate, &QPushButton::clicked, this, [this] { cmdUpdate_Click(); });
}

Settings::~Settings() = default;

QGroupBox* Settings::makeLineGroup() {
  CommPortSetting_ = new QLineEdit;
  lstBaudRate = new QListWidget;
  for (const char* rate : kBaudRates) lstBaudRate->addItem(rate);
  // Ctrl and a click would leave a rate that is chosen but looks as if it were not.
  connect(lstBaudRate, &QListWidget::itemSelectionChanged, this, [this] {
    if (selectedBaudRow() < 0 && lstBaudRate->currentItem() != nullptr) {
      lstBaudRate->currentItem()->setSelected(true);
    }
    console_.lineSettingsChanged();
  });
  DTProtocol_ = new QRadioButton("DT Protocol");
  DTProtocol_->setObjectName("DTProtocol");
  DTProtocol_->setChecked(true);
  OEMProtocol_ = new QRadioButton("OEM Protocol");
  OEMProtocol_->setObjectName("OEMProtocol");
  FlowControl = new QLineEdit;
  FlowControl->setPlaceholderText("Not used");
  setPlainToolTip(*FlowControl, "Not used");

  auto* group = new QGroupBox("Serial line");
  auto* form = new QFormLayout(group);
  left_labels_ = {addField(form, "Comm Port", CommPortSetting_, "CommPortSetting"),
                  addField(form, "Baud Rate", lstBaudRate, "lstBaudRate", "Baud")};
  form->addRow(QString(), DTProtocol_);
  form->addRow(QString(), OEMProtocol_);
  left_labels_.push_back(addField(form, "Flow Control", FlowControl, "FlowControl"));
  connect(CommPortSetting_, &QLineEdit::textChanged, this, [this] { CommPortSetting_Change(); });
  connect(OEMProtocol_, &QRadioButton::toggled, this, [this] { console_.lineSettingsChanged(); });
  return group;
}

QGroupBox* Settings::makeConsoleGroup() {
  MaxStrings_ = new QLineEdit;
  RCVTimeout_ = new QLineEdit("3000");
  RCVTimeout_->setToolTip("Reply time-out in milliseconds");
  auto* group = new QGroupBox("Console");
  auto* form = new QFormLayout(group);
  left_labels_.push_back(addField(form, "Max Strings", MaxStrings_, "MaxStrings"));
  left_labels_.push_back(
      addField(form, "RCV TImeout", RCVTimeout_, "RCVTimeout", "ReceiveTimeout"));
  connect(MaxStrings_, &QLineEdit::textChanged, this, [this] { MaxStrings_Change(); });
  return group;
}

QGroupBox* Settings::makeSearchGroup() {
  lstPorts = new PortList([this](int row) { pickPort(row); });
  lstPorts->setObjectName("lstPorts");
  lstPorts->setAccessibleName("Ports");
  for (int port = SerialPort::kLowestPort; port <= SerialPort::kHighestPort; ++port) {
    lstPorts->addItem(new PortRow(port, false, [] { return QString(); }));
  }
  lstPorts->viewport()->installEventFilter(this);
  PortDetails_ = new QPlainTextEdit;
  PortDetails_->setObjectName("PortDetails");
  PortDetails_->setAccessibleName("Port details");
  PortDetails_->setReadOnly(true);
  PortDetails_->setTabChangesFocus(true);
  PortDetails_->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  PortDetails_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  cmdRescanPorts = new QPushButton("Re-Scan Ports");
  cmdRescanPorts->setObjectName("cmdRescanPorts");
  AutoSetup = new QPushButton("Auto Set Comm");
  AutoSetup->setObjectName("AutoSetup");
  for (QPushButton* button : {cmdRescanPorts, AutoSetup}) button->installEventFilter(this);
  SearchProgress_ = new QLineEdit;
  SearchProgress_->setReadOnly(true);
  ResponseString = new QLineEdit;
  ResponseString->setReadOnly(true);

  auto* group = new QGroupBox("Find a controller");
  auto* column = new QVBoxLayout(group);
  column->addWidget(lstPorts);
  column->addWidget(PortDetails_);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(cmdRescanPorts);
  buttons->addWidget(AutoSetup);
  column->addLayout(buttons);
  column->addStretch();
  auto* form = new QFormLayout;
  addField(form, "Search", SearchProgress_, "SearchProgress");
  SearchProgress_->setAccessibleName("Search progress");
  addField(form, "Response", ResponseString, "ResponseString");
  column->addLayout(form);
  connect(cmdRescanPorts, &QPushButton::clicked, this, [this] { cmdRescanPorts_Click(); });
  connect(AutoSetup, &QPushButton::clicked, this, [this] {
    atHandlerEdge(platform_.dialogs(), "AutoSetup_Click", [this] { search_.AutoSetup_Click(); });
  });
  return group;
}

// The room of every text, so that the dialog keeps its size whatever they tell.
void Settings::fitToFont() {
  for (QListWidget* list : {lstBaudRate, lstPorts}) fitToRows(list);
  int widest = 0;
  for (const QLabel* label : left_labels_) widest = std::max(widest, label->sizeHint().width());
  for (QLabel* label : left_labels_) label->setMinimumWidth(widest);
  const int frame_and_margins = 2 * (PortDetails_->frameWidth() +
                                     static_cast<int>(PortDetails_->document()->documentMargin()));
  PortDetails_->setFixedHeight(kPortDetailsLines * PortDetails_->fontMetrics().lineSpacing() +
                               frame_and_margins);
  constexpr int kFrameAndCursor = 16;
  SearchProgress_->setMinimumWidth(
      SearchProgress_->fontMetrics().horizontalAdvance(kLongestProgress) + kFrameAndCursor);
}

void Settings::fitToScreen() {
  const QSize room = roomOnScreen(*this);
  const QSize all = page_->sizeHint();
  const int bar = style()->pixelMetric(QStyle::PM_ScrollBarExtent);
  const bool across = all.width() > room.width();
  const bool down = all.height() > room.height();
  const QSize with_bars = all + QSize(down ? bar : 0, across ? bar : 0);
  const auto policy = across || down ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff;
  scroll_area_->setHorizontalScrollBarPolicy(policy);
  scroll_area_->setVerticalScrollBarPolicy(policy);
  setFixedSize(with_bars.boundedTo(room));
}

// Palettes mostly give too little contrast to a placeholder.
void Settings::showNotUsed() {
  QPalette quiet;
  quiet.setColor(QPalette::PlaceholderText, quietColour(palette()));
  FlowControl->setPalette(quiet);
}

void Settings::Form_Load() {
  SettingsStore& store = platform_.settingsStore();
  skipOnError([&] {
    ScanPorts();
    MaxStrings_->setText(text(readSetting(store, stored::kMaxStrings)));
    CommPortSetting_->setText(text(readSetting(store, stored::kCommPortSetting)));
    selectStoredBaudRate();
    RCVTimeout_->setText(text(readSetting(store, stored::kRCVTimeout)));
    // The button's own place in the console serves as the place on the screen until the dialog is
    // first shown.
    move(console_.barButtonPlace(bar::kSettings).topLeft());
    console_.setReplyTimeOut(RCVTimeout());
    setWindowFlag(Qt::WindowStaysOnTopHint, true);
    FirstTimeStartup = readSetting(store, stored::kFirstTimeStartup);
    platform_.eventLoop().runPending();
  });
  kept_ = choices();
}

void Settings::selectStoredBaudRate() {
  const int row = textToInt16(readSetting(platform_.settingsStore(), stored::kBaudRate));
  if (row < 0 || row >= lstBaudRate->count()) throw RuntimeError(Fault::kInvalidPropertyValue);
  lstBaudRate->setCurrentRow(row);
}

void Settings::Form_Unload() {
  life_.leave();
  search_.requestStop();
  hide();
  leaveTopmostLayer();
}

void Settings::leaveTopmostLayer() {
  const bool shown = isVisible();
  setWindowFlag(Qt::WindowStaysOnTopHint, false);
  if (shown) show();
}

void Settings::SaveAppSettings() {
  SettingsStore& store = platform_.settingsStore();
  writeSetting(store, stored::kMaxStrings, MaxStrings());
  writeSetting(store, stored::kCommPortSetting, CommPortSetting());
  if (selectedBaudRow() >= 0) {
    writeSetting(store, stored::kBaudRate, std::to_string(selectedBaudRow()));
  }
  writeSetting(store, stored::kRCVTimeout, RCVTimeout());
  kept_ = choices();
}

void Settings::ScanPorts() {
  lstPorts->clear();
  for (int port = SerialPort::kLowestPort; port <= SerialPort::kHighestPort; ++port) {
    const bool available = portAvailable(port);
    const auto tool_tip = [this, port, available] { return portToolTip(port, available); };
    lstPorts->addItem(new PortRow(port, available, tool_tip));
  }
  highlightPortInForce();
  showPortDetails();
}

QString Settings::scanObstacle() {
  if (search_.searching() || !console_.PortOpen()) return {};
  return "Finds nothing while the console holds a port open. Press Settings on the console first: "
         "that closes it.";
}

QString Settings::portToolTip(int port, bool available) {
  const PortDetails details = platform_.portDetails(port);
  QStringList lines{shortened(text(details.device)), shortened(text(details.hardware))};
  if (!available) {
    lines << (scanObstacle().isEmpty() ? shortened(text(details.obstacle)) : scanObstacle());
    if (lines.last().isEmpty()) lines << "Press Re-Scan Ports to look again.";
  }
  lines.removeAll(QString());
  return lines.join('\n');
}

int Settings::portInForce() const {
  int port = 0;
  skipOnError([&] { port = textToInt16(CommPortSetting()); });
  return SerialPort::isPort(port) ? port : 0;
}

void Settings::highlightPortInForce() { lstPorts->setCurrentRow(portInForce() - 1); }

void Settings::showPortDetails() {
  // What stands in a port's way is looked up on the machine, for a text that is seen only.
  if (!isVisible()) return;
  const QListWidgetItem* row = lstPorts->item(portInForce() - 1);
  const QString details = row != nullptr ? row->data(Qt::AccessibleDescriptionRole).toString()
                                         : "No port number from 1 to 16.";
  if (details != PortDetails_->toPlainText()) PortDetails_->setPlainText(details);
}

void Settings::cmdOK_Click() {
  atHandlerEdge(platform_.dialogs(), "cmdOK_Click", [this] {
    if (MaxStrings_->text().isEmpty()) MaxStrings_->setText(kStringsWhenEmpty);
    SaveAppSettings();
    search_.requestStop();
    platform_.forgetPortLinks();
    console_.SetupScreen();
    hide();
  });
}

void Settings::cmdUpdate_Click() {
  atHandlerEdge(platform_.dialogs(), "cmdUpdate_Click", [this] {
    // The update owns the line; a search would go on behind it.
    if (search_.searching()) search_.AutoSetup_Click();
    closeConsolePort();
    hide();
    show_update_();
  });
}

void Settings::cmdRescanPorts_Click() {
  atHandlerEdge(platform_.dialogs(), "cmdRescanPorts_Click", [this] {
    platform_.forgetPortLinks();
    ScanPorts();
  });
}

void Settings::CommPortSetting_Change() {
  highlightPortInForce();
  showPortDetails();
  console_.lineSettingsChanged();
}

void Settings::MaxStrings_Change() {
  double rows = 0;
  // Text that is no number stays as it was typed; the layout falls back for it.
  if (!skipOnError([&] { rows = textToNumber(MaxStrings()); })) return;
  if (rows <= kMostStrings) return;
  platform_.dialogs().messageBox("Maximum number of strings allowed is 25");
  MaxStrings_->setText(QString::number(kMostStrings));
}

bool Settings::eventFilter(QObject* watched, QEvent* event) {
  if (watched == page_) {
    if (event->type() == QEvent::Resize) fitToScreen();
    return false;
  }
  if (watched != lstPorts->viewport()) {
    const bool describes = event->type() == QEvent::ToolTip || event->type() == QEvent::FocusIn;
    if (describes) setPlainToolTip(*static_cast<QWidget*>(watched), scanObstacle());
    return QDialog::eventFilter(watched, event);
  }
  switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: {
      const auto* press = static_cast<QMouseEvent*>(event);
      if (press->button() == Qt::LeftButton) lstPorts_MouseDown(press->position().toPoint());
      return true;
    }
    // The list itself would move its highlight away from the port that was picked.
    case QEvent::MouseMove:
      return true;
    default:
      return QDialog::eventFilter(watched, event);
  }
}

void Settings::lstPorts_MouseDown(QPoint position) {
  QListWidgetItem* hit = lstPorts->itemAt(position);
  // Below the last row the nearest one counts.
  const int row = hit != nullptr ? lstPorts->row(hit) : lstPorts->count() - 1;
  lstPorts->setFocus(Qt::MouseFocusReason);
  pickPort(row);
}

void Settings::pickPort(int row) {
  setCommPortSetting(row + 1);
  lstPorts->setCurrentRow(row);
}

void Settings::changeEvent(QEvent* event) {
  QDialog::changeEvent(event);
  switch (event->type()) {
    case QEvent::FontChange:
    case QEvent::StyleChange:
      return fitToFont();
    case QEvent::PaletteChange:
      return showNotUsed();
    // The console may have opened or closed its port meanwhile.
    case QEvent::ActivationChange:
      return showPortDetails();
    default:
      return;
  }
}

void Settings::showEvent(QShowEvent* event) {
  QDialog::showEvent(event);
  showPortDetails();
}

// Escape and the window's own close button: a running search stops as its button would stop it,
// otherwise what was not stored is taken back, and the port that was tried must not get the next
// command. The dialog stays loaded.
void Settings::reject() {
  if (search_.searching()) {
    search_.AutoSetup_Click();
  } else {
    restore(kept_);
  }
  closeConsolePort();
  hide();
}

Settings::Choices Settings::choices() const {
  return {CommPortSetting_->text(), MaxStrings_->text(), RCVTimeout_->text(), selectedBaudRow(),
          OEMProtocol_->isChecked()};
}

void Settings::restore(const Choices& choices) {
  CommPortSetting_->setText(choices.port);
  MaxStrings_->setText(choices.max_strings);
  RCVTimeout_->setText(choices.timeout);
  lstBaudRate->setCurrentRow(choices.baud_row);
  (choices.oem ? OEMProtocol_ : DTProtocol_)->setChecked(true);
}

std::string Settings::CommPortSetting() const { return CommPortSetting_->text().toStdString(); }

std::string Settings::BaudRate() const {
  const int row = selectedBaudRow();
  return row >= 0 ? lstBaudRate->item(row)->text().toStdString() : std::string();
}

int Settings::selectedBaudRow() const {
  const auto selected = lstBaudRate->selectedItems();
  return selected.isEmpty() ? -1 : lstBaudRate->row(selected.front());
}

bool Settings::DTProtocol() const { return DTProtocol_->isChecked(); }
bool Settings::OEMProtocol() const { return OEMProtocol_->isChecked(); }
std::string Settings::MaxStrings() const { return MaxStrings_->text().toStdString(); }
std::string Settings::RCVTimeout() const { return RCVTimeout_->text().toStdString(); }

void Settings::takeReply(const std::string& latin1) {
  ResponseString->setText(text(shownReply(latin1)));
  search_.takeReply(latin1);
}

void Settings::setCommPortSetting(int port) { CommPortSetting_->setText(QString::number(port)); }

void Settings::selectBaudRate(int row) { lstBaudRate->setCurrentRow(row); }

void Settings::setFirstString(const std::string& query) { console_.setCommand(0, query); }

void Settings::sendFirstString() {
  const bool shown = isVisible();
  console_.SendCommand_Click(0);
  // Escape inside the send closes the port, and the rest of the send opens it again.
  if (shown && !isVisible()) closeConsolePort();
}

void Settings::searchProgressed() {
  SearchProgress_->setText(text(searchProgress()));
  console_.searchProgressed();
}

std::string Settings::searchProgress() const {
  const auto& [port, baud_row, address] = search_.progress();
  if (!search_.searching() || port == 0) return {};
  return "port " + std::to_string(port) + " of " + std::to_string(SerialPort::kHighestPort) + ", " +
         kBaudRates[baud_row] + " baud, unit " + std::to_string(address);
}

void Settings::clearResponseString() { ResponseString->clear(); }

void Settings::setSearchCaption(const std::string& caption) { AutoSetup->setText(text(caption)); }

}  // namespace mvdirigo
