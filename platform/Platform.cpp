#include "platform/Platform.h"
#include "framework/TestHooks.h"

#include <dlfcn.h>
#include <locale.h>
#include <pthread.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <opencv2/core/utility.hpp>

namespace fs = std::filesystem;

namespace pixmill::platform {

// ---------------------------------------------------------------------------
// Text
// ---------------------------------------------------------------------------

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsScalarValue(char32_t c) {
    return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

void AppendUtf8(std::string& out, char32_t c) {
    if (!IsScalarValue(c)) c = kReplacement;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void AppendWide(std::wstring& out, char32_t c) {
    if constexpr (sizeof(wchar_t) >= 4) {
        out += static_cast<wchar_t>(c);
    } else {
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<wchar_t>(0xD800 + (c >> 10));
            out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
        } else {
            out += static_cast<wchar_t>(c);
        }
    }
}

}  // namespace

std::string ToUtf8(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = static_cast<char32_t>(text[i]);
        if constexpr (sizeof(wchar_t) < 4) {
            c &= 0xFFFF;
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size()) {
                char32_t low = static_cast<char32_t>(text[i + 1]) & 0xFFFF;
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
        }
        AppendUtf8(out, c);
    }
    return out;
}

std::string ToUtf8(const wchar_t* text) {
    return text ? ToUtf8(std::wstring(text)) : std::string();
}

std::wstring FromUtf8(const std::string& text) {
    std::wstring out;
    out.reserve(text.size());
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    size_t i = 0;
    while (i < n) {
        unsigned char b = s[i];
        if (b < 0x80) {
            out += static_cast<wchar_t>(b);
            ++i;
            continue;
        }
        int len = 0;
        char32_t c = 0, min = 0;
        if ((b & 0xE0) == 0xC0) {
            len = 2, c = b & 0x1F, min = 0x80;
        } else if ((b & 0xF0) == 0xE0) {
            len = 3, c = b & 0x0F, min = 0x800;
        } else if ((b & 0xF8) == 0xF0) {
            len = 4, c = b & 0x07, min = 0x10000;
        }
        // A sequence is taken only when it is complete, shortest-form and a
        // scalar value; otherwise one byte becomes U+FFFD and decoding goes on.
        bool ok = len > 0 && i + len <= n;
        for (int k = 1; ok && k < len; ++k) {
            if ((s[i + k] & 0xC0) != 0x80) ok = false;
            c = (c << 6) | (s[i + k] & 0x3F);
        }
        if (ok && c >= min && IsScalarValue(c)) {
            AppendWide(out, c);
            i += len;
        } else {
            AppendWide(out, kReplacement);
            ++i;
        }
    }
    return out;
}

std::wstring FromUtf8(const char* text) {
    return text ? FromUtf8(std::string(text)) : std::wstring();
}

