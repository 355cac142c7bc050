#include "platform/qt/qt_platform.h"

#include <utility>

#include <QTime>

#include "platform/qt/qt_serial_port.h"
#include "platform/qt/qt_timer.h"

namespace mvdirigo {

std::unique_ptr<Timer> QtPlatform::makeTimer(std::function<void()> on_tick) {
  return std::make_unique<QtTimer>(std::move(on_tick));
}

std::unique_ptr<SerialPort> QtPlatform::makeSerialPort(std::function<void()> on_comm) {
  return std::make_unique<QtSerialPort>(port_devices_, event_loop_, line_traffic_,
                                        std::move(on_comm));
}

PortDetails QtPlatform::portDetails(int comm_port) { return port_devices_.describe(comm_port); }

double QtPlatform::random() { return std::uniform_real_distribution<double>(0, 1)(random_engine_); }

std::string QtPlatform::timeOfDay() {
  return QTime::currentTime().toString("HH:mm:ss").toStdString();
}

}  // namespace mvdirigo
