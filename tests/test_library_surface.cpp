// What the shared library shows the outside: its dynamic symbol table holds
// exactly the C functions declared PIXMILL_API in the public headers, its
// SONAME and file name carry the version that PixmillVersion reports, and it
// leaves the host's syslog identity alone.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>

#include "TestSupport.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

#if defined(PIXMILL_LIBRARY_FILE) && defined(PIXMILL_PUBLIC_HEADER_DIR)
namespace pixmill::test {
namespace {

namespace fs = std::filesystem;

std::string ReadText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Standard output of a shell command, or nullopt if it could not run or
// exited non-zero.
std::optional<std::string> Output(const std::string& command) {
    FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
    if (!pipe) return std::nullopt;
    std::string out;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) out.append(buf.data(), n);
    int status = ::pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return out;
}

// Names of the functions a header declares with PIXMILL_API: comments and
// preprocessor lines (the macro's own definition) are dropped first; the
// name is the identifier just before the declaration's first parenthesis.
std::set<std::string> DeclaredExports(std::string text) {
    text = std::regex_replace(text, std::regex(R"(/\*[^*]*\*+([^/*][^*]*\*+)*/)"), " ");
    text = std::regex_replace(text, std::regex(R"(//[^\n]*)"), " ");
    text = std::regex_replace(text, std::regex(R"(\\\n)"), " ");
    text = std::regex_replace(text, std::regex(R"((^|\n)[ \t]*#[^\n]*)"), "\n");
    std::set<std::string> names;
    const std::regex declaration(R"(\bPIXMILL_API\b[^;{(]*?\b([A-Za-z_]\w*)\s*\()");
    for (std::sregex_iterator it(text.begin(), text.end(), declaration), end; it != end; ++it)
        names.insert((*it)[1]);
    return names;
}

// Symbol names of `nm -D` output, without their version suffix.
std::set<std::string> SymbolNames(const std::string& nmOutput) {
    std::set<std::string> names;
    std::istringstream lines(nmOutput);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string field, last;
        while (fields >> field) last = field;
        if (last.empty()) continue;
        names.insert(last.substr(0, last.find('@')));
    }
    return names;
}

std::string Join(const std::set<std::string>& names) {
    std::string out;
    for (const std::string& n : names) out += "\n  " + n;
    return out;
}

struct HeaderCase {
    const char* text;
    std::set<std::string> names;
};

class DeclaredExportsParse : public ::testing::TestWithParam<HeaderCase> {};

TEST_P(DeclaredExportsParse, FindsExactlyTheDeclaredFunctions) {
    EXPECT_EQ(DeclaredExports(GetParam().text), GetParam().names);
}

INSTANTIATE_TEST_SUITE_P(
    Headers, DeclaredExportsParse,
    ::testing::Values(
        HeaderCase{"PIXMILL_API int Add(int a, int b);", {"Add"}},
        HeaderCase{"PIXMILL_API PinFindResult\n    VBcvPinFind(const char* path,\n int n);\n"
                   "PIXMILL_API const char* PixmillLastError(void);",
                   {"VBcvPinFind", "PixmillLastError"}},
        // The macro's definition, a commented-out declaration and a
        // function-pointer type are not exports.
        HeaderCase{"#define PIXMILL_API __declspec(dllexport)\n"
                   "#  define PIXMILL_API \\\n  __attribute__((visibility(\"default\")))\n"
                   "/* PIXMILL_API int Old(void); */\n// PIXMILL_API int Older(void);\n"
                   "typedef void (*PixmillTraceSink)(const char* line, void* user);\n"
                   "PIXMILL_API void PixmillSetTraceSink(PixmillTraceSink sink, void* user);",
                   {"PixmillSetTraceSink"}}));

std::set<std::string> PublicDeclarations() {
    std::set<std::string> declared;
    for (const auto& entry : fs::directory_iterator(PIXMILL_PUBLIC_HEADER_DIR)) {
        if (entry.path().extension() != ".h") continue;
        std::set<std::string> names = DeclaredExports(ReadText(entry.path()));
        declared.insert(names.begin(), names.end());
    }
    return declared;
}

TEST(LibrarySymbols, ExportsExactlyTheFunctionsDeclaredInThePublicHeaders) {
    std::optional<std::string> nm = Output("nm -D --defined-only '" PIXMILL_LIBRARY_FILE "'");
    if (!nm) GTEST_SKIP() << "nm could not read " PIXMILL_LIBRARY_FILE;
    const std::set<std::string> exported = SymbolNames(*nm);
    const std::set<std::string> declared = PublicDeclarations();
    ASSERT_GT(declared.size(), 40u) << "the public headers were not found or not parsed";

    std::set<std::string> undeclared, missing;
    for (const std::string& n : exported)
        if (!declared.count(n)) undeclared.insert(n);
    for (const std::string& n : declared)
        if (!exported.count(n)) missing.insert(n);
    EXPECT_TRUE(undeclared.empty()) << "exported but not declared PIXMILL_API:" << Join(undeclared);
    EXPECT_TRUE(missing.empty()) << "declared PIXMILL_API but not exported:" << Join(missing);
}

TEST(LibrarySymbols, NeverSetsTheProcessSyslogIdentity) {
    std::optional<std::string> nm = Output("nm -D --undefined-only '" PIXMILL_LIBRARY_FILE "'");
    if (!nm) GTEST_SKIP() << "nm could not read " PIXMILL_LIBRARY_FILE;
    const std::set<std::string> imported = SymbolNames(*nm);
    for (const char* processWide : {"openlog", "closelog", "setlogmask"})
        EXPECT_EQ(imported.count(processWide), 0u) << processWide;
}

TEST(LibraryVersion, FileNameAndSonameCarryTheReportedVersion) {
    const std::string version = PixmillVersion();
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(version, parts, std::regex(R"((\d+)\.\d+\.\d+)"))) << version;

    const fs::path real = fs::canonical(PIXMILL_LIBRARY_FILE);
    EXPECT_EQ(real.filename().string(), "libpixmill.so." + version);

    std::optional<std::string> dynamic = Output("readelf -d '" PIXMILL_LIBRARY_FILE "'");
    if (!dynamic) GTEST_SKIP() << "readelf could not read " PIXMILL_LIBRARY_FILE;
    std::smatch soname;
    ASSERT_TRUE(std::regex_search(*dynamic, soname, std::regex(R"(\(SONAME\)[^\[]*\[([^\]]*)\])")));
    EXPECT_EQ(soname[1].str(), "libpixmill.so." + parts[1].str());
}

class LibraryVersionCall : public PixmillTest {};

TEST_F(LibraryVersionCall, StartsANewCallLikeEveryOtherExport) {
    EXPECT_EQ(ImageBufferRelease(reinterpret_cast<void*>(0x10)), -1);  // not a live handle
    ASSERT_STRNE(PixmillLastError(), "");
    const char* first = PixmillVersion();
    EXPECT_STREQ(PixmillLastError(), "");
    EXPECT_EQ(PixmillVersion(), first) << "the text is static";
}

}  // namespace
}  // namespace pixmill::test
#endif
