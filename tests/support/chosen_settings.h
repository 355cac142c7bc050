#pragma once

#include <string>

#include "core/live_settings.h"

namespace mvdirigo {

/// Settings that a test chooses, and what a reply did to them.
struct ChosenSettings : LiveSettings {
  std::string CommPortSetting() const override { return port; }
  std::string BaudRate() const override { return baud; }
  bool DTProtocol() const override { return !oem; }
  bool OEMProtocol() const override { return oem; }
  std::string MaxStrings() const override { return "11"; }
  std::string RCVTimeout() const override { return timeout; }
  bool searching() const override { return search_runs; }
  std::string searchProgress() const override { return {}; }
  void takeReply(const std::string& latin1) override { replies += "[" + latin1 + "]"; }

  std::string port = "3", baud = "9600", timeout = "1000";
  bool oem = false, search_runs = false;
  std::string replies;
};

}  // namespace mvdirigo
