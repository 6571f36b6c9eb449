// The filter registry and the description document that recipe editors read.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "TestFilters.h"
#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// Registered but not a filter: the description keeps an empty entry for it.
class CNotAFilter : public IBaseObject {
public:
    void Trace() override {}
};

class RegistryTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        auto& registry = FilterRegistry::Instance();
        registry.Register(L"TestCounting",
                          [] { return static_cast<IBaseObject*>(new CCountingFilter()); });
        registry.Register(L"TestNotAFilter",
                          [] { return static_cast<IBaseObject*>(new CNotAFilter()); });
    }
    void TearDown() override {
        FilterRegistry::Instance().Unregister(L"TestCounting");
        FilterRegistry::Instance().Unregister(L"TestNotAFilter");
        PixmillTest::TearDown();
    }
};

const wchar_t* kCountingEntry =
    L"{\"Name\":\"TestCounting\",\"Pin\":[{ \"Name\":\"IN_In\", \"Key\":1},{ \"Name\":\"OUT_Out\", "
    L"\"Key\":-1},], \"Param\":[{ \"Name\":\"Offset\",\"Type\":\"int\",\"Attributes\":[{\"Name\":"
    L"\"value\",\"Value\":\"0\"},{\"Name\":\"default\",\"Value\":\"0\"},{\"Name\":\"min\","
    L"\"Value\":"
    L"\"-255\"},{\"Name\":\"max\",\"Value\":\"255\"},{\"Name\":\"step\",\"Value\":\"1\"},]}, { "
    L"\"Name\":\"Invert\",\"Type\":\"bool\"}, { \"Name\":\"Label\",\"Type\":\"std::wstring\"}, ]},";

TEST_F(RegistryTest, CreateByNameAndNullForUnknownOrNull) {
    auto& registry = FilterRegistry::Instance();
    std::unique_ptr<IBaseObject> made(registry.Create(L"TestCounting"));
    ASSERT_NE(made, nullptr);
    EXPECT_NE(dynamic_cast<CCountingFilter*>(made.get()), nullptr);
    EXPECT_EQ(registry.Create(L"testcounting"), nullptr);
    EXPECT_EQ(registry.Create(L"NoSuchFilter"), nullptr);
    EXPECT_EQ(registry.Create(nullptr), nullptr);

    auto names = registry.List();
    EXPECT_NE(std::find(names.begin(), names.end(), L"TestCounting"), names.end());
}

TEST_F(RegistryTest, RegisterReplacesAndIgnoresNullName) {
    auto& registry = FilterRegistry::Instance();
    const size_t before = registry.List().size();
    registry.Register(L"TestCounting", [] { return static_cast<IBaseObject*>(new CPassFilter()); });
    registry.Register(nullptr, [] { return static_cast<IBaseObject*>(new CPassFilter()); });
    EXPECT_EQ(registry.List().size(), before);
    std::unique_ptr<IBaseObject> made(registry.Create(L"TestCounting"));
    EXPECT_NE(dynamic_cast<CPassFilter*>(made.get()), nullptr);
}

TEST_F(RegistryTest, DescriptionEntriesAreExactAndInstancesDestroyed) {
    const int alive = CCountingFilter::s_alive;
    std::wstring doc = FilterRegistry::Instance().Describe();
    EXPECT_EQ(CCountingFilter::s_alive, alive);
    EXPECT_EQ(doc.rfind(L"{\"filters\":[", 0), 0u);
    EXPECT_EQ(doc.substr(doc.size() - 4), L"},]}");
    EXPECT_NE(doc.find(kCountingEntry), std::wstring::npos) << platform::ToUtf8(doc);
    EXPECT_NE(doc.find(L"{},"), std::wstring::npos);  // the entry of a non-filter
}

TEST_F(RegistryTest, GetFilterListCopiesAtMostTheBufferAndReturnsFullBytes) {
    const std::wstring doc = FilterRegistry::Instance().Describe();
    const int fullBytes = static_cast<int>(doc.size() * sizeof(wchar_t));
    EXPECT_EQ(GetFilterList(nullptr, 0), fullBytes);

    // A small buffer: the return still counts the whole document, and no
    // byte past the stated size is touched.
    std::vector<wchar_t> small(16, L'#');
    EXPECT_EQ(GetFilterList(small.data(), 10 * sizeof(wchar_t)), fullBytes);
    EXPECT_EQ(std::wstring(small.data(), 10), doc.substr(0, 10));
    EXPECT_EQ(small[10], L'#');

    std::vector<wchar_t> big(doc.size() + 4, L'\0');
    EXPECT_EQ(GetFilterList(big.data(), static_cast<int>(big.size() * sizeof(wchar_t))), fullBytes);
    EXPECT_EQ(std::wstring(big.data()), doc);

    EXPECT_EQ(GetFilterList(big.data(), -5), fullBytes);  // negative size copies nothing
}

TEST_F(RegistryTest, GetFilterInfoCountsCharactersAndDeliversFirstPart) {
    const std::wstring doc = FilterRegistry::Instance().Describe();
    const int chars = static_cast<int>(doc.size());
    // A buffer sized from the return value receives `chars` bytes only: the
    // first part of the document, as callers have always received.
    std::vector<wchar_t> buf(doc.size() + 4, L'\0');
    EXPECT_EQ(GetFilterInfo(L"TestCounting", buf.data(), chars), chars);
    const size_t delivered = chars / sizeof(wchar_t);
    EXPECT_EQ(std::wstring(buf.data(), delivered), doc.substr(0, delivered));
    EXPECT_EQ(buf[delivered + 1], L'\0');
    EXPECT_EQ(GetFilterInfo(nullptr, nullptr, 0), chars);
}

TEST_F(RegistryTest, DescriptionExportsLogTheirTagsAtLevelTwo) {
    PixmillSetLogLevels(2, 6, 6);
    GetFilterList(nullptr, 0);
    GetFilterInfo(L"Abc", nullptr, 0);
    const std::string log = ReadLog();
    EXPECT_NE(log.find("[2] <GetFilterList>\n"), std::string::npos) << log;
    EXPECT_NE(log.find("[2] </GetFilterList>\n"), std::string::npos);
    EXPECT_NE(log.find("[2] <GetFilterInfo Filter=\"Abc\">\n"), std::string::npos);
    EXPECT_NE(log.find("[2] </GetFilterInfo>\n"), std::string::npos);
}

}  // namespace
}  // namespace pixmill::test
