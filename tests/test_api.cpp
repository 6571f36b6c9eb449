// The exported functions, driven through the public C interface: the filter
// description, execute, image records, image buffers and image files.
#include <gtest/gtest.h>

#include <malloc.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <opencv2/imgcodecs.hpp>

#include "TestFilters.h"
#include "api/ImageRecords.h"
#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// A source that picks ImageID `id`, feeding a counting filter (adds Offset)
// that is the recipe's end point.
std::wstring SourceToCounter(int id, int offset = 0) {
    return LR"({"Name":"r","Filters":[{"Name":"Counter","Key":"k2","Type":"TestCounting",)"
           LR"("IsEndPoint":true,"Params":[{"Key":"Offset","Value":")" +
           std::to_wstring(offset) +
           LR"("}],"Pins":[{"Key":1,"Link":{"FilterKey":"k1","PinKey":-1}}]},)"
           LR"({"Name":"SourceFilter","Key":"k1","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":")" +
           std::to_wstring(id) + LR"("}]}]})";
}

// Registered but not a filter: the description keeps an empty entry for it.
class CNotAFilter : public IBaseObject {
public:
    void Trace() override {}
};

class ApiTest : public PixmillTest {
protected:
    ApiTest() { types.Add<CNotAFilter>(L"TestNotAFilter"); }
    void SetUp() override {
        PixmillTest::SetUp();
        PixmillSetLogLevels(4, 6, 6);
    }
    // Writes a file under the root: a gray image, or text.
    static void Write(const std::wstring& proberPath, int gray, const std::wstring& text = L"") {
        const std::string native = platform::NativePath(proberPath);
        platform::CreateParentDirectories(native);
        if (text.empty())
            EXPECT_TRUE(cv::imwrite(native, cv::Mat(6, 8, CV_8UC1, cv::Scalar(gray))));
        else
            EXPECT_TRUE(platform::WriteWholeFile(native, platform::ToUtf8(text)));
    }
    static int FirstPixelOf(const std::wstring& proberPath) {
        const cv::Mat m = cv::imread(platform::NativePath(proberPath), cv::IMREAD_GRAYSCALE);
        return m.empty() ? -1 : m.at<uchar>(0, 0);
    }
    ScopedTestTypes types;
};

// ---------------------------------------------------------------------------
// The registry and the description document that recipe editors read
// ---------------------------------------------------------------------------

