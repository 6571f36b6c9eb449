#include "logging/Logger.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "platform/Platform.h"
#include "framework/TestHooks.h"

namespace pixmill::logging {

namespace {

std::atomic<int> g_debugThreshold{6};
std::atomic<int> g_consoleThreshold{6};
std::atomic<int> g_fileThreshold{6};

// The log path prefix. Never destroyed: a host may log (through any export)
// from its own static destructors, which can run after this library's.
struct PrefixState {
    std::mutex mutex;
    std::wstring prefix;
};

PrefixState& Prefix() {
    static PrefixState* state = new PrefixState();
    return *state;
}

std::string TimeStamp() {
    platform::LocalTime t = platform::NowLocal();
    char buf[64];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.year, t.month, t.day,
                  t.hour, t.minute, t.second, t.millisecond);
    return buf;
}

// The host's log sink, which takes the file's place while installed. Readers
// hold the lock shared for the whole call of the sink, so once SetLogSink
// returns, the sink it replaced is not running and is not called again.
struct HostSink {
    std::shared_mutex mutex;
    LogSink sink = nullptr;
    void* user = nullptr;
};

HostSink& Host() {
    static HostSink* state = new HostSink();  // never destroyed, as Prefix()
    return *state;
}

std::atomic<bool> g_hostSinkSet{false};

// Set while this thread is inside the host's sink: a message the sink itself
// causes (it called back into the library) is kept for the last error only,
// so the sink is never entered twice on one thread.
thread_local bool t_inHostSink = false;

bool AnySinkTakes(int level) {
    if (g_debugThreshold.load() <= level || g_consoleThreshold.load() <= level) return true;
    if (g_fileThreshold.load() > level) return false;
    if (g_hostSinkSet.load()) return true;
    std::lock_guard<std::mutex> lock(Prefix().mutex);
    return !Prefix().prefix.empty();
}

// Appends one message to today's file. The file is opened and closed for each
// message, so a line is on disk when the call returns; a file that will not
// open loses the message without a word.
// Threads append one at a time, so two lines never mix and a new file gets
// its version line once. Never destroyed, like the prefix.
std::mutex& FileMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

void WriteToFile(int level, const std::string& message, bool wide) {
    if (g_fileThreshold.load() > level) return;
    if (PathPrefix().empty()) return;
    std::lock_guard<std::mutex> lock(FileMutex());
    std::string file = platform::NativePath(LogFileNameForNow());
    platform::CreateParentDirectories(file);
    std::string text;
    if (!platform::FileExists(file)) {
        text += wide ? "PixmillW " : "PixmillA ";
        text += kLogVersion;
        text += "\n";
    }
    char head[96];
    std::snprintf(head, sizeof head, " | [%d] ", level);
    text += TimeStamp();
    text += head;
    text += message;
    text += "\n";
    platform::AppendToFile(file, text);
}

// Level-4 messages are kept per thread for the host's last-error call.
constexpr int kErrorLevel = 4;

// A plain array, not a string: it has no destructor, so a host's exit
// handler that calls the library after this thread's objects were destroyed
// still finds it. Longer messages are cut at a character boundary.
constexpr size_t kLastErrorBytes = 8192;
thread_local char t_lastError[kLastErrorBytes];

void KeepLastError(const std::string& message) {
    size_t n = std::min(message.size(), kLastErrorBytes - 1);
    while (n > 0 && n < message.size() && (static_cast<unsigned char>(message[n]) & 0xC0) == 0x80)
        --n;  // do not split a UTF-8 sequence
    std::memcpy(t_lastError, message.data(), n);
    t_lastError[n] = '\0';
}

void Dispatch(int level, const std::string& message, bool wide) {
    if (level >= kErrorLevel) KeepLastError(message);
    if (g_debugThreshold.load() <= level) platform::DebugOutput(message);
    if (g_consoleThreshold.load() <= level) {
        // One call per line: the stream's own lock keeps lines of several
        // threads apart.
        std::string line = message + '\n';
        std::fwrite(line.data(), 1, line.size(), stdout);
    }
    if (g_hostSinkSet.load()) {
        if (g_fileThreshold.load() > level || t_inHostSink) return;
        std::shared_lock<std::shared_mutex> lock(Host().mutex);
        if (Host().sink) {
            struct Inside {
                Inside() { t_inHostSink = true; }
                ~Inside() { t_inHostSink = false; }
            } inside;
            Host().sink(level, message.c_str(), Host().user);
            return;
        }
    }
    WriteToFile(level, message, wide);
}

}  // namespace

