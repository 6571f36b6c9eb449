// Work one parameter can ask of a filter is bounded by what its input can
// use: beyond the bound the filter refuses quickly with a level-4 line that
// names the parameter; at the bound it still runs.
#include <chrono>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

namespace pixmill::test {
namespace {

// A gray image with a bright disk on a darker ground, light noise on top.
cv::Mat Disk(int width, int height, int radius, int noise) {
    cv::Mat image(height, width, CV_8UC1, cv::Scalar(60));
    cv::circle(image, cv::Point(width / 2, height / 2), radius, cv::Scalar(200), cv::FILLED, cv::LINE_AA);
    if (noise > 0) {
        cv::Mat n(image.size(), CV_16SC1);
        cv::randn(n, 0, noise);
        cv::Mat wide;
        image.convertTo(wide, CV_16SC1);
        cv::Mat(wide + n).convertTo(image, CV_8UC1);
    }
    return image;
}

// Concentric steps: few edge points, but at every radius from the centre.
cv::Mat Rings(int side) {
    cv::Mat image(side, side, CV_8UC1, cv::Scalar(20));
    for (int r = side * 9 / 20, level = 60; r > 0; r -= side / 10, level += 35)
        cv::circle(image, cv::Point(side / 2, side / 2), r, cv::Scalar(level), cv::FILLED, cv::LINE_8);
    return image;
}

struct Outcome {
    int images = 0;
    std::string error;
    std::wstring result;
    double seconds = 0;
};

Outcome Execute(const cv::Mat& image, const wchar_t* type, const std::wstring& params) {
    cv::Mat pixels = image.clone();
    ImageData data{pixels.cols, pixels.rows, static_cast<int8_t>(pixels.channels()), 1,
                   pixels.total() * pixels.elemSize(), pixels.data};
    ImageData* list[] = {&data};
    ImageParam input{1, list, nullptr, 0};
    ImageParam output{};
    const auto start = std::chrono::steady_clock::now();
    FilterExecute(&input, &output, type, params.c_str());
    Outcome run;
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.error = PixmillLastError();
    for (int i = 0; i < output.count; ++i) run.images += output.images[i] && output.images[i]->width > 0;
    run.result = output.result ? output.result : L"";
    ImageParamRelease(&output);
    return run;
}

std::wstring Params(const std::vector<std::pair<std::wstring, int>>& values) {
    std::wstring text = L"{\"Params\":[";
    for (size_t i = 0; i < values.size(); ++i)
        text += (i ? L"," : L"") + (L"{\"Key\":\"" + values[i].first + L"\",\"Value\":\"" +
                                    std::to_wstring(values[i].second) + L"\"}");
    return text + L"]}";
}

struct Case {
    const char* name;
    cv::Mat image;
    const wchar_t* type;
    std::vector<std::pair<std::wstring, int>> params;
    const char* refusal;  // the start of the error line; null when the filter must run
};

class WorkLimitTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        GetFilterList(nullptr, 0);  // start-up (and its log lines) before the calls under test
    }
};

