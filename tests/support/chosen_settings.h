#pragma once

#include <string>

#include "core/live_settings.h"

namespace mvdirigo {

/// Settings that a test chooses.
struct ChosenSettings : LiveSettings {
  std::string CommPortSetting() const override { return port; }
  std::string BaudRate() const override { return baud; }
  bool DTProtocol() const override { return !oem; }
  bool OEMProtocol() const override { return oem; }
  std::string MaxStrings() const override { return "11"; }
  std::string RCVTimeout() const override { return "1000"; }
  bool searching() const override { return false; }
  std::string searchProgress() const override { return {}; }
  void takeReply(const std::string&) override {}

  std::string port = "3", baud = "9600";
  bool oem = false;
};

}  // namespace mvdirigo
