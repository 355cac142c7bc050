#pragma once

#include <memory>
#include <string>
#include <vector>

#include <QWidget>

#include "console/console_screen.h"
#include "console/recorder.h"
#include "console/row_keys.h"
#include "console/status_strip.h"
#include "core/live_settings.h"
#include "core/stored_settings.h"
#include "platform/platform.h"
#include "protocol/transaction.h"

class QMenu;

namespace mvdirigo {

/// The console: the window that starts and ends the program.
class StringFun : public QWidget, private Transaction::Rows, private Recorder::Bar {
 public:
  /// The windows around the console, which it opens and ends without knowing them.
  class Neighbours {
   public:
    virtual ~Neighbours() = default;
    /// The live settings, whose window is made, hidden, at the first call.
    virtual LiveSettings& liveSettings() = 0;
    /// Shows the settings window, its left edge at `anchor` and its top half its own height below
    /// `anchor`; in logical pixels of the screen.
    virtual void showSettings(QPoint anchor) = 0;
    virtual void showHelp() = 0;
    virtual void showLineTraffic() = 0;
    /// Ends every other window and, with them, the program.
    virtual void unloadAll() = 0;
  };

  /// Rows that the console makes: those that are stored. The settings allow at most 25 of them to
  /// be shown, and the others that a playback may name have no command.
  static constexpr int kRows = kStoredRows;

  StringFun(Platform& platform, Neighbours& neighbours);
  ~StringFun() override;

  void Form_Load();
  void SetupScreen();
  void SendCommand_Click(int Index);
  void LoadButton_Click(int Index);
  /// Shows the line settings that are now chosen, if the port is closed.
  void lineSettingsChanged();
  /// Shows where the automatic search now is, or that it has ended.
  void searchProgressed() { showStripSoon(); }
  /// Hands the rows to the settings store.
  void saveRows();

  [[nodiscard]] bool PortOpen() const { return transaction_.link().PortOpen(); }
  void closePort() { transaction_.link().close(); }
  /// Whether the port of that number can be opened: opens it and closes it again. False while the
  /// console holds any port open.
  [[nodiscard]] bool PortAvailable(int port) { return transaction_.link().PortAvailable(port); }

  void setCommand(int row, const std::string& text);
  /// In the console; `button` is one of `bar`.
  [[nodiscard]] QRect barButtonPlace(int button) const;

  [[nodiscard]] bool replyTimeOutRuns() const { return transaction_.tmrReceiveTimeOut().Enabled(); }
  [[nodiscard]] int replyTimeOutMs() const { return transaction_.tmrReceiveTimeOut().Interval(); }
  /// Sets the interval of `tmrReceiveTimeOut` to `text`, in ms; 0 or less leaves it as it is.
  /// Throws RuntimeError for text that is no number.
  void setReplyTimeOut(const std::string& text);
  [[nodiscard]] const WindowLife& life() const override { return life_; }

 protected:
  void closeEvent(QCloseEvent* event) override;
  bool event(QEvent* event) override;

 private:
  void LoadSettings();
  void Form_Unload();
  void openSettings();
  void saveStrings();
  void loadStrings();
  void fitToScreen();
  void connectRows();
  void makeShortcuts();
  void extendReplyMenu(QMenu& menu, int row);
  void copyAllRows();
  void clearReplies();
  void tellAssistiveTools(int row);
  void showStripSoon();
  void showStrip();
  [[nodiscard]] QString lineText();
  [[nodiscard]] QString exchangeText();

  std::string StringToSend(int row) const override;
  void setReceiveString(int row, const std::string& text, const Exchange& exchange) override;
  void setButtonShape(int row, LightColour colour) override;
  void startButtonTimer(int row) override;
  void enableSendCommands(bool enabled) override;
  void recordPress(int row) override { recorder_.recordPress(row); }
  void lineChanged() override { showStripSoon(); }

  void setBarCaption(int button, const std::string& caption) override;
  void enableBarButton(int button, bool enabled) override;
  void pressRow(int row) override { SendCommand_Click(row); }
  void activityChanged() override { showStripSoon(); }

  Platform& platform_;
  Neighbours& neighbours_;
  WindowLife life_;
  StatusStrip* strip_;
  ConsoleScreen* screen_;
  Transaction transaction_;
  Recorder recorder_;
  std::unique_ptr<RowKeys> keys_;
  std::vector<std::unique_ptr<Timer>> ButtonTimer;
  int NumStrings = 0;
  /// The send button that had the keyboard focus when the buttons were disabled.
  QPushButton* focused_before_ = nullptr;
  /// The size that the screen last asked for.
  QSize fitted_size_;

  /// What the strip tells of: the row whose command was sent last, whether its reply is still to
  /// come, and how it came.
  int last_row_ = -1;
  bool waiting_ = false;
  Exchange last_exchange_;
  bool strip_due_ = false;
  bool sending_ = false;
};

}  // namespace mvdirigo
