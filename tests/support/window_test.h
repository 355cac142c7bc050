#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QTest>
#include <QtWidgets>

#include "app/program.h"
#include "core/stored_settings.h"
#include "simulator/model/simulated_bus.h"
#include "support/virtual_test.h"

namespace mvdirigo {

/// The whole program on a machine in virtual time. A test finds controls by their names and uses
/// them as a person would.
class WindowTest : public VirtualTest {
 protected:
  WindowTest() {
    platform_.onRunPending = [] { QApplication::processEvents(); };
  }

  /// Closes the console, if it is still open.
  void TearDown() override {
    program_.reset();
    VirtualTest::TearDown();
  }

  void start() {
    ended_ = false;
    program_ = std::make_unique<Program>(platform_, [this] { ended_ = true; });
    program_->start();
  }
  void startWithUnit() {
    bus_.emplace(std::vector<UnitOptions>(1));
    platform_.attach(1, *bus_);
    start();
  }

  StringFun& console() { return program_->console(); }
  Settings& settings() { return program_->settings(); }
  bool portOpen() { return console().PortOpen(); }

  void store(const std::string& section, const std::string& key, const std::string& value) {
    platform_.store().values[{kApplicationName, section, key}] = value;
  }

  template <class Control>
  static Control& find(const QWidget& window, const std::string& name) {
    auto* control = window.findChild<Control*>(QString::fromStdString(name));
    if (control == nullptr) throw std::logic_error("no control " + name);
    return *control;
  }
  template <class Control = QWidget>
  Control& onConsole(const std::string& name) {
    return find<Control>(console(), name);
  }
  /// A text field of the settings.
  QLineEdit& setting(const std::string& name) { return find<QLineEdit>(settings(), name); }

  /// The controls that the Tab key goes through in `window`, by name.
  static std::string tabOrder(QWidget& window) {
    std::string names;
    for (QWidget* next = window.nextInFocusChain(); next != &window;
         next = next->nextInFocusChain()) {
      const bool takes_focus =
          next->focusPolicy() & Qt::TabFocus && !next->objectName().startsWith("qt_");
      if (takes_focus) names += next->objectName().toStdString() + " ";
    }
    return names;
  }

  void press(const QWidget& window, const std::string& name) {
    QTest::mouseClick(&find<QPushButton>(window, name), Qt::LeftButton);
  }
  /// Presses a button of the console and lets so much time pass.
  void press(const std::string& name, int then_ms = 0) {
    press(console(), name);
    if (then_ms > 0) platform_.runFor(then_ms);
  }
  /// Lets `bytes` come in from the unit at once, and so much time pass.
  void receive(const std::string& bytes, int then_ms = 0) {
    platform_.socket(1).deliver(bytes);
    platform_.runFor(then_ms);
  }

  template <class Control = QWidget>
  Control& onConsole(const std::string& name, int index) {
    return onConsole<Control>(name + "(" + std::to_string(index) + ")");
  }
  QLineEdit& commandField(int row) { return onConsole<QLineEdit>("StringToSend", row); }
  QLineEdit& replyField(int row) { return onConsole<QLineEdit>("ReceiveString", row); }
  std::string reply(int row) { return replyField(row).text().toStdString(); }
  std::string light(int row) {
    return onConsole("ButtonShape", row).accessibleDescription().toStdString();
  }
  int shownRows() {
    int rows = 0;
    while (onConsole("SendCommand", rows).isVisible()) ++rows;
    return rows;
  }
  void choose(const std::string& protocol) { find<QRadioButton>(settings(), protocol).click(); }

  const std::string kVersionReply = "Movane Stepper v7.02 No Error";
  const std::string kSilent = "No Movane detected. Check connections";

  /// Behind port 1, once `startWithUnit` was called; a new one at every call.
  std::optional<SimulatedBus> bus_;
  SimulatedBus silent_{{}};
  std::unique_ptr<Program> program_;
  bool ended_ = false;
};

}  // namespace mvdirigo
