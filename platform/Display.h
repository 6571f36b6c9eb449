// Whether a window system can be reached, asked before the one window the
// library shows is opened. The window toolkit ends the whole process when
// it cannot connect to a display, so the library asks first and answers
// "no display" to its caller instead.
#pragma once

namespace pixmill::platform {

// True when the X display named by DISPLAY accepts a connection (a local
// display by its socket, a remote one by TCP within one second). False with
// DISPLAY unset or empty, or nothing listening.
bool DisplayReachable();

}  // namespace pixmill::platform
