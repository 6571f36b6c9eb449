// The export description document: strict JSON, consistent with itself,
// with the public headers and with the shared library's symbol table.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "TestSupport.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

std::string DescribeExports() {
    const int bytes = PixmillDescribeExports(nullptr, 0);
    std::wstring text(static_cast<size_t>(bytes) / sizeof(wchar_t), L'\0');
    PixmillDescribeExports(text.data(), bytes);
    return platform::ToUtf8(text);
}

std::string Collapse(std::string s) {
    s = std::regex_replace(s, std::regex(R"(\s+)"), " ");
    s = std::regex_replace(s, std::regex(R"(\s*\*\s*)"), "* ");
    s = std::regex_replace(s, std::regex(R"(\s*([(),])\s*)"), "$1");
    return s;
}

// Both public headers, whitespace collapsed, so that a declaration reads as
// "PIXMILL_API int Add(int a,int b);".
std::string Headers() {
    const auto dir = std::filesystem::path(PIXMILL_SOURCE_DIR) / "include" / "pixmill";
    std::string all;
    for (const char* name : {"pixmill.h", "pixmill_ext.h"}) {
        std::ifstream in(dir / name);
        EXPECT_TRUE(in.good()) << (dir / name);
        std::stringstream s;
        s << in.rdbuf();
        all += s.str();
    }
    all = std::regex_replace(all, std::regex(R"(/\*[\s\S]*?\*/)"), " ");
    return Collapse(all);
}

std::string Names(const std::set<std::string>& names) {
    std::string out;
    for (const std::string& n : names) out += (out.empty() ? "" : ", ") + n;
    return out.empty() ? "(none)" : out;
}

class ExportTableTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        m_text = DescribeExports();
        ASSERT_FALSE(m_doc.Parse(m_text.c_str()).HasParseError()) << m_text.substr(0, 300);
        ASSERT_TRUE(m_doc.IsObject());
        ASSERT_TRUE(m_doc["exports"].IsArray());
    }
    std::string m_text;
    rapidjson::Document m_doc;
};

TEST_F(ExportTableTest, EveryExportIsDescribedCompletelyAndItsReferencesResolve) {
    const std::set<std::string> roles = {"number",     "flag",      "path",       "text",
                                         "pixels",     "pixels_out", "width",     "height",
                                         "size",       "chars",     "width_out",  "height_out",
                                         "text_out",   "handle",    "record_in",  "record_out",
                                         "callback",   "user",      "ints_out",   "count"};
    std::set<std::string> records;
    for (const auto& r : m_doc["records"].GetArray()) {
        records.insert(r["name"].GetString());
        EXPECT_GT(r["fields"].Size(), 0u) << r["name"].GetString();
    }
    std::set<std::string> seen;
    for (const auto& e : m_doc["exports"].GetArray()) {
        const std::string name = e["name"].GetString();
        SCOPED_TRACE(name);
        EXPECT_TRUE(seen.insert(name).second) << "described twice";
        EXPECT_GT(std::string(e["summary"].GetString()).size(), 3u);
        std::set<std::string> args;
        for (const auto& a : e["args"].GetArray()) args.insert(a["name"].GetString());
        for (const auto& a : e["args"].GetArray()) {
            SCOPED_TRACE(a["name"].GetString());
            EXPECT_EQ(roles.count(a["role"].GetString()), 1u) << a["role"].GetString();
            EXPECT_GT(std::string(a["meaning"].GetString()).size(), 1u);
            if (a.HasMember("of")) {
                EXPECT_EQ(args.count(a["of"].GetString()), 1u) << a["of"].GetString();
            }
            const std::string role = a["role"].GetString();
            const bool needsOf = role == "width" || role == "height" || role == "size" || role == "chars" ||
                                 role == "width_out" || role == "height_out" || role == "count";
            if (needsOf) {
                EXPECT_TRUE(a.HasMember("of"));
            }
        }
        const auto& ret = e["returns"];
        const std::string type = ret["type"].GetString();
        EXPECT_EQ(ret.HasMember("fields"), records.count(type) == 1) << type;
        if (type != "void") {
            EXPECT_FALSE(std::string(ret["meaning"].GetString()).empty());
        }
    }
}

