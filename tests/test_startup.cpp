// Start-up of the first call, the host's settings and the trace sink; the
// platform layer beneath them.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "TestSupport.h"
#include "api/Startup.h"
#include "logging/Logger.h"
#include "logging/Trace.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

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
std::vector<int> Current() {
    const logging::Thresholds t = logging::GetThresholds();
    return {t.file, t.console, t.debugOutput};
}

using StartupTest = PixmillTest;

TEST_F(StartupTest, FirstCallSetsPathLevelsAndRunsRetentionOnce) {
    ScopedEnv env("PIXMILL_LOG_LEVELS", nullptr);
    api::EnsureStartup();
    EXPECT_EQ(logging::PathPrefix(), logging::DefaultLogPathPrefix());
    EXPECT_EQ(Current(), std::vector<int>({4, 6, 4}));
    EXPECT_EQ(ReadFile(m_root->path() / "C/Logs/SORVIK/logclear.info"), "0");

    // A second call changes nothing that was set since.
    logging::SetPathPrefix(L"C:\\Elsewhere\\x");
    logging::SetThresholds({.debugOutput = 1});
    m_debugLines.clear();
    api::EnsureStartup();
    EXPECT_EQ(logging::PathPrefix(), L"C:\\Elsewhere\\x");
    EXPECT_EQ(Current(), std::vector<int>({6, 6, 1}));
    EXPECT_TRUE(m_debugLines.empty());
}

// The environment takes exactly three integers; anything else leaves the
// defaults, and the host's levels win over both.
TEST_F(StartupTest, HostLevelsWinOverEnvironmentOverDefaults) {
    // The environment's text, the host's levels (empty: none set), the result.
    const std::tuple<const char*, std::vector<int>, std::vector<int>> cases[] = {
        {nullptr, {}, {4, 6, 4}},         {"1,6,3", {}, {1, 6, 3}},
        {" 2 , 3 , -1 ", {}, {2, 3, -1}}, {"1,6", {}, {4, 6, 4}},
        {"1,6,4,5", {}, {4, 6, 4}},       {"1;6;4", {}, {4, 6, 4}},
        {"1,6,4x", {}, {4, 6, 4}},        {"1.5,6,4", {}, {4, 6, 4}},
        {"1,,4", {}, {4, 6, 4}},          {"1,2147483648,4", {}, {4, 6, 4}},
        {"1,6,3", {2, 5, 2}, {2, 5, 2}}};
    for (const auto& [text, host, expected] : cases) {
        SCOPED_TRACE(text ? text : "(unset)");
        api::ResetStartupForTesting();
        logging::ResetForTesting();
        ScopedEnv env("PIXMILL_LOG_LEVELS", text);
        if (!host.empty()) {
            PixmillSetLogLevels(host[0], host[1], host[2]);
            EXPECT_EQ(Current(), host);  // at once
        }
        api::EnsureStartup();
        EXPECT_EQ(Current(), expected);
    }
}

TEST_F(StartupTest, HostRootWinsOverEnvironmentOverDefault) {
    {
        ScopedEnv env("PIXMILL_ROOT", "/env/root");
        EXPECT_EQ(PixmillSetRoot("/host/root"), 0);
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

TEST_F(StartupTest, TraceSinkReceivesFormattedLinesUntilRemoved) {
    int written = -1;
    VBcvTrace("[%s] Start \n%n", "VBcvPinFind", &written);
    EXPECT_EQ(written, -1) << "formatted without a sink";

    std::vector<std::string> got;
    PixmillSetTraceSink(Collect, &got);
    VBcvTrace("[%s] Start \n%n", "VBcvPinFind", &written);
    std::vector<std::string> expected = {"[VBcvPinFind] Start \n"};
    // 509 and 510 put the line on either side of the 512-byte first buffer.
    for (size_t n : {509u, 510u, 5000u}) {
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

// ---------------------------------------------------------------------------
// Platform layer: path mapping, text conversion and file times
// ---------------------------------------------------------------------------

using PlatformTest = PixmillTest;

TEST_F(PlatformTest, NativePathMapsDrivesUnderRootAndBackslashes) {
    const std::string root = m_root->path().string();
    const std::pair<const char*, std::string> cases[] = {
        {"C:\\PROBERPARAM\\ParaImg\\PinImage\\PinRefimage.bmp",
         root + "/C/PROBERPARAM/ParaImg/PinImage/PinRefimage.bmp"},
        {"d:\\x", root + "/D/x"},
        {"c:/mixed\\seps", root + "/C/mixed/seps"},
        {"C:name", root + "/C/name"},
        {"/data/frames\\img", "/data/frames/img"},
        {"relative\\dir\\f.bmp", "relative/dir/f.bmp"},
        {"1:\\not-a-drive", "1:/not-a-drive"}};
    for (const auto& [in, out] : cases) {
        EXPECT_EQ(platform::NativePath(std::string(in)), out) << in;
        EXPECT_EQ(platform::NativePath(platform::FromUtf8(in)), out) << in;
    }
    platform::SetRoot("/srv/pix///");
    EXPECT_EQ(platform::NativePath(std::string("E:\\a")), "/srv/pix/E/a");
}

TEST(PlatformText, Utf8RoundTripsAndInvalidInputBecomesReplacements) {
    const std::pair<std::wstring, std::string> valid[] = {
        {L"", ""},
        {L"\u00e9t\u00e9", "\xC3\xA9t\xC3\xA9"},
        {L"\u20ac\uFFFD", "\xE2\x82\xAC\xEF\xBF\xBD"},
        {L"\U0001F600x\U0010FFFF", "\xF0\x9F\x98\x80x\xF4\x8F\xBF\xBF"}};
    for (const auto& [wide, utf8] : valid) {
        EXPECT_EQ(platform::ToUtf8(wide), utf8) << utf8;
        EXPECT_EQ(platform::FromUtf8(utf8), wide) << utf8;
    }
    EXPECT_EQ(platform::ToUtf8(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(platform::FromUtf8(static_cast<const char*>(nullptr)), L"");

    // One U+FFFD per byte that starts no valid sequence.
    const std::pair<std::string, std::wstring> invalid[] = {
        {"a\xE2\x82", L"a\uFFFD\uFFFD"},                     // truncated at the end
        {"\xE2(\xA1", L"\uFFFD(\uFFFD"},                     // continuation missing
        {"\xC0\x80", L"\uFFFD\uFFFD"},                       // overlong
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},             // surrogate
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}};  // above U+10FFFF
    for (const auto& [utf8, wide] : invalid) EXPECT_EQ(platform::FromUtf8(utf8), wide);
    std::wstring bad{L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000)};
    EXPECT_EQ(platform::ToUtf8(bad), "a\xEF\xBF\xBD\xEF\xBF\xBD");

    // UTF-16: lone surrogates are replaced (pairs join in the recipe files).
    const std::u16string lone{u'a', char16_t(0xD83D), u'b', char16_t(0xDE00)};
    EXPECT_EQ(platform::FromUtf16(lone.data(), lone.size()), L"a\uFFFDb\uFFFD");
}

}  // namespace
}  // namespace pixmill::test