std::wstring FromUtf16(const char16_t* units, size_t count) {
    std::wstring out;
    out.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        char32_t c = units[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 &&
            units[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (units[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = kReplacement;
        }
        AppendWide(out, c);
    }
    return out;
}

namespace {

// One C locale object for the whole process, made on first use and never
// freed, so a guard in a host's static destructor still finds it.
locale_t ClassicLocale() {
    static const locale_t classic = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return classic;
}

}  // namespace

ClassicNumbers::ClassicNumbers() noexcept : m_previous(nullptr) {
    const locale_t classic = ClassicLocale();
    if (classic) m_previous = ::uselocale(classic);
}

ClassicNumbers::~ClassicNumbers() {
    if (m_previous) ::uselocale(static_cast<locale_t>(m_previous));
}

std::string FormatNarrow(const char* format, va_list args) {
    ClassicNumbers classic;
    va_list again;
    va_copy(again, args);
    char small[256];
    const int n = std::vsnprintf(small, sizeof small, format, args);
    std::string text;
    if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
        text.assign(small, static_cast<size_t>(n));
    } else if (n >= 0) {
        text.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        text.resize(static_cast<size_t>(n));
    }
    va_end(again);
    return text;
}

float ParseFloat(const wchar_t* text, wchar_t** end) {
    ClassicNumbers classic;
    return std::wcstof(text, end);
}

double ParseDouble(const wchar_t* text, wchar_t** end) {
    ClassicNumbers classic;
    return std::wcstod(text, end);
}

long ParseLong(const wchar_t* text, wchar_t** end) {
    ClassicNumbers classic;
    return std::wcstol(text, end, 10);
}

bool FormatWide(const wchar_t* format, va_list args, std::wstring& out) {
    ClassicNumbers classic;
    // A wide memory stream grows with the text and, unlike vswprintf, tells an
    // encoding error apart from a buffer that is too small.
    wchar_t* data = nullptr;
    size_t size = 0;
    FILE* stream = ::open_wmemstream(&data, &size);
    if (!stream) return false;
    int n = std::vfwprintf(stream, format, args);
    std::fclose(stream);
    if (n >= 0) out.assign(data, size);
    std::free(data);
    return n >= 0;
}

// ---------------------------------------------------------------------------
// Paths
// ---------------------------------------------------------------------------

namespace {

// Never destroyed, like all process-wide state here: a host may call the
// library from its own static destructors, which can run after ours.
struct RootState {
    std::mutex mutex;
    std::string override;
};

RootState& RootOverride() {
    static RootState* state = new RootState();
    return *state;
}

}  // namespace

std::string Root() {
    {
        std::lock_guard<std::mutex> lock(RootOverride().mutex);
        if (!RootOverride().override.empty()) return RootOverride().override;
    }
    const char* env = std::getenv("PIXMILL_ROOT");
    if (env && *env) return env;
    return "/var/lib/pixmill";
}

void SetRoot(const std::string& root) {
    std::lock_guard<std::mutex> lock(RootOverride().mutex);
    RootOverride().override = root;
}

std::string NativePath(const std::string& path) {
    std::string out;
    size_t start = 0;
    if (path.size() >= 2 && path[1] == ':' &&
        ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'))) {
        std::string root = Root();
        while (root.size() > 1 && root.back() == '/') root.pop_back();
        out = root + "/";
        out += static_cast<char>(path[0] & ~0x20);  // upper case
        start = 2;
        // "C:name" (no separator) still lands inside the drive folder.
        if (path.size() > 2 && path[2] != '\\' && path[2] != '/') out += '/';
    }
    for (size_t i = start; i < path.size(); ++i) out += path[i] == '\\' ? '/' : path[i];
    return out;
}

std::string NativePath(const std::wstring& path) {
    return NativePath(ToUtf8(path));
}

void CreateParentDirectories(const std::string& nativeFile) {
    fs::path parent = fs::path(nativeFile).parent_path();
    if (parent.empty()) return;
    std::error_code ec;
    fs::create_directories(parent, ec);
}

bool FileExists(const std::string& nativePath) {
    std::error_code ec;
    return fs::exists(nativePath, ec);
}

bool IsDirectory(const std::string& nativePath) {
    std::error_code ec;
    return fs::is_directory(nativePath, ec);
}

bool RemoveFile(const std::string& nativePath) {
    std::error_code ec;
    return fs::remove(nativePath, ec) && !ec;
}

bool AppendToFile(const std::string& nativePath, const std::string& text) {
    FILE* f = std::fopen(nativePath.c_str(), "ab");
    if (!f) return false;
    bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    ok = (std::fclose(f) == 0) && ok;
    return ok;
}

bool WriteWholeFile(const std::string& nativePath, const std::string& text) {
    FILE* f = std::fopen(nativePath.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    ok = (std::fclose(f) == 0) && ok;
    return ok;
}

bool ReadFilePrefix(const std::string& nativePath, size_t maxBytes, std::string& bytes,
                    uint64_t& fileSize) {
    bytes.clear();
    fileSize = 0;
    // Only regular files: a folder cannot be read and a named pipe would
    // block the caller until someone writes to it.
    std::error_code ec;
    if (!fs::is_regular_file(nativePath, ec)) return false;
    FILE* f = std::fopen(nativePath.c_str(), "rb");
    if (!f) return false;
    if (std::fseek(f, 0, SEEK_END) == 0) {
        long size = std::ftell(f);
        if (size > 0) fileSize = static_cast<uint64_t>(size);
        std::fseek(f, 0, SEEK_SET);
    }
    size_t want = static_cast<size_t>(std::min<uint64_t>(fileSize, maxBytes));
    bytes.resize(want);
    size_t got = want ? std::fread(bytes.data(), 1, want, f) : 0;
    bytes.resize(got);
    std::fclose(f);
    return true;
}

namespace {

int64_t ToFileTime(fs::file_time_type t) {
    auto sys = std::chrono::file_clock::to_sys(t);
    auto units = std::chrono::floor<std::chrono::duration<int64_t, std::ratio<1, 10000000>>>(
        sys.time_since_epoch());
    return units.count() + kFileTimeUnixOffset;
}

}  // namespace

bool ListDirectory(const std::string& nativeDir, std::vector<DirEntry>& entries, int& errorCode) {
    entries.clear();
    errorCode = 0;
    std::error_code ec;
    fs::directory_iterator it(nativeDir, ec);
    if (ec) {
        errorCode = ec.value();
        return false;
    }
    for (; it != fs::directory_iterator(); it.increment(ec)) {
        if (ec) break;
        DirEntry e;
        e.name = it->path().filename().string();
        std::error_code ec2;
        e.isDirectory = it->is_directory(ec2);
        auto t = fs::last_write_time(it->path(), ec2);
        e.lastWrite = ec2 ? 0 : ToFileTime(t);
        entries.push_back(std::move(e));
    }
    return true;
}

// ---------------------------------------------------------------------------
// Time
// ---------------------------------------------------------------------------

namespace {

std::atomic<int64_t> g_pinnedMillis{-1};

}  // namespace

void PinClockForTesting(int64_t unixMillis) {
    g_pinnedMillis.store(unixMillis);
}

int64_t NowUnixMillis() {
    int64_t pinned = g_pinnedMillis.load();
    if (pinned >= 0) return pinned;
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

LocalTime NowLocal() {
    int64_t ms = NowUnixMillis();
    time_t secs = static_cast<time_t>(ms / 1000);
    struct tm tmv {};
    localtime_r(&secs, &tmv);
    LocalTime lt;
    lt.year = tmv.tm_year + 1900;
    lt.month = tmv.tm_mon + 1;
    lt.day = tmv.tm_mday;
    lt.hour = tmv.tm_hour;
    lt.minute = tmv.tm_min;
    lt.second = tmv.tm_sec;
    lt.millisecond = static_cast<int>(ms % 1000);
    return lt;
}

int64_t NowFileTime() {
    return (NowUnixMillis() / 1000) * 10000000LL + kFileTimeUnixOffset;
}

int64_t FileLastWrite(const std::string& nativePath) {
    std::error_code ec;
    auto t = fs::last_write_time(nativePath, ec);
    return ec ? -1 : ToFileTime(t);
}

bool SetFileLastWrite(const std::string& nativePath, int64_t fileTime) {
    using Units = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;
    std::chrono::sys_time<Units> sys{Units(fileTime - kFileTimeUnixOffset)};
    auto ft = std::chrono::file_clock::from_sys(sys);
    std::error_code ec;
    fs::last_write_time(nativePath, std::chrono::time_point_cast<fs::file_time_type::duration>(ft),
                        ec);
    return !ec;
}

// ---------------------------------------------------------------------------
// Process
// ---------------------------------------------------------------------------

uint32_t ProcessId() {
    return static_cast<uint32_t>(::getpid());
}

std::wstring ExecutablePath() {
    std::error_code ec;
    fs::path p = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::wstring() : FromUtf8(p.string());
}

std::wstring LibraryPath() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&LibraryPath), &info) && info.dli_fname)
        return FromUtf8(info.dli_fname);
    return std::wstring();
}