// Each row's types and argument names are the header's: a row that drifts
// from its declaration (a renamed or retyped argument, a new one) fails here.
TEST_F(ExportTableTest, RowsMatchTheHeaderDeclarations) {
    const std::string headers = Headers();
    for (const auto& e : m_doc["exports"].GetArray()) {
        std::string decl = std::string("PIXMILL_API ") + e["returns"]["type"].GetString() + " " +
                           e["name"].GetString() + "(";
        const auto& args = e["args"].GetArray();
        if (args.Empty()) decl += "void";
        for (rapidjson::SizeType i = 0; i < args.Size(); ++i)
            decl += std::string(i ? "," : "") + args[i]["type"].GetString() + " " + args[i]["name"].GetString();
        decl = Collapse(decl + ");");
        EXPECT_NE(headers.find(decl), std::string::npos) << "no declaration " << decl;
    }
}

// The table names exactly the C functions the shared library exports. C++
// symbols are left out here: that none escapes is a question of the
// library's visibility, not of this table.
TEST_F(ExportTableTest, NamesExactlyTheLibrarysExportedFunctions) {
    const std::string command = "nm -D --defined-only '" PIXMILL_SHARED_LIBRARY "'";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string out;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) out.append(buf.data(), n);
    ASSERT_EQ(::pclose(pipe), 0) << command;

    std::set<std::string> exported;
    std::istringstream lines(out);
    std::string address, kind, symbol;
    while (lines >> address >> kind >> symbol)
        if ((kind == "T" || kind == "W") && symbol.rfind("_Z", 0) != 0) exported.insert(symbol);
    ASSERT_GT(exported.size(), 10u) << out;

    std::set<std::string> described;
    for (const auto& e : m_doc["exports"].GetArray()) described.insert(e["name"].GetString());
    std::set<std::string> missing, extra;
    for (const std::string& s : exported)
        if (!described.count(s)) missing.insert(s);
    for (const std::string& s : described)
        if (!exported.count(s)) extra.insert(s);
    EXPECT_TRUE(missing.empty()) << "exported but not described: " << Names(missing);
    EXPECT_TRUE(extra.empty()) << "described but not exported: " << Names(extra);
}

struct CopyCase {
    const char* label;
    int capacityChars;  // -1: the whole document
};

class ExportTableCopyTest : public PixmillTest, public ::testing::WithParamInterface<CopyCase> {};

// The document is copied as GetFilterList copies its own: at most the
// capacity, no terminator, the return value always the whole size.
TEST_P(ExportTableCopyTest, CopiesAtMostTheCapacityAndReturnsTheWholeSize) {
    const int whole = PixmillDescribeExports(nullptr, 0);
    ASSERT_GT(whole, 0);
    ASSERT_EQ(whole % static_cast<int>(sizeof(wchar_t)), 0);
    const int wholeChars = whole / static_cast<int>(sizeof(wchar_t));
    const int chars = GetParam().capacityChars < 0 ? wholeChars : GetParam().capacityChars;
    std::wstring buffer(static_cast<size_t>(wholeChars) + 8, L'\x7f');
    EXPECT_EQ(PixmillDescribeExports(buffer.data(), chars * static_cast<int>(sizeof(wchar_t))), whole);
    std::wstring full(static_cast<size_t>(wholeChars), L'\0');
    PixmillDescribeExports(full.data(), whole);
    EXPECT_EQ(buffer.substr(0, static_cast<size_t>(chars)), full.substr(0, static_cast<size_t>(chars)));
    for (size_t i = static_cast<size_t>(chars); i < buffer.size(); ++i)
        ASSERT_EQ(buffer[i], L'\x7f') << "written past the capacity at " << i;
}

INSTANTIATE_TEST_SUITE_P(Capacities, ExportTableCopyTest,
                         ::testing::Values(CopyCase{"Nothing", 0}, CopyCase{"Seven", 7},
                                           CopyCase{"Whole", -1}),
                         [](const auto& info) { return std::string(info.param.label); });

}  // namespace
}  // namespace pixmill::test
