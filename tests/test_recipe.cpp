// Recipes: loading and linking, running end points, parameter overrides,
// the result document, the single-filter path, and recipe files.
#include <gtest/gtest.h>
#include <pthread.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sys/stat.h>

#include "FilterHarness.h"
#include "TestFilters.h"
#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "platform/Platform.h"
#include "recipe/Recipe.h"

namespace pixmill::test {
namespace {

// A node of type TestResult (or `type`) with an input pin linked to
// `upstream`'s output when given, and the "Result" parameter set.
std::wstring Node(const std::wstring& key, const std::wstring& name, bool endPoint = false,
                  const std::wstring& upstream = L"", const std::wstring& result = L"",
                  const std::wstring& type = L"TestResult") {
    std::wstring n = L"{\"Name\":\"" + name + L"\",\"Key\":\"" + key + L"\",\"Type\":\"" + type +
                     L"\",\"Enable\":true,\"IsEndPoint\":" + (endPoint ? L"true" : L"false") +
                     L",\"Params\":[{\"Key\":\"Result\",\"Value\":\"" + Quoted(result) +
                     L"\"}],\"Pins\":[{\"Type\":\"IN\",\"Name\":\"In\",\"Key\":1";
    if (!upstream.empty()) n += L",\"Link\":{\"FilterKey\":\"" + upstream + L"\",\"PinKey\":-1}";
    return n + L"},{\"Type\":\"OUT\",\"Name\":\"Out\",\"Key\":-1}]}";
}

std::wstring Source(const std::wstring& key, const std::wstring& name = L"Src") {
    return L"{\"Name\":\"" + name + L"\",\"Key\":\"" + key +
           L"\",\"Type\":\"TestSource\",\"Pins\":[{\"Key\":-1}]}";
}

std::wstring RecipeText(std::initializer_list<std::wstring> nodes) {
    std::wstring text = L"{\"Name\":\"r\",\"Filters\":[";
    const wchar_t* sep = L"";
    for (const std::wstring& n : nodes) text += sep + n, sep = L",";
    return text + L"]}";
}

std::wstring EntryText(const std::wstring& name, const std::wstring& key, const std::wstring& res) {
    return L"{\"Name\":\"" + name + L"\",\"Key\":\"" + key + L"\",\"Result\":" + res + L"}";
}

// The images of a run, freed with the run.
struct Outputs {
    std::vector<cv::Mat*> raw;
    ~Outputs() {
        for (cv::Mat* m : raw) delete m;
    }
    std::vector<int> FirstPixels() const {
        std::vector<int> v;
        for (cv::Mat* m : raw) v.push_back(m->empty() ? -1 : m->at<uint8_t>(0, 0));
        return v;
    }
};

class RecipeTest : public PixmillTest {
protected:
    void TearDown() override {
        EXPECT_EQ(CCountingFilter::s_alive, 0) << "a filter outlived its recipe";
        PixmillTest::TearDown();
    }

    std::wstring Run(const std::wstring& text, const wchar_t* overrides = nullptr) {
        CRecipe recipe(text.c_str());
        std::wstring result = L"stale";
        RecipeProcess(recipe, result, masters, out.raw, overrides);
        return result;
    }