std::wstring MainWindowTitle() {
    return std::wstring();
}

namespace {

struct StackRange {
    uintptr_t low = 0, high = 0;
};

// This thread's stack, looked up once per thread.
const StackRange& ThisThreadStack() {
    using Range = StackRange;
    thread_local Range range = [] {
        Range r;
        pthread_attr_t attr;
        if (::pthread_getattr_np(::pthread_self(), &attr) == 0) {
            void* addr = nullptr;
            size_t size = 0;
            if (::pthread_attr_getstack(&attr, &addr, &size) == 0) {
                r.low = reinterpret_cast<uintptr_t>(addr);
                r.high = r.low + size;
            }
            ::pthread_attr_destroy(&attr);
        }
        return r;
    }();
    return range;
}

}  // namespace

size_t StackSize() {
    const StackRange& range = ThisThreadStack();
    return static_cast<size_t>(range.high - range.low);
}

size_t StackBytesLeft() {
    const StackRange& range = ThisThreadStack();
    char here = 0;
    uintptr_t sp = reinterpret_cast<uintptr_t>(&here);
    // Outside the known range (no range found, or a frame kept elsewhere by
    // an instrumented build): no limit can be told.
    if (sp <= range.low || sp > range.high) return SIZE_MAX;
    return static_cast<size_t>(sp - range.low);
}

