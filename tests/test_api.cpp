// The exported execute, image record, image buffer and image file functions,
// driven through the public C interface.
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "TestFilters.h"
#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// A source that picks ImageID `id`, feeding a counting filter (adds Offset)
// that is the recipe's end point.
std::wstring SourceToCounter(int id, int offset = 0, const wchar_t* counterName = L"Counter") {
    return LR"({"Name":"r","Comment":"c","Filters":[)"
           LR"({"Name":")" +
           std::wstring(counterName) +
           LR"(","Key":"k2","Type":"TestCounting","IsEndPoint":true,)"
           LR"("Params":[{"Key":"Offset","Value":")" +
           std::to_wstring(offset) +
           LR"("}],)"
           LR"("Pins":[{"Key":1,"Link":{"FilterKey":"k1","PinKey":-1}},{"Key":-1}]},)"
           LR"({"Name":"SourceFilter","Key":"k1","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":")" +
           std::to_wstring(id) + LR"("},{"Key":"Path","Value":""}],"Pins":[{"Key":-1}]}]})";
}

class ApiTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        FilterRegistry::Instance().Register(
            L"TestCounting", [] { return static_cast<IBaseObject*>(new CCountingFilter()); });
        PixmillSetLogLevels(1, 6, 6);
    }
    void TearDown() override {
        FilterRegistry::Instance().Unregister(L"TestCounting");
        PixmillTest::TearDown();
    }
    // Writes a gray image under the root and returns its prober path.
    std::wstring WriteGray(const std::wstring& proberPath, int value, int w = 8, int h = 6) {
        cv::Mat img(h, w, CV_8UC1, cv::Scalar(value));
        std::string native = platform::NativePath(proberPath);
        platform::CreateParentDirectories(native);
        EXPECT_TRUE(cv::imwrite(native, img));
        return proberPath;
    }
    std::string WriteRecipeFile(const std::wstring& proberPath, const std::wstring& text) {
        std::string native = platform::NativePath(proberPath);
        platform::CreateParentDirectories(native);
        EXPECT_TRUE(platform::WriteWholeFile(native, platform::ToUtf8(text)));
        return native;
    }
};

// ---------------------------------------------------------------------------
// Image records
// ---------------------------------------------------------------------------

TEST_F(ApiTest, RecipeExecuteCopiesImagesInAndOut) {
    std::vector<uint8_t> one(4 * 3, 10), two(4 * 3, 20);
    ImageData d1{4, 3, 1, 1, one.size(), one.data()};
    ImageData d2{4, 3, 1, 2, two.size(), two.data()};
    ImageData* list[] = {&d1, nullptr, &d2};
    ImageParam input{3, list, nullptr, 0};
    ImageParam output{};

    EXPECT_EQ(RecipeExecute(&input, &output, SourceToCounter(2, 5).c_str(), nullptr), 0);
    ASSERT_EQ(output.count, 1);
    ImageData* out = output.images[0];
    EXPECT_EQ(out->width, 4);
    EXPECT_EQ(out->height, 3);
    EXPECT_EQ(out->channels, 1);
    EXPECT_EQ(out->ImageID, 0);
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

    const std::string log = ReadLog();
    EXPECT_NE(log.find("<Image count 1 Image null/>"), std::string::npos);
    EXPECT_NE(log.find("<Image channel=\"1\" ImageID=\"2\" width=\"4\" height=\"3\"/>"),
              std::string::npos);
    EXPECT_NE(log.find("<output count=\"1\"/>"), std::string::npos);
}

TEST_F(ApiTest, MalformedOrNullRecipeGivesEmptyResult) {
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
}

TEST_F(ApiTest, InconsistentInputRecordsGiveEmptyImages) {
    std::vector<uint8_t> px(10, 7);
    ImageData badChannels{2, 2, 2, 1, px.size(), px.data()};
    ImageData tooSmall{4, 4, 1, 1, px.size(), px.data()};
    ImageData nullData{2, 2, 1, 1, 4, nullptr};
    ImageData negative{-2, 2, 1, 1, 4, px.data()};
    for (ImageData* d : {&badChannels, &tooSmall, &nullData, &negative}) {
        ImageData* list[] = {d};
        ImageParam input{1, list, nullptr, 0};
        ImageParam output{};
        RecipeExecute(&input, &output, SourceToCounter(1).c_str(), nullptr);
        ASSERT_EQ(output.count, 1);
        EXPECT_EQ(output.images[0]->size, 0u);
        ImageParamRelease(&output);
    }
}

