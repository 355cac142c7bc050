#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

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
    platform_.attach(1, bus_);
    start();
  }

  void store(const std::string& section, const std::string& key, const std::string& value) {
    platform_.store().values[{kApplicationName, section, key}] = value;
  }
  std::string stored(const std::string& section, const std::string& key) {
    const auto& values = platform_.store().values;
    const auto found = values.find({kApplicationName, section, key});
    return found == values.end() ? "(none)" : found->second;
  }

  template <class Control>
  static Control& find(const QWidget& window, const std::string& name) {
    auto* control = window.findChild<Control*>(QString::fromStdString(name));
    if (control == nullptr) throw std::logic_error("no control " + name);
    return *control;
  }
  template <class Control>
  Control& onConsole(const std::string& name) {
    return find<Control>(program_->console(), name);
  }

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
  void press(const std::string& name) { press(program_->console(), name); }

  QLineEdit& commandField(int row) {
    return onConsole<QLineEdit>("StringToSend(" + std::to_string(row) + ")");
  }
  QLineEdit& replyField(int row) {
    return onConsole<QLineEdit>("ReceiveString(" + std::to_string(row) + ")");
  }
  std::string reply(int row) { return replyField(row).text().toStdString(); }
  std::string light(int row) {
    return onConsole<QWidget>("ButtonShape(" + std::to_string(row) + ")")
        .accessibleDescription()
        .toStdString();
  }

  SimulatedBus bus_{{UnitOptions{}}};
  std::unique_ptr<Program> program_;
  bool ended_ = false;
};

}  // namespace mvdirigo