void SetLogSink(LogSink sink, void* user) {
    std::unique_lock<std::shared_mutex> lock(Host().mutex);
    Host().sink = sink;
    Host().user = sink ? user : nullptr;
    g_hostSinkSet.store(sink != nullptr);
}

void BeginCall() {
    t_lastError[0] = '\0';
}

const char* LastError() {
    return t_lastError;
}

void LogW(int level, const wchar_t* format, ...) {
    if (!format || (level < kErrorLevel && !AnySinkTakes(level))) return;
    std::vector<wchar_t> buf(kWideMessageChars + 1, L'\0');
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n;
    {
        platform::ClassicNumbers classic;
        n = std::vswprintf(buf.data(), buf.size(), format, args);
    }
    va_end(args);
    // The C library reports an overflowing message as a failure, however long
    // it is; format it again without a size limit and keep the first 8191
    // characters, so a long recipe text still leaves its head in the log.
    std::wstring text;
    bool ok = n >= 0;
    if (ok)
        text.assign(buf.data(), static_cast<size_t>(n));
    else
        ok = platform::FormatWide(format, again, text);
    va_end(again);
    if (!ok) return;
    if (text.size() > static_cast<size_t>(kWideMessageChars)) text.resize(kWideMessageChars);
    Dispatch(level, platform::ToUtf8(text), true);
}

void LogA(int level, const char* format, ...) {
    if (!format || (level < kErrorLevel && !AnySinkTakes(level))) return;
    char buf[kNarrowMessageBytes + 1];
    va_list args;
    va_start(args, format);
    int n;
    {
        platform::ClassicNumbers classic;
        n = std::vsnprintf(buf, sizeof buf, format, args);
    }
    va_end(args);
    if (n < 0) return;
    size_t len = std::min<size_t>(static_cast<size_t>(n), kNarrowMessageBytes);
    Dispatch(level, std::string(buf, len), false);
}

Thresholds GetThresholds() {
    Thresholds t;
    t.debugOutput = g_debugThreshold.load();
    t.console = g_consoleThreshold.load();
    t.file = g_fileThreshold.load();
    return t;
}

void SetThresholds(const Thresholds& t) {
    g_debugThreshold.store(t.debugOutput);
    g_consoleThreshold.store(t.console);
    g_fileThreshold.store(t.file);
}

std::wstring SetPathPrefix(const std::wstring& prefix) {
    std::lock_guard<std::mutex> lock(Prefix().mutex);
    if ((prefix.size() + 1) * sizeof(wchar_t) > kPathPrefixBytes) {
        Prefix().prefix.clear();
    } else {
        Prefix().prefix = prefix;
    }
    return Prefix().prefix;
}

std::wstring PathPrefix() {
    std::lock_guard<std::mutex> lock(Prefix().mutex);
    return Prefix().prefix;
}

std::wstring LogFileNameForNow() {
    platform::LocalTime t = platform::NowLocal();
    wchar_t date[16];
    std::swprintf(date, 16, L"%04d%02d%02d", t.year, t.month, t.day);
    return PathPrefix() + L"_" + date + L".log";
}

std::wstring DefaultLogPathPrefix() {
    LogW(1, L"<GetDefaultLogFilePath>");
    std::wstring exe = platform::ExecutablePath();
    std::wstring stem = platform::MainWindowTitle();
    if (!stem.empty()) {
        size_t blank = stem.find(L' ');
        if (blank != std::wstring::npos) stem.resize(blank);
    } else {
        std::wstring name = exe;
        size_t slash = name.find_last_of(L"\\/");
        if (slash != std::wstring::npos) name.erase(0, slash + 1);
        size_t dot = name.rfind(L'.');
        if (dot != std::wstring::npos) name.resize(dot);
        wchar_t pid[16];
        std::swprintf(pid, 16, L"%X", platform::ProcessId());
        stem = name + L"_" + pid;
    }
    std::wstring prefix = L"C:\\Logs\\SORVIK\\" + stem;
    if ((prefix.size() + 1) * sizeof(wchar_t) > kPathPrefixBytes) prefix.clear();
    LogW(1, L"<Path exe=\"%ls\" actual=\"%ls\">", exe.c_str(), prefix.c_str());
    LogW(1, L"</GetDefaultLogFilePath>");
    LogW(1, L"<_GetDllPath>");
    LogW(1, L"<Path exe=\"%ls\">", platform::LibraryPath().c_str());
    LogW(1, L"</_GetDllPath>");
    return prefix;
}

void ResetForTesting() {
    SetLogSink(nullptr, nullptr);
    SetThresholds(Thresholds{});
    SetPathPrefix(L"");
}

}  // namespace pixmill::logging
