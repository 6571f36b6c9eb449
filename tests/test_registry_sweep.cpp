// Every filter of the library, through the registry: present under its
// registered name, with sane pins and parameters, and able to run once on a
// small image without anything leaving its Process.
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "platform/Platform.h"
#include "recipe/Recipe.h"

namespace pixmill::test {
namespace {

// Every filter of the library and whether one run on a 16 x 16 gray image
// with default parameters leaves an image on its output pins. Each filter
// class adds its row here when it lands.
struct Swept {
    const wchar_t* name;
    bool outputsImage;
};
const Swept kBuiltFilters[] = {
    {L"SourceFilter", true},
    {L"LoggerPathFilter", true},
    {L"DrawCircleFilter", true},
    {L"EnhanceFilter", true},
    {L"EnhanceFilter_AutoScale", true},
    {L"EnhanceOtsuFilter", true},
    {L"ThresholdFilter", true},
    {L"GrayScaleFilter", false},  // a gray input is refused
    {L"BlurFilter", true},
    {L"GaussianBlurFilter", true},
    {L"CannyEdgeFilter", true},
    {L"MorphologyFilter", true},
    {L"InvertFilter", true},
    {L"CropFilter", true},
    {L"ImageMaskFilter", false},  // two inputs are needed
    {L"ImageOverlapFilter", false},  // two inputs are needed
    {L"SideBySideFilter", true},
    {L"HistogramFilter", true},
    {L"PintipPriorityFilter", true},
    {L"FindPinholeFilter", false},  // the default sizes accept no width
    {L"FindPintipFilter", false},  // the default sizes accept no width
    {L"NearEdgeFilter", true},
    {L"DetectMultiPinholeFilter", false},  // the default sizes accept no width
    {L"DiagnosisFilter", true},
    {L"SizeToleranceFilter", false},  // the default sizes accept no width
    {L"PinBlobModeSelector", false},  // selects Manual (key 2), which gets no image
    {L"PinMaskFilter", false},  // two inputs are needed
    {L"FindMarkCenterFilter", true},
    {L"HoughCirclesFilter", true},
    {L"WaferEdgeFilter", false},  // four corner images are needed
    {L"WaferEdgeFindFilter", true},
    {L"TenengradFocusFilter", true},
    {L"MultiPeakFocusMeasureFilter", false},  // a flat image has no sharpest frame
    {L"LCTGetBrightFilter", true},
    {L"PatternInPadMaskingFilter", true},  // without a reference the image passes
    {L"VBcvGetThresholdFilter", true},
    {L"VBcvGetThresholdExFilter", true},
    {L"VBcvGetThresholdOvalFilter", true},
    {L"EnhancePadFindFilter", false},  // a 16 x 16 image is smaller than the default pad
    {L"BackgroundSubstractFilter", true},
    {L"BackgroundPatternSubstractFilter", false},  // a reference image is needed
    {L"BlobMatchingFilter", false},  // a template image is needed
    {L"FocusingFreeAlignFilter", false},  // a reference image is needed
    {L"BlackBackgroundCornerDetectFilter", true},  // too small for dies: the colour image, Count 0
    {L"DetectCornerNearbyCross", true},  // no street on 16 x 16: the colour image, Count 0
    {L"ADIHighAlign", true},  // an area larger than the image: the colour image, -1.0
    {L"ADILowAlign", true},  // an area larger than the image: the colour image, Count 0
};

void PrintTo(const Swept& swept, std::ostream* out) {
    *out << platform::ToUtf8(swept.name);
}

class RegistrySweep : public PixmillTest, public ::testing::WithParamInterface<Swept> {};

TEST_P(RegistrySweep, CreatesDescribesAndRuns) {
    const wchar_t* name = GetParam().name;
    std::unique_ptr<IBaseObject> object(FilterRegistry::Instance().Create(name));
    ASSERT_NE(object, nullptr) << platform::ToUtf8(name) << " is not registered";
    auto* filter = dynamic_cast<IFilter*>(object.get());
    ASSERT_NE(filter, nullptr);

    std::set<int> keys;
    for (IPin* pin : filter->GetPins()) {
        EXPECT_TRUE(keys.insert(pin->GetKey()).second) << "duplicate pin key " << pin->GetKey();
        EXPECT_NE(pin->GetKey(), 0);
        EXPECT_EQ(pin->IsOutput(), pin->GetKey() < 0) << "inputs positive, outputs negative";
        EXPECT_GT(std::wcslen(pin->GetName()), 0u);
    }
    std::set<std::wstring> params;
    const std::set<std::string> types{"bool", "int", "float", "std::wstring"};
    for (IParam* param : filter->GetParams()) {
        EXPECT_TRUE(params.insert(param->GetName()).second) << "duplicate parameter";
        ASSERT_NE(param->GetTypeName(), nullptr);
        EXPECT_TRUE(types.count(param->GetTypeName())) << param->GetTypeName();
    }
    EXPECT_NE(FilterRegistry::Instance().Describe().find(L"{\"Name\":\"" + std::wstring(name) + L"\",\"Pin\":["),
              std::wstring::npos);

    // One run on a small gray image, defaults only: failures inside Proc are
    // contained, so the call returns and the entry is listed. The image lies
    // on read-only pages, as a caller's pixels are only read: a filter that
    // writes into its input stops the test with a fault.
    EnableFileLog(4);
    const ReadOnlyImage pixels(cv::Mat(16, 16, CV_8UC1, cv::Scalar(128)));
    cv::Mat gray = pixels.mat();
    std::vector<MasterImage> inputs{{&gray, 1}};
    std::vector<cv::Mat*> outputs;
    std::wstring result;
    {
        CRecipe recipe;
        EXPECT_NO_THROW(FilterProcess(recipe, result, inputs, outputs, name, nullptr));
    }
    EXPECT_EQ(result.rfind(L"[{\"Name\":\"##Filter\",\"Key\":\"##Key\",\"Result\":", 0), 0u);
    EXPECT_EQ(!outputs.empty(), GetParam().outputsImage)
        << (outputs.empty() ? "no output image" : "an unexpected output image");
    for (cv::Mat* m : outputs) delete m;
}

INSTANTIATE_TEST_SUITE_P(Built, RegistrySweep, ::testing::ValuesIn(kBuiltFilters),
                         [](const ::testing::TestParamInfo<Swept>& info) {
                             return platform::ToUtf8(info.param.name);
                         });

TEST(RegistrySweepList, EveryRegisteredFilterIsInTheSweep) {
    std::set<std::wstring> listed;
    for (const Swept& swept : kBuiltFilters) listed.insert(swept.name);
    for (const std::wstring& name : FilterRegistry::Instance().List())
        EXPECT_TRUE(listed.count(name)) << platform::ToUtf8(name) << " is registered but not swept";
}

}  // namespace
}  // namespace pixmill::test
