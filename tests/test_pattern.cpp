// Pattern matching: the masked matcher against OpenCV's own and against
// drawn images with known truth, the probe-mark comparison on a drawn pad,
// the pattern-in-pad filter, and the two pattern functions on files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "inspect/pattern/MatchTemplateMask.h"
#include "inspect/pattern/PatternMatch.h"
#include "inspect/pattern/ProbeMark.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::inspect::pattern {
namespace {

namespace fs = std::filesystem;

void Collect(const char* line, void* user) {
    static_cast<std::string*>(user)->append(line);
}

// Blurred noise: texture every placement can be told apart by.
cv::Mat Texture(cv::Size size, int type, uint64_t seed, double blur = 1.0) {
    cv::Mat noise(size, CV_MAKETYPE(CV_32F, CV_MAT_CN(type)));
    cv::RNG rng(seed);
    rng.fill(noise, cv::RNG::UNIFORM, 0, 255);
    if (blur > 0) cv::GaussianBlur(noise, noise, cv::Size(0, 0), blur);
    cv::Mat out;
    noise.convertTo(out, type);
    return out;
}

// Largest difference where OpenCV's score is finite.
double MaxFiniteDiff(const cv::Mat& ours, const cv::Mat& theirs) {
    double worst = 0;
    for (int r = 0; r < ours.rows; ++r)
        for (int c = 0; c < ours.cols; ++c) {
            const float t = theirs.at<float>(r, c);
            if (!std::isfinite(t)) continue;
            worst = std::max(worst, std::fabs(static_cast<double>(ours.at<float>(r, c)) - t));
        }
    return worst;
}

// ---------------------------------------------------------------------------
// matchTemplateMask
// ---------------------------------------------------------------------------

enum class MaskKind { kBinary8, kValue7, kBinary32, kWeights32, kOneChannel };

struct AgreeCase {
    cv::Size image, templ;
    int channels;
    MaskKind mask;
};

class MatchAgreement : public ::testing::TestWithParam<AgreeCase> {};

TEST_P(MatchAgreement, AgreesWithOpenCvMaskedMatcher) {
    const AgreeCase& k = GetParam();
    const int type = CV_MAKETYPE(CV_8U, k.channels);
    const cv::Mat img = Texture(k.image, type, 11, 1.5);
    const cv::Mat templ = Texture(k.templ, type, 12, 1.5);
    cv::Mat mask;
    const int maskCn = k.mask == MaskKind::kOneChannel ? 1 : k.channels;
    cv::Mat random(k.templ, CV_32FC(maskCn));
    cv::RNG(13).fill(random, cv::RNG::UNIFORM, 0, 1);
    switch (k.mask) {
        case MaskKind::kBinary8:
        case MaskKind::kOneChannel: mask = random > 0.3; break;
        case MaskKind::kValue7: cv::Mat(random > 0.3).convertTo(mask, CV_8U, 7.0 / 255.0); break;
        case MaskKind::kBinary32: cv::Mat(random > 0.3).convertTo(mask, CV_32F, 1.0 / 255.0); break;
        case MaskKind::kWeights32: mask = random * 2.0; break;
    }
    cv::Mat ours, theirs;
    matchTemplateMask(img, templ, ours, mask);
    cv::matchTemplate(img, templ, theirs, cv::TM_CCOEFF_NORMED, mask);
    ASSERT_EQ(ours.size(), theirs.size());
    ASSERT_EQ(ours.type(), CV_32FC1);
    EXPECT_LT(MaxFiniteDiff(ours, theirs), 1e-4);
    EXPECT_GT(cv::countNonZero(theirs == theirs), 0);  // something was compared
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, MatchAgreement,
    ::testing::Values(AgreeCase{{97, 61}, {13, 9}, 1, MaskKind::kBinary8},
                      AgreeCase{{320, 240}, {64, 48}, 1, MaskKind::kValue7},
                      AgreeCase{{300, 700}, {31, 180}, 1, MaskKind::kBinary32},
                      AgreeCase{{160, 120}, {40, 30}, 1, MaskKind::kWeights32},
                      AgreeCase{{90, 70}, {21, 17}, 3, MaskKind::kBinary8},
                      AgreeCase{{90, 70}, {21, 17}, 3, MaskKind::kWeights32},
                      AgreeCase{{90, 70}, {21, 17}, 3, MaskKind::kOneChannel},
                      AgreeCase{{40, 30}, {40, 30}, 1, MaskKind::kBinary8},
                      AgreeCase{{40, 30}, {40, 30}, 3, MaskKind::kWeights32},
                      AgreeCase{{700, 520}, {300, 20}, 1, MaskKind::kBinary8}));

TEST(MatchTemplateMask, MaskedOutChangeKeepsThePeakAtTheCut) {
    const cv::Mat img = Texture({240, 180}, CV_8UC1, 21, 2.0);
    const cv::Rect cut(97, 54, 48, 40);
    cv::Mat templ = img(cut).clone();
    // A bright blob in the template that the image does not have, hidden by
    // the mask.
    const cv::Rect changed(10, 8, 20, 18);
    templ(changed).setTo(255);
    cv::Mat mask(templ.size(), CV_8U, cv::Scalar(255));
    mask(changed).setTo(0);

    cv::Mat scores;
    matchTemplateMask(img, templ, scores, mask);
    double best;
    cv::Point at;
    cv::minMaxLoc(scores, nullptr, &best, nullptr, &at);
    EXPECT_EQ(at, cut.tl());
    EXPECT_NEAR(scores.at<float>(cut.tl()), 1.0, 1e-4);

    // Without the mask the change costs the true placement its perfect score.
    cv::Mat plain;
    cv::matchTemplate(img, templ, plain, cv::TM_CCOEFF_NORMED);
    EXPECT_LT(plain.at<float>(cut.tl()), 0.9);
}

TEST(MatchTemplateMask, EightBitMaskIsBinaryAndFloatMaskWeighs) {
    const cv::Mat img = Texture({80, 60}, CV_8UC1, 31);
    const cv::Mat templ = Texture({20, 16}, CV_8UC1, 32);
    cv::Mat m7(templ.size(), CV_8U, cv::Scalar(0)), m255;
    m7(cv::Rect(2, 2, 14, 10)).setTo(7);
    m255 = m7 * (255.0 / 7.0);
    cv::Mat a, b, w;
    matchTemplateMask(img, templ, a, m7);
    matchTemplateMask(img, templ, b, m255);
    EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0);
    cv::Mat weights;
    m7.convertTo(weights, CV_32F, 3.0 / 7.0);  // weight 3 where the mask is set
    weights.at<float>(5, 5) = 0.5f;            // and one lighter pixel
    matchTemplateMask(img, templ, w, weights);
    EXPECT_GT(cv::norm(a, w, cv::NORM_INF), 1e-3);
}

