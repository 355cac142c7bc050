#pragma once

#include <gtest/gtest.h>

#include "simulator/virtual_platform.h"

namespace mvdirigo {

/// A test on a machine in virtual time. What its script did not expect fails the test.
class VirtualTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const std::string& problem : platform_.problems()) ADD_FAILURE() << problem;
  }

  VirtualPlatform platform_;
};

}  // namespace mvdirigo
