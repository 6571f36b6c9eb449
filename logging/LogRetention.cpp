#include "logging/LogRetention.h"

#include <vector>

#include "logging/Logger.h"
#include "platform/Platform.h"

namespace pixmill::logging {

namespace {

// Windows' "file not found" code, reported when the folder holds no log
// file at all, as the folder search would.
constexpr int kNoMatchingFile = 2;

bool HasLogExtension(const std::string& name) {
    if (name.size() < 4) return false;
    std::string ext = name.substr(name.size() - 4);
    for (char& c : ext) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return ext == ".log";
}

// True when the marker says that today's run has already happened.
bool AlreadyRunToday(const std::wstring& marker, int64_t now) {
    std::string native = platform::NativePath(marker);
    if (!platform::FileExists(native)) {
        LogW(4, L"<DeleteRunCheck info=\"notfound\" return=\"false\"/>");
        return false;
    }
    if (!platform::IsDirectory(native) && platform::FileLastWrite(native) >= now - kOneDay) {
        LogW(1, L"<DeleteRunCheck info=\"already run\" return=\"false\"/>");
        LogW(1, L"<DeleteOldFile info=\"already run\"/>");
        return true;
    }
    LogW(1, L"<DeleteRunCheck return=\"true\"/>");
    return false;
}

}  // namespace

void RunLogRetention(const std::wstring& logFilePath) {
    size_t cut = logFilePath.find_last_of(L"\\/");
    std::wstring dir = cut == std::wstring::npos ? std::wstring() : logFilePath.substr(0, cut + 1);
    const int64_t now = platform::NowFileTime();
    if (AlreadyRunToday(dir + kRetentionMarker, now)) return;

    LogW(2, L"<DeleteOldFile>");
    std::vector<platform::DirEntry> entries;
    int error = 0;
    bool listed = platform::ListDirectory(platform::NativePath(dir), entries, error);
    bool anyLog = false;
    for (const auto& e : entries) anyLog = anyLog || HasLogExtension(e.name);
    if (!listed || !anyLog) {
        LogW(4, L"<ERROR func=\"FindFirstFile\" result=\"failed\" errorcode=\"%d\" path=\"\"/>",
             listed ? kNoMatchingFile : error);
        LogW(2, L"</DeleteOldFile>");
        return;
    }

    const int64_t limit = now - kSevenDays;
    for (const auto& e : entries) {
        if (e.isDirectory || !HasLogExtension(e.name)) continue;
        std::wstring path = dir + platform::FromUtf8(e.name);
        if (e.lastWrite < limit) {
            // As on the prober, the outcome of the delete is not examined: a
            // file that could not be removed still reads "SUCCESS".
            platform::RemoveFile(platform::NativePath(path));
            LogW(1, L"<DeleteFile result=\"%ls\" path=\"%ls\">", L"SUCCESS", path.c_str());
        } else {
            LogW(4, L"<DeleteFile result=\"%ls\" path=\"%ls\">", L"SKIP", path.c_str());
        }
    }

    platform::WriteWholeFile(platform::NativePath(dir + kRetentionMarker), "0");
    LogW(2, L"<DeleteRunRegist/>");
    LogW(2, L"</DeleteOldFile>");
}

}  // namespace pixmill::logging