    ScopedTestTypes types;
    cv::Mat img = cv::Mat(2, 2, CV_8UC1, cv::Scalar(7));
    std::vector<MasterImage> masters{{&img, 1}};
    Outputs out;
};

// The library's focus recipe, its two types played by test filters.
TEST_F(RecipeTest, WorkedExampleLinksForwardAndListsEndPointFirst) {
    const wchar_t* text =
        LR"({"Name":"recipe XX","Comment":"2023-10-31","Filters":[{"Name":"MultiPeakFocusMeasureFilter","Key":"c892439f7e6ccf1a","Type":"TestResult","Enable":true,"IsEndPoint":true,"Params":[{"Key":"Thresh Mode","Value":"0"},{"Key":"Image Result","Value":"false"}],"Pins":[{"Type":"IN","Name":"In","Link":{"FilterKey":"11c7add8e4da15db","PinKey":-1},"Key":1},{"Type":"OUT","Name":"Out","Key":-1}]},{"Name":"SourceFilter","Key":"11c7add8e4da15db","Type":"TestSource","Enable":true,"IsEndPoint":false,"Params":[{"Key":"ImageID","Value":"1"},{"Key":"Path","Value":""}],"Pins":[{"Type":"OUT","Name":"Out","Key":-1}]}]})";
    CRecipe recipe(text);
    EXPECT_EQ(recipe.Name(), L"recipe XX");
    EXPECT_EQ(recipe.Comment(), L"2023-10-31");
    ASSERT_EQ(recipe.Filters().size(), 2u);
    IPin* in = recipe.FindPin(L"c892439f7e6ccf1a", 1);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(in->GetLink(), recipe.FindPin(L"11c7add8e4da15db", -1));
    EXPECT_NE(in->GetLink(), nullptr);

    std::wstring result;
    RecipeProcess(recipe, result, masters, out.raw, nullptr);
    // The source is the last filter and not at index 0, so its entry keeps
    // the comma that the walk puts after it.
    EXPECT_EQ(result,
              L"{ \"Count\":\"2\", \"Filter\":[" +
                  EntryText(L"MultiPeakFocusMeasureFilter", L"c892439f7e6ccf1a", L"{\"Calls\":1}") +
                  L"," + EntryText(L"SourceFilter", L"11c7add8e4da15db", L"\"\"") + L",]}");
    EXPECT_EQ(out.FirstPixels(), std::vector<int>{7});
}

TEST_F(RecipeTest, EndPointFirstThenOthersInReverseDocumentOrder) {
    // Source -> Crop -> Otsu -> Corner, listed as Source, Crop, Corner, Otsu.
    std::wstring text =
        RecipeText({Source(L"s", L"Source"), Node(L"c", L"Crop", false, L"s", L"[1]"),
                    Node(L"k", L"Corner", true, L"o", L"{\"n\":4}"),
                    Node(L"o", L"Otsu", false, L"c", L"\"otsu\"")});
    EXPECT_EQ(Run(text),
              L"{ \"Count\":\"4\", \"Filter\":[" + EntryText(L"Corner", L"k", L"{\"n\":4}") + L"," +
                  EntryText(L"Otsu", L"o", L"\"otsu\"") + L"," + EntryText(L"Crop", L"c", L"[1]") +
                  L"," + EntryText(L"Source", L"s", L"\"\"") + L"]}");
    EXPECT_EQ(out.FirstPixels(), std::vector<int>{7});
}

TEST_F(RecipeTest, TwoEndPointsRunOnceEachGiveBothImagesAndOneEntry) {
    // The second end point pulls the first, which has already run.
    std::wstring text = RecipeText({Source(L"s"), Node(L"e1", L"E1", true, L"s", L"\"one\""),
                                    Node(L"e2", L"E2", true, L"e1", L"\"two\"")});
    CRecipe recipe(text.c_str());
    std::wstring result;
    RecipeProcess(recipe, result, masters, out.raw, nullptr);
    ASSERT_EQ(recipe.Filters().size(), 3u);
    EXPECT_EQ(result, L"{ \"Count\":\"3\", \"Filter\":[" + EntryText(L"E1", L"e1", L"\"one\"") +
                          L"," + EntryText(L"Src", L"s", L"\"\"") + L"]}");
    EXPECT_EQ(out.FirstPixels(), (std::vector<int>{7, 7}));
    EXPECT_EQ(dynamic_cast<CCountingFilter*>(recipe.Filters()[1])->procCalls, 1);
    EXPECT_EQ(dynamic_cast<CCountingFilter*>(recipe.Filters()[2])->procCalls, 1);
}

TEST_F(RecipeTest, WithoutEndPointNothingRuns) {
    std::wstring text = RecipeText({Source(L"s"), Node(L"a", L"A", false, L"s", L"\"a\"")});
    CRecipe recipe(text.c_str());
    std::wstring result;
    RecipeProcess(recipe, result, masters, out.raw, nullptr);
    EXPECT_EQ(result, L"{ \"Count\":\"2\", \"Filter\":[]}");
    EXPECT_TRUE(out.raw.empty());
    for (IFilter* f : recipe.Filters()) EXPECT_FALSE(f->IsProcessed());
}

struct OverrideCase {
    const char* label;
    const wchar_t* overrides;
    const wchar_t* first;   // result fragment of key "ka", name "Same"
    const wchar_t* second;  // result fragment of key "kb", name "Same"
};

class RecipeOverrideTest : public RecipeTest, public ::testing::WithParamInterface<OverrideCase> {};

TEST_P(RecipeOverrideTest, MemberByKeyElseByName) {
    std::wstring text = RecipeText({Source(L"s"), Node(L"ka", L"Same", false, L"s", L"\"a\""),
                                    Node(L"kb", L"Same", false, L"ka", L"\"b\""),
                                    Node(L"ke", L"End", true, L"kb", L"\"e\"")});
    const OverrideCase& c = GetParam();
    EXPECT_EQ(Run(text, c.overrides),
              L"{ \"Count\":\"4\", \"Filter\":[" + EntryText(L"End", L"ke", L"\"e\"") + L"," +
                  EntryText(L"Same", L"kb", c.second) + L"," + EntryText(L"Same", L"ka", c.first) +
                  L"," + EntryText(L"Src", L"s", L"\"\"") + L"]}")
        << c.label;
}

#define SET_RESULT(v) L"{\"Params\":[{\"Key\":\"Result\",\"Value\":\"" v L"\"}]}"
INSTANTIATE_TEST_SUITE_P(
    Recipe, RecipeOverrideTest,
    ::testing::Values(
        OverrideCase{"none", nullptr, L"\"a\"", L"\"b\""},
        OverrideCase{"by key", L"{\"ka\":" SET_RESULT(L"[1]") L"}", L"[1]", L"\"b\""},
        OverrideCase{"by name", L"{\"Same\":" SET_RESULT(L"[2]") L"}", L"[2]", L"[2]"},
        OverrideCase{"key wins",
                     L"{\"Same\":" SET_RESULT(L"[2]") L",\"ka\":" SET_RESULT(L"[1]") L"}", L"[1]",
                     L"[2]"},
        OverrideCase{"malformed", L"{\"ka\":" SET_RESULT(L"[1]"), L"\"a\"", L"\"b\""},
        OverrideCase{"not an object", L"[{\"ka\":1}]", L"\"a\"", L"\"b\""},
        OverrideCase{"member not an object", L"{\"ka\":5,\"Same\":[1]}", L"\"a\"", L"\"b\""},
        // A fragment shorter than two characters is listed as "none".
        OverrideCase{"short result", L"{\"ka\":" SET_RESULT(L"7") L"}", L"\"none\"", L"\"b\""}));
#undef SET_RESULT

TEST_F(RecipeTest, BadNumbersLeaveAsExceptionsWithoutLeaks) {
    std::wstring bad =
        L"{\"Name\":\"c\",\"Key\":\"c\",\"Type\":\"TestCounting\",\"Params\":[{\"Key\":"
        L"\"Offset\",\"Value\":\"lots\"}]}";
    // While loading: the filters made before the bad node are destroyed.
    std::wstring text = RecipeText({Node(L"a", L"A"), Node(L"b", L"B"), bad});
    EXPECT_THROW(CRecipe recipe(text.c_str()), std::invalid_argument);
    EXPECT_EQ(CCountingFilter::s_alive, 0);

    // In an override.
    std::wstring counting = L"{\"Key\":\"c\",\"Type\":\"TestCounting\",\"IsEndPoint\":true}";
    EXPECT_THROW(Run(RecipeText({counting}),
                     L"{\"c\":{\"Params\":[{\"Key\":\"Offset\",\"Value\":\"99999999999\"}]}}"),
                 std::out_of_range);
    EXPECT_TRUE(out.raw.empty());

    // A failure that is no std::exception leaves through the pull; the images
    // of the end point that ran before stay in the caller's list.
    std::wstring thrower =
        L"{\"Key\":\"t\",\"Type\":\"TestThrowingInt\",\"IsEndPoint\":true,"
        L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"s\",\"PinKey\":-1}}]}";
    EXPECT_THROW(Run(RecipeText({Source(L"s"), Node(L"e", L"E", true, L"s"), thrower})), int);
    EXPECT_EQ(out.FirstPixels(), std::vector<int>{7});
}

TEST_F(RecipeTest, UnknownTypeIsDroppedAndLinksToItToo) {
    std::wstring text =
        RecipeText({Source(L"s"), Node(L"u", L"U", false, L"s", L"", L"NoSuchType"),
                    L"{\"Key\":\"x\",\"Name\":\"NoType\"}", Node(L"e", L"E", true, L"u")});
    CRecipe recipe(text.c_str());
    ASSERT_EQ(recipe.Filters().size(), 2u);
    EXPECT_EQ(recipe.FindPin(L"u", -1), nullptr);
    ASSERT_NE(recipe.FindPin(L"e", 1), nullptr);
    EXPECT_EQ(recipe.FindPin(L"e", 1)->GetLink(), nullptr);
    std::wstring result;
    RecipeProcess(recipe, result, masters, out.raw, nullptr);
    EXPECT_TRUE(out.raw.empty());  // the end point's input is unlinked and empty
}

struct LinkCase {
    const char* label;
    const wchar_t* pins;  // the Pins array of the end point "a"
    bool linked;          // whether a's pin 1 ends up linked
    int images;           // images the run yields
};

class RecipeLinkTest : public RecipeTest, public ::testing::WithParamInterface<LinkCase> {};

TEST_P(RecipeLinkTest, OddLinksTerminate) {
    const LinkCase& c = GetParam();
    std::wstring a =
        std::wstring(L"{\"Key\":\"a\",\"Type\":\"TestPass\",\"IsEndPoint\":true,\"Pins\":") +
        c.pins + L"}";
    std::wstring b =
        L"{\"Key\":\"b\",\"Type\":\"TestPass\",\"Pins\":[{\"Key\":1,\"Link\":{"
        L"\"FilterKey\":\"a\",\"PinKey\":-1}},{\"Key\":2,\"Link\":{\"FilterKey\":"
        L"\"a\",\"PinKey\":1}}]}";
    CRecipe recipe(RecipeText({a, b, Source(L"s")}).c_str());
    ASSERT_EQ(recipe.Filters().size(), 3u);
    EXPECT_EQ(recipe.FindPin(L"a", 1)->GetLink() != nullptr, c.linked) << c.label;
    std::wstring result;
    RecipeProcess(recipe, result, masters, out.raw, nullptr);
    EXPECT_EQ(
        result.rfind(L"{ \"Count\":\"3\", \"Filter\":[{\"Name\":\"##Filter\",\"Key\":\"a\"", 0), 0u)
        << c.label;
    EXPECT_EQ(out.raw.size(), static_cast<size_t>(c.images)) << c.label;
}

#define LINK(k, fk, pk) L"{\"Key\":" k L",\"Link\":{\"FilterKey\":" fk L",\"PinKey\":" pk L"}}"
INSTANTIATE_TEST_SUITE_P(
    Recipe, RecipeLinkTest,
    ::testing::Values(LinkCase{"source", L"[" LINK(L"1", L"\"s\"", L"-1") L"]", true, 2},
                      LinkCase{"cycle a-b", L"[" LINK(L"1", L"\"b\"", L"-1") L"]", true, 0},
                      LinkCase{"self link", L"[" LINK(L"1", L"\"a\"", L"-1") L"]", true, 0},
                      LinkCase{"input to input", L"[" LINK(L"1", L"\"b\"", L"2") L"]", true, 0},
                      LinkCase{"unknown upstream pin", L"[" LINK(L"1", L"\"s\"", L"-7") L"]", false,
                               0},
                      LinkCase{"Pins not an array", L"{\"Key\":1}", false, 0}));
#undef LINK

class RecipeMalformedTest : public RecipeTest,
                            public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(RecipeMalformedTest, GivesNoFiltersAndAnEmptyResult) {
    CRecipe recipe(GetParam());
    EXPECT_TRUE(recipe.Filters().empty());
    EXPECT_TRUE(recipe.Name().empty());
    std::wstring result = L"stale";
    RecipeProcess(recipe, result, masters, out.raw, L"{\"x\":{}}");
    EXPECT_EQ(result, L"");
    EXPECT_TRUE(out.raw.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Recipe, RecipeMalformedTest,
    ::testing::Values(nullptr, L"", L"   ", L"{", L"[]", L"null", L"{\"Name\":5,\"Filters\":{}}",
                      L"{\"Filters\":[1,\"x\",null,[],{},{\"Type\":7},{\"Type\":null}]}",
                      L"{\"Filters\":[{\"Type\":\"TestSource\"}]",  // unterminated
                      L"{\"Filters\":[]} trailing"));

TEST_F(RecipeTest, DeepNestingDoesNotExhaustTheStack) {
    std::wstring text = L"{\"Filters\":[{\"Type\":\"TestSource\",\"Pins\":";
    text += std::wstring(200000, L'[') + std::wstring(200000, L']') + L"}]}";
    CRecipe recipe(text.c_str());
    EXPECT_EQ(recipe.Filters().size(), 1u);
}

// A chain listed from the end point back to the source, so every link names
// a filter further down the document.
std::wstring Chain(int length) {
    std::wstring text = L"{\"Filters\":[";
    for (int i = length - 1; i > 0; --i)
        text += Node(L"n" + std::to_wstring(i), L"F", i == length - 1,
                     L"n" + std::to_wstring(i - 1), L"[" + std::to_wstring(i) + L"]") +
                L",";
    return text + Source(L"n0") + L"]}";
}

// Pulls both of its inputs, counts its runs and passes the first image of
// input 1 on.
class CJoinFilter : public CFilter {
public:
    static inline int s_procs = 0;
    CJoinFilter() {
        AddPin(L"In", 1, false);
        AddPin(L"In2", 2, false);
        AddPin(L"Out", -1, true);
    }
    void Proc(std::vector<IPin*> pins, std::vector<IParam*>) override {
        ++s_procs;
        std::vector<cv::Mat*> first = GetPin(1)->GetImage();
        GetPin(2)->GetImage();
        if (first.size() > 1) first.resize(1);
        GetPin(-1)->SetImage(first);
        (void)pins;
    }
    void Trace() override {}
};

TEST_F(RecipeTest, DiamondChainRunsEachFilterOnce) {
    // 64 filters, each feeding both inputs of the next: every output is
    // pulled twice, and a filter that ran again for its second consumer
    // would make the work grow as 2^64. Each runs exactly once.
    types.Add<CJoinFilter>(L"TestJoin");
    CJoinFilter::s_procs = 0;
    std::wstring text = L"{\"Filters\":[" + Source(L"j0");
    for (int i = 1; i <= 64; ++i) {
        const std::wstring up = L"j" + std::to_wstring(i - 1);
        text += L",{\"Name\":\"J\",\"Key\":\"j" + std::to_wstring(i) +
                L"\",\"Type\":\"TestJoin\",\"IsEndPoint\":" + (i == 64 ? L"true" : L"false") +
                L",\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"" + up +
                L"\",\"PinKey\":-1}},{\"Key\":2,\"Link\":{\"FilterKey\":\"" + up +
                L"\",\"PinKey\":-1}},{\"Key\":-1}]}";
    }
    Run(text + L"]}");
    EXPECT_EQ(CJoinFilter::s_procs, 64);
    EXPECT_EQ(out.FirstPixels(), std::vector<int>{7});
}

TEST_F(RecipeTest, ThousandFilterChainRuns) {
    std::wstring result = Run(Chain(1000));
    EXPECT_EQ(out.FirstPixels(), std::vector<int>{7});
    // The end point leads; the others follow from the last node, the source.
    EXPECT_EQ(
        result.rfind(L"{ \"Count\":\"1000\", \"Filter\":[" + EntryText(L"F", L"n999", L"[999]") +
                         L"," + EntryText(L"Src", L"n0", L"\"\"") + L"," +
                         EntryText(L"F", L"n1", L"[1]") + L",",
                     0),
        0u);
    EXPECT_EQ(result.substr(result.size() - 4), L"},]}");
    EXPECT_EQ(CountOf(platform::ToUtf8(result), "\"Key\":\"n"), 1000);
}

TEST_F(RecipeTest, ChainDeeperThanTheStackStopsWithAnErrorLine) {
    // Far more filters than the 8 MiB stack of this thread can nest: the pull
    // stops where the stack runs low, with one error line and no crash.
    EnableFileLog(4);
    std::wstring result = Run(Chain(40000));
    EXPECT_TRUE(out.FirstPixels().empty());  // the source was never reached
    EXPECT_EQ(result.rfind(L"{ \"Count\":\"40000\", \"Filter\":[", 0), 0u);
    EXPECT_EQ(CountOf(ReadLog(), "result=\"pull too deep\""), 1);
}

TEST_F(RecipeTest, SmallStackThreadPullsAndStillStopsOverlongChains) {
    // A host's worker thread with a 192 KiB stack: a short chain runs to the
    // end (a fixed 256 KiB reserve refused every pull there), and an
    // overlong one still stops with the error line instead of overflowing.
    EnableFileLog(4);
    struct Job {
        std::function<std::wstring()> work;
        std::wstring result;
    };
    auto runOnSmallStack = [](Job& job) {
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setstacksize(&attr, 192 * 1024);
        pthread_t thread;
        const int started = pthread_create(
            &thread, &attr,
            [](void* arg) -> void* {
                auto* j = static_cast<Job*>(arg);
                j->result = j->work();
                return nullptr;
            },
            &job);
        pthread_attr_destroy(&attr);
        ASSERT_EQ(started, 0);
        pthread_join(thread, nullptr);
    };
    Job shortChain{[this] { return Run(Chain(3)); }, {}};
    runOnSmallStack(shortChain);
    EXPECT_EQ(out.FirstPixels(), std::vector<int>{7});
    EXPECT_EQ(CountOf(ReadLog(), "pull too deep"), 0);

    Job longChain{[this] { return Run(Chain(5000)); }, {}};
    runOnSmallStack(longChain);
    EXPECT_EQ(longChain.result.rfind(L"{ \"Count\":\"5000\", \"Filter\":[", 0), 0u);
    EXPECT_EQ(CountOf(ReadLog(), "result=\"pull too deep\""), 1);
}

TEST_F(RecipeTest, SingleFilterRoutesInputsByImageIdAndIgnoresEndPoint) {
    cv::Mat a(1, 1, CV_8UC1, cv::Scalar(10)), b(1, 1, CV_8UC1, cv::Scalar(20)),
        c(1, 1, CV_8UC1, cv::Scalar(30)), d(1, 1, CV_8UC1, cv::Scalar(70));
    std::vector<MasterImage> inputs{{&b, 2}, {&a, 1}, {&c, 2}, {&d, 7}};
    CRecipe recipe;
    std::wstring result = L"stale";
    FilterProcess(recipe, result, inputs, out.raw, L"TestPass",
                  L"{\"Name\":\"P\",\"Key\":\"p\",\"IsEndPoint\":false}");
    EXPECT_EQ(result, L"[" + EntryText(L"P", L"p", L"\"\"") + L"]");
    // Pin 1 then pin 2, in input order within a pin, to both outputs.
    EXPECT_EQ(out.FirstPixels(), (std::vector<int>{10, 20, 30, 10, 20, 30}));
    ASSERT_EQ(recipe.Filters().size(), 1u);
}

// ---------------------------------------------------------------------------
// Recipe files: size limits, the byte-order marks that choose the encoding,
// and line ends
// ---------------------------------------------------------------------------

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

class RecipeFileTest : public RecipeTest {
protected:
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
    ::testing::Values(EncodingCase{"utf8", platform::ToUtf8(kRecipe)},
                      EncodingCase{"utf8 bom", "\xEF\xBB\xBF" + platform::ToUtf8(kRecipe)},
                      EncodingCase{"utf16le bom", "\xFF\xFE" + Utf16Bytes(kRecipe, false)},
                      EncodingCase{"utf16be bom", "\xFE\xFF" + Utf16Bytes(kRecipe, true)},
                      EncodingCase{"utf16be odd byte",
                                   "\xFE\xFF" + Utf16Bytes(kRecipe, true) + "x"},
                      EncodingCase{"text ends at nul",
                                   platform::ToUtf8(kRecipe) + std::string("\0{garbage", 9)}));

TEST_F(RecipeFileTest, CrLfLineEndsLoadTheSameRecipe) {
    for (const char* end : {"\n", "\r\n"}) {
        std::string text = platform::ToUtf8(kRecipe);
        for (size_t at = text.find(','); at != std::string::npos; at = text.find(',', at + 3))
            text.insert(at + 1, end);
        ExpectLoaded(ReadRecipeFile(Write("lines.json", text).c_str()));
    }
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

}  // namespace
}  // namespace pixmill::test

namespace pixmill::test {
namespace {

// A recipe path that names a named pipe must not block the reading call
// until something writes to the pipe: only regular files are read.
TEST_F(RecipeFileTest, NamedPipeIsRefusedInsteadOfBlocking) {
    auto dir = m_root->path() / "C" / "recipes";
    std::filesystem::create_directories(dir);
    ASSERT_EQ(::mkfifo((dir / "pipe.json").c_str(), 0600), 0);
    EXPECT_EQ(ReadRecipeFile(L"C:\\recipes\\pipe.json"), L"");
    EXPECT_EQ(ReadRecipeFile(L"C:\\recipes"), L"");  // a folder neither
}

}  // namespace
}  // namespace pixmill::test
