#include "app/program.h"

#include <utility>

#include <QShortcut>

namespace mvdirigo {

Program::Program(Platform& platform, std::function<void()> on_end)
    : platform_(platform), on_end_(std::move(on_end)), console_(platform, *this) {}

Program::~Program() = default;

void Program::start() {
  console_.Form_Load();
  if (!console_.life().leaving()) console_.show();
}

Settings& Program::settings() {
  if (!settings_) {
    settings_ = std::make_unique<Settings>(platform_, console_, [this] { showUpdate(); });
    settings_->Form_Load();
  }
  return *settings_;
}

void Program::showSettings(QPoint anchor) {
  Settings& dialog = settings();
  dialog.fitToScreen();
  dialog.move(anchor + QPoint(0, dialog.height() / 2));
  dialog.show();
  dialog.raise();
  dialog.activateWindow();
}

void Program::showHelp() {
  if (!help_) help_ = std::make_unique<StringFunHelp>(platform_, &console_);
  if (!help_->isVisible()) help_->Form_Load();
  help_->show();
  help_->raise();
  help_->activateWindow();
}

void Program::showUpdate() {
  // The one before is still closing: this press came while it let pending events run.
  if (update_) return;
  std::erase_if(closed_updates_, [](const auto& dialog) { return !dialog->busy(); });
  update_ = std::make_unique<frmFlash>(platform_, settings(), &console_, [this] {
    closed_updates_.push_back(std::move(update_));
    if (line_traffic_) line_traffic_->standBeside(nullptr);
  });
  update_->Form_Load();
  if (console_.life().leaving()) return;
  update_->show();
  if (line_traffic_) line_traffic_->standBeside(update_.get());
  // The dialog blocks the console's own key.
  QObject::connect(new QShortcut(Qt::Key_F12, update_.get()), &QShortcut::activated,
                   [this] { showLineTraffic(); });
}

void Program::showLineTraffic() {
  if (!line_traffic_) line_traffic_ = std::make_unique<LineTrafficWindow>(platform_);
  line_traffic_->standBeside(update_.get());
  line_traffic_->show();
  line_traffic_->raise();
  line_traffic_->activateWindow();
}

void Program::unloadAll() {
  if (settings_) settings_->Form_Unload();
  if (help_) help_->Form_Unload();
  if (update_) update_->Form_Unload();
  if (line_traffic_) line_traffic_->unload();
  on_end_();
}

}  // namespace mvdirigo
