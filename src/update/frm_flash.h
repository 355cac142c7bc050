#pragma once

#include <functional>
#include <memory>
#include <string>

#include <QDialog>

#include "platform/platform.h"
#include "settings/settings.h"
#include "update/firmware_update.h"

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace mvdirigo {

class TrafficView;
class TransferProgress;
class UpdateSummary;

/// The firmware update dialog. While it is open it owns the serial line.
class frmFlash : public QDialog, private FirmwareUpdate::Window {
 public:
  /// `on_unload` is called when the dialog was closed by its user; it may still be on the call
  /// stack then, until `busy()` is over.
  frmFlash(Platform& platform, Settings& settings, QWidget* owner, std::function<void()> on_unload);
  ~frmFlash() override;

  void Form_Load();
  /// Ends a running update at its next wait and gives the serial line back.
  void Form_Unload();

  /// Whether an update is on the call stack.
  bool busy() const { return update_.running(); }

 protected:
  void reject() override;

 private:
  QGroupBox* makeUpdateGroup();
  void showTarget();
  void cmdUpdate_Click();
  void cmdClose_Click();
  void enable(QWidget* control, bool enabled);
  void onSpinnerPause();

  bool verbose() const override;
  void printTraffic(FlashLink::Direction direction, std::string_view bytes) override;
  void setStatus(const std::string& text) override;
  void setSpinner(const std::string& text) override;
  int progress() const override;
  void setProgress(int percent) override;
  void enableUpdate(bool enabled) override;
  void showEndOfStatus() override;
  void showFile(const UpdateFileFacts& file) override;
  void closeConsolePort() override { settings_.closeConsolePort(); }
  void enlarge() override;
  void enablePause(bool enabled) override;
  void startTransfer(std::size_t bytes) override;
  void setSent(std::size_t bytes) override;
  int unitNumber() const override;
  std::string baudText() const override;
  void selectFirstBaud() override;

  Platform& platform_;
  Settings& settings_;
  std::function<void()> on_unload_;
  WindowLife life_;

  QComboBox* cboID = nullptr;
  QComboBox* cboBaud = nullptr;
  QPushButton* cmdLoadImage = nullptr;
  QPushButton* cmdUpdate = nullptr;
  QPushButton* cmdPause = nullptr;
  QPushButton* cmdClose = nullptr;
  QCheckBox* Verbose = nullptr;
  QLineEdit* txtStatus = nullptr;
  QLineEdit* txtSpinner = nullptr;
  QProgressBar* pgbUpdate = nullptr;
  UpdateSummary* summary_ = nullptr;
  TransferProgress* transfer_ = nullptr;
  TrafficView* traffic_ = nullptr;
  /// What the update's port was set up with.
  QString port_;

  /// The spinner's newest position. It shows after a pause, because a fast unit turns the spinner
  /// far faster than anybody sees, and every repaint between two pieces holds the second up.
  QString spinner_;
  bool spinner_due_ = false;
  std::unique_ptr<Timer> spinner_pause_;

  FirmwareUpdate update_;
};

}  // namespace mvdirigo
