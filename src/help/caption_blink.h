#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace mvdirigo {

/// The help screen's caption, which blinks until the first description was asked for.
class CaptionBlink {
 public:
  CaptionBlink(Platform& platform, std::function<void(const std::string& caption)> set_caption);
  CaptionBlink(const CaptionBlink&) = delete;
  CaptionBlink& operator=(const CaptionBlink&) = delete;

  /// Shows the long caption and blinks from now on.
  void start();
  /// Shows the short caption and blinks no more.
  void stop();

 private:
  void Timer1_Timer();
  void showLong();
  void showShort();

  std::function<void(const std::string&)> set_caption_;
  std::unique_ptr<Timer> Timer1_;
  bool long_shown_ = false;
};

}  // namespace mvdirigo
