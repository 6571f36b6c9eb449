#include "api/Startup.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>

#include "framework/DebugImages.h"
#include "logging/LogRetention.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

namespace pixmill::api {

using logging::LogW;

namespace {

std::mutex g_startupMutex;
bool g_started = false;
std::optional<logging::Thresholds> g_hostLevels;

// Start-up levels: errors to the file and the debug output, nothing
// to the console.
constexpr logging::Thresholds kStartupLevels{4, 6, 4};

logging::Thresholds LevelsInForce() {
    if (g_hostLevels) return *g_hostLevels;
    if (auto env = ParseLogLevels(std::getenv("PIXMILL_LOG_LEVELS"))) return *env;
    return kStartupLevels;
}

}  // namespace

std::optional<logging::Thresholds> ParseLogLevels(const char* text) {
    if (!text) return std::nullopt;
    // strtol rather than sscanf: a number out of the int range must make the
    // text malformed, not turn into some other level.
    int values[3] = {};
    const char* p = text;
    for (int i = 0; i < 3; ++i) {
        char* end = nullptr;
        errno = 0;
        long v = std::strtol(p, &end, 10);
        if (end == p || errno == ERANGE || v < INT_MIN || v > INT_MAX) return std::nullopt;
        values[i] = static_cast<int>(v);
        p = end;
        while (std::isspace(static_cast<unsigned char>(*p))) ++p;
        if (i < 2 && *p++ != ',') return std::nullopt;
    }
    if (*p != '\0') return std::nullopt;
    logging::Thresholds t;
    t.file = values[0];
    t.console = values[1];
    t.debugOutput = values[2];
    return t;
}

void EnsureStartup() {
    // The first act of every export: a new call begins with no error.
    logging::BeginCall();
    std::lock_guard<std::mutex> lock(g_startupMutex);
    if (g_started) return;

    LogW(1, L"<GetProcessName>");
    std::wstring title = platform::MainWindowTitle();
    LogW(1, L"<Process id=\"%X\" hwnd=\"%lx\" windowsText=\"%ls\">", platform::ProcessId(), 0L,
         title.c_str());
    LogW(1, L"</GetProcessName>");

    std::wstring prefix = logging::SetPathPrefix(logging::DefaultLogPathPrefix());

    logging::Thresholds levels = LevelsInForce();
    logging::SetThresholds(levels);
    LogW(2, L"<LogSettingApplied file=\"%d\" console=\"%d\" debugview=\"%d\"  path=\"%ls\"/>",
         levels.file, levels.console, levels.debugOutput, prefix.c_str());

    if (!prefix.empty()) logging::RunLogRetention(logging::LogFileNameForNow());
    // Reads PIXMILL_DEBUG_IMAGES now, unless the host has already decided.
    DebugImagesEnabled();
    g_started = true;
}

void SetHostLogLevels(const logging::Thresholds& levels) {
    std::lock_guard<std::mutex> lock(g_startupMutex);
    g_hostLevels = levels;
    logging::SetThresholds(levels);
}

void ResetStartupForTesting() {
    std::lock_guard<std::mutex> lock(g_startupMutex);
    g_started = false;
    g_hostLevels.reset();
}

}  // namespace pixmill::api
