// The one place where Pixmill meets the operating system.
//
// Everything else in the library keeps the prober's Windows vocabulary: paths
// such as "C:\Logs\SORVIK\" stay as literals, times are local calendar times
// and 100 ns file-time units, debug lines go to "the debug output". The
// functions here turn that vocabulary into what the host system offers, so no
// other folder calls a POSIX function directly.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace pixmill::platform {

// ---------------------------------------------------------------------------
// Text
// ---------------------------------------------------------------------------

// UTF-8 <-> wide text. Invalid UTF-8 sequences become U+FFFD; wide values
// that are not Unicode scalar values are written as U+FFFD too.
std::string ToUtf8(const std::wstring& text);
std::string ToUtf8(const wchar_t* text);  // null gives ""
std::wstring FromUtf8(const std::string& text);
std::wstring FromUtf8(const char* text);  // null gives ""

// Decodes UTF-16 code units (already in host order) to wide text, joining
// surrogate pairs into single code points where wchar_t is 32 bits wide.
// Unpaired surrogates become U+FFFD.
std::wstring FromUtf16(const char16_t* units, size_t count);

// Formats wide text by the C library's wide printf rules in the C locale,
// however long the result. Returns false on a format or encoding error.
bool FormatWide(const wchar_t* format, va_list args, std::wstring& out);

// Numbers in every text the library reads or writes (parameter values,
// result fragments, attributes, log and trace lines) use the C locale: a
// point before the fraction, no grouping. A host may set any locale of its
// own (a decimal-comma locale makes "2.5" read as 2 and print as "2,5");
// while this guard lives, the calling thread alone uses the C locale, and the
// host's setting is back when it goes. Guards nest.
class ClassicNumbers {
public:
    ClassicNumbers() noexcept;
    ~ClassicNumbers();
    ClassicNumbers(const ClassicNumbers&) = delete;
    ClassicNumbers& operator=(const ClassicNumbers&) = delete;

private:
    void* m_previous;
};

// Formats narrow text by the C library's printf rules in the C locale,
// however long the result. Returns "" on a format error.
std::string FormatNarrow(const char* format, va_list args);

// Reads the leading number of a wide text in the C locale, as wcstof,
// wcstod and wcstol do (leading white space skipped, `end` set past the
// number, errno ERANGE when out of range).
float ParseFloat(const wchar_t* text, wchar_t** end);
double ParseDouble(const wchar_t* text, wchar_t** end);
long ParseLong(const wchar_t* text, wchar_t** end);

// ---------------------------------------------------------------------------
// Paths
// ---------------------------------------------------------------------------

// The folder that stands in for the drives of a Windows path: the value of
// PIXMILL_ROOT when set, else "/var/lib/pixmill", unless a host has set one.
std::string Root();

// Sets the root for this process; an empty text returns to the default.
void SetRoot(const std::string& root);

// Turns a path the library opens or writes into a native one: a leading drive
// "X:" becomes "<root>/X" (letter in upper case, so "c:" and "C:" name the
// same place) and every backslash becomes "/".
std::string NativePath(const std::wstring& path);
std::string NativePath(const std::string& path);

// Creates every missing folder above a file. Failures are silent: the write
// that follows then fails on its own.
void CreateParentDirectories(const std::string& nativeFile);

bool FileExists(const std::string& nativePath);
bool IsDirectory(const std::string& nativePath);

// Deletes one file. Returns false if it could not be deleted.
bool RemoveFile(const std::string& nativePath);

// Appends one line (or any text) to a file, creating it if needed. Returns
// false if the file would not open or the write failed.
bool AppendToFile(const std::string& nativePath, const std::string& text);

// Replaces a file's content. Returns false if it would not open.
bool WriteWholeFile(const std::string& nativePath, const std::string& text);

// Reads at most maxBytes bytes of a file. Returns false if it cannot be
// opened. fileSize receives the size of the whole file.
bool ReadFilePrefix(const std::string& nativePath, size_t maxBytes, std::string& bytes,
                    uint64_t& fileSize);

struct DirEntry {
    std::string name;  // file name only, UTF-8
    bool isDirectory = false;
    int64_t lastWrite = 0;  // 100 ns units since 1601-01-01 UTC
};

// Lists a folder. Returns false (and sets errorCode) if it cannot be read.
bool ListDirectory(const std::string& nativeDir, std::vector<DirEntry>& entries, int& errorCode);

// ---------------------------------------------------------------------------
// Time
// ---------------------------------------------------------------------------

struct LocalTime {
    int year = 0, month = 0, day = 0;  // month 1..12
    int hour = 0, minute = 0, second = 0, millisecond = 0;
};

// 100 ns units between 1601-01-01 and 1970-01-01.
constexpr int64_t kFileTimeUnixOffset = 11644473600LL * 10000000LL;

// Present time as a Unix time in milliseconds, from the system clock unless
// a test has pinned it.
int64_t NowUnixMillis();

// Present local calendar time.
LocalTime NowLocal();

// Present time in 100 ns file-time units, at whole-second resolution: the
// seconds of the clock, plus the 1601 offset, times 10^7.
int64_t NowFileTime();

// Last-write time of a file in 100 ns units since 1601, or -1 if it is absent.
int64_t FileLastWrite(const std::string& nativePath);

// Sets a file's last-write time (100 ns units since 1601). Returns false on
// failure.
bool SetFileLastWrite(const std::string& nativePath, int64_t fileTime);


// ---------------------------------------------------------------------------
// Process
// ---------------------------------------------------------------------------

uint32_t ProcessId();

// Full path of the running executable, or "" if it cannot be found.
std::wstring ExecutablePath();

// Full path of the shared object that holds this library's code.
std::wstring LibraryPath();

// Title of the process's main window. A Linux process has none, so this is
// always empty; the log stem then comes from the executable's name.
std::wstring MainWindowTitle();

// Bytes of stack left below the caller's frame on this thread (stacks grow
// downwards here), or SIZE_MAX if the thread's stack cannot be found.
size_t StackBytesLeft();

// Size in bytes of this thread's whole stack, or 0 if it cannot be found.
size_t StackSize();

// ---------------------------------------------------------------------------
// Debug output
// ---------------------------------------------------------------------------

// Sends one line to the system's debug channel with the identifier
// "pixmill", facility user, priority debug: the journal where one runs, else
// syslog with "pixmill: " before the text. Never calls openlog.
void DebugOutput(const std::string& text);


// ---------------------------------------------------------------------------
// Image library version
// ---------------------------------------------------------------------------

// The four fields of the version line: major, minor and revision of the
// OpenCV library in use, and 0.
struct VersionFields {
    int major = 0, minor = 0, revision = 0, build = 0;
};
VersionFields OpenCvVersion();

}  // namespace pixmill::platform
