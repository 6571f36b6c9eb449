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

// Each filter class adds its registered name here when it lands.
const wchar_t* const kBuiltFilters[] = {
    L"SourceFilter",
    L"LoggerPathFilter",
    L"DrawCircleFilter",
    L"EnhanceFilter",
    L"EnhanceFilter_AutoScale",
    L"EnhanceOtsuFilter",
    L"ThresholdFilter",
    L"GrayScaleFilter",
    L"BlurFilter",
    L"GaussianBlurFilter",
    L"CannyEdgeFilter",
    L"MorphologyFilter",
    L"InvertFilter",
    L"CropFilter",
    L"ImageMaskFilter",
    L"ImageOverlapFilter",
    L"SideBySideFilter",
    L"HistogramFilter",
};

class RegistrySweep : public PixmillTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(RegistrySweep, CreatesDescribesAndRuns) {
    const wchar_t* name = GetParam();
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
    // contained, so the call returns and the entry is listed.
    EnableFileLog(4);
    cv::Mat gray(16, 16, CV_8UC1, cv::Scalar(128));
    std::vector<MasterImage> inputs{{&gray, 1}};
    std::vector<cv::Mat*> outputs;
    std::wstring result;
    {
        CRecipe recipe;
        EXPECT_NO_THROW(FilterProcess(recipe, result, inputs, outputs, name, nullptr));
    }
    EXPECT_EQ(result.rfind(L"[{\"Name\":\"##Filter\",\"Key\":\"##Key\",\"Result\":", 0), 0u);
    for (cv::Mat* m : outputs) delete m;
}

INSTANTIATE_TEST_SUITE_P(Built, RegistrySweep, ::testing::ValuesIn(kBuiltFilters),
                         [](const ::testing::TestParamInfo<const wchar_t*>& info) {
                             return platform::ToUtf8(info.param);
                         });

TEST(RegistrySweepList, EveryRegisteredFilterIsInTheSweep) {
    std::set<std::wstring> listed(std::begin(kBuiltFilters), std::end(kBuiltFilters));
    for (const std::wstring& name : FilterRegistry::Instance().List())
        EXPECT_TRUE(listed.count(name)) << platform::ToUtf8(name) << " is registered but not swept";
}

}  // namespace
}  // namespace pixmill::test