// Names are exact; an int parameter carries its attributes, a flag none.
TEST_F(ApiTest, RegistryCreatesByExactNameAndDescribesExactly) {
    auto& registry = FilterRegistry::Instance();
    std::unique_ptr<IBaseObject> made(registry.Create(L"TestCounting"));
    EXPECT_NE(dynamic_cast<CCountingFilter*>(made.get()), nullptr);
    for (const wchar_t* name :
         {L"testcounting", L"NoSuchFilter", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(registry.Create(name), nullptr);

    const int alive = CCountingFilter::s_alive;
    const std::wstring doc = FilterRegistry::Instance().Describe();
    EXPECT_EQ(CCountingFilter::s_alive, alive);
    EXPECT_EQ(doc.rfind(L"{\"filters\":[", 0), 0u);
    EXPECT_EQ(doc.substr(doc.size() - 4), L"},]}");
    EXPECT_NE(
        doc.find(
            LR"({"Name":"ThresholdFilter","Pin":[{ "Name":"IN_In", "Key":1},{ "Name":"OUT_Out", "Key":-1},], "Param":[{ "Name":"Threshold","Type":"int","Attributes":[{"Name":"value","Value":"127"},{"Name":"default","Value":"127"},{"Name":"min","Value":"0"},{"Name":"max","Value":"255"},{"Name":"step","Value":"1"},]}, { "Name":"Invert","Type":"bool"}, ]},)"),
        std::wstring::npos)
        << platform::ToUtf8(doc);
    EXPECT_NE(doc.find(L"{},"), std::wstring::npos);  // the entry of a non-filter
}

TEST_F(ApiTest, DescriptionExportsReturnFullSizeAndCopyAtMostTheBuffer) {
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

    // GetFilterInfo counts characters; a buffer sized from that receives as
    // many bytes only: the first part of the document.
    const int chars = static_cast<int>(doc.size());
    std::fill(big.begin(), big.end(), L'\0');
    EXPECT_EQ(GetFilterInfo(L"TestCounting", big.data(), chars), chars);
    const size_t delivered = chars / sizeof(wchar_t);
    EXPECT_EQ(std::wstring(big.data(), delivered), doc.substr(0, delivered));
    EXPECT_EQ(big[delivered + 1], L'\0');
    EXPECT_EQ(GetFilterInfo(nullptr, nullptr, 0), chars);
}

// ---------------------------------------------------------------------------
// Image records
// ---------------------------------------------------------------------------

TEST_F(ApiTest, RecipeExecuteCopiesImagesInAndOut) {
    std::vector<uint8_t> one(4 * 3, 10), two(4 * 3, 20);
    ImageData d1{4, 3, 1, 1, one.size(), one.data()}, d2{4, 3, 1, 2, two.size(), two.data()};
    ImageData* list[] = {&d1, nullptr, &d2};
    ImageParam input{3, list, nullptr, 0};
    ImageParam output{};

    EXPECT_EQ(RecipeExecute(&input, &output, SourceToCounter(2, 5).c_str(), nullptr), 0);
    ASSERT_EQ(output.count, 1);
    const ImageData* out = output.images[0];
    EXPECT_EQ(std::vector<int>({out->width, out->height, out->channels, out->ImageID}),
              std::vector<int>({4, 3, 1, 0}));
    ASSERT_EQ(out->size, 12u);
    EXPECT_EQ(out->data[0], 25);  // image 2 plus the offset
    EXPECT_EQ(two[0], 20);        // the caller's pixels are untouched
    const std::wstring result = output.result;
    EXPECT_EQ(output.resultSize, (result.size() + 1) * sizeof(wchar_t));
    EXPECT_EQ(
        result.rfind(
            LR"({ "Count":"2", "Filter":[{"Name":"Counter","Key":"k2","Result":{"Calls":1}},)", 0),
        0u)
        << platform::ToUtf8(result);

    EXPECT_EQ(ImageParamRelease(&output), 1);
    EXPECT_EQ(output.count, 0);
    EXPECT_EQ(output.images, nullptr);
    EXPECT_EQ(output.result, nullptr);
    EXPECT_EQ(ImageParamRelease(&output), 1);  // a second release does nothing
    EXPECT_EQ(ImageParamRelease(nullptr), 0);
    // Records the library did not make are neither freed nor zeroed.
    EXPECT_EQ(ImageParamRelease(&input), 1);
    EXPECT_EQ(input.images, list);
    EXPECT_EQ(list[0], &d1);
}

TEST_F(ApiTest, MalformedRecipeOrInconsistentRecordsGiveEmptyResults) {
    for (const wchar_t* recipe : {L"{\"Filters\":[", L"", static_cast<const wchar_t*>(nullptr),
                                  L"{\"Filters\":[{\"Type\":\"NoSuchType\"}]}"}) {
        ImageParam output{};
        EXPECT_EQ(RecipeExecute(nullptr, &output, recipe, nullptr), 0);
        EXPECT_EQ(output.count, 0);
        ASSERT_NE(output.result, nullptr);
        EXPECT_STREQ(output.result, L"");
        EXPECT_EQ(output.resultSize, sizeof(wchar_t));
        ImageParamRelease(&output);
    }
    // No output record: nothing runs and nothing is written.
    EXPECT_EQ(RecipeExecute(nullptr, nullptr, SourceToCounter(1).c_str(), nullptr), 0);

    std::vector<uint8_t> px(10, 7);
    ImageData records[] = {{2, 2, 2, 1, px.size(), px.data()},  // no such channel count
                           {4, 4, 1, 1, px.size(), px.data()},  // too few bytes
                           {2, 2, 1, 1, 4, nullptr},            // no pixels
                           {-2, 2, 1, 1, 4, px.data()}};        // negative width
    for (ImageData& d : records) {
        ImageData* list[] = {&d};
        ImageParam input{1, list, nullptr, 0}, output{};
        RecipeExecute(&input, &output, SourceToCounter(1).c_str(), nullptr);
        ASSERT_EQ(output.count, 1);
        EXPECT_EQ(output.images[0]->size, 0u);
        ImageParamRelease(&output);
    }
}

// ---------------------------------------------------------------------------
// Files and caller memory
// ---------------------------------------------------------------------------

TEST_F(ApiTest, ByPathTokensSetIdsAndFirstOutputIsWritten) {
    Write(L"C:\\in\\a.png", 40);
    Write(L"C:\\in\\b.png", 80);
    Write(L"C:\\recipes\\two.json", 0, SourceToCounter(2));
    Write(L"C:\\recipes\\zero.json", 0, SourceToCounter(0));
    wchar_t result[512] = {};
    int bytes = RecipeExecuteByPath(L"C:\\in\\a.png|2|C:\\in\\b.png", L"C:\\out\\o.png",
                                    L"C:\\recipes\\two.json", nullptr, result, sizeof result);
    EXPECT_EQ(bytes, static_cast<int>(std::wcslen(result) * sizeof(wchar_t)));
    EXPECT_EQ(FirstPixelOf(L"C:\\out\\o.png"), 80);  // b.png carries ID 2

    // "0" and the empty token both select ID 0.
    for (const wchar_t* inputs : {L"0|C:\\in\\a.png", L"|C:\\in\\a.png"}) {
        std::remove(platform::NativePath(std::wstring(L"C:\\out\\o.png")).c_str());
        RecipeExecuteByPath(inputs, L"C:\\out\\o.png", L"C:\\recipes\\zero.json", nullptr, nullptr,
                            0);
        EXPECT_EQ(FirstPixelOf(L"C:\\out\\o.png"), 40);
    }
    // No recipe file: 0 and nothing written. (The result is cut as the
    // description exports cut theirs, through the same copy.)
    for (const wchar_t* path :
         {L"C:\\recipes\\missing.json", static_cast<const wchar_t*>(nullptr)}) {
        result[0] = L'#';
        EXPECT_EQ(RecipeExecuteByPath(L"C:\\in\\a.png", nullptr, path, nullptr, result, 16), 0);
        EXPECT_EQ(result[0], L'#');
    }
}

TEST_F(ApiTest, ByBufferBuildsImagesBySizeAndCopiesFirstOutput) {
    std::vector<uint8_t> gray(6 * 4, 30), bgr(6 * 4 * 3, 90), out(100, 0xEE);
    int w = -1, h = -1;
    wchar_t result[256] = {};
    EXPECT_GT(
        RecipeExecuteByBuffer(gray.data(), 24, 6, 4, bgr.data(), 72, 6, 4, out.data(), 10, &w, &h,
                              SourceToCounter(2, 1).c_str(), nullptr, result, sizeof result),
        0);
    EXPECT_EQ(std::pair(w, h), std::pair(6, 4));
    EXPECT_EQ(out[0], 91);     // three channels made gray by the source, plus 1
    EXPECT_EQ(out[10], 0xEE);  // at most outSize bytes

    // size1 of 0 (no image 1, so the source reads its empty Path), or a size
    // that fits neither one nor three channels: an empty image.
    for (int size : {0, 23}) {
        w = h = -1;
        RecipeExecuteByBuffer(gray.data(), size, 6, 4, nullptr, 0, 0, 0, out.data(), 100, &w, &h,
                              SourceToCounter(1).c_str(), nullptr, nullptr, 0);
        EXPECT_EQ(std::pair(w, h), std::pair(0, 0));
    }

    // The recipe may be a file path; an empty text returns 0.
    Write(L"C:\\recipes\\one.json", 0, SourceToCounter(1, 2));
    RecipeExecuteByBuffer(gray.data(), 24, 6, 4, nullptr, 0, 0, 0, out.data(), 100, &w, &h,
                          L"C:\\recipes\\one.json", nullptr, nullptr, 0);
    EXPECT_EQ(out[0], 32);
    EXPECT_EQ(RecipeExecuteByBuffer(nullptr, 0, 0, 0, nullptr, 0, 0, 0, nullptr, 0, nullptr,
                                    nullptr, L"C:\\recipes\\none.json", nullptr, nullptr, 0),
              0);
}

TEST_F(ApiTest, FilterExecuteByBufferCutsResultNeverOverruns) {
    std::vector<uint8_t> src(5 * 5, 60), dst(5 * 5 + 4, 0xEE);
    std::vector<wchar_t> big(256, L'#'), small(12, L'#');
    int bytes = FilterExecuteByBuffer(src.data(), dst.data(), 5, 5, L"TestCounting",
                                      LR"({"Params":[{"Key":"Offset","Value":"4"}]})", big.data(),
                                      static_cast<int>(big.size()));
    const std::wstring full = big.data();
    EXPECT_EQ(bytes, static_cast<int>(full.size() * sizeof(wchar_t)));
    EXPECT_EQ(dst[0], 64);
    EXPECT_EQ(dst[25], 0xEE);
    EXPECT_EQ(
        FilterExecuteByBuffer(src.data(), nullptr, 5, 5, L"TestCounting", nullptr, small.data(), 8),
        bytes);
    EXPECT_EQ(std::wstring(small.data()), full.substr(0, 7));
    EXPECT_EQ(small[8], L'#');
    EXPECT_EQ(FilterExecuteByBuffer(nullptr, nullptr, -3, 5, L"TestCounting", nullptr, nullptr, 0),
              bytes);
}

// ---------------------------------------------------------------------------
// Image buffers
// ---------------------------------------------------------------------------

TEST_F(ApiTest, ImageBufferNewestWinsAndCountsPixels) {
    void* buffer = ImageBufferCreate();
    ASSERT_NE(buffer, nullptr);
    std::vector<uint8_t> first(3 * 2, 1), second(4 * 2 * 3, 2), out(30, 0xEE);
    EXPECT_EQ(ImageBufferAdd(buffer, 5, first.data(), 6, 3, 2), 0);
    EXPECT_EQ(ImageBufferAdd(buffer, 5, second.data(), 24, 4, 2), 0);
    EXPECT_EQ(ImageBufferAdd(buffer, 6, first.data(), 5, 3, 2), 0);  // fits nothing: empty

    int w = -1, h = -1;
    EXPECT_EQ(ImageBufferGet(buffer, 5, nullptr, 0, &w, &h), 8);  // pixels, not bytes
    EXPECT_EQ(std::pair(w, h), std::pair(4, 2));
    EXPECT_EQ(ImageBufferGet(buffer, 5, out.data(), 30, &w, &h), 8);
    EXPECT_EQ(out[7], 2);
    EXPECT_EQ(out[8], 0xEE);  // a third of the three-channel bytes
    EXPECT_EQ(ImageBufferGet(buffer, 6, out.data(), 30, &w, &h), 0);
    EXPECT_EQ(w, 0);
    w = h = -1;
    EXPECT_EQ(ImageBufferGet(buffer, 9, out.data(), 30, &w, &h), 0);
    EXPECT_EQ(w, -1);  // no such image: untouched

    // The recipe reads the buffer's images and leaves them as they were.
    std::vector<uint8_t> px(4, 10), img(4, 0);
    ImageBufferAdd(buffer, 1, px.data(), 4, 2, 2);
    EXPECT_GT(RecipeExecuteByBufferID(buffer, img.data(), 4, &w, &h, SourceToCounter(1, 5).c_str(),
                                      nullptr, nullptr, 0),
              0);
    EXPECT_EQ(img[0], 15);
    // The parameter text overrides the recipe's own value.
    EXPECT_GT(RecipeExecuteByBufferID(buffer, img.data(), 4, &w, &h, SourceToCounter(1, 5).c_str(),
                                      LR"({"k2":{"Params":[{"Key":"Offset","Value":"20"}]}})",
                                      nullptr, 0),
              0);
    EXPECT_EQ(img[0], 30);
    EXPECT_EQ(ImageBufferGet(buffer, 1, out.data(), 4, &w, &h), 4);
    EXPECT_EQ(out[0], 10);
    EXPECT_EQ(ImageBufferRelease(buffer), 0);
}

TEST_F(ApiTest, BadImageBufferHandlesAreRefusedWithoutTouchingMemory) {
    void* buffer = ImageBufferCreate();
    ASSERT_EQ(ImageBufferRelease(buffer), 0);
    alignas(16) unsigned char garbage[64];
    std::fill(std::begin(garbage), std::end(garbage), 0xAB);
    std::vector<uint8_t> px(4, 1);
    int w = 0, h = 0;
    for (void* handle : {static_cast<void*>(garbage), buffer}) {
        EXPECT_EQ(ImageBufferAdd(handle, 1, px.data(), 4, 2, 2), -1);
        EXPECT_EQ(ImageBufferGet(handle, 1, px.data(), 4, &w, &h), -1);
        EXPECT_EQ(RecipeExecuteByBufferID(handle, nullptr, 0, nullptr, nullptr, L"{}", nullptr,
                                          nullptr, 0),
                  -1);
        EXPECT_EQ(ImageBufferRelease(handle), -1);  // released twice, or never made
    }
    EXPECT_TRUE(std::all_of(std::begin(garbage), std::end(garbage),
                            [](unsigned char c) { return c == 0xAB; }));
    EXPECT_EQ(ImageBufferRelease(nullptr), -1);
    EXPECT_EQ(ImageBufferAdd(nullptr, 1, px.data(), 4, 2, 2), -1);
    // One line per refused live-looking handle; a null one gets none.
    EXPECT_EQ(CountOf(ReadLog(), "[4] [ERROR] Invalid  CImageBuffer ID\n"), 8);
}

TEST_F(ApiTest, ConcurrentReleasesAndUsesOfOneHandleAreSafe) {
    // Two threads release the same handles: exactly one release of each
    // succeeds. Meanwhile a third adds to and reads from them: each call
    // either works on a live buffer or is refused, and never touches freed
    // memory (the sanitizer build checks that).
    constexpr int kHandles = 200;
    std::vector<void*> handles;
    for (int i = 0; i < kHandles; ++i) handles.push_back(ImageBufferCreate());
    std::atomic<int> released{0}, refused{0};
    std::atomic<bool> go{false};
    auto releaser = [&] {
        while (!go) std::this_thread::yield();
        for (void* h : handles) (ImageBufferRelease(h) == 0 ? released : refused)++;
    };
    auto user = [&] {
        std::vector<uint8_t> px(16, 9), back(16, 0);
        int w = 0, h = 0;
        while (!go) std::this_thread::yield();
        for (void* handle : handles) {
            const int added = ImageBufferAdd(handle, 1, px.data(), 16, 4, 4);
            EXPECT_TRUE(added == 0 || added == -1);
            const int got = ImageBufferGet(handle, 1, back.data(), 16, &w, &h);
            EXPECT_TRUE(got == 16 || got == 0 || got == -1) << got;
        }
    };
    std::thread a(releaser), b(releaser), c(user);
    go = true;
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(released.load(), kHandles);
    EXPECT_EQ(refused.load(), kHandles);
    // A released handle stays refused, however its memory is reused.
    void* fresh = ImageBufferCreate();
    for (void* h : handles) EXPECT_NE(h, fresh);
    EXPECT_EQ(ImageBufferRelease(fresh), 0);
}

TEST(ImageRecordTest, FailedAllocationPartWayLeavesNothingBehind) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's allocator aborts on the impossible request this test makes";
#else
    // The second image claims more bytes than any allocation can give: the
    // copy of the first, its record and the array must not stay behind, and
    // the caller's record is left as it was.
    cv::Mat first(1024, 1024, CV_8UC1, cv::Scalar(3));
    uint8_t byte = 0;
    cv::Mat impossible(1 << 30, 1 << 30, CV_8UC1, &byte);
    std::vector<cv::Mat*> images{&first, &impossible};
    ImageParam record{};
    // Bytes in use, counting the large blocks the allocator maps on its own.
    auto inUse = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const size_t before = inUse();
    EXPECT_THROW(api::ImagesToRecord(images, L"{}", &record), std::bad_alloc);
    EXPECT_LT(inUse(), before + 64 * 1024) << "the first image's copy leaked";
    EXPECT_EQ(record.images, nullptr);
    EXPECT_EQ(record.result, nullptr);
    EXPECT_EQ(record.count, 0);
#endif
}

// ---------------------------------------------------------------------------
// The C boundary: nothing escapes, the refusal is logged and kept per thread
// ---------------------------------------------------------------------------

// A recipe whose source asks for ImageID "x": the number does not read.
const wchar_t* const kBadIdRecipe =
    LR"({"Name":"r","Filters":[{"Name":"Src","Key":"s1","Type":"SourceFilter","IsEndPoint":true,)"
    LR"("Params":[{"Key":"ImageID","Value":"x"}]}]})";
const wchar_t* const kBadThreshold = LR"({"Params":[{"Key":"Threshold","Value":"abc"}]})";

TEST_F(ApiTest, InputsThatThrowInsideAreRefusedAtTheBoundary) {
    std::vector<uint8_t> px(16, 100), outPx(16, 0xEE);
    ImageData image{4, 4, 1, 1, px.size(), px.data()};
    ImageData* list[] = {&image};
    ImageParam input{1, list, nullptr, 0};
    void* buffer = ImageBufferCreate();
    ImageBufferAdd(buffer, 1, px.data(), 16, 4, 4);
    const std::string recipeFile = (m_root->path() / "bad.json").string();
    ASSERT_TRUE(platform::WriteWholeFile(recipeFile, platform::ToUtf8(kBadIdRecipe)));
    const std::wstring recipePath = platform::FromUtf8(recipeFile);
    const std::wstring override = LR"({"k1":{"Params":[{"Key":"ImageID","Value":"99999999999"}]}})";
    const std::wstring goodRecipe = SourceToCounter(1, 5);

    struct Case {
        const char* name;
        std::function<int(ImageParam& output, wchar_t* text)> call;
        int expected;
        const char* param;  // the parameter the filter line names
    };
    const Case cases[] = {
        {"RecipeExecute", [&](ImageParam& o, wchar_t*) { return RecipeExecute(&input, &o, kBadIdRecipe, nullptr); }, 0, "ImageID"},
        {"RecipeExecute", [&](ImageParam& o, wchar_t*) { return RecipeExecute(&input, &o, goodRecipe.c_str(), override.c_str()); }, 0, "ImageID"},
        {"FilterExecute", [&](ImageParam& o, wchar_t*) { return FilterExecute(&input, &o, L"ThresholdFilter", kBadThreshold); }, 0, "Threshold"},
        {"RecipeExecuteByPath", [&](ImageParam&, wchar_t* t) { return RecipeExecuteByPath(nullptr, nullptr, recipePath.c_str(), nullptr, t, 64); }, 0, "ImageID"},
        {"RecipeExecuteByBuffer", [&](ImageParam&, wchar_t* t) { return RecipeExecuteByBuffer(px.data(), 16, 4, 4, nullptr, 0, 0, 0, outPx.data(), 16, nullptr, nullptr, kBadIdRecipe, nullptr, t, 64); }, 0, "ImageID"},
        {"RecipeExecuteByBufferID", [&](ImageParam&, wchar_t* t) { return RecipeExecuteByBufferID(buffer, outPx.data(), 16, nullptr, nullptr, goodRecipe.c_str(), override.c_str(), t, 64); }, 0, "ImageID"},
        {"FilterExecuteByBuffer", [&](ImageParam&, wchar_t* t) { return FilterExecuteByBuffer(px.data(), outPx.data(), 4, 4, L"ThresholdFilter", kBadThreshold, t, 16); }, 0, "Threshold"},
    };
    EnableFileLog(4);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ImageParam output{};
        wchar_t text[64];
        std::fill(std::begin(text), std::end(text), L'#');
        EXPECT_EQ(c.call(output, text), c.expected);
        EXPECT_EQ(outPx[0], 0xEE) << "no output image is copied";
        // The last level-4 line of the call names the export; the log also
        // holds the line that names the filter, its parameter and value.
        const std::string last = PixmillLastError();
        EXPECT_NE(last.find(std::string("func=\"") + c.name + "\" result=\"refused\""), std::string::npos)
            << "[" << last << "]";
        const std::string name = c.name;
        if (name == "FilterExecuteByBuffer") {
            EXPECT_EQ(text[0], L'\0');
        }
        if (name == "RecipeExecute" || name == "FilterExecute") {
            EXPECT_EQ(output.count, 0);
            ASSERT_NE(output.result, nullptr);
            EXPECT_STREQ(output.result, L"");
            EXPECT_EQ(ImageParamRelease(&output), 1);
        }
    }
    const std::string log = ReadLog();
    EXPECT_NE(log.find("<ERROR func=\"CFilter::Init\" Name=\"Src\" Key=\"s1\" Type=\"SourceFilter\" "
                       "param=\"ImageID\" value=\"x\" result=\"invalid stoi argument\"/>"),
              std::string::npos) << log;
    EXPECT_NE(log.find("Type=\"ThresholdFilter\" param=\"Threshold\" value=\"abc\""), std::string::npos);
    EXPECT_NE(log.find("param=\"ImageID\" value=\"99999999999\" result=\"stoi argument out of range\""),
              std::string::npos);
    EXPECT_EQ(ImageBufferRelease(buffer), 0);
    // A call that logs nothing clears the thread's error.
    EXPECT_STREQ(PixmillLastError(), "");
}

