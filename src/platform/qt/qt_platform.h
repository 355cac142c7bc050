#pragma once

#include <random>

#include "platform/platform.h"
#include "platform/qt/ini_settings_store.h"
#include "platform/qt/port_devices.h"
#include "platform/qt/qt_dialogs.h"
#include "platform/qt/qt_event_loop.h"

namespace mvdirigo {

/// The machine for real use: Qt's event loop, timers and dialogs, the serial ports of this
/// computer, and the user's configuration folder. To be made after the application object, whose
/// name titles the boxes and names the folder of port links.
class QtPlatform : public Platform {
 public:
  EventLoop& eventLoop() override { return event_loop_; }
  IniSettingsStore& settingsStore() override { return settings_store_; }
  Dialogs& dialogs() override { return dialogs_; }
  std::unique_ptr<Timer> makeTimer(std::function<void()> on_tick) override;
  std::unique_ptr<SerialPort> makeSerialPort(std::function<void()> on_comm) override;
  LineTraffic& lineTraffic() override { return line_traffic_; }
  PortDetails portDetails(int comm_port) override;
  void forgetPortLinks() override { port_devices_.forgetLinks(); }
  double random() override;
  std::string timeOfDay() override;

 private:
  QtEventLoop event_loop_;
  IniSettingsStore settings_store_;
  QtDialogs dialogs_;
  PortDevices port_devices_;
  LineTraffic line_traffic_;
  std::mt19937_64 random_engine_{std::random_device()()};
};

}  // namespace mvdirigo
