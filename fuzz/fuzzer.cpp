#include <cstdint>

#include "property.h"

/// What libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return mvdirigo::check({reinterpret_cast<const char*>(data), size}), 0;
}
