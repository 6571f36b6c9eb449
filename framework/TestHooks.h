// Hooks for the test suite, the benchmarks and the fuzz targets: they reset
// or pin process-wide state so that a test does not depend on the clock, on
// the system log or on what an earlier test left behind. Library code never
// calls them; each is defined next to the state it touches.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace pixmill::platform {
// Pins the clock to a fixed Unix time in milliseconds, or releases it with a
// negative value.
void PinClockForTesting(int64_t unixMillis);
// Replaces the debug channel, or restores the system log with an empty
// function, so a test can read what reached it.
void SetDebugOutputForTesting(std::function<void(const std::string&)> sink);
}  // namespace pixmill::platform

namespace pixmill::logging {
// Returns the logger to its state at load: thresholds 6, empty prefix.
void ResetForTesting();
}  // namespace pixmill::logging

namespace pixmill::api {
// Forgets that start-up ran and any host levels.
void ResetStartupForTesting();
}  // namespace pixmill::api

namespace pixmill::inspect {
// Switches the 1 ms pause before each inspection debug image on or off, so
// tests never sleep. On by default.
void SetSavePauses(bool enabled);
}  // namespace pixmill::inspect

namespace pixmill {
// Removes a filter type that a test registered.
void UnregisterFilterForTesting(const std::wstring& name);
}  // namespace pixmill