// ---------------------------------------------------------------------------
// Debug output
// ---------------------------------------------------------------------------

namespace {

struct DebugState {
    std::mutex mutex;
    std::function<void(const std::string&)> sink;
};

DebugState& Debug() {
    static DebugState* state = new DebugState();
    return *state;
}

}  // namespace

void DebugOutput(const std::string& text) {
    {
        std::lock_guard<std::mutex> lock(Debug().mutex);
        if (Debug().sink) {
            Debug().sink(text);
            return;
        }
    }
    // Each message carries its own identifier: openlog would set the ident
    // of the whole host process, which belongs to the host. The journal
    // takes the identifier as a field; plain syslog (no journal running)
    // gets it at the head of the text, after the host's own ident.
    const std::string message = "MESSAGE=" + text;
    static const char kIdentifier[] = "SYSLOG_IDENTIFIER=pixmill";
    static const char kPriority[] = "PRIORITY=7";        // LOG_DEBUG
    static const char kFacility[] = "SYSLOG_FACILITY=1";  // LOG_USER >> 3
    iovec fields[] = {
        {const_cast<char*>(message.data()), message.size()},
        {const_cast<char*>(kIdentifier), sizeof kIdentifier - 1},
        {const_cast<char*>(kPriority), sizeof kPriority - 1},
        {const_cast<char*>(kFacility), sizeof kFacility - 1},
    };
    if (::sd_journal_sendv(fields, static_cast<int>(std::size(fields))) >= 0) return;
    ::syslog(LOG_USER | LOG_DEBUG, "pixmill: %s", text.c_str());
}

void SetDebugOutputForTesting(std::function<void(const std::string&)> sink) {
    std::lock_guard<std::mutex> lock(Debug().mutex);
    Debug().sink = std::move(sink);
}

// ---------------------------------------------------------------------------
// Image library version
// ---------------------------------------------------------------------------

VersionFields OpenCvVersion() {
    VersionFields v;
    v.major = cv::getVersionMajor();
    v.minor = cv::getVersionMinor();
    v.revision = cv::getVersionRevision();
    v.build = 0;
    return v;
}

}  // namespace pixmill::platform
