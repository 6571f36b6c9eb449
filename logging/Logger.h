// The recipe layer's log: printf-like calls at a level, three sinks (debug
// output, console, daily file) each with its own threshold.
//
// Messages are XML-like tags opened and closed around each operation, so a
// log file reads as a nested trace. A sink takes a message when its threshold
// is at or below the message's level. Levels in use: 1 trace inside the
// engine and filters, 2 entry and exit of exported functions, 4 errors.
//
// Wide formats follow the C library's wide printf rules: a wide string
// argument is "%ls", a narrow one "%s".
#pragma once

#include <string>

namespace pixmill::logging {

// Version text written as the first line of every new log file.
inline constexpr const char* kLogVersion = "1.0.0.24";

// Longest message a wide call formats, in characters; longer text is cut.
inline constexpr int kWideMessageChars = 8191;
// Longest message a narrow call formats, in bytes; longer text is cut.
inline constexpr int kNarrowMessageBytes = 8191;

// Capacity of the log path prefix in bytes, as the host sees it; a prefix
// that does not fit (with its terminator) turns file logging off.
inline constexpr size_t kPathPrefixBytes = 2048;

void LogW(int level, const wchar_t* format, ...);
void LogA(int level, const char* format, ...);

// The error of the calling thread's current call into the library: the text
// (UTF-8, as the sinks receive it) of the most recent level-4 message it
// logged, whatever the thresholds, or "" when it logged none. Every export
// starts its call with BeginCall, which clears it. The pointer stays valid
// until the thread's next call into the library.
void BeginCall();
const char* LastError();

// The host's log sink: while one is installed it receives, instead of the
// daily file, each message at or above the file threshold, with its level
// and the host's pointer (UTF-8 text, valid during the call). Console and
// debug output keep their own thresholds. Null removes it and the file is
// written again. Safe to call from any thread; when it returns, the sink it
// replaced is no longer running on any thread.
using LogSink = void (*)(int level, const char* line, void* user);
void SetLogSink(LogSink sink, void* user);

struct Thresholds {
    int debugOutput = 6;
    int console = 6;
    int file = 6;
};

Thresholds GetThresholds();
void SetThresholds(const Thresholds& t);

// The log path prefix in the prober's path form ("C:\Logs\SORVIK\Prober").
// An empty prefix turns file logging off. A prefix too long for the
// 2048-byte buffer is stored as empty. Returns the prefix now in force.
std::wstring SetPathPrefix(const std::wstring& prefix);
std::wstring PathPrefix();

// "<prefix>_<YYYYMMDD>.log" for today's local date, in the prober's path form.
std::wstring LogFileNameForNow();

// Works out the default prefix: "C:\Logs\SORVIK\" followed by the first word
// of the main window's title, or else by the executable's name without its
// extension, "_" and the process ID in upper-case hex. Logs its tags at
// level 1. Returns "" if the result would not fit the prefix buffer.
std::wstring DefaultLogPathPrefix();


}  // namespace pixmill::logging