TEST_F(ApiTest, LastErrorIsKeptPerThread) {
    // Log levels do not matter: the error is kept even when no sink takes it.
    PixmillSetLogLevels(6, 6, 6);
    std::string first, second;
    std::thread a([&] {
        EXPECT_EQ(ImageBufferRelease(reinterpret_cast<void*>(0x10)), -1);
        first = PixmillLastError();
    });
    a.join();
    std::thread b([&] {
        ImageParam output{};
        FilterExecute(nullptr, &output, L"ThresholdFilter", nullptr);
        second = PixmillLastError();
        ImageParamRelease(&output);
    });
    b.join();
    EXPECT_EQ(first, "[ERROR] Invalid  CImageBuffer ID");
    EXPECT_EQ(second, "");
    EXPECT_STREQ(PixmillLastError(), "");  // this thread made no failing call
}

// Every export but PixmillLastError starts a new call, also the ones that
// neither start the library nor trace: none of them leaves an earlier error.
TEST_F(ApiTest, EveryCallClearsTheLastError) {
    const std::vector<std::pair<const char*, std::function<void()>>> calls = {
        {"PixmillSetRoot", [] { PixmillSetRoot(pixmill::platform::Root().c_str()); }},
        {"PixmillSetLogLevels", [] { PixmillSetLogLevels(4, 6, 6); }},
        {"PixmillSetTraceSink", [] { PixmillSetTraceSink(nullptr, nullptr); }},
        {"PixmillSetLogSink", [] { PixmillSetLogSink(nullptr, nullptr); }},
        {"PixmillSetDebugImages", [] { PixmillSetDebugImages(1); }},
        {"Add", [] { Add(1, 2); }},
        {"Gnuplot_splot", [] { Gnuplot_splot(); }},
        {"VBcvPadMeanGain", [] { VBcvPadMeanGain(); }},
        {"VBcvEdgeFind_GetScore", [] { VBcvEdgeFind_GetScore(); }},
        {"VBcvEdgeFindFEX_GetCoordinate", [] { VBcvEdgeFindFEX_GetCoordinate(-1, 0); }},
        {"Threshold_Triangle", [] { Threshold_Triangle(nullptr, nullptr, 0, 0); }},
    };
    for (const auto& [name, call] : calls) {
        SCOPED_TRACE(name);
        EXPECT_EQ(ImageBufferRelease(reinterpret_cast<void*>(0x10)), -1);
        ASSERT_STRNE(PixmillLastError(), "");
        call();
        EXPECT_STREQ(PixmillLastError(), "");
    }
}

