#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QApplication>
#include <QLineEdit>
#include <QPushButton>

#include "app/program.h"
#include "core/stored_settings.h"
#include "simulator/model/simulated_bus.h"
#include "support.h"

namespace mvdirigo::bench {

/// The machine for real use with a hand that answers every box, by Yes or OK, after it stood for
/// some time.
class AnsweringPlatform : public QtPlatform {
 public:
  Dialogs& dialogs() override { return answers_; }

  /// Texts of the boxes that were shown.
  std::vector<std::string> boxes;
  std::string file_to_open;
  /// Called when a box has just appeared.
  std::function<void(const std::string& text)> on_box;

 private:
  class Answers : public Dialogs {
   public:
    explicit Answers(AnsweringPlatform& platform) : platform_(platform) {}
    BoxButton messageBox(const std::string& text, int style) override;
    std::string openFile(const FileRequest&) override { return platform_.file_to_open; }
    std::string saveFile(const FileRequest&) override { return platform_.file_to_open; }

   private:
    AnsweringPlatform& platform_;
  };

  Answers answers_{*this};
};

/// The whole program, as somebody sits at it.
class Seat {
 public:
  using StoredValues = std::vector<std::pair<StoredSetting, std::string>>;

  /// The port is the near end of a line whose far end `serve` is run at, or none without one.
  explicit Seat(const StoredValues& values, const std::function<void(int)>& serve = {});
  ~Seat() { program.console().close(); }
  Seat(const Seat&) = delete;
  Seat& operator=(const Seat&) = delete;

  /// The controls of a row that is shown.
  struct Row {
    QPushButton& send;
    QLineEdit& command;
    QLineEdit& reply;
  };
  Row& row(int number) { return rows_.at(static_cast<std::size_t>(number)); }
  std::vector<Row>& rows() { return rows_; }
  void clickBar(int button);
  static void click(const QWidget& window, const char* name) {
    find<QPushButton>(window, name).click();
  }
  void chooseProtocol(bool oem);

  /// Sends `text` from that row and waits until the row may send again. Returns what its reply is.
  std::string exchange(int row_number, const std::string& text);

  /// Opens the update dialog, sends `file` at 57600 bit/s, and returns the last status.
  std::string update(const std::string& file);
  /// Goes back to the console from it.
  void leaveUpdate();

  /// Lets the program go on for so long, or until `done`, which is looked at now and then.
  void run(int duration_ms);
  bool runUntil(const std::function<bool()>& done, int limit_ms);

 private:
  int argc_ = 1;
  std::string name_ = "soak";
  char* argv_[2] = {name_.data(), nullptr};
  // The far end's process is made before the application, which starts threads.
  std::optional<Line> line_;
  QApplication application_;

 public:
  const Desk desk;
  AnsweringPlatform platform;
  Program program;

 private:
  /// Found once: looking for a control takes longer than an exchange.
  std::vector<Row> rows_;
};

/// An update file for a `FarUnit`: a header, and 64 KiB that differ from number to
/// number.
[[nodiscard]] std::string makeImage(long number);
/// What a unit keeps of it: blanks fill up the last piece.
[[nodiscard]] std::string keptOf(const std::string& image);

/// A simulated unit at the far end of a pseudo-terminal, without any pace.
class FarUnit {
 public:
  explicit FarUnit(const UnitOptions& unit = {}) : bus_({unit}, {.paced = false}) {}
  /// What it answers to `bytes` at the rate that the host has set; `fd` is the far end.
  [[nodiscard]] std::string answer(int fd, std::string_view bytes);
  [[nodiscard]] const SimulatedUnit& unit() const { return bus_.unit(0); }

 private:
  SimulatedBus bus_;
};

}  // namespace mvdirigo::bench