TEST(MatchTemplateMask, UndefinedPlacementsAreNotNumbers) {
    const cv::Mat img = Texture({50, 40}, CV_8UC3, 41);
    const cv::Mat templ = Texture({10, 8}, CV_8UC3, 42);
    cv::Mat scores;
    matchTemplateMask(img, templ, scores, cv::Mat::zeros(templ.size(), CV_8UC1));
    EXPECT_EQ(scores.size(), cv::Size(41, 33));
    EXPECT_EQ(cv::countNonZero(scores == scores), 0);  // all NaN

    // A flat window has no variance: NaN there, and minMaxLoc skips it.
    cv::Mat flat = Texture({50, 40}, CV_8UC1, 43);
    flat(cv::Rect(0, 0, 20, 20)).setTo(90);
    matchTemplateMask(flat, Texture({10, 8}, CV_8UC1, 44), scores,
                      cv::Mat(cv::Size(10, 8), CV_8U, cv::Scalar(1)));
    EXPECT_TRUE(std::isnan(scores.at<float>(0, 0)));
    cv::Point at;
    cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &at);
    EXPECT_TRUE(std::isfinite(scores.at<float>(at)));
}

struct AssertCase {
    const char* name;
    cv::Size image, templ, mask;
    int maskType;
    const char* text;
};

class MatchAssertions : public ::testing::TestWithParam<AssertCase> {};

