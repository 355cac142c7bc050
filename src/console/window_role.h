#pragma once

namespace mvdirigo {

/// Has assistive tools see every window that is a plain widget as a window; the toolkit presents
/// such a one as mere filler. To be called before a window is first asked for; more calls change
/// nothing.
void installWindowRole();

}  // namespace mvdirigo
