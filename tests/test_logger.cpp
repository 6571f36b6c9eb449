// The recipe log: thresholds of the three sinks, the daily file, message
// length limits and the default log path.
#include <unistd.h>

#include <cwchar>
#include <filesystem>
#include <string>

#include "TestSupport.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

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

TEST_F(LoggerTest, BeforeStartupNoSinkTakesAnError) {
    const auto t = logging::GetThresholds();
    EXPECT_EQ(std::vector<int>({t.file, t.console, t.debugOutput}), std::vector<int>({6, 6, 6}));
    EXPECT_EQ(logging::PathPrefix(), L"");
    testing::internal::CaptureStdout();
    LogW(4, L"<ERROR %ls/>", L"early");
    LogA(5, "<ERROR %s/>", "early");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
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

TEST_F(LoggerTest, NewFileStartsWithHeaderOfFirstMessageKind) {
    EnableFileLog(1);
    const fs::path expected = m_root->path() / "C/Logs/SORVIK/test_20261121.log";
    for (bool wideFirst : {false, true}) {
        SCOPED_TRACE(wideFirst);
        fs::remove_all(m_root->path() / "C");
        if (wideFirst) {
            LogW(4, L"hello %ls", L"\u00e9");
            LogA(2, "second");
        } else {
            LogA(4, "hello %s", "\xC3\xA9");
            LogW(2, L"second");
        }
        EXPECT_EQ(LogFilePath(), expected.string());
        EXPECT_EQ(ReadLog(), std::string(wideFirst ? "PixmillW" : "PixmillA") +
                                 " 1.0.0.24\n"
                                 "2026-11-21 10:30:15.250 | [4] hello \xC3\xA9\n"
                                 "2026-11-21 10:30:15.250 | [2] second\n");
    }
}

TEST_F(LoggerTest, NewDayWritesNewFile) {
    EnableFileLog(1);
    LogA(4, "day one");
    const std::string firstFile = LogFilePath();
    std::tm day{};
    day.tm_year = 127, day.tm_mday = 2, day.tm_hour = 3, day.tm_min = 4, day.tm_sec = 5;
    day.tm_isdst = -1;
    platform::PinClockForTesting(static_cast<int64_t>(std::mktime(&day)) * 1000 + 6);
    LogW(4, L"day two");
    EXPECT_EQ(logging::LogFileNameForNow(), L"C:\\Logs\\SORVIK\\test_20270102.log");
    EXPECT_EQ(ReadLog(), "PixmillW 1.0.0.24\n2027-01-02 03:04:05.006 | [4] day two\n");
    EXPECT_EQ(ReadFile(firstFile), "PixmillA 1.0.0.24\n2026-11-21 10:30:15.250 | [4] day one\n");
}

TEST_F(LoggerTest, EmptyOrOversizedPrefixTurnsFileLogOff) {
    const size_t fits = logging::kPathPrefixBytes / sizeof(wchar_t) - 1;
    const std::wstring longest = L"C:\\L\\" + std::wstring(fits - 5, L'p');
    EXPECT_EQ(logging::SetPathPrefix(longest), longest);
    EXPECT_EQ(logging::SetPathPrefix(longest + L"p"), L"");
    EXPECT_EQ(logging::PathPrefix(), L"");
    logging::SetThresholds({.file = 1});
    LogA(4, "nowhere");
    LogW(4, L"nowhere");
    EXPECT_EQ(FilesUnder(m_root->path()), 0);
}

TEST_F(LoggerTest, LongMessagesAreCutTo8191) {
    logging::SetThresholds({.debugOutput = 1});
    struct Case {
        bool wide;
        size_t length;
        wchar_t fill;
    };
    const Case cases[] = {{false, 8191, L'n'},      {false, 8192, L'n'},  {false, 100000, L'n'},
                          {false, 9000, L'\u00e9'}, {true, 8191, L'w'},   {true, 8192, L'w'},
                          {true, 9000, L'\u00e9'},  {true, 3000000, L'w'}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << (c.wide ? "wide " : "narrow ") << c.length);
        m_debugLines.clear();
        const std::wstring text(c.length, c.fill);
        if (c.wide)
            LogW(4, L"%ls", text.c_str());
        else
            LogA(4, "%s", platform::ToUtf8(text).c_str());
        // Wide text is cut in characters, narrow text in bytes.
        const std::string kept = c.wide ? platform::ToUtf8(text.substr(0, 8191))
                                        : platform::ToUtf8(text).substr(0, 8191);
        EXPECT_EQ(m_debugLines, Lines{kept});
    }
}

TEST_F(LoggerTest, NullFormatDoesNothing) {
    EnableFileLog(1);
    logging::SetThresholds({.debugOutput = 1, .console = 1, .file = 1});
    testing::internal::CaptureStdout();
    LogW(4, nullptr);
    LogA(4, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(m_debugLines.empty());
    EXPECT_EQ(FilesUnder(m_root->path()), 0);
}

TEST_F(LoggerTest, DefaultPrefixIsExecutableNameAndHexProcessId) {
    wchar_t pid[16];
    std::swprintf(pid, 16, L"%X", static_cast<unsigned>(::getpid()));
    EXPECT_EQ(logging::DefaultLogPathPrefix(),
              std::wstring(L"C:\\Logs\\SORVIK\\pixmill_tests_") + pid);
}

}  // namespace
}  // namespace pixmill::test