// ---------------------------------------------------------------------------
// Image files, small exports and null pointers
// ---------------------------------------------------------------------------

TEST_F(ApiTest, ImageWriteReadRoundTripAndDimensionsOnly) {
    std::vector<uint8_t> px(7 * 5), back(40, 0xEE);
    for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<uint8_t>(i * 3);
    ASSERT_EQ(ImageWrite(px.data(), 7, 5, "D:\\io\\x.png"), -1);  // folder missing
    platform::CreateParentDirectories(platform::NativePath(std::string("D:\\io\\x.png")));
    ASSERT_EQ(ImageWrite(px.data(), 7, 5, "D:\\io\\x.png"), 0);

    int w = 0, h = 0;
    EXPECT_EQ(ImageRead(nullptr, 0, &w, &h, "D:\\io\\x.png"), 35);
    EXPECT_EQ(std::pair(w, h), std::pair(7, 5));
    EXPECT_EQ(ImageRead(back.data(), 10, &w, &h, "D:\\io\\x.png"), 35);
    EXPECT_TRUE(std::equal(px.begin(), px.begin() + 10, back.begin()));
    EXPECT_EQ(back[10], 0xEE);

    EXPECT_EQ(ImageRead(back.data(), 40, &w, &h, "D:\\io\\missing.png"), 0);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(ImageRead(back.data(), 40, &w, &h, nullptr), -1);
    EXPECT_EQ(ImageWrite(px.data(), 7, 5, "D:\\io\\x.unknownformat"), -1);
    EXPECT_EQ(ImageWrite(px.data(), 0, 5, "D:\\io\\y.png"), -1);
}

