// Log retention: the once-a-day marker and the deletion of week-old logs.
#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "logging/LogRetention.h"
#include "logging/Logger.h"
#include "platform/Platform.h"

namespace fs = std::filesystem;

namespace pixmill::test {
namespace {

using logging::kOneDay;
using logging::kSevenDays;
using Lines = std::vector<std::string>;

const char* const kNotFound = "[4] <DeleteRunCheck info=\"notfound\" return=\"false\"/>";

class RetentionTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        // The run's own lines go to a log in another folder, so that they carry
        // their levels and take no part in the clean-up.
        logging::SetPathPrefix(L"C:\\Logs\\Trace\\ret");
        logging::SetThresholds({.file = 1});
        m_dir = platform::NativePath(std::string("C:\\Logs\\SORVIK\\"));
        fs::create_directories(m_dir);
        m_now = platform::NowFileTime();
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

    // The run's log lines as "[level] message", without header and time.
    Lines LogLines() const {
        Lines lines;
        std::istringstream in(ReadLog());
        for (std::string line; std::getline(in, line);) {
            size_t bar = line.find(" | ");
            if (bar != std::string::npos) lines.push_back(line.substr(bar + 3));
        }
        return lines;
    }

    std::string Marker() const { return (m_dir / "logclear.info").string(); }
    bool Has(const std::string& name) const { return fs::exists(m_dir / name); }

    fs::path m_dir;
    int64_t m_now = 0;
};

struct MarkerCase {
    const char* name;
    std::optional<int64_t> markerAge;
    Lines check;  // lines of the marker check
    bool cleanUp;
    friend void PrintTo(const MarkerCase& c, std::ostream* os) { *os << c.name; }
};

class RetentionMarkerTest : public RetentionTest, public testing::WithParamInterface<MarkerCase> {};

TEST_P(RetentionMarkerTest, MarkerDecidesWhetherCleanUpRuns) {
    const auto& c = GetParam();
    Put("old.log", kSevenDays + kOneDay);
    if (c.markerAge) Put("logclear.info", *c.markerAge);
    Run();
    Lines lines = LogLines();
    ASSERT_GE(lines.size(), c.check.size());
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + c.check.size()), c.check);
    EXPECT_NE(Has("old.log"), c.cleanUp);
    if (c.cleanUp) {
        EXPECT_EQ(lines.size(), c.check.size() + 4);
        EXPECT_EQ(lines.back(), "[2] </DeleteOldFile>");
        EXPECT_EQ(ReadFile(Marker()), "0");
    } else {
        EXPECT_EQ(lines.size(), c.check.size());
        EXPECT_EQ(platform::FileLastWrite(Marker()), m_now - *c.markerAge);
        EXPECT_EQ(ReadFile(Marker()), "x");
    }
}

const Lines kAlreadyRun = {"[1] <DeleteRunCheck info=\"already run\" return=\"false\"/>",
                           "[1] <DeleteOldFile info=\"already run\"/>"};
const Lines kDue = {"[1] <DeleteRunCheck return=\"true\"/>"};

INSTANTIATE_TEST_SUITE_P(Retention, RetentionMarkerTest,
                         testing::Values(MarkerCase{"Missing", std::nullopt, {kNotFound}, true},
                                         MarkerCase{"JustWritten", 0, kAlreadyRun, false},
                                         MarkerCase{"ExactlyOneDay", kOneDay, kAlreadyRun, false},
                                         MarkerCase{"OneDayAndATick", kOneDay + 1, kDue, true},
                                         MarkerCase{"Weeks", 3 * kSevenDays, kDue, true}),
                         [](const auto& info) { return std::string(info.param.name); });

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
    EXPECT_EQ(ReadFile(Marker()), "0");

    Lines lines = LogLines();
    ASSERT_EQ(lines.size(), 8u);
    // The folder's order is the file system's; the file lines are compared as a set.
    std::sort(lines.begin() + 2, lines.begin() + 6);
    const std::string del = "<DeleteFile result=";
    EXPECT_EQ(lines, (Lines{kNotFound, "[2] <DeleteOldFile>",
                            "[1] " + del + "\"SUCCESS\" path=\"C:\\Logs\\SORVIK\\ancient.log\">",
                            "[1] " + del + "\"SUCCESS\" path=\"C:\\Logs\\SORVIK\\old.log\">",
                            "[4] " + del + "\"SKIP\" path=\"C:\\Logs\\SORVIK\\edge.log\">",
                            "[4] " + del + "\"SKIP\" path=\"C:\\Logs\\SORVIK\\today.log\">",
                            "[2] <DeleteRunRegist/>", "[2] </DeleteOldFile>"}));
}

TEST_F(RetentionTest, FolderWithoutLogFilesReportsErrorAndLeavesNoMarker) {
    for (bool withOtherFile : {false, true}) {
        SCOPED_TRACE(withOtherFile);
        fs::remove_all(m_dir);
        fs::remove_all(LogFilePath());
        fs::create_directories(m_dir);
        if (withOtherFile) Put("notes.txt", 5 * kSevenDays);
        Run();
        EXPECT_EQ(LogLines(),
                  (Lines{kNotFound, "[2] <DeleteOldFile>",
                         "[4] <ERROR func=\"FindFirstFile\" result=\"failed\" errorcode=\"2\" "
                         "path=\"\"/>",
                         "[2] </DeleteOldFile>"}));
        EXPECT_FALSE(fs::exists(Marker()));
        EXPECT_EQ(Has("notes.txt"), withOtherFile);
    }
}

}  // namespace
}  // namespace pixmill::test
