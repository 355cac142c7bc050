#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/model/faults.h"
#include "simulator/model/motion.h"

namespace mvdirigo {

/// Which commands a unit listens to; it answers in the protocol it was asked in. The update
/// commands are DT.
enum class UnitProtocol { kDt, kOem, kBoth };

struct UnitOptions {
  char address = '1';
  UnitProtocol protocol = UnitProtocol::kBoth;
  int baud = 9600;
  std::string version = "Movane Stepper v7.02";
  /// The CPU/DSP ID, as three hexadecimal digits.
  std::string id = "3A7";
  /// Without valid firmware a unit answers "?" and can only be updated.
  bool valid_firmware = true;
  /// Whether a DT answer ends in CR and LF, or in CR alone.
  bool line_feed = true;
  /// The image that makes valid firmware; without it any image does.
  std::optional<std::string> expected_image;
};

/// The rates that a unit can be set to, in bit/s.
[[nodiscard]] std::span<const int> unitRates();

/// One simulated controller on a serial line. It hears bytes and answers; the line between is not
/// its concern.
class SimulatedUnit {
 public:
  struct Answer {
    std::string bytes;
    /// The rate at which it is sent, in bit/s.
    int baud;
    /// The piece of an update that it answers, from 1; 0 for the answer to a command.
    int piece;
  };

  /// A command that isn't a program for the motor.
  struct Command;
  [[nodiscard]] static std::span<const Command> commands();

  explicit SimulatedUnit(UnitOptions options)
      : options_(std::move(options)), baud_(options_.baud) {}

  /// One byte from the host at this unit's rate.
  [[nodiscard]] std::optional<Answer> receive(char byte, SimTime now, const LineFaults& faults);

  /// The end of the update, which silence brings: a unit does not know how long the image is.
  [[nodiscard]] std::optional<SimTime> nextEvent() const;
  void advance(SimTime now);

  /// The rate that it hears and answers at, in bit/s: its own until a command changes it.
  [[nodiscard]] int baud() const { return baud_; }
  [[nodiscard]] const UnitOptions& options() const { return options_; }
  [[nodiscard]] bool updating() const { return updating_; }
  /// What the last update brought so far: whole pieces of six bytes that were not refused.
  [[nodiscard]] const std::string& image() const { return image_; }
  [[nodiscard]] int pieces() const { return pieces_; }

  std::function<void(const SimulatedUnit&)> onUpdateEnded;

 private:
  struct Reply {
    ReplyCode code;
    std::string data;
  };

  std::optional<std::string> receivePiece(char byte, const LineFaults& faults);
  std::optional<std::string> receiveDt(char byte, SimTime now);
  std::optional<std::string> receiveOem(char byte, SimTime now);
  /// The answer to a whole OEM frame, from the address to the character before ETX.
  std::optional<std::string> answerOem(const std::string& frame, SimTime now);
  std::string answerWithoutFirmware(const std::string& body);
  Reply execute(std::string_view body, SimTime now);
  Reply answerQuery(long index, SimTime now);
  bool entersUpdate(const std::string& body);
  ReplyCode changeBaud(std::string_view operand);
  /// Host address, status, data and ETX.
  std::string replyText(const Reply& reply, SimTime now);

  UnitOptions options_;
  int baud_;
  Motion motion_;

  /// From the address on.
  std::string dt_command_;
  bool in_dt_command_ = false;
  enum class OemState { kHunting, kFrame, kChecksum } oem_state_ = OemState::kHunting;
  std::string oem_frame_;
  char last_sequence_ = 0;
  std::string last_oem_answer_;

  bool updating_ = false;
  int pieces_ = 0;
  SimTime last_heard_{};
  std::string piece_;
  std::string image_;
};

struct SimulatedUnit::Command {
  std::string_view name;
  /// What stands behind the name. Of a command without, the name is all there is.
  std::string_view operand;
  const char* help;
  Reply (*answer)(SimulatedUnit& unit, std::string_view operand, SimTime now);
};

}  // namespace mvdirigo
