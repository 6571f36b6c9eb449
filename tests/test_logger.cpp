// The recipe log: thresholds of the three sinks, the daily file, message
// length limits and the default log path; log retention, the once-a-day
// marker and the deletion of week-old logs.
#include <unistd.h>

#include <cwchar>
#include <filesystem>
#include <optional>
#include <string>

#include "TestSupport.h"
#include "logging/LogRetention.h"
#include "logging/Logger.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

namespace fs = std::filesystem;

namespace pixmill::test {
namespace {

using logging::LogA;
using logging::LogW;
using Lines = std::vector<std::string>;

int FilesUnder(const fs::path& dir) {
    int n = 0;
    for (const auto& e : fs::recursive_directory_iterator(dir)) n += e.is_regular_file() ? 1 : 0;
    return n;
}

using LoggerTest = PixmillTest;

// Nothing before start-up, for a null format, or under an empty or
// oversized path prefix.
TEST_F(LoggerTest, NothingIsWrittenBeforeStartupForANullFormatOrWithoutPrefix) {
    const auto t = logging::GetThresholds();
    EXPECT_EQ(std::vector<int>({t.file, t.console, t.debugOutput}), std::vector<int>({6, 6, 6}));
    EXPECT_EQ(logging::PathPrefix(), L"");
    testing::internal::CaptureStdout();
    LogW(4, L"<ERROR %ls/>", L"early");
    LogA(5, "<ERROR %s/>", "early");
    EnableFileLog(1);
    logging::SetThresholds({.debugOutput = 1, .console = 1, .file = 1});
    LogW(4, nullptr);
    LogA(4, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    const size_t fits = logging::kPathPrefixBytes / sizeof(wchar_t) - 1;
    const std::wstring longest = L"C:\\L\\" + std::wstring(fits - 5, L'p');
    EXPECT_EQ(logging::SetPathPrefix(longest), longest);
    EXPECT_EQ(logging::SetPathPrefix(longest + L"p"), L"");
    logging::SetThresholds({.file = 1});
    LogA(4, "nowhere");
    LogW(4, L"nowhere");
    EXPECT_TRUE(m_debugLines.empty());
    EXPECT_EQ(FilesUnder(m_root->path()), 0);
}

TEST_F(LoggerTest, EachSinkTakesLevelsAtOrAboveItsThreshold) {
    EnableFileLog();
    logging::SetThresholds({.debugOutput = 3, .console = 5, .file = 4});
    for (int level = 1; level <= 6; ++level) {
        SCOPED_TRACE(level);
        m_debugLines.clear();
        testing::internal::CaptureStdout();
        LogA(level, "msg %d", level);
        const std::string text = "msg " + std::to_string(level);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), level >= 5 ? text + "\n" : "");
        EXPECT_EQ(m_debugLines, level >= 3 ? Lines{text} : Lines{});
        const std::string line = " | [" + std::to_string(level) + "] " + text + "\n";
        EXPECT_EQ(CountOf(ReadLog(), line), level >= 4 ? 1 : 0);
    }
}

// A new file starts with a header naming the kind of its first message;
// each day has its own file.
TEST_F(LoggerTest, DailyFileStartsWithHeaderOfFirstMessageKind) {
    EnableFileLog(1);
    LogA(4, "hello %s", "\xC3\xA9");
    LogW(2, L"second %ls", L"\u00e9");
    const std::string firstFile = LogFilePath();
    EXPECT_EQ(firstFile, (m_root->path() / "C/Logs/SORVIK/test_20261121.log").string());
    platform::PinClockForTesting(LocalMillis(2027, 1, 2, 3, 4, 5) + 6);
    LogW(4, L"day two");
    LogA(2, "narrow");
    EXPECT_EQ(logging::LogFileNameForNow(), L"C:\\Logs\\SORVIK\\test_20270102.log");
    EXPECT_EQ(ReadLog(),
              "PixmillW 1.0.0.24\n2027-01-02 03:04:05.006 | [4] day two\n"
              "2027-01-02 03:04:05.006 | [2] narrow\n");
    EXPECT_EQ(ReadFile(firstFile),
              "PixmillA 1.0.0.24\n2026-11-21 10:30:15.250 | [4] hello \xC3\xA9\n"
              "2026-11-21 10:30:15.250 | [2] second \xC3\xA9\n");
}

// Narrow text is cut in bytes (here inside a character), wide text in
// characters.
TEST_F(LoggerTest, LongMessagesAreCutTo8191) {
    logging::SetThresholds({.debugOutput = 1});
    const std::wstring accents(9000, L'\u00e9'), wide(3000000, L'w');
    LogA(4, "%s", platform::ToUtf8(accents).c_str());
    LogW(4, L"%ls", accents.c_str());
    LogW(4, L"%ls", wide.c_str());
    EXPECT_EQ(m_debugLines, (Lines{platform::ToUtf8(accents).substr(0, 8191),
                                   platform::ToUtf8(accents.substr(0, 8191)),
                                   platform::ToUtf8(wide.substr(0, 8191))}));
}

TEST_F(LoggerTest, DefaultPrefixIsExecutableNameAndHexProcessId) {
    // The process ID in upper-case hexadecimal, worked out digit by digit.
    std::wstring pid;
    for (unsigned n = static_cast<unsigned>(::getpid()); n != 0; n /= 16)
        pid.insert(pid.begin(), L"0123456789ABCDEF"[n % 16]);
    EXPECT_EQ(logging::DefaultLogPathPrefix(),
              std::wstring(L"C:\\Logs\\SORVIK\\pixmill_tests_") + pid);
}

// ---------------------------------------------------------------------------
// Retention
// ---------------------------------------------------------------------------

using logging::kOneDay;
using logging::kSevenDays;

class RetentionTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        // The run's own lines go to a log in another folder, so that they take
        // no part in the clean-up.
        logging::SetPathPrefix(L"C:\\Logs\\Trace\\ret");
        logging::SetThresholds({.file = 1});
        m_dir = platform::NativePath(std::string("C:\\Logs\\SORVIK\\"));
        m_marker = (m_dir / "logclear.info").string();
        m_now = platform::NowFileTime();
        fs::create_directories(m_dir);
    }
    // Creates a file (or a folder) in the log folder, last written `age` ago.
    void Put(const std::string& name, int64_t age, bool folder = false) {
        const std::string p = (m_dir / name).string();
        if (folder)
            fs::create_directory(p);
        else
            ASSERT_TRUE(platform::WriteWholeFile(p, "x"));
        ASSERT_TRUE(platform::SetFileLastWrite(p, m_now - age));
    }
    void Run() { logging::RunLogRetention(L"C:\\Logs\\SORVIK\\test_20261121.log"); }
    bool Has(const std::string& name) const { return fs::exists(m_dir / name); }

    fs::path m_dir;
    std::string m_marker;
    int64_t m_now = 0;
};

