#pragma once

#include <string>
#include <utility>

#include "platform/runtime_error.h"

namespace mvdirigo {

/// A port that can't be used: the fault that is reported, and why, in words for people (UTF-8).
class PortRefused : public RuntimeError {
 public:
  PortRefused(Fault fault, std::string reason) : RuntimeError(fault), reason_(std::move(reason)) {}

  [[nodiscard]] const std::string& reason() const { return reason_; }

 private:
  std::string reason_;
};

/// The fault that fits an `errno` value of taking a port.
[[nodiscard]] Fault openingFault(int error_number);

}  // namespace mvdirigo
