#pragma once

#include <utility>

namespace mvdirigo {

/// Runs `action` when the scope is left, however that happens.
template <class Action>
struct AtExit {
  explicit AtExit(Action on_exit) : action(std::move(on_exit)) {}
  ~AtExit() { action(); }
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;

  Action action;
};

}  // namespace mvdirigo
