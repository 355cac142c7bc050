#include "update/frm_flash.h"

#include <algorithm>
#include <utility>

#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>

#include "console/console_layout.h"
#include "console/press_button.h"
#include "console/tool_tip.h"
#include "platform/handler_edge.h"
#include "platform/text.h"
#include "update/traffic_view.h"
#include "update/transfer_progress.h"
#include "update/update_summary.h"

namespace mvdirigo {
namespace {

constexpr int kUnits = 15;
/// The spinner has four positions. At each rate of the line the number of turns in this time is
/// mostly no multiple of four, so that it is seen to move.
constexpr int kSpinnerPauseMs = 130;
constexpr int kLeastTrafficCharacters = 24;
/// Size of the dialog with the traffic beside its controls.
constexpr QSize kVerboseSize(static_cast<int>(10000 / kTwipsPerPixel),
                             static_cast<int>(4500 / kTwipsPerPixel));

QPushButton* makeButton(const char* caption, const char* name) {
  auto* button = new PressButton(caption);
  button->setObjectName(name);
  button->setAutoDefault(false);
  return button;
}

QLineEdit* makeDisplay(const char* name, const char* accessible_name) {
  auto* display = new QLineEdit;
  display->setObjectName(name);
  display->setAccessibleName(accessible_name);
  display->setReadOnly(true);
  display->setFocusPolicy(Qt::ClickFocus);
  return display;
}

QLabel* makeLabel(const char* caption, const char* name, QWidget* buddy) {
  auto* label = new QLabel(caption);
  label->setObjectName(name);
  label->setBuddy(buddy);
  return label;
}

QFont spinnerFont() {
  QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  font.setFamilies({"Lucida Console", font.family()});
  return font;
}

}  // namespace

frmFlash::frmFlash(Platform& platform, Settings& settings, QWidget* owner,
                   std::function<void()> on_unload)
    : QDialog(owner),
      platform_(platform),
      settings_(settings),
      on_unload_(std::move(on_unload)),
      spinner_pause_(platform.makeTimer([this] { onSpinnerPause(); })),
      update_(platform, *this, life_) {
  spinner_pause_->setInterval(kSpinnerPauseMs);
  setObjectName("frmFlash");
  setWindowTitle("MVUpdate Firmware");
  setWindowModality(Qt::ApplicationModal);
  setWindowFlag(Qt::WindowStaysOnTopHint);

  traffic_ = new TrafficView(platform_);
  traffic_->setObjectName("Traffic");
  traffic_->setAccessibleName("Traffic");
  // In a large font the controls take all of the given size.
  traffic_->setMinimumWidth(kLeastTrafficCharacters * traffic_->fontMetrics().averageCharWidth());
  traffic_->hide();

  cmdClose = makeButton("Close", "cmdClose");
  connect(cmdClose, &QPushButton::clicked, this, [this] { cmdClose_Click(); });

  auto* row = new QHBoxLayout(this);
  auto* column = new QVBoxLayout;
  column->addWidget(makeUpdateGroup());
  column->addStretch();
  // Beside "Close", because the verbose size has no room for another line.
  transfer_ = new TransferProgress(platform_);
  auto* last_line = new QHBoxLayout;
  last_line->addWidget(transfer_, 1);
  last_line->addWidget(cmdClose);
  column->addLayout(last_line);
  row->addLayout(column);
  row->addWidget(traffic_, 1);
}

frmFlash::~frmFlash() = default;

QGroupBox* frmFlash::makeUpdateGroup() {
  cboID = new QComboBox;
  cboID->setObjectName("cboID");
  cboID->setAccessibleName("Unit");
  for (int unit = 1; unit <= kUnits; ++unit) cboID->addItem(QString::number(unit), unit);
  cboBaud = new QComboBox;
  cboBaud->setObjectName("cboBaud");
  cboBaud->setAccessibleName("Baud Rate:");
  cboBaud->addItems({"9600", "19200", "38400", "57600"});

  cmdLoadImage = makeButton("Load Image", "cmdLoadImage");
  cmdUpdate = makeButton("Update", "cmdUpdate");
  cmdUpdate->setEnabled(false);
  // As CrashUpdate, it is only drawn: units know no pause.
  cmdPause = makeButton("Pause Transfer", "cmdPause");
  cmdPause->setEnabled(false);
  auto* CrashUpdate = new QCheckBox("Crash Update");
  CrashUpdate->setObjectName("CrashUpdate");
  Verbose = new QCheckBox("Verbose");
  Verbose->setObjectName("Verbose");

  txtStatus = makeDisplay("txtStatus", "Status");
  txtStatus->setText("Status: None");
  txtStatus->setMinimumWidth(360);
  txtSpinner = makeDisplay("txtSpinner", "Spinner");
  txtSpinner->setFont(spinnerFont());
  txtSpinner->setAlignment(Qt::AlignCenter);
  txtSpinner->setFixedWidth(30);
  // Opaque, so that a turn doesn't repaint what is behind it.
  txtSpinner->setAutoFillBackground(true);
  pgbUpdate = new QProgressBar;
  pgbUpdate->setObjectName("pgbUpdate");
  pgbUpdate->setAccessibleName("Progress");
  pgbUpdate->setRange(0, 100);
  pgbUpdate->setValue(0);

  summary_ = new UpdateSummary;

  auto* group = new QGroupBox("Update Firmware");
  group->setObjectName("fmeUpdate");
  auto* grid = new QGridLayout(group);
  grid->addWidget(makeLabel("Unit", "lblID", cboID), 0, 0);
  grid->addWidget(cboID, 0, 1);
  grid->addWidget(makeLabel("Baud Rate:", "lblBaud", cboBaud), 0, 2);
  grid->addWidget(cboBaud, 0, 3);
  grid->addWidget(CrashUpdate, 1, 0, 1, 2);
  grid->addWidget(Verbose, 1, 2, 1, 2);
  grid->addWidget(cmdLoadImage, 2, 0);
  grid->addWidget(cmdUpdate, 2, 1);
  grid->addWidget(cmdPause, 2, 2);
  auto* status = new QHBoxLayout;
  status->addWidget(txtStatus);
  status->addWidget(txtSpinner);
  grid->addWidget(summary_, 3, 0, 1, 4);
  grid->addLayout(status, 4, 0, 1, 4);
  grid->addWidget(pgbUpdate, 5, 0, 1, 4);

  for (const QComboBox* choice : {cboID, cboBaud}) {
    connect(choice, &QComboBox::currentIndexChanged, this, [this] { showTarget(); });
  }
  connect(cmdLoadImage, &QPushButton::clicked, this, [this] { update_.cmdLoadImage_Click(); });
  connect(cmdUpdate, &QPushButton::clicked, this, [this] { cmdUpdate_Click(); });
  return group;
}

void frmFlash::Form_Load() {
  cboID->setCurrentIndex(0);
  cboBaud->setCurrentIndex(0);
  closeConsolePort();
  port_ = QString::fromStdString(shortVisibleText(latin1FromUtf8(settings_.CommPortSetting())));
  showTarget();
  update_.Form_Load(settings_);
}

void frmFlash::Form_Unload() {
  life_.leave();
  update_.close();
  hide();
}

void frmFlash::showTarget() {
  summary_->showTarget(QStringLiteral("Unit %1 \u00B7 COM%2 \u00B7 %3 baud")
                           .arg(cboID->currentText(), port_, cboBaud->currentText()));
}

void frmFlash::cmdUpdate_Click() {
  if (busy()) return;
  pgbUpdate->resetFormat();
  transfer_->forget();
  // A file dialog would stop the update, and the unit's answers would seem to be late. Unit and
  // rate are those of the confirmation.
  const std::initializer_list<QWidget*> settled = {cboID, cboBaud, cmdLoadImage};
  for (QWidget* control : settled) enable(control, false);
  setPlainToolTip(*cmdClose,
                  "Ends the update at once. A unit that has got half of its firmware\n"
                  "is left without any, and does nothing until another update.");
  update_.cmdUpdate_Click();
  if (life_.leaving()) return;
  transfer_->stop();
  if (update_.complete()) pgbUpdate->setFormat("Done");
  for (QWidget* control : settled) enable(control, true);
  setPlainToolTip(*cmdClose, {});
  if (update_.confirmedBefore()) {
    setPlainToolTip(*cmdUpdate, "For another update, close this dialog and open it again.");
  }
}

void frmFlash::cmdClose_Click() {
  if (life_.leaving()) return;
  atHandlerEdge(platform_.dialogs(), "cmdClose_Click", [this] {
    settings_.leaveTopmostLayer();
    Form_Unload();
    platform_.eventLoop().runPending();
    // Unless the console was closed meanwhile.
    if (!settings_.life().leaving()) settings_.show();
    on_unload_();
  });
}

// Escape and the window's own close button: pressed by mistake, they must not leave a unit with
// half a firmware.
void frmFlash::reject() {
  if (!busy()) cmdClose_Click();
}

bool frmFlash::verbose() const { return Verbose->isChecked(); }

void frmFlash::printTraffic(FlashLink::Direction direction, std::string_view bytes) {
  if (traffic_->isHidden()) enlarge();
  traffic_->print(direction, bytes);
}

void frmFlash::setStatus(const std::string& text) {
  txtStatus->setText(QString::fromStdString(onOneLine(text)));
  txtStatus->setCursorPosition(0);
  setPlainToolTip(*txtStatus, txtStatus->text());
}

void frmFlash::showEndOfStatus() { txtStatus->end(false); }

void frmFlash::showFile(const UpdateFileFacts& file) { summary_->showFile(file); }

void frmFlash::setSpinner(const std::string& text) {
  const bool stopped = text == " ";
  spinner_ = QString::fromStdString(text);
  spinner_due_ = !stopped && spinner_pause_->Enabled();
  if (spinner_due_) return;
  txtSpinner->setText(spinner_);
  spinner_pause_->setEnabled(true);
}

void frmFlash::onSpinnerPause() {
  if (std::exchange(spinner_due_, false)) {
    txtSpinner->setText(spinner_);
  } else {
    spinner_pause_->setEnabled(false);
  }
}

int frmFlash::progress() const { return pgbUpdate->value(); }

void frmFlash::setProgress(int percent) {
  pgbUpdate->setValue(std::clamp(percent, pgbUpdate->minimum(), pgbUpdate->maximum()));
}

void frmFlash::enableUpdate(bool enabled) { enable(cmdUpdate, enabled); }

void frmFlash::enlarge() {
  traffic_->show();
  resize(kVerboseSize);
}

void frmFlash::enablePause(bool enabled) { enable(cmdPause, enabled); }

void frmFlash::startTransfer(std::size_t bytes) { transfer_->start(bytes); }

void frmFlash::setSent(std::size_t bytes) { transfer_->setSent(bytes); }

// A disabled button hands its focus on, in the end to "Close", where a key pressed by mistake would
// end the update.
void frmFlash::enable(QWidget* control, bool enabled) {
  if (!enabled && focusWidget() == control) txtStatus->setFocus();
  control->setEnabled(enabled);
}

int frmFlash::unitNumber() const { return cboID->currentData().toInt(); }

std::string frmFlash::baudText() const { return cboBaud->currentText().toStdString(); }

void frmFlash::selectFirstBaud() { cboBaud->setCurrentIndex(0); }

}  // namespace mvdirigo
