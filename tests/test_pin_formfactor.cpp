// Form-factor plates: drawn plates with their bases at known places, the
// merge of a plate in two pieces under margins from the ini file, the retry
// answer, the checks in their order, and the first two generations.
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "TestSupport.h"
#include "framework/TestHooks.h"
#include "inspect/pin/PinFind.h"
#include "inspect/pin/PinFormfactor.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"
#include "platform/Profile.h"

namespace pixmill::inspect::pin {
namespace {

// A 480 x 480 camera image: background near 60, plates near 200 with a
// base near 90, mild blur, and optional sensor noise.
struct Scene {
    cv::Mat image = cv::Mat(480, 480, CV_8UC1, cv::Scalar(60));
    Scene& Plate(cv::Rect r) {
        image(r).setTo(200);
        return *this;
    }
    Scene& Base(cv::Rect r) {
        image(r).setTo(90);
        return *this;
    }
    cv::Mat Done(double noise) const {
        cv::Mat f;
        image.convertTo(f, CV_32F);
        if (noise > 0) {
            cv::Mat n(f.size(), CV_32F);
            cv::RNG rng(11);
            rng.fill(n, cv::RNG::NORMAL, 0, noise);
            f += n;
        }
        cv::GaussianBlur(f, f, cv::Size(3, 3), 0.8);
        cv::Mat out;
        f.convertTo(out, CV_8U);
        return out;
    }
};

// A 120 x 80 plate centred at (240 + dx, 240 + dy) (true centre at
// x0 + 59.5), its 24 x 20 base 20 pixels left of the plate centre.
Scene PlateAt(int dx, int dy) {
    const cv::Rect plate(240 + dx - 60, 240 + dy - 40, 120, 80);
    Scene s;
    s.Plate(plate).Base(cv::Rect(plate.x + 60 - 20 - 12, plate.y + 40 - 10, 24, 20));
    return s;
}

FormfactorArgs Ex2Args() {
    FormfactorArgs a;
    a.sx = a.sy = 240;
    a.plateWidth = 120;
    a.plateHeight = 80;
    a.baseWidth = 24;
    a.baseHeight = 20;
    a.distanceX = -20;
    a.distanceY = 0;
    a.th1 = 50;
    a.th2 = 4;
    return a;
}

PinFindResult Ex2(const FormfactorArgs& a) {
    return VBcvPinFind_Formfactor_EX2(a.sx, a.sy, a.plateWidth, a.plateHeight, a.baseWidth,
                                      a.baseHeight, a.distanceX, a.distanceY, a.th1, a.th2,
                                      a.skipDifference);
}

class FormfactorTest : public test::InspectionTest {
protected:
    void WriteInput(const cv::Mat& image) {
        const std::string native = platform::NativePath(kPinInputImage);
        platform::CreateParentDirectories(native);
        ASSERT_TRUE(cv::imwrite(native, image));
    }
    bool Traced(const std::string& line) const { return m_trace.find(line) != std::string::npos; }
};

// ---------------------------------------------------------------------------
// Plates found where they were drawn
// ---------------------------------------------------------------------------

struct PlateCase {
    const char* name;
    int dx, dy;
    double noise;
};

class PlateOffsetTest : public FormfactorTest, public ::testing::WithParamInterface<PlateCase> {};

TEST_P(PlateOffsetTest, WithinOnePixelByBothMeasuringSearches) {
    const PlateCase& c = GetParam();
    WriteInput(PlateAt(c.dx, c.dy).Done(c.noise));
    const PinFindResult r = Ex2(Ex2Args());
    ASSERT_EQ(r.Code, 0.0) << m_trace;
    EXPECT_NEAR(r.X, c.dx - 0.5, 1.0);
    EXPECT_NEAR(r.Y, c.dy - 0.5, 1.0);
    EXPECT_TRUE(Traced("[VBcvPinFind_Formfactor_EX2] End\n"));
    EXPECT_TRUE(platform::FileExists(
        platform::NativePath(std::wstring(kPinDebugFolder) + L"pinResult_Formfactor_EX.jpg")));

    const PinFindResult e = VBcvPinFind_Formfactor_EX(240, 240, 24, 20, -20, 0, 50);
    ASSERT_EQ(e.Code, 0.0) << m_trace;
    EXPECT_EQ(e.X, r.X);
    EXPECT_EQ(e.Y, r.Y);
}

INSTANTIATE_TEST_SUITE_P(Plates, PlateOffsetTest,
                         ::testing::Values(PlateCase{"Clean", 17, -11, 0},
                                           PlateCase{"Noisy", -23, 14, 8},
                                           PlateCase{"CentredNoisy", 0, 0, 12}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------
// Pieces, margins and the retry
// ---------------------------------------------------------------------------

// A plate split by a dark gap `gap` pixels wide, `extra` pixels wider than
// the expected 120 in all.
cv::Mat SplitPlate(int gap, int extra) {
    const int width = 120 + extra, x0 = 240 - width / 2, y0 = 200;
    const int leftWidth = 70;
    Scene s;
    s.Plate({x0, y0, leftWidth, 80}).Plate({x0 + leftWidth + gap, y0, width - leftWidth - gap, 80});
    s.Base({x0 + 60 - 20 - 12, y0 + 30, 24, 20});
    return s.Done(4);
}

TEST_F(FormfactorTest, PlateInTwoPiecesIsMerged) {
    WriteInput(SplitPlate(6, 0));
    const PinFindResult r = Ex2(Ex2Args());
    ASSERT_EQ(r.Code, 0.0) << m_trace;
    EXPECT_NEAR(r.X, -0.5, 1.0);
    EXPECT_NEAR(r.Y, -0.5, 1.0);
    EXPECT_TRUE(Traced("[VBcvPinFind_Formfactor] End Plate Merge Task \n"));
}

TEST_F(FormfactorTest, MarginsFromTheIniDecideTheMerge) {
    WriteInput(SplitPlate(6, 16));  // the union is 136 wide: 16 over
    FormfactorArgs a = Ex2Args();
    a.th2 = 20;
    a.th1 = 20;  // the base is measured 8 pixels off its drawn place
    EXPECT_EQ(Ex2(a).Code, -1.0);  // margin 10: two pieces, no plate
    EXPECT_TRUE(Traced("Plate count is wrong : 2\n")) << m_trace;

    ASSERT_TRUE(platform::WriteProfileString(kTemporaryIni, L"PinAlign", L"formfactormarginx", L"20"));
    m_trace.clear();
    const PinFindResult r = Ex2(a);
    EXPECT_EQ(r.Code, 0.0) << m_trace;
    EXPECT_NEAR(r.X, -0.5, 1.0);
    EXPECT_TRUE(Traced("Plate Size Margin(20, 10)"));
}

TEST_F(FormfactorTest, MarginsAreHeldToHalfThePlateHeight) {
    struct Case {
        const wchar_t* x;  // null: key absent
        int plateHeight, expectedX;
    } cases[] = {{nullptr, 100, 10}, {L"500", 100, 10}, {L"50", 100, 50}, {L"51", 100, 10},
                 {L"7 px", 100, 7},  {L"-3", 100, -3}};
    for (const Case& c : cases) {
        if (c.x) {
            ASSERT_TRUE(platform::WriteProfileString(kTemporaryIni, L"PINALIGN",
                                                     L"FormFactorMarginX", c.x));
        }
        EXPECT_EQ(ReadPlateMargins(c.plateHeight).x, c.expectedX) << (c.x ? "set" : "absent");
        EXPECT_EQ(ReadPlateMargins(c.plateHeight).y, 10);
    }
}

TEST_F(FormfactorTest, PlateCutByTheBorderAsksForARetry) {
    // Plate centre 55.5 pixels left of the image centre: its left side lies
    // 5 pixels inside the 240-wide area, within the 10-pixel margin.
    WriteInput(PlateAt(-55, 0).Done(0));
    const PinFindResult r = Ex2(Ex2Args());
    ASSERT_EQ(r.Code, 7.0) << m_trace;
    EXPECT_NEAR(r.X, -55.5, 1.0);
    EXPECT_NEAR(r.Y, 0, 2.0);
    EXPECT_TRUE(Traced("Retry : Return coordinate"));
}

TEST_F(FormfactorTest, PieceRulesFailTheCall) {
    struct Case {
        const char* name;
        std::vector<cv::Rect> plates;
        const char* line;
    } cases[] = {
        // Four plates side by side in one band.
        {"band",
         {{130, 210, 40, 60}, {190, 210, 40, 60}, {250, 210, 40, 60}, {310, 210, 40, 60}},
         "There are too many the piece of plate : 4\n"},
        // A centre piece with a partner on either side that both make 120.
        {"pair",
         {{200, 200, 80, 80}, {160, 210, 30, 40}, {290, 210, 30, 40}},
         "Can not find pair of plate : 2\n"},
    };
    for (const Case& c : cases) {
        Scene s;
        for (const cv::Rect& r : c.plates) s.Plate(r);
        WriteInput(s.Done(0));
        m_trace.clear();
        EXPECT_EQ(Ex2(Ex2Args()).Code, -1.0) << c.name;
        EXPECT_TRUE(Traced(c.line)) << c.name << m_trace;
    }
}

TEST_F(FormfactorTest, DifferenceTestAndItsSkip) {
    Scene s;
    s.Plate({180, 200, 120, 80});  // no base: plate - base is about 0
    WriteInput(s.Done(0));
    FormfactorArgs a = Ex2Args();
    EXPECT_EQ(Ex2(a).Code, -1.0);
    EXPECT_TRUE(Traced("that can go wrong or false detection"));
    a.skipDifference = 1;
    EXPECT_EQ(Ex2(a).Code, 0.0) << m_trace;
}

// ---------------------------------------------------------------------------
// Checks in their order, before the file
// ---------------------------------------------------------------------------

TEST_F(FormfactorTest, ChecksInOrder) {
    struct Case {
        const char* name;
        void (*change)(FormfactorArgs&);
        const char* line;
    } cases[] = {
        {"base beyond the plate", [](FormfactorArgs& a) { a.distanceX = 50; }, "(Relationship"},
        {"nan distance", [](FormfactorArgs& a) { a.distanceY = NAN; }, "(Relationship"},
        {"relation before size", [](FormfactorArgs& a) { a.distanceX = 60, a.baseWidth = 2; },
         "(Relationship"},
        {"small base", [](FormfactorArgs& a) { a.baseHeight = 3; }, "(Too small tx or ty)"},
        {"size before sx", [](FormfactorArgs& a) { a.baseHeight = 3, a.sx = 242; },
         "(Too small tx or ty)"},
        {"sx", [](FormfactorArgs& a) { a.sy = 238; }, "(sx or sy is not a multiple of 4)"},
        {"th1", [](FormfactorArgs& a) { a.th1 = 255.5; }, "(TH1 is wrong)"},
        {"file", [](FormfactorArgs&) {}, "[VBcvPinFind_Formfactor_EX2] Fail : File Error\n"},
        {"area beyond the image", [](FormfactorArgs& a) { a.sx = 484; }, "Fail : File Error\n"},
    };
    for (const Case& c : cases) {
        FormfactorArgs a = Ex2Args();
        c.change(a);
        m_trace.clear();
        const PinFindResult r = Ex2(a);
        EXPECT_EQ(r.Code, -1.0) << c.name;
        EXPECT_EQ(r.X, -1.0) << c.name;
        EXPECT_TRUE(Traced(c.line)) << c.name << ": " << m_trace;
        EXPECT_EQ(test::CountOf(m_trace, "Fail"), 1) << c.name;
    }
}

TEST_F(FormfactorTest, ProfileEdgesTakeTheSteepestStepInEachQuarter) {
    const std::vector<double> p = {0, 0, 5, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 4, 0, 0};
    const ProfileEdges e = FindProfileEdges(p);
    EXPECT_EQ(e.first, 2);   // rise 5 at 2, rise 4 at 3: the steeper
    EXPECT_EQ(e.last, 13);   // fall 5 at 12 is outside i > 12; 13 falls by 4
    const ProfileEdges flat = FindProfileEdges(std::vector<double>(8, 3.0));
    EXPECT_EQ(flat.first, 2);  // ties: the later index in 1..2
    EXPECT_EQ(flat.last, 7);   // and in 7..6: none, so the end
    EXPECT_EQ(FindProfileEdges({}).last, 0);
}

// ---------------------------------------------------------------------------
// The first generation: the dark base inside each plate
// ---------------------------------------------------------------------------

TEST_F(FormfactorTest, FirstGenerationCodes) {
    struct Case {
        const char* name;
        cv::Mat image;
        int sx, tx, ty;
        int code;
        double x, y;
    } cases[] = {
        {"one pin", PlateAt(17, -11).Done(4), 240, 24, 24, 0, 17, -11},
        {"plate without base", Scene().Plate({180, 200, 120, 80}).Done(0), 240, 24, 24, 999, -1,
         -1},
        {"two pins", Scene().Plate({130, 180, 100, 80}).Base({150, 200, 24, 24})
                         .Plate({260, 180, 100, 80}).Base({290, 200, 24, 24}).Done(0),
         240, 24, 24, 9, -1, -1},
        // Cut by the area's left side: the seen part spans area columns
        // 5 (the cleared frame) to about 100.
        {"pin at the border", Scene().Plate({100, 200, 120, 80}).Base({160, 228, 24, 24}).Done(0),
         240, 24, 24, 7, (100 - 5) / 2 + 5 - 120, 0},
        {"nothing", Scene().Done(0), 240, 24, 24, 999, -1, -1},
        {"tx and ty differ", PlateAt(0, 0).Done(0), 240, 24, 20, -1, -1, -1},
    };
    for (const Case& c : cases) {
        WriteInput(c.image);
        m_trace.clear();
        const PinFindResult r = VBcvPinFind_Formfactor(c.sx, c.sx, c.tx, c.ty);
        EXPECT_EQ(r.Code, c.code) << c.name << m_trace;
        EXPECT_NEAR(r.X, c.x, 1.0) << c.name;
        EXPECT_NEAR(r.Y, c.y, 1.0) << c.name;
    }
    platform::RemoveFile(platform::NativePath(kPinInputImage));
    m_trace.clear();
    EXPECT_EQ(VBcvPinFind_Formfactor(240, 240, 24, 24).Code, 2.0);
    EXPECT_TRUE(Traced("[VBcvPinFindEX] Fail : File Error\n"));
}

}  // namespace
}  // namespace pixmill::inspect::pin
