// Numbers under a host locale with a decimal comma, as any Qt host sets one:
// the library reads and writes every number in the C locale and leaves the
// host's locale as it found it.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <string>

#include "FilterHarness.h"
#include "TestSupport.h"
#include "framework/Param.h"
#include "logging/Logger.h"
#include "logging/Trace.h"

namespace pixmill::test {
namespace {

class DecimalCommaHost : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        m_previous = std::setlocale(LC_ALL, nullptr);
        // Installed by scripts/setup.sh.
        ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr)
            << "the de_DE.UTF-8 locale is missing: run scripts/setup.sh";
        ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    }
    void TearDown() override {
        // The host's locale survived every call of the test.
        EXPECT_STREQ(std::localeconv()->decimal_point, ",");
        std::setlocale(LC_ALL, m_previous.c_str());
        PixmillTest::TearDown();
    }

private:
    std::string m_previous;
};

TEST_F(DecimalCommaHost, ParametersReadAndAttributesPrintWithAPoint) {
    sorvik::Param<float> sigma(L"Sigma", 4.0f, 0.5f, 20.0f, 0.5f);
    EXPECT_NE(std::wstring(sigma.GetAttributes()).find(L"\"Value\":\"4.000000\""), std::wstring::npos)
        << platform::ToUtf8(sigma.GetAttributes());
    std::vector<IParam*> list{&sigma};
    ASSERT_TRUE(SetParamFromText(list, L"Sigma", L"2.5"));
    EXPECT_FLOAT_EQ(sigma.value, 2.5f);
}

TEST_F(DecimalCommaHost, ResultFragmentsStayValidJson) {
    // A ramp that the auto-scaled enhancement gives a fractional gain.
    cv::Mat ramp(32, 32, CV_8UC1);
    for (int r = 0; r < ramp.rows; ++r)
        for (int c = 0; c < ramp.cols; ++c) ramp.at<uint8_t>(r, c) = static_cast<uint8_t>(60 + c * 3 + r);
    auto f = Make(L"EnhanceFilter_AutoScale");
    ASSERT_EQ(RunPins(*f, {{1, {ramp}}}).size(), 1u);
    const std::wstring result = f->GetResult();
    JsonDocument doc;
    ASSERT_TRUE(ParseJson(doc, result.c_str())) << platform::ToUtf8(result);
    ASSERT_TRUE(doc.IsObject() && doc.HasMember(L"fScale") && doc[L"fScale"].IsNumber())
        << platform::ToUtf8(result);
    EXPECT_GT(doc[L"fScale"].GetDouble(), 0.0);
}

TEST_F(DecimalCommaHost, LogAndTraceLinesPrintWithAPoint) {
    EnableFileLog(1);
    logging::LogW(1, L"<wide value=\"%.2f\"/>", 2.5);
    logging::LogA(1, "<narrow value=\"%.2f\"/>", 3.25);
    const std::string log = ReadLog();
    EXPECT_NE(log.find("<wide value=\"2.50\"/>"), std::string::npos) << log;
    EXPECT_NE(log.find("<narrow value=\"3.25\"/>"), std::string::npos) << log;

    static std::string traced;
    traced.clear();
    logging::SetTraceSink([](const char* line, void*) { traced += line; }, nullptr);
    VBcvTrace("score %.1f\n", 0.5);
    logging::SetTraceSink(nullptr, nullptr);
    EXPECT_EQ(traced, "score 0.5\n");
}

}  // namespace
}  // namespace pixmill::test
