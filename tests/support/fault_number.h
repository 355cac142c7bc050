#pragma once

#include "platform/runtime_error.h"

namespace mvdirigo {

/// The number of the run-time fault that `action` ends with; 0 for none.
template <class Action>
int faultNumber(Action&& action) {
  try {
    action();
    return 0;
  } catch (const RuntimeError& error) {
    return error.number();
  }
}

}  // namespace mvdirigo