// A marker written no more than a day ago stops the clean-up and stays as
// it was; otherwise the clean-up runs and writes it anew.
TEST_F(RetentionTest, MarkerDecidesWhetherCleanUpRuns) {
    for (const std::optional<int64_t> age : {std::optional<int64_t>(), {kOneDay}, {kOneDay + 1}}) {
        SCOPED_TRACE(age ? *age : -1);
        Put("old.log", kSevenDays + kOneDay);
        if (age) Put("logclear.info", *age);
        Run();
        const bool cleaned = !age || *age > kOneDay;
        EXPECT_NE(Has("old.log"), cleaned);
        EXPECT_EQ(ReadFile(m_marker), cleaned ? "0" : "x");
        if (!cleaned) {
            EXPECT_EQ(platform::FileLastWrite(m_marker), m_now - *age);
        }
        fs::remove(m_marker);
    }
}

TEST_F(RetentionTest, CleanUpDeletesOnlyLogFilesOlderThanSevenDays) {
    Put("old.log", kSevenDays + 1);
    Put("ancient.log", 5 * kSevenDays);
    Put("edge.log", kSevenDays);
    Put("today.log", 0);
    Put("old.txt", 5 * kSevenDays);
    Put("x.log", 5 * kSevenDays, true);
    Run();
    EXPECT_FALSE(Has("old.log"));
    EXPECT_FALSE(Has("ancient.log"));
    EXPECT_TRUE(Has("edge.log"));
    EXPECT_TRUE(Has("today.log"));
    EXPECT_TRUE(Has("old.txt"));
    EXPECT_TRUE(fs::is_directory(m_dir / "x.log"));
    EXPECT_EQ(ReadFile(m_marker), "0");
    EXPECT_EQ(CountOf(ReadLog(), "<DeleteFile result=\"SUCCESS\""), 2);
}

TEST_F(RetentionTest, FolderWithoutLogFilesReportsErrorAndLeavesNoMarker) {
    Put("notes.txt", 5 * kSevenDays);
    Run();
    EXPECT_EQ(CountOf(ReadLog(), "| [4] <ERROR func=\"FindFirstFile\" result=\"failed\""), 1);
    EXPECT_FALSE(fs::exists(m_marker));
    EXPECT_TRUE(Has("notes.txt"));
}

}  // namespace
}  // namespace pixmill::test
