// Start-up of the first call, the host's settings and the trace sink.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "api/Startup.h"
#include "logging/Logger.h"
#include "logging/Trace.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// Sets or clears an environment variable for one scope and puts the old value back.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        if (const char* old = std::getenv(name)) m_old = old;
        value ? ::setenv(name, value, 1) : ::unsetenv(name);
    }
    ~ScopedEnv() {
        m_old ? ::setenv(m_name.c_str(), m_old->c_str(), 1) : ::unsetenv(m_name.c_str());
    }

private:
    std::string m_name;
    std::optional<std::string> m_old;
};

// Thresholds as file, console, debug output, the order the host passes them in.
std::vector<int> Levels(const logging::Thresholds& t) {
    return {t.file, t.console, t.debugOutput};
}
std::vector<int> Current() {
    return Levels(logging::GetThresholds());
}

using StartupTest = PixmillTest;

TEST_F(StartupTest, FirstCallSetsPathLevelsAndRunsRetentionOnce) {
    ScopedEnv env("PIXMILL_LOG_LEVELS", nullptr);
    api::EnsureStartup();
    EXPECT_EQ(logging::PathPrefix(), logging::DefaultLogPathPrefix());
    EXPECT_EQ(Current(), std::vector<int>({4, 6, 4}));
    EXPECT_EQ(ReadFile(m_root->path() / "C/Logs/SORVIK/logclear.info"), "0");
    EXPECT_EQ(CountOf(ReadLog(), "| [4] <DeleteRunCheck info=\"notfound\" return=\"false\"/>\n"),
              1);

    // Start-up levels: errors reach the file and the debug output, nothing the console.
    m_debugLines.clear();
    testing::internal::CaptureStdout();
    logging::LogA(3, "below");
    logging::LogW(4, L"error %d", 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(m_debugLines, std::vector<std::string>{"error 7"});
    EXPECT_EQ(CountOf(ReadLog(), "2026-11-21 10:30:15.250 | [4] error 7\n"), 1);
    EXPECT_EQ(CountOf(ReadLog(), "below"), 0);

    // A second call changes nothing that was set since.
    logging::SetPathPrefix(L"C:\\Elsewhere\\x");
    logging::SetThresholds({.debugOutput = 1});
    m_debugLines.clear();
    api::EnsureStartup();
    EXPECT_EQ(logging::PathPrefix(), L"C:\\Elsewhere\\x");
    EXPECT_EQ(Current(), std::vector<int>({6, 6, 1}));
    EXPECT_TRUE(m_debugLines.empty());
}

TEST_F(StartupTest, HostLevelsApplyAtOnceAndAreReportedAtLevelTwo) {
    PixmillSetLogLevels(2, 6, 2);
    EXPECT_EQ(Current(), std::vector<int>({2, 6, 2}));
    api::EnsureStartup();
    EXPECT_EQ(Current(), std::vector<int>({2, 6, 2}));
    const std::string applied =
        "<LogSettingApplied file=\"2\" console=\"6\" debugview=\"2\"  path=\"" +
        platform::ToUtf8(logging::PathPrefix()) + "\"/>";
    EXPECT_EQ(CountOf(ReadLog(), "| [2] " + applied + "\n"), 1);
    EXPECT_EQ(std::count(m_debugLines.begin(), m_debugLines.end(), applied), 1);
}

TEST_F(StartupTest, HostLevelsWinOverEnvironmentOverDefaults) {
    struct Case {
        const char* env;
        std::vector<int> host;  // empty: none set
        std::vector<int> expected;
    };
    const Case cases[] = {{nullptr, {}, {4, 6, 4}},
                          {"1,6,3", {}, {1, 6, 3}},
                          {"1,6", {}, {4, 6, 4}},
                          {"debug", {}, {4, 6, 4}},
                          {"1,6,3", {2, 5, 2}, {2, 5, 2}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.env ? c.env : "(unset)");
        api::ResetStartupForTesting();
        logging::ResetForTesting();
        ScopedEnv env("PIXMILL_LOG_LEVELS", c.env);
        if (!c.host.empty()) PixmillSetLogLevels(c.host[0], c.host[1], c.host[2]);
        api::EnsureStartup();
        EXPECT_EQ(Current(), c.expected);
    }
}

TEST(StartupParse, ParseLogLevelsAcceptsOnlyThreeIntegers) {
    struct Case {
        const char* text;
        std::vector<int> expected;  // empty: rejected
    };
    const Case cases[] = {{"1,6,4", {1, 6, 4}},
                          {" 2 , 3 , 5 ", {2, 3, 5}},
                          {"-1,0,6", {-1, 0, 6}},
                          {nullptr, {}},
                          {"", {}},
                          {"1,6", {}},
                          {"1,6,4,5", {}},
                          {"1;6;4", {}},
                          {"a,b,c", {}},
                          {"1,6,4x", {}},
                          {"1.5,6,4", {}},
                          {"1,,4", {}},
                          {"99999999999,6,4", {}},
                          {"1,2147483648,4", {}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(null)");
        auto parsed = api::ParseLogLevels(c.text);
        EXPECT_EQ(parsed ? Levels(*parsed) : std::vector<int>(), c.expected);
    }
}

TEST_F(StartupTest, HostRootWinsOverEnvironmentOverDefault) {
    {
        ScopedEnv env("PIXMILL_ROOT", "/env/root");
        EXPECT_EQ(PixmillSetRoot("/host/root"), 0);
        EXPECT_EQ(platform::Root(), "/host/root");
        EXPECT_EQ(platform::NativePath(std::string("C:\\a")), "/host/root/C/a");
        EXPECT_EQ(PixmillSetRoot(nullptr), 0);
        EXPECT_EQ(platform::Root(), "/env/root");
        PixmillSetRoot("/host/root");
        PixmillSetRoot("");
        EXPECT_EQ(platform::Root(), "/env/root");
    }
    ScopedEnv env("PIXMILL_ROOT", nullptr);
    EXPECT_EQ(platform::Root(), "/var/lib/pixmill");
}

void Collect(const char* line, void* user) {
    static_cast<std::vector<std::string>*>(user)->push_back(line);
}

using TraceTest = PixmillTest;

TEST_F(TraceTest, SinkReceivesFormattedLinesUntilRemoved) {
    int written = -1;
    VBcvTrace("[%s] Start \n%n", "VBcvPinFind", &written);
    EXPECT_EQ(written, -1) << "formatted without a sink";

    std::vector<std::string> got;
    PixmillSetTraceSink(Collect, &got);
    VBcvTrace("[%s] Start \n%n", "VBcvPinFind", &written);
    VBcvTrace("Version : %d,%d,%d,%d\n", 4, 6, 0, 0);
    std::vector<std::string> expected = {"[VBcvPinFind] Start \n", "Version : 4,6,0,0\n"};
    // 509 and 510 put the line on either side of the 512-byte first buffer.
    for (size_t n : {509u, 510u, 600u, 5000u}) {
        const std::string body(n, 'y');
        VBcvTrace("%s|%d", body.c_str(), 7);
        expected.push_back(body + "|7");
    }
    EXPECT_EQ(written, 21);
    EXPECT_EQ(got, expected);

    PixmillSetTraceSink(nullptr, nullptr);
    VBcvTrace("after %d", 1);
    EXPECT_EQ(got, expected);
}

}  // namespace
}  // namespace pixmill::test
