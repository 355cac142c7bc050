#pragma once

#include <functional>
#include <utility>

#include <gtest/gtest.h>

#include "simulator/virtual/virtual_platform.h"

namespace mvdirigo {

/// A test on a machine in virtual time. What its script did not expect fails the test.
class VirtualTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const std::string& problem : platform_.problems()) ADD_FAILURE() << problem;
  }

  /// Runs `action` so much later, while something waits.
  void after(SimTime delay, std::function<void()> action) {
    platform_.queue().post(platform_.now() + delay, {"the test acts"}, std::move(action));
  }

  void expectBox(std::string text, int style = box::kOkOnly) {
    platform_.script().expectBox(std::move(text), style);
  }

  VirtualPlatform platform_;
};

}  // namespace mvdirigo