TEST_F(WorkLimitTest, RefusedBeyondWhatTheInputCanUseAndRunAtTheBound) {
    EnableFileLog(4);
    const cv::Mat small = Disk(40, 30, 10, 0);
    const cv::Mat large = Disk(1000, 900, 380, 0);
    const Case cases[] = {
        // Windows: twice the larger side plus one (81 for 40 x 30).
        {"gauss at bound", small, L"GaussianBlurFilter", {{L"Kernel", 81}}, nullptr},
        {"gauss beyond", small, L"GaussianBlurFilter", {{L"Kernel", 83}},
         "GaussianBlurFilter: Kernel or Sigma window 83 is more than a 40 x 30 image can use (at most 81)"},
        {"gauss sigma", small, L"GaussianBlurFilter", {{L"Kernel", 0}, {L"Sigma", 20}},
         "GaussianBlurFilter: Kernel or Sigma window 161"},
        {"gauss work on a large image", large, L"GaussianBlurFilter", {{L"Kernel", 445}},
         "GaussianBlurFilter: Kernel or Sigma window 445 is more than a 1000 x 900 image can use (at most 444)"},
        {"box at bound", small, L"BlurFilter", {{L"Kernel", 81}}, nullptr},
        {"box beyond", small, L"BlurFilter", {{L"Kernel", 16001}}, "BlurFilter: Kernel 16001"},
        {"morphology beyond", small, L"MorphologyFilter", {{L"KernelSize", 83}}, "MorphologyFilter: KernelSize 83"},
        {"morphology work", large, L"MorphologyFilter", {{L"KernelSize", 999}}, "MorphologyFilter: KernelSize 999"},
        {"wafer blur", small, L"WaferEdgeFindFilter", {{L"BlurSize", 99999}}, "WaferEdgeFindFilter: BlurSize 99999"},
        {"wafer close", small, L"WaferEdgeFindFilter", {{L"CloseSize", 83}}, "WaferEdgeFindFilter: CloseSize 83"},
        {"wafer at bound", small, L"WaferEdgeFindFilter", {{L"BlurSize", 81}, {L"CloseSize", 81}}, nullptr},
        {"mark filter size", small, L"FindMarkCenterFilter", {{L"filterSize", 83}}, "FindMarkCenterFilter: filterSize 83"},
        // Counts and sizes of drawings.
        {"chart at bound", small, L"HistogramFilter", {{L"Ratio", 4096}}, nullptr},
        {"chart beyond", small, L"HistogramFilter", {{L"Ratio", 20000000}}, "HistogramFilter: Ratio 20000000 exceeds 4096"},
        {"circle at bound", small, L"DrawCircleFilter", {{L"width", 280}}, nullptr},
        {"circle beyond", small, L"DrawCircleFilter", {{L"width", 2000000000}},
         "DrawCircleFilter: width / 2 1000000000 exceeds 140"},
        // Circle search: edge points, then votes.
        {"hough on noise", Disk(300, 300, 100, 40), L"HoughCirclesFilter", {{L"Canny", 50}},
         "HoughCirclesFilter: Canny leaves edge points"},
        {"hough every radius", Rings(1000), L"HoughCirclesFilter", {{L"MinRadius", 0}, {L"MaxRadius", 1000}},
         "HoughCirclesFilter: MinRadius..MaxRadius votes"},
        {"hough a narrow range", Rings(1000), L"HoughCirclesFilter", {{L"MinRadius", 300}, {L"MaxRadius", 500}}, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Outcome run = Execute(c.image, c.type, Params(c.params));
        if (c.refusal) {
            EXPECT_EQ(run.images, 0);
            // The filter's exception is logged between <Exception> lines;
            // the last error is the closing one, the log holds the reason.
            EXPECT_EQ(run.error, "</Exception>");
            EXPECT_NE(ReadLog().find(c.refusal), std::string::npos) << c.refusal;
            EXPECT_LT(run.seconds, 2.0);
        } else {
            EXPECT_EQ(run.error, "") << run.error;
            EXPECT_GE(run.images, 1);
        }
    }
}

TEST_F(WorkLimitTest, CircleSearchStillFindsTheDiskOnAQuietImage) {
    // Truth: centre (500, 450), radius 380, noise sigma 4.
    const Outcome run = Execute(Disk(1000, 900, 380, 4), L"HoughCirclesFilter", Params({{L"Canny", 120}}));
    ASSERT_EQ(run.error, "");
    float r = 0, x = 0, y = 0;
    const std::wstring& text = run.result;
    const size_t at = text.find(L"{\"r\":\"");
    ASSERT_NE(at, std::wstring::npos) << std::string(text.begin(), text.end());
    ASSERT_EQ(std::swscanf(text.c_str() + at, L"{\"r\":\"%f\", \"x\":\"%f\",\"y\":\"%f\"", &r, &x, &y), 3);
    EXPECT_NEAR(r, 380, 2);
    EXPECT_NEAR(x, 500, 2);
    EXPECT_NEAR(y, 450, 2);
    EXPECT_LT(run.seconds, 3.0);
}

}  // namespace
}  // namespace pixmill::test
