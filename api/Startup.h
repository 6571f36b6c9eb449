// The one-shot start-up that every export of the recipe style runs first:
// log path, log levels and the day's log retention.
#pragma once

#include <optional>

#include "logging/Logger.h"

namespace pixmill::api {

// Runs to the end once per process; later calls return at once.
void EnsureStartup();

// Thresholds a host asked for through the extension call; they win over the
// start-up settings and the environment.
void SetHostLogLevels(const logging::Thresholds& levels);

// Parses "file,console,debug" (three integers). Empty when malformed.
std::optional<logging::Thresholds> ParseLogLevels(const char* text);


}  // namespace pixmill::api
