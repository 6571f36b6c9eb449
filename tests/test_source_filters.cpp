// The source and probe filters: SourceFilter (master images or a file),
// LoggerPathFilter (pass-through that saves a probe image) and
// DrawCircleFilter (circular masks), driven through their pins and Process.
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <tuple>

#include "FilterHarness.h"
#include "Filters/DrawCircleFilter.h"
#include "Filters/LoggerPathFilter.h"
#include "Filters/SourceFilter.h"
#include "TestSupport.h"
#include "framework/ImageFiles.h"
#include "platform/Platform.h"

namespace fs = std::filesystem;

namespace pixmill::test {
namespace {

// A colour scene with distinct channels, so a channel mix-up changes the
// gray result.
cv::Mat ColourScene(cv::Size size, int shift) {
    cv::Mat m(size, CV_8UC3, cv::Scalar(20, 60 + shift, 140));
    cv::rectangle(m, cv::Rect(2, 3, size.width / 2, size.height / 3), cv::Scalar(250, 10, 90), -1);
    cv::circle(m, cv::Point(size.width - 6, size.height - 6), 4, cv::Scalar(5, 200, 30 + shift),
               -1);
    return m;
}

cv::Mat GrayOf(const cv::Mat& bgr) {
    cv::Mat gray;
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    return gray;
}

std::vector<cv::Mat*> Output(IFilter& filter) {
    return filter.GetPin(-1)->GetImage();
}

fs::path Native(const std::wstring& proberPath) {
    return platform::NativePath(proberPath);
}

cv::Mat ReadBack(const std::wstring& proberPath) {
    return cv::imread(Native(proberPath).string(), cv::IMREAD_UNCHANGED);
}

// ---------------------------------------------------------------------------
// SourceFilter
// ---------------------------------------------------------------------------

using SourceFilterTest = PixmillTest;

TEST_F(SourceFilterTest, EmitsEveryMasterWithTheChosenIdAsGrayInOrder) {
    cv::Mat one = ColourScene({24, 18}, 0), two = ColourScene({32, 20}, 50);
    cv::Mat gray(10, 12, CV_8UC1, cv::Scalar(77));
    CSourceFilter f;
    SetParams(f, {{L"ImageID", L"2"}});
    f.SetMasterImage({{&one, 1}, {&two, 2}, {&gray, 2}});
    auto out = Output(f);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_TRUE(SameImage(*out[0], GrayOf(two)));
    EXPECT_TRUE(SameImage(*out[1], gray));  // one channel already: copied as is
    EXPECT_STREQ(f.GetResult(), L"{\"Count\":\"2\" , \"Type\":\"Master\"}");
    EXPECT_EQ(two.channels(), 3);  // the caller's images stay as they were
}

TEST_F(SourceFilterTest, ReadsPathWhenNoMasterHasTheIdElseOneEmptyImage) {
    const cv::Mat scene = ColourScene({40, 30}, 20);
    ASSERT_TRUE(WriteImageFile(L"C:\\imgs\\a.png", scene));
    ASSERT_TRUE(platform::WriteWholeFile(Native(L"C:\\imgs\\notes.png").string(), "not an image"));
    cv::Mat master = ColourScene({8, 8}, 0);
    const std::pair<const wchar_t*, bool> paths[] = {{L"C:/imgs/a.png", true},
                                                     {L"", false},
                                                     {L"C:\\imgs\\missing.png", false},
                                                     {L"C:\\imgs\\notes.png", false},
                                                     {L"C:\\imgs", false}};
    for (const auto& [path, readable] : paths) {
        SCOPED_TRACE(platform::ToUtf8(path));
        // Masters that carry other IDs do not stop the path from being read.
        CSourceFilter f;
        SetParams(f, {{L"ImageID", L"5"}, {L"Path", path}});
        f.SetMasterImage({{&master, 1}, {&master, 0}});
        auto out = Output(f);
        ASSERT_EQ(out.size(), 1u);
        EXPECT_TRUE(readable ? SameImage(*out[0], GrayOf(scene)) : out[0]->empty());
        EXPECT_STREQ(f.GetResult(), L"{\"Count\":\"1\" , \"Type\":\"Path\"}");
    }
}

// ---------------------------------------------------------------------------
// LoggerPathFilter
// ---------------------------------------------------------------------------

// Only the by-pass images come out. When active, the first log image is
// written under Root, Path and Prefix (backslashes trimmed from both ends of
// each; Path and Prefix join without a separator), the name cut at 255
// characters; an image the encoder refuses leaves the result as it was.
using LoggerPathFilterTest = PixmillTest;

TEST_F(LoggerPathFilterTest, PassesImagesOnAndWritesTheFirstLogImage) {
    EnableFileLog(4);
    cv::Mat passA(12, 16, CV_8UC1, cv::Scalar(30)), passB = ColourScene({20, 14}, 10);
    cv::Mat logA = ColourScene({11, 9}, 70), logB(9, 11, CV_8UC1, cv::Scalar(99)), empty;
    // Folder names short enough for any file system; the whole name reaches 255.
    std::wstring deep = L"C:";
    while (deep.size() < 240) deep += L"\\" + std::wstring(40, L'd');
    deep.resize(240);
    const std::wstring fits(255 - 240 - 1 - 4, L'n');
    // Parameters, log images, the file written (empty: none).
    const std::tuple<ParamList, std::vector<cv::Mat*>, std::wstring> cases[] = {
        {{{L"Root", L"C:\\probe"}, {L"Prefix", L"p"}}, {&logA}, L""},
        {{{L"Root", L"C:\\probe"}, {L"Active", L"true"}}, {}, L""},
        {{{L"Root", L"D:\\logs\\"}, {L"Path", L"\\run\\"}, {L"Prefix", L"a"}, {L"Active", L"true"}},
         {&logA, &logB},
         L"D:\\logs\\runa.png"},
        {{{L"Root", deep}, {L"Path", fits}, {L"Active", L"true"}},
         {&logA},
         deep + L"\\" + fits + L".png"},
        // One character more: the cut takes the extension's last letter.
        {{{L"Root", deep}, {L"Path", fits + L"z"}, {L"Active", L"true"}}, {&logA}, L""},
        {{{L"Root", L"C:\\bad"}, {L"Active", L"true"}}, {&empty, &logA}, L""}};
    for (const auto& [params, log, written] : cases) {
        CLoggerPathFilter f;
        SetParams(f, params);
        f.GetPin(1)->SetImage({&passA, &passB});
        f.GetPin(2)->SetImage(log);
        auto out = Output(f);
        ASSERT_EQ(out.size(), 2u);
        EXPECT_TRUE(SameImage(*out[0], passA));
        EXPECT_TRUE(SameImage(*out[1], passB));
        if (written.empty()) {
            EXPECT_STREQ(f.GetResult(), L"\"\"");
        } else {
            EXPECT_EQ(std::wstring(f.GetResult()), L"{\"directory\":" + written + L"}");
            EXPECT_TRUE(SameImage(ReadBack(written), logA));
        }
    }
    EXPECT_FALSE(fs::exists(Native(L"C:\\probe")));
    EXPECT_FALSE(fs::exists(Native(L"C:\\bad\\.png")));
    EXPECT_FALSE(fs::exists(Native(deep + L"\\" + fits + L"z.pn")));
    EXPECT_EQ(Native(L"D:\\logs\\runa.png"), m_root->path() / "D" / "logs" / "runa.png");
    EXPECT_EQ(CountOf(ReadLog(), "[4] <Exception>\n"), 2);  // the two refused images
}

// ---------------------------------------------------------------------------
// DrawCircleFilter
// ---------------------------------------------------------------------------

class DrawCircleFilterTest : public PixmillTest {
protected:
    // A one-channel input whose pixels must not show in the mask.
    static cv::Mat Input(cv::Size size, int type = CV_8UC1) {
        cv::Mat m(size, type, cv::Scalar(90));
        cv::rectangle(m, cv::Rect(1, 1, size.width / 2, size.height / 2), cv::Scalar(200), -1);
        return m;
    }
    static std::vector<cv::Mat*> Run(IFilter& f, int x, int y, int width,
                                     std::vector<cv::Mat*> inputs) {
        SetParams(f, {{L"center_x", Num(x)}, {L"center_y", Num(y)}, {L"width", Num(width)}});
        f.GetPin(1)->SetImage(inputs);
        return Output(f);
    }
    static constexpr const wchar_t* kDebugFile =
        L"C:/PROBERPARAM/ParaImg/DrawCircleFilter_image.png";
};

// A centre outside the image leaves an all-black mask.
TEST_F(DrawCircleFilterTest, WhiteDiscOfHalfTheWidthRoundedTowardZero) {
    cv::Mat in = Input({40, 30});
    // Reference masks of radius 2 and 0 drawn with a named connected line.
    cv::Mat black = cv::Mat::zeros(in.size(), CV_8UC3), radius2 = black.clone(),
            radius0 = black.clone();
    cv::circle(radius2, {20, 15}, 2, cv::Scalar::all(255), cv::FILLED, cv::LINE_4);
    radius0.at<cv::Vec3b>(15, 20) = cv::Vec3b(255, 255, 255);
    const std::tuple<int, int, const cv::Mat*> cases[] = {{20, 5, &radius2},  {20, 4, &radius2},
                                                          {20, 1, &radius0},  {20, 0, &radius0},
                                                          {20, -1, &radius0}, {500, 20, &black}};
    for (const auto& [x, width, expected] : cases) {
        CDrawCircleFilter f;
        auto out = Run(f, x, x == 20 ? 15 : -40, width, {&in});
        ASSERT_EQ(out.size(), 1u);
        EXPECT_TRUE(SameImage(*out[0], *expected)) << width;
        EXPECT_STREQ(f.GetResult(), L"\"\"");
    }
}

TEST_F(DrawCircleFilterTest, OneMaskPerImageAndDebugFileHoldsTheLast) {
    cv::Mat small = Input({26, 20});
    cv::Mat deep = Input({30, 24}, CV_16UC1);
    CDrawCircleFilter f;
    auto out = Run(f, 12, 9, 9, {&small, &deep});
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0]->size(), small.size());
    EXPECT_EQ(out[0]->type(), CV_8UC3);
    EXPECT_EQ(out[1]->size(), deep.size());
    EXPECT_EQ(out[1]->type(), CV_16UC3);  // same depth as the input
    EXPECT_EQ(out[1]->at<cv::Vec3w>(9, 12), cv::Vec3w(255, 255, 255));
    EXPECT_EQ(out[1]->at<cv::Vec3w>(9, 12 + 5), cv::Vec3w(0, 0, 0));
    EXPECT_EQ(cv::countNonZero(out[1]->reshape(1)), cv::countNonZero(out[0]->reshape(1)));
    EXPECT_TRUE(SameImage(ReadBack(kDebugFile), *out[1]));
}

}  // namespace
}  // namespace pixmill::test
