#pragma once

#include <exception>
#include <new>
#include <string>

#include "platform/dialogs.h"
#include "platform/runtime_error.h"

namespace mvdirigo {

/// The edge of an event handler: runs `body`, and shows a fault that nothing inside caught as the
/// error report of `procedure`, so that the program goes on. Returns whether `body` succeeded.
template <class Body>
bool atHandlerEdge(Dialogs& dialogs, const std::string& procedure, Body&& body) {
  try {
    body();
    return true;
  } catch (const RuntimeError& error) {
    dialogs.messageBox(errorReport(procedure, error));
  } catch (const std::bad_alloc&) {
    dialogs.messageBox(errorReport(procedure, RuntimeError(Fault::kOutOfMemory)));
  } catch (const std::exception& error) {
    // A fault of this program's own libraries has no number among the run-time faults.
    dialogs.messageBox(procedure + "() Error #: 0 :: " + error.what());
  }
  return false;
}

}  // namespace mvdirigo
