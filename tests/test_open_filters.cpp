// Background subtraction, pattern subtraction, masked blob matching and
// focus-free alignment on drawn scenes whose truth is known: structures under
// uneven light, a defect on a shifted pattern, templates placed at known
// corners, a known shift with one image out of focus. Then EnhanceImageF end
// to end and the documented outcomes of bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <limits>
#include <map>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace pixmill::test {
namespace {

// The number in the string value after the n-th (0-based) `"key":"`; NaN
// when there is none.
double Field(const std::wstring& text, const std::wstring& key, int n = 0) {
    const std::wstring tag = L"\"" + key + L"\":\"";
    size_t at = text.find(tag);
    for (int i = 0; i < n && at != std::wstring::npos; ++i) at = text.find(tag, at + 1);
    if (at == std::wstring::npos) return std::numeric_limits<double>::quiet_NaN();
    return std::wcstod(text.c_str() + at + tag.size(), nullptr);
}

double IoU(const cv::Mat& a, const cv::Mat& b) {
    const double both = cv::countNonZero(a & b);
    const double either = cv::countNonZero(a | b);
    return either > 0 ? both / either : 1.0;
}

// Runs a registered filter on images by pin key; `result` gets its fragment.
std::vector<cv::Mat> RunFilter(const wchar_t* type, const ParamList& params,
                         std::map<int, std::vector<cv::Mat>> in, std::wstring* result = nullptr) {
    std::unique_ptr<IFilter> filter = Make(type);
    SetParams(*filter, params);
    std::vector<cv::Mat> out = RunPins(*filter, std::move(in));
    if (result) *result = filter->GetResult();
    return out;
}

// ---- Background subtraction ------------------------------------------------

// Drawn structures (rectangles, discs, a bar) under light that falls from
// one corner to the other to a third of its strength: image = light *
// reflectance, with noise and mild blur. `truth` is 255 on the structures.
struct LitScene {
    cv::Mat image;
    cv::Mat truth;
};

LitScene UnevenScene(bool darkStructures, uint64_t seed) {
    const cv::Size size(320, 240);
    LitScene s;
    s.truth = cv::Mat::zeros(size, CV_8UC1);
    cv::rectangle(s.truth, cv::Rect(30, 30, 24, 18), cv::Scalar(255), cv::FILLED);
    cv::rectangle(s.truth, cv::Rect(250, 180, 20, 26), cv::Scalar(255), cv::FILLED);
    cv::rectangle(s.truth, cv::Rect(140, 60, 8, 120), cv::Scalar(255), cv::FILLED);
    cv::circle(s.truth, cv::Point(260, 50), 11, cv::Scalar(255), cv::FILLED);
    cv::circle(s.truth, cv::Point(60, 190), 13, cv::Scalar(255), cv::FILLED);
    cv::circle(s.truth, cv::Point(200, 120), 9, cv::Scalar(255), cv::FILLED);

    cv::Mat1f reflect(size, darkStructures ? 0.8f : 0.3f);
    reflect.setTo(darkStructures ? 0.45f : 0.55f, s.truth);
    cv::Mat1f light(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            light(y, x) = static_cast<float>(
                250.0 * (1.0 - 0.65 * (0.6 * x / size.width + 0.4 * y / size.height)));
    cv::Mat1f picture = reflect.mul(light);
    cv::GaussianBlur(picture, picture, cv::Size(0, 0), 0.8);
    cv::Mat1f noise(size);
    cv::RNG(seed).fill(noise, cv::RNG::NORMAL, 0.0, 3.0);
    picture += noise;
    picture.convertTo(s.image, CV_8U);
    return s;
}

struct LightCase {
    const char* name;
    bool dark;
    bool curved;
};

class BackgroundLight : public PixmillTest, public ::testing::WithParamInterface<LightCase> {};

TEST_P(BackgroundLight, ThresholdRecoversTheDrawnStructures) {
    const LightCase& c = GetParam();
    const LitScene scene = UnevenScene(c.dark, 11);

    // The problem is real: one global Otsu level on the raw picture misses.
    cv::Mat global;
    cv::threshold(scene.image, global, 0, 255,
                  (c.dark ? cv::THRESH_BINARY_INV : cv::THRESH_BINARY) | cv::THRESH_OTSU);
    EXPECT_LT(IoU(global, scene.truth), 0.6);

    std::wstring result;
    const std::vector<cv::Mat> out =
        RunFilter(L"BackgroundSubstractFilter",
            {{L"BlurSize", L"41"}, {L"CurvedThresh", c.curved ? L"True" : L"False"},
             {L"B/W", c.dark ? L"True" : L"False"}},
            {{1, {scene.image}}}, &result);
    ASSERT_EQ(out.size(), 1u);
    ASSERT_EQ(out[0].type(), CV_8UC1);
    const double iou = IoU(out[0], scene.truth);
    EXPECT_GE(iou, 0.9) << "IoU " << iou;
    RecordProperty("iou", std::to_string(iou));
    RecordProperty("raw_otsu_iou", std::to_string(IoU(global, scene.truth)));
    EXPECT_EQ(Field(result, L"foreground"), cv::countNonZero(out[0]));
    EXPECT_GE(Field(result, L"threshold"), 1.0);
}

INSTANTIATE_TEST_SUITE_P(Scenes, BackgroundLight,
                         ::testing::Values(LightCase{"BrightFlat", false, false},
                                           LightCase{"BrightCurved", false, true},
                                           LightCase{"DarkFlat", true, false},
                                           LightCase{"DarkCurved", true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// A clean 30 x 30 square on a flat ground: the binary shapes follow from
// the geometry of the square and of the 3 x 3 erosion.
struct ShapeCase {
    const char* name;
    ParamList params;
    int foreground;
};

class BackgroundShape : public PixmillTest, public ::testing::WithParamInterface<ShapeCase> {};

TEST_P(BackgroundShape, ErosionAndEdgeFollowTheSquare) {
    cv::Mat image(100, 100, CV_8UC1, cv::Scalar(50));
    cv::rectangle(image, cv::Rect(35, 35, 30, 30), cv::Scalar(200), cv::FILLED);
    ParamList params = GetParam().params;
    params.push_back({L"BlurSize", L"41"});
    const std::vector<cv::Mat> out = RunFilter(L"BackgroundSubstractFilter", params, {{1, {image}}});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(cv::countNonZero(out[0]), GetParam().foreground);
    // Whatever is kept lies on the square.
    cv::Mat outside = out[0].clone();
    outside(cv::Rect(35, 35, 30, 30)).setTo(0);
    EXPECT_EQ(cv::countNonZero(outside), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Params, BackgroundShape,
    ::testing::Values(ShapeCase{"Plain", {}, 30 * 30},
                      ShapeCase{"ErodeTwice", {{L"ErodeCount", L"2"}}, 26 * 26},
                      ShapeCase{"Edge", {{L"EdgeDetect", L"True"}}, 30 * 30 - 28 * 28},
                      ShapeCase{"ErodeThenEdge",
                                {{L"ErodeCount", L"1"}, {L"EdgeDetect", L"true"}},
                                28 * 28 - 26 * 26},
                      // Looking for dark structures, the bright square is ground.
                      ShapeCase{"WrongPolarity", {{L"B/W", L"True"}}, 0},
                      // Out-of-range values are brought to their bounds.
                      ShapeCase{"HugeWeight", {{L"ThreshWeight", L"1e30"}}, 30 * 30},
                      ShapeCase{"NegativeErode", {{L"ErodeCount", L"-5"}}, 30 * 30}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PixmillTest, BackgroundSubtractionOfAFlatImageFindsNothing) {
    const cv::Mat flat(64, 64, CV_8UC1, cv::Scalar(90));
    std::wstring result;
    const std::vector<cv::Mat> out = RunFilter(L"BackgroundSubstractFilter", {}, {{1, {flat}}}, &result);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(cv::countNonZero(out[0]), 0);
    EXPECT_EQ(result, L"[{\"threshold\":\"1.000\",\"foreground\":\"0\"}]");
}

// ---- Pattern subtraction ---------------------------------------------------

// A pad pattern with lines and a fine texture, large enough to cut shifted
// views from.
cv::Mat PatternField(uint64_t seed) {
    cv::Mat field(360, 420, CV_8UC1);
    cv::RNG(seed).fill(field, cv::RNG::UNIFORM, 70, 110);
    cv::GaussianBlur(field, field, cv::Size(0, 0), 1.2);
    for (int y = 10; y < field.rows; y += 70)
        for (int x = 15; x < field.cols; x += 90) {
            cv::rectangle(field, cv::Rect(x, y, 50, 38), cv::Scalar(190), cv::FILLED);
            cv::putText(field, "A7", cv::Point(x + 8, y + 28), cv::FONT_HERSHEY_SIMPLEX, 0.6,
                        cv::Scalar(40), 2);
        }
    cv::line(field, cv::Point(0, 55), cv::Point(field.cols, 75), cv::Scalar(150), 3);
    return field;
}

// The view whose pixel (0,0) is the field's (40 - dx, 40 - dy): a feature at
// x in the view at (0, 0) lies at x + dx here.
cv::Mat View(const cv::Mat& field, int dx, int dy, cv::Size size) {
    return field(cv::Rect(40 - dx, 40 - dy, size.width, size.height)).clone();
}

struct ShiftCase {
    const char* name;
    int dx, dy;
    bool brighter;  // the image's lamp is brighter: Normalize is needed
};

class PatternSubtraction : public PixmillTest, public ::testing::WithParamInterface<ShiftCase> {};

TEST_P(PatternSubtraction, LeavesTheDefectAndRemovesTheSharedPattern) {
    const ShiftCase& c = GetParam();
    const cv::Mat field = PatternField(21);
    const cv::Size size(300, 240);
    const cv::Mat reference = View(field, 0, 0, size);
    cv::Mat image = View(field, c.dx, c.dy, size);
    cv::Mat defect = cv::Mat::zeros(size, CV_8UC1);
    cv::circle(defect, cv::Point(180, 150), 7, cv::Scalar(255), cv::FILLED);
    image.setTo(cv::Scalar(15), defect);
    cv::Mat noise(size, CV_16S);
    cv::RNG(4).fill(noise, cv::RNG::NORMAL, 0, 2);
    cv::Mat noisy;
    image.convertTo(noisy, CV_16S);
    noisy += noise;
    noisy.convertTo(image, CV_8U, c.brighter ? 1.15 : 1.0, c.brighter ? 12 : 0);

    std::wstring result;
    const std::vector<cv::Mat> out =
        RunFilter(L"BackgroundPatternSubstractFilter",
            {{L"MaxShift", L"16"}, {L"Normalize", c.brighter ? L"True" : L"False"}},
            {{1, {image}}, {2, {reference}}}, &result);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_NEAR(Field(result, L"dx"), c.dx, 0.5) << platform::ToUtf8(result);
    EXPECT_NEAR(Field(result, L"dy"), c.dy, 0.5);
    EXPECT_GT(Field(result, L"score"), 0.8);

    // The defect stands out; away from it (and from the strip the move
    // uncovers) the pattern is gone down to noise.
    EXPECT_GT(cv::mean(out[0], defect)[0], 60.0);
    cv::Mat away(size, CV_8UC1, cv::Scalar(0));
    away(cv::Rect(20, 20, size.width - 40, size.height - 40)).setTo(255);
    cv::Mat nearDefect;
    cv::dilate(defect, nearDefect, cv::Mat(), cv::Point(-1, -1), 3);
    away.setTo(0, nearDefect);
    cv::Mat residue = out[0].clone();
    residue.setTo(0, away == 0);
    EXPECT_LT(cv::mean(out[0], away)[0], 6.0);
    EXPECT_LT(static_cast<double>(cv::countNonZero(residue > 30)) / cv::countNonZero(away), 0.002);

    // With a threshold the defect alone is left.
    const std::vector<cv::Mat> binary = RunFilter(
        L"BackgroundPatternSubstractFilter",
        {{L"MaxShift", L"16"}, {L"Threshold", L"40"}, {L"Normalize", c.brighter ? L"True" : L"False"}},
        {{1, {image}}, {2, {reference}}});
    ASSERT_EQ(binary.size(), 1u);
    cv::Mat inner = binary[0].clone();
    inner.setTo(0, cv::Mat(away == 0) & cv::Mat(nearDefect == 0));
    EXPECT_GE(IoU(inner, defect), 0.85);
    RecordProperty("defect_iou", std::to_string(IoU(inner, defect)));
}

INSTANTIATE_TEST_SUITE_P(Shifts, PatternSubtraction,
                         ::testing::Values(ShiftCase{"RightUp", 5, -3, false},
                                           ShiftCase{"LeftDown", -9, 12, false},
                                           ShiftCase{"None", 0, 0, false},
                                           ShiftCase{"BrighterLamp", 6, 4, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// Offsets between whole pixels: the peak is refined, not only located.
struct FractionCase {
    const char* name;
    const wchar_t* type;
    double dx, dy;
};

class FractionalShift : public PixmillTest, public ::testing::WithParamInterface<FractionCase> {};

TEST_P(FractionalShift, IsMeasuredToAFractionOfAPixel) {
    const FractionCase& c = GetParam();
    cv::Mat field = PatternField(33);
    cv::GaussianBlur(field, field, cv::Size(0, 0), 1.5);
    const cv::Mat reference = View(field, 0, 0, {300, 240});
    const cv::Matx23d move(1, 0, 40 - c.dx, 0, 1, 40 - c.dy);
    cv::Mat image;
    // The view at (40 - dx, 40 - dy), sampled between pixels.
    cv::warpAffine(field, image, move, {300, 240}, cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
    std::wstring result;
    RunFilter(c.type, {{L"MaxShift", L"16"}}, {{1, {image}}, {2, {reference}}}, &result);
    EXPECT_NEAR(Field(result, L"dx"), c.dx, 0.25) << platform::ToUtf8(result);
    EXPECT_NEAR(Field(result, L"dy"), c.dy, 0.25);
}

INSTANTIATE_TEST_SUITE_P(
    Offsets, FractionalShift,
    ::testing::Values(FractionCase{"Pattern", L"BackgroundPatternSubstractFilter", 3.3, -1.7},
                      FractionCase{"PatternOther", L"BackgroundPatternSubstractFilter", -6.7, 2.3},
                      FractionCase{"Align", L"FocusingFreeAlignFilter", 3.3, -1.7},
                      FractionCase{"AlignOther", L"FocusingFreeAlignFilter", -6.7, 2.3}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Blob matching ---------------------------------------------------------

// A pad model: a bright frame with a dark cross; the middle, where probe
// marks land, is masked out.
struct Model {
    cv::Mat templ, mask;
};

Model PadModel() {
    Model m;
    m.templ = cv::Mat(30, 40, CV_8UC1, cv::Scalar(60));
    cv::rectangle(m.templ, cv::Rect(2, 2, 36, 26), cv::Scalar(200), cv::FILLED);
    cv::line(m.templ, cv::Point(6, 15), cv::Point(33, 15), cv::Scalar(30), 2);
    cv::line(m.templ, cv::Point(20, 5), cv::Point(20, 24), cv::Scalar(30), 2);
    m.mask = cv::Mat(m.templ.size(), CV_8UC1, cv::Scalar(255));
    cv::rectangle(m.mask, cv::Rect(12, 9, 16, 12), cv::Scalar(0), cv::FILLED);
    return m;
}

TEST_F(PixmillTest, BlobMatchingFindsTheMaskedTemplatesWithinAPixel) {
    const Model model = PadModel();
    cv::Mat image(220, 300, CV_8UC1);
    cv::RNG(9).fill(image, cv::RNG::UNIFORM, 40, 90);
    cv::GaussianBlur(image, image, cv::Size(0, 0), 1.0);
    const std::vector<cv::Point> corners{{20, 30}, {150, 40}, {210, 160}};
    for (size_t k = 0; k < corners.size(); ++k) {
        cv::Mat place = image(cv::Rect(corners[k], model.templ.size()));
        model.templ.copyTo(place);
        // A different probe mark in each pad, under the masked middle.
        cv::circle(place, cv::Point(14 + 5 * static_cast<int>(k), 13), 4, cv::Scalar(0), cv::FILLED);
    }
    // A decoy: the frame without the cross.
    cv::rectangle(image, cv::Rect(60, 150, 36, 26), cv::Scalar(200), cv::FILLED);
    cv::GaussianBlur(image, image, cv::Size(0, 0), 0.6);

    std::wstring result;
    const std::vector<cv::Mat> out =
        RunFilter(L"BlobMatchingFilter", {{L"MaxCount", L"5"}, {L"MinScore", L"0.8"}},
            {{1, {image}}, {2, {model.templ}}, {3, {model.mask}}}, &result);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].type(), CV_8UC3);
    ASSERT_EQ(Field(result, L"Count"), 3.0) << platform::ToUtf8(result);
    std::vector<bool> seen(corners.size(), false);
    for (int n = 0; n < 3; ++n) {
        const cv::Point2d at(Field(result, L"X", n), Field(result, L"Y", n));
        EXPECT_GT(Field(result, L"Score", n), 0.9);
        for (size_t k = 0; k < corners.size(); ++k) {
            const cv::Point2d truth(corners[k].x + 19.5, corners[k].y + 14.5);
            if (std::abs(at.x - truth.x) <= 1.0 && std::abs(at.y - truth.y) <= 1.0) seen[k] = true;
        }
    }
    for (size_t k = 0; k < corners.size(); ++k) EXPECT_TRUE(seen[k]) << "pad " << k;
    // Best first.
    EXPECT_GE(Field(result, L"Score", 0), Field(result, L"Score", 1));
    EXPECT_GE(Field(result, L"Score", 1), Field(result, L"Score", 2));

    // Without the mask the probe marks pull every pad's score down.
    std::wstring unmasked;
    RunFilter(L"BlobMatchingFilter", {{L"MaxCount", L"1"}, {L"MinScore", L"-1"}},
        {{1, {image}}, {2, {model.templ}}}, &unmasked);
    EXPECT_LT(Field(unmasked, L"Score"), Field(result, L"Score", 2));
}

TEST_F(PixmillTest, BlobMatchingKeepsFindsApartAndStopsAtTheCount) {
    const Model model = PadModel();
    cv::Mat image(120, 200, CV_8UC1, cv::Scalar(60));
    cv::RNG(2).fill(image, cv::RNG::UNIFORM, 50, 70);
    model.templ.copyTo(image(cv::Rect(30, 40, 40, 30)));
    model.templ.copyTo(image(cv::Rect(120, 50, 40, 30)));
    std::wstring one;
    RunFilter(L"BlobMatchingFilter", {{L"MaxCount", L"1"}, {L"MinScore", L"0.5"}},
        {{1, {image}}, {2, {model.templ}}, {3, {model.mask}}}, &one);
    EXPECT_EQ(Field(one, L"Count"), 1.0);
    // A distance wider than the gap between the pads leaves one of them.
    std::wstring wide;
    RunFilter(L"BlobMatchingFilter",
        {{L"MaxCount", L"5"}, {L"MinScore", L"0.5"}, {L"MinDistance", L"100"}},
        {{1, {image}}, {2, {model.templ}}, {3, {model.mask}}}, &wide);
    EXPECT_EQ(Field(wide, L"Count"), 1.0);
    // An empty mask selects nothing and finds nothing.
    std::wstring none;
    RunFilter(L"BlobMatchingFilter", {{L"MinScore", L"-1"}},
        {{1, {image}}, {2, {model.templ}}, {3, {cv::Mat(model.templ.size(), CV_8UC1, cv::Scalar(0))}}},
        &none);
    EXPECT_EQ(none, L"[{\"Count\":\"0\",\"Blobs\":[]}]");
}

// ---- Focus-free alignment --------------------------------------------------

// Streets, pads and a fine texture that defocus wipes out.
cv::Mat DieField(uint64_t seed) {
    cv::Mat field(400, 400, CV_8UC1);
    cv::RNG(seed).fill(field, cv::RNG::UNIFORM, 60, 140);
    for (int y = 0; y < field.rows; y += 110)
        for (int x = 0; x < field.cols; x += 130) {
            cv::rectangle(field, cv::Rect(x, y, 130, 12), cv::Scalar(30), cv::FILLED);
            cv::rectangle(field, cv::Rect(x + 25 + (y / 110) * 7, y + 30, 45, 35), cv::Scalar(210),
                          cv::FILLED);
            cv::circle(field, cv::Point(x + 100, y + 80), 10, cv::Scalar(20), cv::FILLED);
        }
    return field;
}

struct AlignCase {
    const char* name;
    int dx, dy;
    bool blurImage;  // which of the two is out of focus
};

class FocusFreeAlign : public PixmillTest, public ::testing::WithParamInterface<AlignCase> {};

TEST_P(FocusFreeAlign, RecoversTheShiftWithOneImageBlurred) {
    const AlignCase& c = GetParam();
    const cv::Mat field = DieField(17);
    const cv::Size size(256, 256);
    cv::Mat reference = View(field, 0, 0, size);
    cv::Mat image = View(field, c.dx, c.dy, size);
    cv::Mat& unsharp = c.blurImage ? image : reference;
    cv::GaussianBlur(unsharp, unsharp, cv::Size(0, 0), 3.0);
    cv::Mat noise(size, CV_8UC1);
    cv::RNG(8).fill(noise, cv::RNG::UNIFORM, 0, 6);
    unsharp += noise;

    std::wstring result;
    const std::vector<cv::Mat> out = RunFilter(L"FocusingFreeAlignFilter", {{L"MaxShift", L"24"}},
                                         {{1, {image}}, {2, {reference}}}, &result);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_NEAR(Field(result, L"dx"), c.dx, 1.0) << platform::ToUtf8(result);
    EXPECT_NEAR(Field(result, L"dy"), c.dy, 1.0);
    EXPECT_NE(result.find(L"\"found\":\"true\""), std::wstring::npos);

    // Moved back, the image lies where its unshifted twin (the same view
    // at offset 0, with the same focus) lies.
    cv::Mat twin = View(field, 0, 0, size);
    if (c.blurImage) cv::GaussianBlur(twin, twin, cv::Size(0, 0), 3.0);
    const cv::Rect inner(30, 30, 196, 196);
    const double before = cv::norm(image(inner), twin(inner), cv::NORM_L1) / inner.area();
    const double after = cv::norm(out[0](inner), twin(inner), cv::NORM_L1) / inner.area();
    EXPECT_LT(after, before / 3) << "mean difference " << before << " -> " << after;
}

INSTANTIATE_TEST_SUITE_P(Shifts, FocusFreeAlign,
                         ::testing::Values(AlignCase{"ImageBlurred", 7, -4, true},
                                           AlignCase{"ReferenceBlurred", -12, 9, false},
                                           AlignCase{"FarShift", 20, 18, true},
                                           AlignCase{"OneAxis", 3, 0, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(PixmillTest, FocusFreeAlignOfAFlatPairFindsNothingAndPassesTheImage) {
    const cv::Mat flat(64, 64, CV_8UC1, cv::Scalar(100));
    std::wstring result;
    const std::vector<cv::Mat> out =
        RunFilter(L"FocusingFreeAlignFilter", {}, {{1, {flat}}, {2, {flat}}}, &result);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(SameImage(out[0], flat));
    EXPECT_NE(result.find(L"\"found\":\"false\""), std::wstring::npos);
    EXPECT_EQ(Field(result, L"dx"), 0.0);
}

// ---- Bad inputs --------------------------------------------------------------

struct BadCase {
    const char* name;
    const wchar_t* type;
    std::map<int, std::vector<cv::Mat>> in;
    const char* logged;  // a piece of the contained failure's message
};

class OpenFilterBadInput : public PixmillTest, public ::testing::WithParamInterface<BadCase> {};

TEST_P(OpenFilterBadInput, FailsWithItsMessageAndKeepsNoOutput) {
    EnableFileLog(4);
    const std::vector<cv::Mat> out = RunFilter(GetParam().type, {}, GetParam().in);
    EXPECT_TRUE(out.empty());
    EXPECT_NE(ReadLog().find(GetParam().logged), std::string::npos) << ReadLog();
}

const cv::Mat kGray(48, 48, CV_8UC1, cv::Scalar(90));
const cv::Mat kSmall(30, 30, CV_8UC1, cv::Scalar(90));
const cv::Mat kWide(16, 16, CV_16UC1, cv::Scalar(90));

INSTANTIATE_TEST_SUITE_P(
    Cases, OpenFilterBadInput,
    ::testing::Values(
        BadCase{"BackgroundEmpty", L"BackgroundSubstractFilter", {{1, {cv::Mat()}}}, "empty image"},
        BadCase{"Background16Bit", L"BackgroundSubstractFilter", {{1, {kWide}}}, "needs 8-bit"},
        BadCase{"PatternNoReference", L"BackgroundPatternSubstractFilter", {{1, {kGray}}},
                "no reference image"},
        BadCase{"PatternSizes", L"BackgroundPatternSubstractFilter", {{1, {kGray}}, {2, {kSmall}}},
                "differs in size"},
        BadCase{"BlobNoTemplate", L"BlobMatchingFilter", {{1, {kGray}}}, "no template image"},
        // The shared matcher reports under this filter's own name.
        BadCase{"BlobMaskSize", L"BlobMatchingFilter", {{1, {kGray}}, {2, {kSmall}}, {3, {kGray}}},
                "CBlobMatchingFilter::matchTemplateMask"},
        BadCase{"BlobTemplateTooLarge", L"BlobMatchingFilter", {{1, {kSmall}}, {2, {kGray}}},
                "CBlobMatchingFilter::matchTemplateMask"},
        BadCase{"AlignNoReference", L"FocusingFreeAlignFilter", {{1, {kGray}}}, "no reference image"},
        BadCase{"AlignSizes", L"FocusingFreeAlignFilter", {{1, {kGray}}, {2, {kSmall}}},
                "differs in size"},
        BadCase{"AlignTooSmall", L"FocusingFreeAlignFilter",
                {{1, {cv::Mat(20, 80, CV_8UC1, cv::Scalar(1))}},
                 {2, {cv::Mat(20, 80, CV_8UC1, cv::Scalar(1))}}},
                "too small to align"}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- EnhanceImageF -----------------------------------------------------------

TEST_F(PixmillTest, EnhanceImageFBinarisesUnevenLightThroughTheFilter) {
    const LitScene scene = UnevenScene(true, 5);
    const int w = scene.image.cols, h = scene.image.rows;
    cv::Mat dst(h, w, CV_8UC1, cv::Scalar(77));
    // The first export call applies the start-up log levels; the file log
    // is turned on after it.
    EnhanceImageF(nullptr, nullptr, 0, 0, 41, 1.0f, true, true, 0, false);
    EnableFileLog(1);
    const int bytes = EnhanceImageF(scene.image.data, dst.data, w, h, 41, 1.0f, true, true, 0, false);
    EXPECT_GT(bytes, 0);
    const double iou = IoU(dst, scene.truth);
    EXPECT_GE(iou, 0.9) << "IoU " << iou;
    RecordProperty("iou", std::to_string(iou));

    // The same as the filter run with the text the export formats.
    const std::vector<cv::Mat> direct =
        RunFilter(L"BackgroundSubstractFilter",
            {{L"BlurSize", L"41"}, {L"ThreshWeight", L"1.000000"}, {L"CurvedThresh", L"True"},
             {L"B/W", L"True"}, {L"ErodeCount", L"0"}, {L"EdgeDetect", L"False"}},
            {{1, {scene.image}}});
    ASSERT_EQ(direct.size(), 1u);
    EXPECT_TRUE(SameImage(dst, direct[0]));
    const std::string log = ReadLog();
    EXPECT_NE(log.find("<EnhanceImageF>"), std::string::npos);
    EXPECT_NE(log.find("{\"Key\":\"ThreshWeight\", \"Value\":\"1.000000\"}"), std::string::npos);
    EXPECT_NE(log.find("</EnhanceImageF>"), std::string::npos);

    // Edges only: the boundary of what the plain call found.
    cv::Mat edges(h, w, CV_8UC1, cv::Scalar(77));
    EnhanceImageF(scene.image.data, edges.data, w, h, 41, 1.0f, true, true, 0, true);
    EXPECT_EQ(cv::countNonZero(edges & ~dst), 0);
    EXPECT_LT(cv::countNonZero(edges), cv::countNonZero(dst) / 2);
}

struct EnhanceBadCase {
    const char* name;
    bool nullSource;
    int width, height;
    float weight;
    bool touched;  // destination receives the binary image
};

class EnhanceImageFBad : public PixmillTest, public ::testing::WithParamInterface<EnhanceBadCase> {};

TEST_P(EnhanceImageFBad, HasItsDocumentedOutcome) {
    const EnhanceBadCase& c = GetParam();
    cv::Mat src(16, 16, CV_8UC1, cv::Scalar(40));
    cv::rectangle(src, cv::Rect(5, 5, 6, 6), cv::Scalar(200), cv::FILLED);
    std::vector<uint8_t> dst(16 * 16, 77);
    const int bytes = EnhanceImageF(c.nullSource ? nullptr : src.data, dst.data(), c.width, c.height,
                                    15, c.weight, false, false, 0, false);
    // A result document is always composed.
    EXPECT_GT(bytes, 0);
    if (c.touched) {
        EXPECT_EQ(std::count(dst.begin(), dst.end(), 255), 36);
    } else {
        EXPECT_EQ(std::count(dst.begin(), dst.end(), 77), 256);
    }
    // No destination: nothing written, nothing refused.
    EXPECT_GT(EnhanceImageF(src.data, nullptr, 16, 16, 15, 1.0f, false, false, 0, false), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, EnhanceImageFBad,
    ::testing::Values(EnhanceBadCase{"NullSource", true, 16, 16, 1.0f, false},
                      EnhanceBadCase{"ZeroWidth", false, 0, 16, 1.0f, false},
                      EnhanceBadCase{"NegativeBoth", false, -16, -16, 1.0f, false},
                      EnhanceBadCase{"NanWeight", false, 16, 16, std::nanf(""), true},
                      EnhanceBadCase{"InfiniteWeight", false, 16, 16,
                                     std::numeric_limits<float>::infinity(), true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pixmill::test
