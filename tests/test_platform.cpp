// Platform layer: path mapping, text conversion and file times.
#include <filesystem>
#include <string>

#include "TestSupport.h"
#include "platform/Platform.h"

namespace fs = std::filesystem;

namespace pixmill::test {
namespace {

using PlatformTest = PixmillTest;

TEST_F(PlatformTest, NativePathMapsDrivesUnderRootAndBackslashes) {
    const std::string root = m_root->path().string();
    struct Case {
        const char* in;
        std::string out;
    };
    const Case cases[] = {{"C:\\PROBERPARAM\\ParaImg\\PinImage\\PinRefimage.bmp",
                           root + "/C/PROBERPARAM/ParaImg/PinImage/PinRefimage.bmp"},
                          {"d:\\x", root + "/D/x"},
                          {"c:/mixed\\seps", root + "/C/mixed/seps"},
                          {"C:name", root + "/C/name"},
                          {"/data/frames\\img", "/data/frames/img"},
                          {"relative\\dir\\f.bmp", "relative/dir/f.bmp"},
                          {"1:\\not-a-drive", "1:/not-a-drive"}};
    for (const auto& c : cases) {
        EXPECT_EQ(platform::NativePath(std::string(c.in)), c.out) << c.in;
        EXPECT_EQ(platform::NativePath(platform::FromUtf8(c.in)), c.out) << c.in;
    }
    platform::SetRoot("/srv/pix///");
    EXPECT_EQ(platform::NativePath(std::string("E:\\a")), "/srv/pix/E/a");
}

TEST(PlatformText, Utf8RoundTripsEveryPlane) {
    struct Case {
        std::wstring wide;
        std::string utf8;
    };
    const Case cases[] = {{L"", ""},
                          {L"abc", "abc"},
                          {L"\u00e9t\u00e9", "\xC3\xA9t\xC3\xA9"},
                          {L"\u20ac\uFFFD", "\xE2\x82\xAC\xEF\xBF\xBD"},
                          {L"\U0001F600x\U00010348", "\xF0\x9F\x98\x80x\xF0\x90\x8D\x88"},
                          {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"}};
    for (const auto& c : cases) {
        EXPECT_EQ(platform::ToUtf8(c.wide), c.utf8) << c.utf8;
        EXPECT_EQ(platform::FromUtf8(c.utf8), c.wide) << c.utf8;
    }
    EXPECT_EQ(platform::ToUtf8(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(platform::FromUtf8(static_cast<const char*>(nullptr)), L"");
}

TEST(PlatformText, InvalidUtf8BecomesReplacementPerByte) {
    struct Case {
        std::string utf8;
        std::wstring wide;
    };
    const Case cases[] = {{"a\xE2\x82", L"a\uFFFD\uFFFD"},          // truncated at the end
                          {"\xF0\x9F\x98", L"\uFFFD\uFFFD\uFFFD"},  // truncated four-byte form
                          {"\xE2(\xA1", L"\uFFFD(\uFFFD"},          // continuation missing
                          {"\xC0\x80", L"\uFFFD\uFFFD"},            // overlong
                          {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},  // surrogate
                          {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
                          {"\xFFz", L"\uFFFDz"}};
    for (const auto& c : cases) EXPECT_EQ(platform::FromUtf8(c.utf8), c.wide) << c.utf8.size();
    // Wide values that are no scalar value come out as U+FFFD.
    std::wstring bad{L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000)};
    EXPECT_EQ(platform::ToUtf8(bad), "a\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(PlatformText, Utf16JoinsPairsAndReplacesLoneSurrogates) {
    struct Case {
        std::u16string units;
        std::wstring wide;
    };
    const Case cases[] = {{u"plain", L"plain"},
                          {u"\xD83D\xDE00", L"\U0001F600"},
                          {{u'a', char16_t(0xD83D), u'b'}, L"a\uFFFDb"},
                          {{char16_t(0xDE00), char16_t(0xD83D)}, L"\uFFFD\uFFFD"},
                          {{u'x', char16_t(0xDBFF)}, L"x\uFFFD"}};
    for (const auto& c : cases)
        EXPECT_EQ(platform::FromUtf16(c.units.data(), c.units.size()), c.wide);
}

TEST_F(PlatformTest, FileLastWriteRoundTripsIn100nsUnits) {
    const std::string file = platform::NativePath(std::string("C:\\t\\stamp.log"));
    platform::CreateParentDirectories(file);
    ASSERT_TRUE(platform::WriteWholeFile(file, "0"));
    const int64_t now = platform::NowFileTime();
    for (int64_t t : {now, now - 1, now - int64_t{6048000000003}, int64_t{125911584001234567}}) {
        ASSERT_TRUE(platform::SetFileLastWrite(file, t));
        EXPECT_EQ(platform::FileLastWrite(file), t);
    }
    EXPECT_EQ(platform::FileLastWrite(file + ".missing"), -1);
}

TEST_F(PlatformTest, NowFileTimeIsPinnedSecondsSince1601) {
    for (int64_t ms : {PinnedNowMillis(), int64_t{0}, int64_t{1999}, int64_t{1700000000999}}) {
        platform::PinClockForTesting(ms);
        EXPECT_EQ(platform::NowFileTime(), (ms / 1000 + 11644473600LL) * 10000000LL) << ms;
    }
}

}  // namespace
}  // namespace pixmill::test