TEST_P(MatchAssertions, FailWithTheirTextAndTheCallersName) {
    const AssertCase& k = GetParam();
    const cv::Mat img = Texture(k.image, CV_8UC1, 1);
    const cv::Mat templ = Texture(k.templ, CV_8UC1, 2);
    const cv::Mat mask(k.mask, k.maskType, cv::Scalar::all(1));
    cv::Mat result;
    const MatchCaller caller{"CBlobMatchingFilter::matchTemplateMask", "Filters/BlobMatchingFilter"};
    try {
        matchTemplateMask(img, templ, result, mask, caller);
        FAIL() << "no exception";
    } catch (const cv::Exception& e) {
        EXPECT_EQ(e.code, cv::Error::StsAssert);
        EXPECT_EQ(e.err, k.text);
        EXPECT_EQ(e.func, caller.function);
        EXPECT_EQ(e.file, caller.file);
    }
}

INSTANTIATE_TEST_SUITE_P(
    InOrder, MatchAssertions,
    ::testing::Values(
        // A 16-bit mask of the wrong size still fails the depth check first.
        AssertCase{"depth", {40, 30}, {10, 10}, {5, 5}, CV_16UC1,
                   "_mask.depth() == CV_8U || _mask.depth() == CV_32F"},
        AssertCase{"channels", {40, 30}, {10, 10}, {5, 5}, CV_8UC2,
                   "_mask.channels() == _templ.channels() || _mask.channels() == 1"},
        AssertCase{"size", {40, 30}, {10, 10}, {10, 9}, CV_8UC1, "_templ.size() == _mask.size()"},
        AssertCase{"wider", {40, 30}, {41, 10}, {41, 10}, CV_8UC1,
                   "_img.size().height >= _templ.size().height && _img.size().width >= "
                   "_templ.size().width"},
        AssertCase{"taller", {40, 30}, {40, 31}, {40, 31}, CV_32FC1,
                   "_img.size().height >= _templ.size().height && _img.size().width >= "
                   "_templ.size().width"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(CrossCorr, MatchesFilter2DWithAnchorBorderAndChannels) {
    const cv::Mat img = Texture({70, 50}, CV_32FC1, 51);
    const cv::Mat templ = Texture({9, 7}, CV_32FC1, 52);
    for (int border : {cv::BORDER_CONSTANT, cv::BORDER_REFLECT_101, cv::BORDER_REPLICATE}) {
        const cv::Point anchor(3, 2);
        cv::Mat corr(img.size(), CV_32F), expected;
        crossCorr(img, templ, corr, anchor, 5.0, border);
        cv::filter2D(img, expected, CV_32F, templ, anchor, 5.0, border);
        EXPECT_LT(cv::norm(corr, expected, cv::NORM_INF), 1e-5 * cv::norm(expected, cv::NORM_INF))
            << border;
    }
    // Three channels summed into one output: the sum of the per-channel
    // correlations.
    const cv::Mat img3 = Texture({40, 30}, CV_32FC3, 53), templ3 = Texture({5, 4}, CV_32FC3, 54);
    cv::Mat corr(27, 36, CV_32F), sum = cv::Mat::zeros(27, 36, CV_32F);
    crossCorr(img3, templ3, corr, cv::Point(), 0, cv::BORDER_CONSTANT);
    for (int c = 0; c < 3; ++c) {
        cv::Mat a, b, full;
        cv::extractChannel(img3, a, c);
        cv::extractChannel(templ3, b, c);
        cv::filter2D(a, full, CV_32F, b, cv::Point(0, 0), 0, cv::BORDER_CONSTANT);
        sum += full(cv::Rect(0, 0, 36, 27));
    }
    EXPECT_LT(cv::norm(corr, sum, cv::NORM_INF), 1e-5 * cv::norm(sum, cv::NORM_INF));
    // An output too large for image and template.
    cv::Mat big(img.rows + templ.rows, img.cols, CV_32F);
    EXPECT_THROW(crossCorr(img, templ, big, cv::Point(), 0, 0), cv::Exception);
}

// ---------------------------------------------------------------------------
// Probe-mark comparison
// ---------------------------------------------------------------------------

// A pad with a repeating pattern of dark squares, textured, mildly blurred.
cv::Mat Pad(cv::Point offset, int brightness, bool probeMark, uint64_t seed) {
    cv::Mat pad(200, 240, CV_8UC1, cv::Scalar(170 + brightness));
    for (int y = 12; y < 200; y += 44)
        for (int x = 12; x < 240; x += 44)
            cv::rectangle(pad, cv::Rect(x + offset.x, y + offset.y, 22, 22),
                          cv::Scalar(70 + brightness), cv::FILLED);
    if (probeMark) cv::ellipse(pad, {150, 102}, {9, 6}, 0, 0, 360, cv::Scalar(55), cv::FILLED);
    cv::Mat noise(pad.size(), CV_16S);
    cv::RNG(seed).fill(noise, cv::RNG::NORMAL, 0, 2);
    cv::Mat out;
    cv::add(pad, noise, out, cv::noArray(), CV_8U);
    cv::GaussianBlur(out, out, cv::Size(3, 3), 0.8);
    return out;
}

const cv::Rect kProbeMark(141, 96, 19, 13);

class ProbeMarkTest : public test::PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        logging::SetTraceSink(Collect, &m_trace);
    }
    std::string Write(const std::string& name, const cv::Mat& image) {
        const std::string native = platform::NativePath("C:\\pads\\" + name);
        platform::CreateParentDirectories(native);
        cv::imwrite(native, image);
        return "C:\\pads\\" + name;
    }
    cv::Mat Result(const char* name) {
        return cv::imread(platform::NativePath(std::string("C:\\out\\") + name), cv::IMREAD_UNCHANGED);
    }
    std::string m_trace;
};

TEST_F(ProbeMarkTest, AlignsEvensAndFlagsOnlyTheProbeMark) {
    const std::string mark = Write("mark.bmp", Pad({2, 1}, 0, true, 1));
    const std::string ref = Write("ref.bmp", Pad({0, 0}, 12, false, 2));
    EXPECT_EQ(VBcv1032Pattern_Matching(mark.c_str(), ref.c_str(), "C:\\out"), 1.0);
    EXPECT_NE(m_trace.find("reference image shifting success// x = 2 y = 1 \n"), std::string::npos)
        << m_trace;
    EXPECT_NE(m_trace.find("Pattern Image Process Done."), std::string::npos);

    const cv::Mat temp = Result("TempImg.bmp"), result = Result("ResultPadImg.bmp");
    ASSERT_FALSE(temp.empty());
    ASSERT_FALSE(result.empty());
    // Away from the mark and the shift strip the pattern is gone: flat.
    cv::Mat away(temp.size(), CV_8U, cv::Scalar(255));
    away(cv::Rect(0, 0, temp.cols, 4)).setTo(0);
    away(cv::Rect(0, 0, 4, temp.rows)).setTo(0);
    away(cv::Rect(kProbeMark.x - 8, kProbeMark.y - 8, kProbeMark.width + 16,
                  kProbeMark.height + 16)).setTo(0);
    cv::Scalar flatMean, flatDev;
    cv::meanStdDev(temp, flatMean, flatDev, away);
    EXPECT_LT(flatDev[0], 6.0);
    const double markMean = cv::mean(temp(cv::Rect(146, 99, 9, 7)))[0];
    EXPECT_GT(flatMean[0] - markMean, 60.0) << flatMean[0] << " " << markMean;
    // Only the mark reads as dark.
    EXPECT_GT(cv::countNonZero(result(cv::Rect(146, 99, 9, 7))), 60);
    EXPECT_EQ(cv::countNonZero(result & away), 0);
    const float m = static_cast<float>(cv::mean(Pad({2, 1}, 0, true, 1))[0]);
    EXPECT_NEAR(VBcvPadMeanGain(), (256.0f - m) / (256.0f - m * 0.96f), 1e-4);
}

TEST_F(ProbeMarkTest, IdenticalImagesComeOutAt200) {
    const cv::Mat pad = Pad({0, 0}, 0, false, 3);
    const std::string a = Write("a.bmp", pad);
    PatternMatching1032(a.c_str(), a.c_str(), "C:\\out");
    EXPECT_NE(m_trace.find("mark image shifting success// x = 0 y = 0 \n"), std::string::npos);
    const cv::Mat temp = Result("TempImg.bmp");
    ASSERT_FALSE(temp.empty());
    double lo, hi;
    cv::minMaxLoc(temp, &lo, &hi);
    EXPECT_GE(lo, 199.0);
    EXPECT_LE(hi, 201.0);
    EXPECT_EQ(cv::countNonZero(Result("ResultPadImg.bmp")), 0);
}

TEST_F(ProbeMarkTest, UnusableInputsWriteNothing) {
    const std::string good = Write("good.bmp", Pad({0, 0}, 0, false, 4));
    const std::string corrupt = "C:\\pads\\corrupt.bmp";
    platform::WriteWholeFile(platform::NativePath(corrupt), "BM not an image");
    struct Case {
        const char* mark;
        const char* ref;
        const char* folder;
        const char* line;
    };
    const std::string longFolder(300, 'x');
    const Case cases[] = {
        {"C:\\pads\\none.bmp", good.c_str(), "C:\\out", "Mark Image is not exist"},
        {nullptr, good.c_str(), "C:\\out", "Mark Image is not exist"},
        {good.c_str(), corrupt.c_str(), "C:\\out", "Reference Image not exist"},
        {good.c_str(), good.c_str(), "", "Result folder is not usable"},
        {good.c_str(), good.c_str(), nullptr, "Result folder is not usable"},
        {good.c_str(), good.c_str(), longFolder.c_str(), "Result folder is not usable"},
    };
    for (const Case& c : cases) {
        m_trace.clear();
        EXPECT_EQ(VBcv1032Pattern_Matching(c.mark, c.ref, c.folder), 1.0);
        EXPECT_NE(m_trace.find(c.line), std::string::npos) << m_trace;
        EXPECT_FALSE(fs::exists(platform::NativePath("C:\\out\\TempImg.bmp")));
    }
    // A reference of another size is resized and the comparison goes on.
    const std::string small = Write("small.bmp", Pad({0, 0}, 0, false, 5)(cv::Rect(0, 0, 120, 100)));
    VBcv1032Pattern_Matching(good.c_str(), small.c_str(), "C:\\out");
    EXPECT_EQ(Result("ResultPadImg.bmp").size(), cv::Size(240, 200));
}

TEST_F(ProbeMarkTest, EccWithoutDisplayTracesAndReturns) {
    ::unsetenv("DISPLAY");
    ::unsetenv("WAYLAND_DISPLAY");
    const std::string mark = Write("m.bmp", Pad({1, 0}, 0, true, 6));
    const std::string ref = Write("r.bmp", Pad({0, 0}, 0, false, 7));
    VBcv1032Pattern_MatchingECC(mark.c_str(), ref.c_str());
    EXPECT_NE(m_trace.find("[VBcv1032Pattern_MatchingECC] No display"), std::string::npos) << m_trace;
    m_trace.clear();
    VBcv1032Pattern_MatchingECC("C:\\pads\\none.bmp", ref.c_str());
    EXPECT_EQ(m_trace.find("No display"), std::string::npos);
}

TEST(ProbeMarkSteps, ShiftMovesRightAndDownAndRefusesOtherChannels) {
    cv::Mat src(5, 6, CV_8UC1);
    for (int i = 0; i < 30; ++i) src.data[i] = static_cast<uchar>(i + 1);
    std::string lines;
    const LineSink sink = [&](const std::string& l) { lines += l; };
    cv::Mat dst;
    ASSERT_TRUE(ShiftImage(src, dst, 2, 1, sink));
    EXPECT_EQ(dst.at<uchar>(1, 2), src.at<uchar>(0, 0));
    EXPECT_EQ(dst.at<uchar>(4, 5), src.at<uchar>(3, 3));
    EXPECT_EQ(cv::countNonZero(dst.row(0)) + cv::countNonZero(dst.colRange(0, 2)), 0);
    ASSERT_TRUE(ShiftImage(src, dst, 0, 5, sink));  // not below the row count
    EXPECT_EQ(cv::countNonZero(dst), 0);
    EXPECT_FALSE(ShiftImage(cv::Mat(5, 6, CV_8UC2, cv::Scalar::all(1)), dst, 1, 1, sink));
    EXPECT_NE(lines.find("Image Channel(s) error"), std::string::npos);
}

// ---------------------------------------------------------------------------
// PatternInPadMaskingFilter
// ---------------------------------------------------------------------------

class PatternInPadFilter : public test::PixmillTest {};

TEST_F(PatternInPadFilter, RemovesThePatternAndKeepsTheMark) {
    EnableFileLog(1);
    auto f = test::Make(L"PatternInPadMaskingFilter");
    ASSERT_TRUE(f);
    const cv::Mat mark = Pad({2, 1}, 0, true, 8), ref = Pad({0, 0}, 12, false, 9);
    const std::vector<cv::Mat> out =
        test::RunPins(*f, {{1, {mark, mark.clone(), mark.clone()}}, {2, {ref}}});
    ASSERT_EQ(out.size(), 3u);
    for (const cv::Mat& o : out) {
        ASSERT_EQ(o.size(), mark.size());
        EXPECT_EQ(cv::countNonZero(o == 0) + cv::countNonZero(o == 255), o.rows * o.cols);
        // The mark is dark (0), the pattern around it is gone (255).
        EXPECT_LT(cv::countNonZero(o(cv::Rect(146, 99, 9, 7))), 10);
        cv::Mat inner = o(cv::Rect(8, 8, o.cols - 16, o.rows - 16)).clone();
        EXPECT_GT(cv::countNonZero(inner), inner.total() * 0.97);
    }
    const std::string log = ReadLog();
    EXPECT_NE(log.find("PMI Mean : "), std::string::npos);
    EXPECT_NE(log.find("reference image shifting success// x = 2 y = 1"), std::string::npos);
    EXPECT_NE(log.find("Pattern Image Process Done."), std::string::npos);
}

TEST_F(PatternInPadFilter, PassesThroughWithoutReferenceAndHandlesTinyImages) {
    auto f = test::Make(L"PatternInPadMaskingFilter");
    const cv::Mat mark = Pad({0, 0}, 0, true, 10);
    std::vector<cv::Mat> out = test::RunPins(*f, {{1, {mark}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(test::SameImage(out[0], mark));

    // No inner area: the level is 0 and every pixel above 0 becomes 255.
    auto g = test::Make(L"PatternInPadMaskingFilter");
    const cv::Mat tiny(4, 4, CV_8UC1, cv::Scalar(100));
    out = test::RunPins(*g, {{1, {tiny}}, {2, {tiny}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(cv::countNonZero(out[0] == 255), 16);
}

// ---------------------------------------------------------------------------
// VBcvPatternMatching and VBcvMakePatternMask
// ---------------------------------------------------------------------------

class PatternFiles : public test::PixmillTest {
protected:
    std::string Write(const std::string& proberPath, const cv::Mat& image) {
        const std::string native = platform::NativePath(proberPath);
        platform::CreateParentDirectories(native);
        cv::imwrite(native, image);
        return proberPath;
    }
    bool Exists(const wchar_t* proberPath) {
        return fs::exists(platform::NativePath(std::wstring(proberPath)));
    }
};

TEST_F(PatternFiles, FindsACutPatternExactlyAndUnderNoise) {
    const cv::Mat target = Texture({320, 240}, CV_8UC3, 61, 2.0);
    const cv::Rect cut(181, 67, 51, 40);
    const std::string t = Write("C:\\pm\\target.png", target);
    const std::string p = Write("C:\\pm\\pattern.png", target(cut).clone());
    PatternMatchResult r = VBcvPatternMatching(t.c_str(), p.c_str(), 90);
    EXPECT_EQ(r.x, cut.x + cut.width / 2);
    EXPECT_EQ(r.y, cut.y + cut.height / 2);
    EXPECT_GE(r.score, 95);
    EXPECT_TRUE(Exists(kPatternSuccessImage));

    cv::Mat noisy, noise(target.size(), CV_16SC3);
    cv::RNG(62).fill(noise, cv::RNG::NORMAL, 0, 12);
    cv::add(target, noise, noisy, cv::noArray(), CV_8U);
    const std::string n = Write("C:\\pm\\noisy.png", noisy);
    r = VBcvPatternMatching(n.c_str(), p.c_str(), 50);
    EXPECT_LE(std::abs(r.x - (cut.x + cut.width / 2)), 1);
    EXPECT_LE(std::abs(r.y - (cut.y + cut.height / 2)), 1);
    EXPECT_GE(r.score, 50);
}

TEST_F(PatternFiles, EveryFailureGivesMinusOnes) {
    EnableFileLog(1);
    const cv::Mat target = Texture({120, 90}, CV_8UC1, 63);
    const std::string t = Write("C:\\pm\\t.png", target);
    const std::string p = Write("C:\\pm\\p.png", target(cv::Rect(10, 10, 30, 20)).clone());
    const std::string big = Write("C:\\pm\\big.png", Texture({121, 90}, CV_8UC1, 64));
    const std::string colour = Write("C:\\pm\\c.png", Texture({30, 20}, CV_8UC3, 65));
    struct Case {
        const char* target;
        const char* pattern;
        int threshold;
        const char* line;
    };
    const Case cases[] = {
        {nullptr, p.c_str(), 50, "Image Path is incorrect"},
        {t.c_str(), "", 50, "Image Path is incorrect"},
        {t.c_str(), p.c_str(), -1, "Score threshold is incorrect : -1"},
        {"C:\\pm\\none.png", p.c_str(), 50, "Target Image loading fail"},
        {t.c_str(), "C:\\pm\\none.png", 50, "Pattern Image loading fail"},
        {t.c_str(), big.c_str(), 50, "larger than Target Image"},
        {t.c_str(), colour.c_str(), 50, "type differs"},
        {t.c_str(), p.c_str(), 101, "Pattern matching fail, Score / Threshold : "},
    };
    for (const Case& c : cases) {
        const PatternMatchResult r = FindPattern(c.target, c.pattern, c.threshold);
        EXPECT_EQ(r.x, -1) << c.line;
        EXPECT_EQ(r.y, -1);
        EXPECT_EQ(r.score, -1);
        EXPECT_NE(ReadLog().find(c.line), std::string::npos) << c.line;
    }
    EXPECT_TRUE(Exists(kPatternFailImage));  // the last case only
    EXPECT_FALSE(Exists(kPatternSuccessImage));
}

TEST_F(PatternFiles, MaskMarksTheChangingRegionOnly) {
    const cv::Rect changing(30, 20, 25, 15);
    for (int i = 0; i < 4; ++i) {
        // The same scene, kept below 128 so that no jitter crosses the
        // signed byte boundary.
        cv::Mat frame;
        Texture({100, 80}, CV_8UC1, 70, 2.0).convertTo(frame, CV_8U, 0.4, 10);
        cv::Mat jitter(frame.size(), CV_16S);
        cv::RNG(71 + i).fill(jitter, cv::RNG::UNIFORM, -2, 3);
        cv::add(frame, jitter, frame, cv::noArray(), CV_8U);
        frame(changing).setTo(40 + 30 * i);
        Write("C:\\series\\f" + std::to_string(i) + ".bmp", frame);
    }
    ASSERT_EQ(VBcvMakePatternMask("C:\\series\\", "f", 4, 6, 20), 1);
    const cv::Mat mask =
        cv::imread(platform::NativePath(std::string("C:\\series\\fM.bmp")), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(mask.size(), cv::Size(100, 80));
    EXPECT_EQ(cv::countNonZero(mask(changing)), changing.area());
    EXPECT_EQ(cv::countNonZero(mask), changing.area());

    struct Case {
        int count, tolerance, limit, expected;
    };
    // One image passes; too much change, a missing image, no image fail.
    for (const Case& c : {Case{1, 1, 0, 1}, Case{4, 6, 3, 0}, Case{5, 6, 20, 0},
                          Case{0, 6, 20, 0}, Case{2, 0, 99, 0}, Case{2, 0, 100, 1}}) {
        fs::remove(platform::NativePath(std::string("C:\\series\\fM.bmp")));
        EXPECT_EQ(VBcvMakePatternMask("C:\\series\\", "f", c.count, c.tolerance, c.limit),
                  c.expected)
            << c.count << " " << c.tolerance << " " << c.limit;
        EXPECT_EQ(fs::exists(platform::NativePath(std::string("C:\\series\\fM.bmp"))),
                  c.expected == 1);
    }
    // An image of another size is refused, not read past its end.
    Write("C:\\series\\f1.bmp", Texture({60, 80}, CV_8UC1, 72));
    EXPECT_EQ(VBcvMakePatternMask("C:\\series\\", "f", 2, 6, 100), 0);
    EXPECT_EQ(VBcvMakePatternMask(nullptr, "f", 2, 6, 100), 0);
}

}  // namespace
}  // namespace pixmill::inspect::pattern
