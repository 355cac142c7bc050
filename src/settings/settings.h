#pragma once

#include <functional>
#include <string>
#include <vector>

#include <QDialog>

#include "console/string_fun.h"
#include "core/live_settings.h"
#include "platform/platform.h"
#include "settings/auto_search.h"

class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;
class QScrollArea;

namespace mvdirigo {

/// The communications dialog. Its controls are the live communication settings; it is made once and
/// then only hidden and shown.
class Settings : public QDialog, public LiveSettings, private AutoSearch::Bench {
 public:
  /// `show_update` opens the firmware update.
  Settings(Platform& platform, StringFun& console, std::function<void()> show_update);
  ~Settings() override;

  /// Fills the dialog from the store. A fault ends the filling where it stands, without a message.
  void Form_Load();
  void Form_Unload();
  void SaveAppSettings() override;
  /// Gives the dialog the size of its controls, or what the screen allows of it.
  void fitToScreen();

  void closeConsolePort() override { console_.closePort(); }
  /// Takes the dialog out of the layer above all windows.
  void leaveTopmostLayer();

  std::string CommPortSetting() const override;
  std::string BaudRate() const override;
  bool DTProtocol() const override;
  bool OEMProtocol() const override;
  std::string MaxStrings() const override;
  std::string RCVTimeout() const override;
  bool searching() const override { return search_.searching(); }
  std::string searchProgress() const override;
  void takeReply(const std::string& latin1) override;

  [[nodiscard]] const WindowLife& life() const override { return life_; }

 protected:
  void changeEvent(QEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void reject() override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  /// What the user can change and Escape takes back.
  struct Choices {
    QString port, max_strings, timeout;
    int baud_row = 0;
    bool oem = false;
  };

  QGroupBox* makeLineGroup();
  QGroupBox* makeConsoleGroup();
  QGroupBox* makeSearchGroup();
  void fitToFont();
  void showNotUsed();
  void ScanPorts();
  /// What stands in the way of a scan or a search now; empty when nothing does.
  QString scanObstacle();
  QString portToolTip(int port, bool available);
  /// 0 when `CommPortSetting` is no port number.
  int portInForce() const;
  void highlightPortInForce();
  void showPortDetails();
  void pickPort(int row);
  void selectStoredBaudRate();
  /// -1 when none is selected.
  int selectedBaudRow() const;
  Choices choices() const;
  void restore(const Choices& choices);

  void cmdOK_Click();
  void cmdUpdate_Click();
  void cmdRescanPorts_Click();
  void CommPortSetting_Change();
  void MaxStrings_Change();
  void lstPorts_MouseDown(QPoint position);

  bool portAvailable(int port) override { return console_.PortAvailable(port); }
  void setCommPortSetting(int port) override;
  void selectBaudRate(int row) override;
  void setFirstString(const std::string& query) override;
  void sendFirstString() override;
  void clearResponseString() override;
  void setSearchCaption(const std::string& caption) override;
  void searchProgressed() override;

  Platform& platform_;
  StringFun& console_;
  std::function<void()> show_update_;
  WindowLife life_;
  AutoSearch search_;

  QScrollArea* scroll_area_ = nullptr;
  QWidget* page_ = nullptr;
  QLineEdit* CommPortSetting_ = nullptr;
  QListWidget* lstBaudRate = nullptr;
  QLineEdit* MaxStrings_ = nullptr;
  QLineEdit* RCVTimeout_ = nullptr;
  QRadioButton* OEMProtocol_ = nullptr;
  QRadioButton* DTProtocol_ = nullptr;
  QLineEdit* FlowControl = nullptr;
  QListWidget* lstPorts = nullptr;
  QPlainTextEdit* PortDetails_ = nullptr;
  QPushButton* cmdRescanPorts = nullptr;
  QPushButton* AutoSetup = nullptr;
  QLineEdit* SearchProgress_ = nullptr;
  QLineEdit* ResponseString = nullptr;
  /// Of the groups that stand under each other.
  std::vector<QLabel*> left_labels_;

  std::string FirstTimeStartup;
  /// The choices as they were last loaded or saved.
  Choices kept_;
};

}  // namespace mvdirigo
