// `pixmill inspect`, run as a separate program: calls by name give what a
// direct call gives, files written are named, bad arguments exit with 2.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <sys/wait.h>

#include "TestSupport.h"
#include "framework/TestHooks.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

#ifdef PIXMILL_CLI_PATH
namespace pixmill::test {
namespace {

namespace fs = std::filesystem;

struct ToolRun {
    int exitCode = -1;
    std::string out, err;
};

class InspectCliTest : public PixmillTest {
protected:
    ToolRun Inspect(const std::string& args) {
        const std::string root = m_root->path().string();
        const std::string command = "cd '" + root + "' && PIXMILL_ROOT='" + root + "' '" PIXMILL_CLI_PATH
                                    "' inspect " + args + " 2>'" + root + "/stderr.txt'";
        ToolRun run;
        FILE* pipe = ::popen(command.c_str(), "r");
        if (!pipe) return run;
        std::array<char, 4096> buf;
        size_t n;
        while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) run.out.append(buf.data(), n);
        const int status = ::pclose(pipe);
        run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.err = ReadFile(m_root->path() / "stderr.txt");
        return run;
    }
    std::string Path(const std::string& name) const { return (m_root->path() / name).string(); }
    // The record: the first line of the output, parsed.
    static rapidjson::Document Record(const ToolRun& run) {
        rapidjson::Document doc;
        doc.Parse(run.out.substr(0, run.out.find('\n')).c_str());
        return doc;
    }
    static cv::Mat Texture(int width, int height) {
        cv::Mat m(height, width, CV_8UC1);
        cv::randu(m, 0, 256);
        cv::GaussianBlur(m, m, cv::Size(5, 5), 1.5);
        return m;
    }
};

struct BadCase {
    const char* label;
    const char* args;
    const char* says;
};

class InspectBadArgumentTest : public InspectCliTest, public ::testing::WithParamInterface<BadCase> {};

TEST_P(InspectBadArgumentTest, OneLineAndExitCodeTwo) {
    ASSERT_TRUE(cv::imwrite(Path("src.png"), Texture(8, 6)));
    ToolRun run = Inspect(GetParam().args);
    EXPECT_EQ(run.exitCode, 2) << run.out << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_NE(run.err.find(GetParam().says), std::string::npos) << run.err;
    EXPECT_TRUE(run.out.empty()) << run.out;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, InspectBadArgumentTest,
    ::testing::Values(BadCase{"UnknownExport", "NoSuchExport --a 1", "unknown export 'NoSuchExport'"},
                      BadCase{"UnknownArgument", "Add --a 1 --b 2 --c 3", "Add has no argument --c"},
                      BadCase{"MissingArgument", "Add --a 1", "needs --b"},
                      BadCase{"NotANumber", "Add --a x --b 2", "--a wants a whole number, got 'x'"},
                      BadCase{"PastIntRange", "Add --a 3000000000 --b 2", "--a wants a whole number"},
                      BadCase{"BadReal", "VBcvPinFind --sx 100 --sy 100 --sType 0 --aType 1 --tx 20 --ty 20 "
                                         "--edgeRatioThreshold 0,01 --sizeDivisor 4 --maxCircleRadius 280 --reserved 0",
                              "--edgeRatioThreshold wants a number, got '0,01'"},
                      BadCase{"BadFlag", "Enhance_Threshold_Otsu --bright maybe --threshold 1", "--bright wants 0 or 1"},
                      BadCase{"GivenTwice", "Add --a 1 --a 2 --b 3", "--a given twice"},
                      BadCase{"ValueMissing", "Add --a 1 --b", "--b wants a value"},
                      BadCase{"MissingImage", "ImageInvert --source nothing.png", "--source: no such image file"},
                      BadCase{"HugeCapacity", "ImageRead --path x.png --size 2000000000", "--size asks for more than"},
                      BadCase{"SizeBeyondImage", "ImageInvert --source src.png --width 500 --height 500",
                              "the sizes given for --source exceed"},
                      BadCase{"RecordArgument", "RecipeExecute --recipe x --param y", "ImageParam"}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(InspectCliTest, ListsEveryDescribedExport) {
    ToolRun run = Inspect("");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const int bytes = PixmillDescribeExports(nullptr, 0);
    std::wstring text(static_cast<size_t>(bytes) / sizeof(wchar_t), L'\0');
    PixmillDescribeExports(text.data(), bytes);
    rapidjson::Document doc;
    ASSERT_FALSE(doc.Parse(platform::ToUtf8(text).c_str()).HasParseError());
    for (const auto& e : doc["exports"].GetArray())
        EXPECT_NE(("\n" + run.out).find("\n" + std::string(e["name"].GetString()) + "  -> "), std::string::npos)
            << e["name"].GetString();
    EXPECT_NE(run.out.find(std::to_string(doc["exports"].Size()) + " exports"), std::string::npos);
}

// Pixels in from a file, sizes derived from it, pixels out to a file.
TEST_F(InspectCliTest, PixelArgumentsComeFromFilesAndOutputsAreWritten) {
    const cv::Mat src = Texture(37, 23);
    ASSERT_TRUE(cv::imwrite(Path("src.png"), src));
    ToolRun run = Inspect("ImageInvert --source src.png --out outs");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(Record(run)["result"].GetInt(), 0);
    EXPECT_NE(run.out.find("wrote outs/ImageInvert_destination.png"), std::string::npos) << run.out;
    const cv::Mat written = cv::imread(Path("outs/ImageInvert_destination.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(written.size(), src.size());
    cv::Mat expected = 255 - src;
    EXPECT_EQ(cv::countNonZero(written != expected), 0);

    // Dimensions the export reports size the written image.
    run = Inspect("ImageRead --path src.png");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    rapidjson::Document rec = Record(run);
    EXPECT_EQ(rec["result"].GetInt(), 37 * 23);
    EXPECT_EQ(rec["width"].GetInt(), 37);
    EXPECT_EQ(rec["height"].GetInt(), 23);
    const cv::Mat read = cv::imread(Path("pixmill-out/ImageRead_data.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(read.size(), src.size());
    EXPECT_EQ(cv::countNonZero(read != src), 0);
}

// Returned records of several layouts (three doubles, eight ints returned
// in memory) read as the direct call returns them.
TEST_F(InspectCliTest, RecordsMatchDirectCallsAndFilesUnderTheRootAreNamed) {
    cv::Mat frame(480, 480, CV_8UC1, cv::Scalar(40));
    cv::circle(frame, cv::Point(250, 230), 12, cv::Scalar(220), cv::FILLED);
    cv::GaussianBlur(frame, frame, cv::Size(3, 3), 0.8);
    const std::string pinImage = "C:\\PROBERPARAM\\ParaImg\\PinImage\\PinRefimage.bmp";
    fs::create_directories(fs::path(platform::NativePath(pinImage)).parent_path());
    ASSERT_TRUE(cv::imwrite(platform::NativePath(pinImage), frame));

    ToolRun run = Inspect("VBcvPinFind --sx 120 --sy 120 --sType 0 --aType 1 --tx 24 --ty 24 "
                      "--edgeRatioThreshold 0.01 --sizeDivisor 4 --maxCircleRadius 280 --reserved 0");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    inspect::SetSavePauses(false);
    const PinFindResult direct = VBcvPinFind(120, 120, 0, 1, 24, 24, 0.01, 4, 280, 0);
    rapidjson::Document rec = Record(run);
    ASSERT_TRUE(rec.IsObject()) << run.out;
    EXPECT_EQ(direct.Code, 0.0);
    EXPECT_DOUBLE_EQ(rec["X"].GetDouble(), direct.X);
    EXPECT_DOUBLE_EQ(rec["Y"].GetDouble(), direct.Y);
    EXPECT_DOUBLE_EQ(rec["Code"].GetDouble(), direct.Code);
    const std::string result = platform::NativePath(std::string("C:\\PROBERPARAM\\ParaImg\\PinImage\\pinResult.jpg"));
    EXPECT_NE(run.out.find("wrote " + fs::path(result).lexically_normal().string()), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("PinRefimage.bmp"), std::string::npos) << "the input was not written";

    run = Inspect("VBcvEdgeFindFEX_GetCoordinate --index 0 --mode 1");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    rec = Record(run);
    for (const char* f : {"X0", "Y0", "X1", "Y1", "X2", "Y2", "X3", "Y3"}) EXPECT_EQ(rec[f].GetInt(), -1) << f;
}

// An image buffer handle made from a list of files.
TEST_F(InspectCliTest, HandlesAreMadeFromImageLists) {
    cv::Mat sharp = Texture(64, 48);
    cv::Mat blurred;
    cv::GaussianBlur(sharp, blurred, cv::Size(9, 9), 3);
    ASSERT_TRUE(cv::imwrite(Path("a.png"), blurred));
    ASSERT_TRUE(cv::imwrite(Path("b.png"), sharp));
    ToolRun run = Inspect("MultiPeakFocusMeasureF --buffer a.png,b.png");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    rapidjson::Document rec = Record(run);
    EXPECT_EQ(rec["result"].GetInt(), 1) << run.out;
    EXPECT_NE(std::string(rec["resultText"].GetString()).find("FocusIndex"), std::string::npos);
}

}  // namespace
}  // namespace pixmill::test
#endif