TEST_F(ApiTest, SmallExports) {
    std::vector<uint8_t> src{0, 1, 128, 255, 7, 9}, dst(7, 0xEE);
    EXPECT_EQ(ImageInvert(src.data(), dst.data(), 3, 2), 0);
    EXPECT_EQ(std::vector<uint8_t>(dst.begin() + 4, dst.end()),
              (std::vector<uint8_t>{248, 246, 0xEE}));
    EXPECT_EQ(ImageInvert(src.data(), dst.data(), -1, 2), -1);
    EXPECT_EQ(ImageInvert(nullptr, dst.data(), 3, 2), -1);
    EXPECT_EQ(Add(2, 3), 5);
    EXPECT_EQ(Add(-7, 4), -3);
    EXPECT_EQ(Add(INT_MAX - 1, 1), INT_MAX);

    EXPECT_EQ(VBcvTestConv(), -1);  // no D:\a.bmp yet
    cv::Mat a(4, 4, CV_8UC1, cv::Scalar(0));
    a.at<uchar>(1, 2) = 3;
    platform::CreateParentDirectories(platform::NativePath(std::string("D:\\a.bmp")));
    ASSERT_TRUE(cv::imwrite(platform::NativePath(std::string("D:\\a.bmp")), a));
    EXPECT_EQ(VBcvTestConv(), 0);
    cv::Mat b = cv::imread(platform::NativePath(std::string("D:\\b.bmp")), cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(b.empty());
    EXPECT_EQ(b.at<uchar>(1, 2), 255);
    EXPECT_EQ(cv::countNonZero(b), 1);
}

TEST_F(ApiTest, NullPointersAreHarmless) {
    Write(L"C:\\recipes\\one.json", 0, SourceToCounter(1));
    wchar_t result[64] = {};
    EXPECT_GT(RecipeExecuteByPath(nullptr, nullptr, L"C:\\recipes\\one.json", nullptr, result,
                                  sizeof result),
              0);
    EXPECT_EQ(RecipeExecuteByBuffer(nullptr, 4, 2, 2, nullptr, 4, 2, 2, nullptr, 4, nullptr,
                                    nullptr, nullptr, nullptr, nullptr, 0),
              0);
    void* buffer = ImageBufferCreate();
    EXPECT_EQ(
        RecipeExecuteByBufferID(buffer, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0),
        0);
    std::vector<uint8_t> px(4, 3);
    EXPECT_EQ(ImageBufferAdd(buffer, 1, nullptr, 4, 2, 2), 0);  // stored as an empty image
    EXPECT_EQ(ImageBufferAdd(buffer, 2, px.data(), 4, 2, 2), 0);
    EXPECT_EQ(ImageBufferGet(buffer, 2, nullptr, 4, nullptr, nullptr), 4);
    EXPECT_EQ(ImageBufferGet(buffer, 1, px.data(), 4, nullptr, nullptr), 0);
    EXPECT_GT(RecipeExecuteByBufferID(buffer, nullptr, 4, nullptr, nullptr,
                                      SourceToCounter(2).c_str(), nullptr, nullptr, 0),
              0);
    EXPECT_EQ(ImageBufferRelease(buffer), 0);
    EXPECT_EQ(ImageWrite(nullptr, 2, 2, "D:\\n.png"), -1);
    EXPECT_EQ(ImageRead(nullptr, 4, nullptr, nullptr, "D:\\n.png"), 0);
    EXPECT_EQ(FilterExecuteByBuffer(nullptr, nullptr, 2, 2, nullptr, nullptr, nullptr, 0), 0);
    ImageParam output{};
    EXPECT_EQ(FilterExecute(nullptr, &output, nullptr, nullptr), 0);
    EXPECT_EQ(output.count, 0);
    ImageParamRelease(&output);
}

}  // namespace
}  // namespace pixmill::test
