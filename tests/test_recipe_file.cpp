// Recipe files: size limits, the byte-order marks that choose the encoding,
// and line ends.
#include <gtest/gtest.h>

#include <fstream>

#include "TestFilters.h"
#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "platform/Platform.h"
#include "recipe/Recipe.h"

namespace pixmill::test {
namespace {

// A two-filter recipe whose name holds a character outside the BMP, which
// UTF-16 files store as a surrogate pair.
const std::wstring kRecipe =
    L"{\"Name\":\"caf\u00e9 \U0001F600\",\"Filters\":[{\"Key\":\"s\",\"Type\":\"TestSource\","
    L"\"Pins\":[{\"Key\":-1}]},{\"Key\":\"e\",\"Type\":\"TestResult\",\"IsEndPoint\":true,"
    L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"s\",\"PinKey\":-1}}]}]}";

std::string Utf16Bytes(const std::wstring& text, bool bigEndian) {
    std::string bytes;
    auto put = [&](uint32_t unit) {
        char hi = static_cast<char>(unit >> 8), lo = static_cast<char>(unit & 0xFF);
        bytes += bigEndian ? hi : lo;
        bytes += bigEndian ? lo : hi;
    };
    for (wchar_t c : text) {
        auto cp = static_cast<uint32_t>(c);
        if (cp >= 0x10000) {
            put(0xD800 + ((cp - 0x10000) >> 10));
            put(0xDC00 + ((cp - 0x10000) & 0x3FF));
        } else {
            put(cp);
        }
    }
    return bytes;
}

class RecipeFileTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        auto& r = FilterRegistry::Instance();
        r.Register(L"TestSource",
                   [] { return static_cast<IBaseObject*>(new CMasterSourceFilter()); });
        r.Register(L"TestResult", [] { return static_cast<IBaseObject*>(new CResultFilter()); });
    }
    void TearDown() override {
        FilterRegistry::Instance().Unregister(L"TestSource");
        FilterRegistry::Instance().Unregister(L"TestResult");
        PixmillTest::TearDown();
    }

    // Writes the bytes under the root's drive C and returns the prober path.
    std::wstring Write(const std::string& name, const std::string& bytes) {
        auto dir = m_root->path() / "C" / "recipes";
        std::filesystem::create_directories(dir);
        std::ofstream(dir / name, std::ios::binary) << bytes;
        return L"C:\\recipes\\" + platform::FromUtf8(name);
    }

    static void ExpectLoaded(const std::wstring& text) {
        CRecipe recipe(text.c_str());
        EXPECT_EQ(recipe.Name(), L"caf\u00e9 \U0001F600");
        ASSERT_EQ(recipe.Filters().size(), 2u);
        ASSERT_NE(recipe.FindPin(L"e", 1), nullptr);
        EXPECT_EQ(recipe.FindPin(L"e", 1)->GetLink(), recipe.FindPin(L"s", -1));
    }
};

struct EncodingCase {
    const char* label;
    std::string bytes;
};

class RecipeFileEncodingTest : public RecipeFileTest,
                               public ::testing::WithParamInterface<EncodingCase> {};

TEST_P(RecipeFileEncodingTest, DecodesToTheSameText) {
    std::wstring text = ReadRecipeFile(Write("r.json", GetParam().bytes).c_str());
    EXPECT_EQ(text, kRecipe) << GetParam().label;
    ExpectLoaded(text);
}

INSTANTIATE_TEST_SUITE_P(
    Recipe, RecipeFileEncodingTest,
    ::testing::Values(
        EncodingCase{"utf8", platform::ToUtf8(kRecipe)},
        EncodingCase{"utf8 bom", "\xEF\xBB\xBF" + platform::ToUtf8(kRecipe)},
        EncodingCase{"utf16le bom", "\xFF\xFE" + Utf16Bytes(kRecipe, false)},
        EncodingCase{"utf16be bom", "\xFE\xFF" + Utf16Bytes(kRecipe, true)},
        EncodingCase{"utf16le odd byte", "\xFF\xFE" + Utf16Bytes(kRecipe, false) + "x"},
        EncodingCase{"utf16be odd byte", "\xFE\xFF" + Utf16Bytes(kRecipe, true) + "x"},
        EncodingCase{"text ends at nul", platform::ToUtf8(kRecipe) + std::string("\0{garbage", 9)}),
    [](const auto& info) {
        std::string name = info.param.label;
        for (char& c : name)
            if (c == ' ') c = '_';
        return name;
    });

TEST_F(RecipeFileTest, CrLfLineEndsLoadTheSameRecipe) {
    std::string lf = platform::ToUtf8(kRecipe);
    for (const char* token : {"{", ",", "["}) {
        for (size_t at = lf.find(token); at != std::string::npos; at = lf.find(token, at + 2))
            lf.insert(at + 1, "\n");
    }
    std::string crlf;
    for (char c : lf) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    ASSERT_NE(crlf.find("\r\n"), std::string::npos);
    ExpectLoaded(ReadRecipeFile(Write("lf.json", lf).c_str()));
    ExpectLoaded(ReadRecipeFile(Write("crlf.json", crlf).c_str()));
}

struct SizeCase {
    size_t bytes;
    size_t textChars;
    size_t filters;
};

class RecipeFileSizeTest : public RecipeFileTest, public ::testing::WithParamInterface<SizeCase> {};

TEST_P(RecipeFileSizeTest, SmallFilesAreAbsentAndLargeOnesCut) {
    // The recipe with white space before its final brace, to the size asked.
    std::string body = platform::ToUtf8(kRecipe);
    body.pop_back();
    std::string bytes = "{\"A\":1}";
    if (GetParam().bytes > body.size() + 1)
        bytes = body + std::string(GetParam().bytes - body.size() - 1, ' ') + "}";
    bytes.resize(GetParam().bytes, ' ');
    std::wstring text = ReadRecipeFile(Write("big.json", bytes).c_str());
    EXPECT_EQ(text.size(), GetParam().textChars);
    EXPECT_EQ(CRecipe(text.c_str()).Filters().size(), GetParam().filters);
}

INSTANTIATE_TEST_SUITE_P(
    Recipe, RecipeFileSizeTest,
    ::testing::Values(SizeCase{9, 0, 0}, SizeCase{10, 10, 0},
                      // é and the emoji take 2 and 4 bytes for one character each
                      SizeCase{1048576, 1048576 - 4, 2}, SizeCase{1048577, 1048576 - 4, 0}));

TEST_F(RecipeFileTest, MissingOrUnreadablePathsGiveNoText) {
    Write("present.json", platform::ToUtf8(kRecipe));
    EXPECT_EQ(ReadRecipeFile(nullptr), L"");
    EXPECT_EQ(ReadRecipeFile(L""), L"");
    EXPECT_EQ(ReadRecipeFile(L"C:\\recipes\\absent.json"), L"");
    EXPECT_EQ(ReadRecipeFile(L"C:\\recipes"), L"");  // a folder
    EXPECT_EQ(ReadRecipeFile(L"C:\\recipes\\present.json"), kRecipe);
}

}  // namespace
}  // namespace pixmill::test
