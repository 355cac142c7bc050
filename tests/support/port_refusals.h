#pragma once

#include <string>

#include <gtest/gtest.h>

#include "platform/serial_port.h"
#include "support/fault_number.h"

namespace mvdirigo {

/// Checks what a port refuses, whichever kind it is. It can be opened, and is open afterwards.
inline void expectRefusals(SerialPort& port) {
  const auto opening = [&](bool open) { return faultNumber([&] { port.setPortOpen(open); }); };
  const auto choosing = [&](int number) { return faultNumber([&] { port.setCommPort(number); }); };
  EXPECT_EQ(opening(false), 8012);
  EXPECT_EQ(faultNumber([&] { port.Input(); }), 8018);
  EXPECT_EQ(faultNumber([&] { port.Output("x"); }), 8018);
  EXPECT_EQ(choosing(0), 8002);
  EXPECT_EQ(choosing(17), 8002);
  port.setSettings("38400,e,7,2");
  EXPECT_EQ(faultNumber([&] { port.setSettings("9600,N,9,1"); }), 380);
  EXPECT_EQ(port.Settings(), "38400,e,7,2");
  EXPECT_EQ(opening(true), 0);
  EXPECT_EQ(opening(true), 8005);
  EXPECT_EQ(choosing(4), 8000);
}

}  // namespace mvdirigo