TEST_F(ApiTest, ReleaseLeavesForeignRecordsAlone) {
    std::vector<uint8_t> px(4, 1);
    ImageData d{2, 2, 1, 0, 4, px.data()};
    ImageData* list[] = {&d};
    ImageParam foreign{1, list, nullptr, 0};
    EXPECT_EQ(ImageParamRelease(&foreign), 1);
    EXPECT_EQ(foreign.images, list);  // not freed, not zeroed
    EXPECT_EQ(list[0], &d);
}

TEST_F(ApiTest, FilterExecuteRoutesImagesByPinKey) {
    std::vector<uint8_t> a(4, 10), b(4, 50);
    ImageData in1{2, 2, 1, 1, 4, a.data()};
    ImageData in2{2, 2, 1, 2, 4, b.data()};
    ImageData* list[] = {&in2, &in1};
    ImageParam input{2, list, nullptr, 0};
    ImageParam output{};
    EXPECT_EQ(FilterExecute(&input, &output, L"TestCounting",
                            LR"({"Params":[{"Key":"Offset","Value":"1"}]})"),
              0);
    ASSERT_EQ(output.count, 1);
    EXPECT_EQ(output.images[0]->data[0], 11);  // only ImageID 1 reaches pin 1
    EXPECT_STREQ(output.result, LR"([{"Name":"##Filter","Key":"##Key","Result":{"Calls":1}}])");
    ImageParamRelease(&output);

    EXPECT_EQ(FilterExecute(&input, &output, L"NoSuchFilter", nullptr), 0);
    EXPECT_EQ(output.count, 0);
    EXPECT_STREQ(output.result, L"");
    ImageParamRelease(&output);
    EXPECT_EQ(FilterExecute(nullptr, &output, nullptr, nullptr), 0);
    EXPECT_EQ(output.count, 0);
    ImageParamRelease(&output);
}

// ---------------------------------------------------------------------------
// Files and caller memory
// ---------------------------------------------------------------------------

TEST_F(ApiTest, ByPathTokensSetIdsAndFirstOutputIsWritten) {
    WriteGray(L"C:\\in\\a.png", 40);
    WriteGray(L"C:\\in\\b.png", 80);
    WriteRecipeFile(L"C:\\recipes\\two.json", SourceToCounter(2));
    wchar_t result[512] = {};
    const std::string outNative = platform::NativePath(std::wstring(L"C:\\out\\o.png"));
    int bytes =
        RecipeExecuteByPath(L"C:\\in\\a.png|2|C:\\in\\b.png", L"C:\\out\\o.png",
                            L"C:\\recipes\\two.json", L"{\"ignored\":1}", result, sizeof result);
    EXPECT_EQ(bytes, static_cast<int>(std::wcslen(result) * sizeof(wchar_t)));
    cv::Mat written = cv::imread(outNative, cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(written.empty());
    EXPECT_EQ(written.at<uchar>(0, 0), 80);  // b.png carries ID 2

    // "0" and the empty token both select ID 0.
    WriteRecipeFile(L"C:\\recipes\\zero.json", SourceToCounter(0));
    for (const wchar_t* inputs : {L"0|C:\\in\\a.png", L"|C:\\in\\a.png"}) {
        std::remove(outNative.c_str());
        RecipeExecuteByPath(inputs, L"C:\\out\\o.png", L"C:\\recipes\\zero.json", nullptr, nullptr,
                            0);
        written = cv::imread(outNative, cv::IMREAD_GRAYSCALE);
        ASSERT_FALSE(written.empty());
        EXPECT_EQ(written.at<uchar>(0, 0), 40);
    }
}

TEST_F(ApiTest, ByPathCutsTheCopyAndReturnsFullSize) {
    WriteGray(L"C:\\in\\a.png", 40);
    WriteRecipeFile(L"C:\\recipes\\one.json", SourceToCounter(1));
    std::vector<wchar_t> full(512, L'\0');
    int bytes = RecipeExecuteByPath(L"C:\\in\\a.png", nullptr, L"C:\\recipes\\one.json", nullptr,
                                    full.data(), static_cast<int>(full.size() * sizeof(wchar_t)));
    std::vector<wchar_t> small(8, L'#');
    EXPECT_EQ(RecipeExecuteByPath(L"C:\\in\\a.png", nullptr, L"C:\\recipes\\one.json", nullptr,
                                  small.data(), 5 * sizeof(wchar_t)),
              bytes);
    EXPECT_EQ(std::wstring(small.data(), 5), std::wstring(full.data(), 5));
    EXPECT_EQ(small[5], L'#');

    // A missing or too short recipe file: 0 and nothing written.
    WriteRecipeFile(L"C:\\recipes\\short.json", L"{\"a\":1}");
    for (const wchar_t* path : {L"C:\\recipes\\missing.json", L"C:\\recipes\\short.json",
                                static_cast<const wchar_t*>(nullptr)}) {
        std::fill(small.begin(), small.end(), L'#');
        EXPECT_EQ(RecipeExecuteByPath(L"C:\\in\\a.png", nullptr, path, nullptr, small.data(),
                                      static_cast<int>(small.size() * sizeof(wchar_t))),
                  0);
        EXPECT_EQ(small[0], L'#');
    }
}

TEST_F(ApiTest, ByBufferBuildsImagesBySizeAndCopiesFirstOutput) {
    std::vector<uint8_t> gray(6 * 4, 30), bgr(6 * 4 * 3, 90);
    std::vector<uint8_t> out(100, 0xEE);
    int w = -1, h = -1;
    wchar_t result[256] = {};
    int bytes =
        RecipeExecuteByBuffer(gray.data(), 24, 6, 4, bgr.data(), 72, 6, 4, out.data(), 10, &w, &h,
                              SourceToCounter(2, 1).c_str(), L"ignored", result, sizeof result);
    EXPECT_GT(bytes, 0);
    EXPECT_EQ(w, 6);
    EXPECT_EQ(h, 4);
    EXPECT_EQ(out[0], 91);     // three channels made gray by the source, plus 1
    EXPECT_EQ(out[10], 0xEE);  // at most outSize bytes

    // size1 of 0: no image 1, so the source falls back to its empty Path.
    w = h = -1;
    RecipeExecuteByBuffer(gray.data(), 0, 6, 4, nullptr, 0, 0, 0, out.data(), 100, &w, &h,
                          SourceToCounter(1).c_str(), nullptr, nullptr, 0);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(h, 0);
    // A size that fits neither one nor three channels: an empty image 1.
    w = h = -1;
    RecipeExecuteByBuffer(gray.data(), 23, 6, 4, nullptr, 0, 0, 0, out.data(), 100, &w, &h,
                          SourceToCounter(1).c_str(), nullptr, nullptr, 0);
    EXPECT_EQ(w, 0);

    // The recipe may be a file path; an empty text returns 0.
    WriteRecipeFile(L"C:\\recipes\\one.json", SourceToCounter(1, 2));
    RecipeExecuteByBuffer(gray.data(), 24, 6, 4, nullptr, 0, 0, 0, out.data(), 100, &w, &h,
                          L"C:\\recipes\\one.json", nullptr, nullptr, 0);
    EXPECT_EQ(out[0], 32);
    EXPECT_EQ(RecipeExecuteByBuffer(nullptr, 0, 0, 0, nullptr, 0, 0, 0, nullptr, 0, nullptr,
                                    nullptr, L"C:\\recipes\\none.json", nullptr, nullptr, 0),
              0);
    const std::string log = ReadLog();
    // Its closing line repeats the opening word.
    EXPECT_EQ(CountOf(log, "[2] <RecipeExecuteByBuffer>\n"), 5);
}

TEST_F(ApiTest, FilterExecuteByBufferCutsResultNeverOverruns) {
    std::vector<uint8_t> src(5 * 5, 60), dst(5 * 5 + 4, 0xEE);
    std::vector<wchar_t> big(256, L'#');
    int bytes = FilterExecuteByBuffer(src.data(), dst.data(), 5, 5, L"TestCounting",
                                      LR"({"Params":[{"Key":"Offset","Value":"4"}]})", big.data(),
                                      static_cast<int>(big.size()));
    const std::wstring full = big.data();
    EXPECT_EQ(bytes, static_cast<int>(full.size() * sizeof(wchar_t)));
    EXPECT_EQ(dst[0], 64);
    EXPECT_EQ(dst[25], 0xEE);

    std::vector<wchar_t> small(12, L'#');
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
    std::vector<uint8_t> first(3 * 2, 1), second(4 * 2 * 3, 2);
    EXPECT_EQ(ImageBufferAdd(buffer, 5, first.data(), 6, 3, 2), 0);
    EXPECT_EQ(ImageBufferAdd(buffer, 5, second.data(), 24, 4, 2), 0);
    EXPECT_EQ(ImageBufferAdd(buffer, 6, first.data(), 5, 3, 2), 0);  // fits nothing: empty

    int w = -1, h = -1;
    EXPECT_EQ(ImageBufferGet(buffer, 5, nullptr, 0, &w, &h), 8);  // pixels, not bytes
    EXPECT_EQ(w, 4);
    EXPECT_EQ(h, 2);
    std::vector<uint8_t> out(30, 0xEE);
    EXPECT_EQ(ImageBufferGet(buffer, 5, out.data(), 30, &w, &h), 8);
    EXPECT_EQ(out[7], 2);
    EXPECT_EQ(out[8], 0xEE);  // a third of the three-channel bytes
    EXPECT_EQ(ImageBufferGet(buffer, 6, out.data(), 30, &w, &h), 0);
    EXPECT_EQ(w, 0);
    w = h = -1;
    EXPECT_EQ(ImageBufferGet(buffer, 9, out.data(), 30, &w, &h), 0);
    EXPECT_EQ(w, -1);  // no such image: untouched

    // The recipe reads the buffer's images in place; param applies here.
    std::vector<uint8_t> px(4, 10);
    ImageBufferAdd(buffer, 1, px.data(), 4, 2, 2);
    std::vector<uint8_t> img(4, 0);
    EXPECT_GT(RecipeExecuteByBufferID(buffer, img.data(), 4, &w, &h, SourceToCounter(1).c_str(),
                                      LR"({"Counter":{"Params":[{"Key":"Offset","Value":"5"}]}})",
                                      nullptr, 0),
              0);
    EXPECT_EQ(img[0], 15);
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
    EXPECT_EQ(CountOf(ReadLog(), "[4] [ERROR] Invalid  CImageBuffer ID\n"), 8);

    EXPECT_EQ(ImageBufferRelease(nullptr), -1);
    EXPECT_EQ(ImageBufferAdd(nullptr, 1, px.data(), 4, 2, 2), -1);
    EXPECT_EQ(CountOf(ReadLog(), "Invalid  CImageBuffer ID"), 8);  // null: no message
}

// ---------------------------------------------------------------------------
// Image files and small exports
// ---------------------------------------------------------------------------

TEST_F(ApiTest, ImageWriteReadRoundTripAndDimensionsOnly) {
    std::vector<uint8_t> px(7 * 5);
    for (size_t i = 0; i < px.size(); ++i) px[i] = static_cast<uint8_t>(i * 3);
    ASSERT_EQ(ImageWrite(px.data(), 7, 5, "D:\\io\\x.png"), -1);  // folder missing
    platform::CreateParentDirectories(platform::NativePath(std::string("D:\\io\\x.png")));
    ASSERT_EQ(ImageWrite(px.data(), 7, 5, "D:\\io\\x.png"), 0);

    int w = 0, h = 0;
    EXPECT_EQ(ImageRead(nullptr, 0, &w, &h, "D:\\io\\x.png"), 35);
    EXPECT_EQ(w, 7);
    EXPECT_EQ(h, 5);
    std::vector<uint8_t> back(40, 0xEE);
    EXPECT_EQ(ImageRead(back.data(), 10, &w, &h, "D:\\io\\x.png"), 35);
    EXPECT_TRUE(std::equal(px.begin(), px.begin() + 10, back.begin()));
    EXPECT_EQ(back[10], 0xEE);

    EXPECT_EQ(ImageRead(back.data(), 40, &w, &h, "D:\\io\\missing.png"), 0);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(ImageRead(back.data(), 40, &w, &h, nullptr), -1);
    EXPECT_EQ(ImageWrite(px.data(), 7, 5, "D:\\io\\x.unknownformat"), -1);
    EXPECT_EQ(ImageWrite(px.data(), 0, 5, "D:\\io\\y.png"), -1);
}

TEST_F(ApiTest, ImageInvertWritesNegative) {
    std::vector<uint8_t> src{0, 1, 128, 255, 7, 9}, dst(7, 0xEE);
    EXPECT_EQ(ImageInvert(src.data(), dst.data(), 3, 2), 0);
    for (size_t i = 0; i < src.size(); ++i) EXPECT_EQ(dst[i], 255 - src[i]);
    EXPECT_EQ(dst[6], 0xEE);
    EXPECT_EQ(ImageInvert(src.data(), dst.data(), 0, 2), 0);
    EXPECT_EQ(ImageInvert(src.data(), dst.data(), -1, 2), -1);
    EXPECT_EQ(ImageInvert(nullptr, dst.data(), 3, 2), -1);
}

TEST_F(ApiTest, SmallExports) {
    EXPECT_EQ(Add(2, 3), 5);
    EXPECT_EQ(Add(INT_MAX, 1), INT_MIN);  // wraps instead of undefined overflow
    EXPECT_EQ(Gnuplot_splot(), platform::OpenCvVersion().build);

    EXPECT_EQ(VBcvTestConv(), -1);  // no D:\a.bmp yet
    cv::Mat a(4, 4, CV_8UC1, cv::Scalar(0));
    a.at<uchar>(1, 2) = 3;
    std::string native = platform::NativePath(std::string("D:\\a.bmp"));
    platform::CreateParentDirectories(native);
    ASSERT_TRUE(cv::imwrite(native, a));
    EXPECT_EQ(VBcvTestConv(), 0);
    cv::Mat b = cv::imread(platform::NativePath(std::string("D:\\b.bmp")), cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(b.empty());
    EXPECT_EQ(b.at<uchar>(1, 2), 255);
    EXPECT_EQ(cv::countNonZero(b), 1);
}

TEST_F(ApiTest, NullPointersAreHarmless) {
    WriteRecipeFile(L"C:\\recipes\\one.json", SourceToCounter(1));
    wchar_t result[64] = {};
    EXPECT_GT(RecipeExecuteByPath(nullptr, nullptr, L"C:\\recipes\\one.json", nullptr, result,
                                  sizeof result),
              0);
    EXPECT_EQ(RecipeExecuteByBuffer(nullptr, 4, 2, 2, nullptr, 4, 2, 2, nullptr, 4, nullptr,
                                    nullptr, nullptr, nullptr, nullptr, 0),
              0);
    void* buffer = ImageBufferCreate();
    EXPECT_EQ(RecipeExecuteByBufferID(buffer, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, 0),
              0);
    std::vector<uint8_t> px(4, 3);
    EXPECT_EQ(ImageBufferAdd(buffer, 1, nullptr, 4, 2, 2), 0);  // stored as an empty image
    EXPECT_EQ(ImageBufferAdd(buffer, 2, px.data(), 4, 2, 2), 0);
    EXPECT_EQ(ImageBufferGet(buffer, 2, nullptr, 4, nullptr, nullptr), 4);
    EXPECT_EQ(ImageBufferGet(buffer, 1, px.data(), 4, nullptr, nullptr), 0);
    EXPECT_EQ(RecipeExecuteByBufferID(buffer, nullptr, 4, nullptr, nullptr,
                                      SourceToCounter(2).c_str(), nullptr, nullptr, 0) > 0,
              true);
    EXPECT_EQ(ImageBufferRelease(buffer), 0);
    EXPECT_EQ(ImageWrite(nullptr, 2, 2, "D:\\n.png"), -1);
    EXPECT_EQ(ImageRead(nullptr, 4, nullptr, nullptr, "D:\\n.png"), 0);
    EXPECT_EQ(FilterExecuteByBuffer(nullptr, nullptr, 2, 2, nullptr, nullptr, nullptr, 0), 0);
}

TEST_F(ApiTest, ExportsLogTheirTagsAtLevelTwo) {
    ImageParam output{};
    RecipeExecute(nullptr, &output, L"{}", L"p");
    ImageParamRelease(&output);
    FilterExecute(nullptr, &output, L"TestCounting", nullptr);
    ImageParamRelease(&output);
    FilterExecuteByBuffer(nullptr, nullptr, 0, 0, L"TestCounting", nullptr, nullptr, 0);
    const std::string log = ReadLog();
    for (const char* tag :
         {"[2] <RecipeExecute> <Recipe>{}</Recipe> <Param>p</Param>\n", "[2] </RecipeExecute>\n",
          "[2] <FilterExecute> <Filter>TestCounting</Filter> <Param></Param>\n",
          "[2] </FilterExecute>\n", "[2] <FilterExecuteByBuffer>\n",
          "[2] </FilterExecuteByBuffer>\n"})
        EXPECT_NE(log.find(tag), std::string::npos) << tag;
}

}  // namespace
}  // namespace pixmill::test
