#pragma once

#include <string>

#include "core/live_settings.h"

namespace mvdirigo {

/// Settings that a test chooses, and what a reply did to them.
struct ChosenSettings : LiveSettings {
  std::string CommPortSetting() override { return port; }
  std::string BaudRate() override { return baud; }
  bool DTProtocol() override { return !oem; }
  bool OEMProtocol() override { return oem; }
  std::string MaxStrings() override { return "11"; }
  std::string RCVTimeout() override { return timeout; }
  bool searching() override { return search_runs; }
  void takeReply(const std::string& latin1) override { replies += "[" + latin1 + "]"; }

  std::string port = "3", baud = "9600", timeout = "1000";
  bool oem = false, search_runs = false;
  std::string replies;
};

}  // namespace mvdirigo
