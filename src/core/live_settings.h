#pragma once

#include <functional>
#include <string>

namespace mvdirigo {

/// The communication settings in force, as the console reads them at every transmission and
/// whenever it lays out its rows, and hears of every decoded reply.
/// Texts are UTF-8 and stand as the user typed them.
class LiveSettings {
 public:
  virtual ~LiveSettings() = default;

  [[nodiscard]] virtual std::string CommPortSetting() const = 0;
  /// Text of the selected row of the baud rates; empty when none is selected.
  [[nodiscard]] virtual std::string BaudRate() const = 0;
  [[nodiscard]] virtual bool DTProtocol() const = 0;
  [[nodiscard]] virtual bool OEMProtocol() const = 0;
  [[nodiscard]] virtual std::string MaxStrings() const = 0;
  /// Reply time-out in ms, as text.
  [[nodiscard]] virtual std::string RCVTimeout() const = 0;
  /// Whether an automatic search runs: the tag of `AutoSetup` as a number is not 0.
  [[nodiscard]] virtual bool searching() const = 0;
  /// Where a running search is, as "port 3 of 16, 19200 baud, unit 7"; empty when none runs.
  [[nodiscard]] virtual std::string searchProgress() const = 0;

  /// Takes the data part of a decoded reply (Latin-1).
  virtual void takeReply(const std::string& data) = 0;
};

/// Gives the live settings, making the window that holds them at the first call.
using LiveSettingsSource = std::function<LiveSettings&()>;

}  // namespace mvdirigo
