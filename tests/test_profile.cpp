// The ini reader and writer: Windows profile semantics on the prober's files.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "platform/Platform.h"
#include "platform/Profile.h"

namespace pixmill::test {
namespace {

using platform::ProfileInt;
using platform::ProfileString;
using platform::WriteProfileString;

const wchar_t* const kIni = L"C:\\PROBERFILES\\Parameter\\Temporary.ini";

class ProfileTest : public PixmillTest {
protected:
    void Put(const std::string& text) {
        const std::string path = platform::NativePath(std::wstring(kIni));
        platform::CreateParentDirectories(path);
        ASSERT_TRUE(platform::WriteWholeFile(path, text));
    }
    std::string Text() const { return ReadFile(platform::NativePath(std::wstring(kIni))); }
};

TEST_F(ProfileTest, IntegerReads) {
    Put("; settings\r\n[PinAlign]\r\nMarginX = 12 px\r\nNeg=-7\r\nWord=abc\r\nBig=99999999999\r\n"
        "Empty=\r\n[Other]\r\nMarginX=99\r\n[pinalign]\r\nLate=5\r\n");
    struct Case {
        const wchar_t* section;
        const wchar_t* key;
        int expected;
    } cases[] = {
        {L"PINALIGN", L"marginx", 12},  // case-insensitive, leading number of "12 px"
        {L"PinAlign", L"Neg", -7},
        {L"PinAlign", L"Word", 33},     // no leading number: the default
        {L"PinAlign", L"Empty", 33},
        {L"PinAlign", L"Big", 2147483647},  // saturates
        {L"PinAlign", L"Missing", 33},
        {L"Nowhere", L"MarginX", 33},
        {L"Other", L"MarginX", 99},     // the key of the other section
        {L"PinAlign", L"Late", 33},     // only the first matching section is read
    };
    for (const Case& c : cases)
        EXPECT_EQ(ProfileInt(kIni, c.section, c.key, 33), c.expected)
            << platform::ToUtf8(c.section) << "/" << platform::ToUtf8(c.key);
    EXPECT_EQ(ProfileString(kIni, L"pinalign", L"MarginX", L"d"), L"12 px");
}

TEST_F(ProfileTest, MissingOrUnreadableFileGivesDefaults) {
    EXPECT_EQ(ProfileInt(kIni, L"PINALIGN", L"X", 4), 4);
    // A folder where the file should be.
    std::filesystem::create_directories(platform::NativePath(std::wstring(kIni)));
    EXPECT_EQ(ProfileInt(kIni, L"PINALIGN", L"X", 5), 5);
    EXPECT_FALSE(WriteProfileString(kIni, L"PINALIGN", L"X", L"1"));
}

TEST_F(ProfileTest, WritesKeepEveryOtherLine) {
    struct Case {
        const char* before;
        const wchar_t* section;
        const wchar_t* key;
        const char* after;
    } cases[] = {
        // A new file: section and key, CR LF line ends.
        {nullptr, L"EdgeProfile", L"Count", "[EdgeProfile]\r\nCount=3\r\n"},
        // Replaced in place; the file's spelling of the key and the comment
        // lines stay.
        {"; c\r\n[edgeprofile]\r\n  count = 1\r\nB=2\r\n", L"EdgeProfile", L"COUNT",
         "; c\r\n[edgeprofile]\r\n  count =3\r\nB=2\r\n"},
        // A new key goes after the section's last line, before the blank
        // line and the next section; LF-only files stay LF.
        {"[A]\nx=1\n\n[B]\ny=2\n", L"a", L"Count", "[A]\nx=1\nCount=3\n\n[B]\ny=2\n"},
        // A new section is appended; a missing final line end is added first.
        {"[A]\nx=1", L"B", L"Count", "[A]\nx=1\n[B]\nCount=3\n"},
        // A section header as the last line, without a line end.
        {"[A]\r\nx=1\r\n[B]", L"B", L"Count", "[A]\r\nx=1\r\n[B]\r\nCount=3\r\n"},
    };
    for (const Case& c : cases) {
        const std::string path = platform::NativePath(std::wstring(kIni));
        std::filesystem::remove(path);
        if (c.before) Put(c.before);
        ASSERT_TRUE(WriteProfileString(kIni, c.section, c.key, L"3"));
        EXPECT_EQ(Text(), c.after) << (c.before ? c.before : "(no file)");
        EXPECT_EQ(ProfileInt(kIni, c.section, c.key, 0), 3);
    }
    // Nothing but the file itself is left in its folder.
    int files = 0;
    for (auto& e : std::filesystem::directory_iterator(
             std::filesystem::path(platform::NativePath(std::wstring(kIni))).parent_path()))
        files += e.is_regular_file();
    EXPECT_EQ(files, 1);
}

}  // namespace
}  // namespace pixmill::test
