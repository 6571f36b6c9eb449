// The pixmill tool, run as a separate program: exit codes, messages and
// files written.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <sys/wait.h>

#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "platform/Platform.h"

#ifdef PIXMILL_CLI_PATH
namespace pixmill::test {
namespace {

namespace fs = std::filesystem;

struct CliRun {
    int exitCode = -1;
    std::string output;  // standard output and standard error together
};

class CliTest : public PixmillTest {
protected:
    // Runs the tool with its root in this test's temporary folder.
    CliRun Cli(const std::string& args) {
        std::string command = "cd '" + m_root->path().string() + "' && PIXMILL_ROOT='" +
                              m_root->path().string() + "' '" PIXMILL_CLI_PATH "' " + args + " 2>&1";
        CliRun run;
        FILE* pipe = ::popen(command.c_str(), "r");
        if (!pipe) return run;
        std::array<char, 4096> buf;
        size_t n;
        while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) run.output.append(buf.data(), n);
        int status = ::pclose(pipe);
        run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return run;
    }
    std::string Path(const std::string& name) const { return (m_root->path() / name).string(); }
    std::string WriteImage(const std::string& name, const cv::Mat& image) {
        EXPECT_TRUE(cv::imwrite(Path(name), image));
        return Path(name);
    }
    std::string WriteText(const std::string& name, const std::string& text) {
        std::ofstream(Path(name), std::ios::binary) << text;
        return Path(name);
    }
};

const char* kSourceRecipe =
    R"({"Name":"cli","Filters":[{"Name":"Src","Key":"s","Type":"SourceFilter","IsEndPoint":true,)"
    R"("Params":[{"Key":"ImageID","Value":"2"}]}]})";

TEST_F(CliTest, FiltersJsonIsStrictAndListsEveryRegisteredFilter) {
    CliRun run = Cli("filters --json");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    rapidjson::Document doc;
    ASSERT_FALSE(doc.Parse(run.output.c_str()).HasParseError()) << run.output.substr(0, 300);
    std::set<std::string> listed;
    for (const auto& f : doc["filters"].GetArray()) listed.insert(f["Name"].GetString());
    std::set<std::string> registered;
    for (const std::wstring& name : FilterRegistry::Instance().List()) registered.insert(platform::ToUtf8(name));
    EXPECT_EQ(listed, registered);
    EXPECT_FALSE(listed.empty());
}

TEST_F(CliTest, UnknownFilterSuggestsNearestNamesAndFails) {
    CliRun run = Cli("filters sourcefilter");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.output.find("unknown filter 'sourcefilter'; did you mean SourceFilter"), std::string::npos)
        << run.output;
    run = Cli("filter NoSuchThingAtAll x.png");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.output.find("did you mean"), std::string::npos);

    run = Cli("filters DrawCircleFilter");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.output.find("width     int  default 0  range 0..960  step 1"), std::string::npos) << run.output;
}

TEST_F(CliTest, FilterRunsWithSetParametersAndWritesPng) {
    WriteImage("in.png", cv::Mat(20, 30, CV_8UC1, cv::Scalar(9)));
    CliRun run = Cli("filter DrawCircleFilter in.png --set center_x=10 --set center_y=8 --set width=6 --out outs");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    cv::Mat out = cv::imread(Path("outs/DrawCircleFilter_1.png"), cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(out.empty()) << run.output;
    cv::Mat expected(20, 30, CV_8UC3, cv::Scalar::all(0));
    cv::circle(expected, cv::Point(10, 8), 3, cv::Scalar(255, 255, 255, 0), -1, 1, 0);
    cv::cvtColor(expected, expected, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(cv::countNonZero(out != expected), 0);

    // Bad input gives one line and a non-zero exit, never a crash.
    struct Case {
        std::string args, message;
        int exitCode;
    } cases[] = {
        {"filter DrawCircleFilter missing.png", "no such image file: missing.png", 1},
        {"filter DrawCircleFilter " + WriteText("fake.png", "not an image"), "not a readable image", 1},
        {"filter DrawCircleFilter in.png --set width", "--set wants KEY=VALUE", 2},
        {"filter DrawCircleFilter in.png --set width=wide", "invalid stoi argument", 2},
    };
    for (const Case& c : cases) {
        CliRun bad = Cli(c.args);
        EXPECT_EQ(bad.exitCode, c.exitCode) << c.args << "\n" << bad.output;
        EXPECT_NE(bad.output.find(c.message), std::string::npos) << bad.output;
    }
}

TEST_F(CliTest, RunRoutesImagesByIdAndPrintsPrettyOrRaw) {
    WriteImage("one.png", cv::Mat(6, 8, CV_8UC1, cv::Scalar(11)));
    WriteImage("two.png", cv::Mat(6, 8, CV_8UC1, cv::Scalar(22)));
    WriteText("recipe.json", kSourceRecipe);
    CliRun run = Cli("run recipe.json one.png two.png:2 --out o");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("\"Type\": \"Master\""), std::string::npos) << run.output;
    cv::Mat out = cv::imread(Path("o/recipe_1.png"), cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out.at<uchar>(0, 0), 22);
    EXPECT_FALSE(fs::exists(Path("o/recipe_2.png")));

    run = Cli("run recipe.json two.png:2 --raw");
    EXPECT_NE(run.output.find("{\"Count\":\"1\" , \"Type\":\"Master\"}"), std::string::npos) << run.output;

    // An override file changes the source's image ID.
    WriteText("override.json", R"({"Src":{"Params":[{"Key":"ImageID","Value":"1"}]}})");
    run = Cli("run recipe.json one.png two.png:2 --override override.json --out p");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_EQ(cv::imread(Path("p/recipe_1.png"), cv::IMREAD_GRAYSCALE).at<uchar>(0, 0), 11);
}

TEST_F(CliTest, RunReportsBadRecipesInOneLine) {
    WriteImage("one.png", cv::Mat(6, 8, CV_8UC1, cv::Scalar(11)));
    WriteText("broken.json", R"({"Filters":[{"Type":"SourceFilter")");
    WriteText("unknown.json", R"({"Filters":[{"Type":"NoSuchFilter","IsEndPoint":true}]})");
    const std::pair<const char*, const char*> bad[] = {
        {"run broken.json one.png", "line 1, column 35 (offset 34): Missing a comma or '}'"},
        {"run unknown.json one.png", "unknown filter type 'NoSuchFilter'"}};
    for (const auto& [args, message] : bad) {
        CliRun run = Cli(args);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
        EXPECT_NE(run.output.find("the recipe was not run"), std::string::npos) << run.output;
    }
    CliRun run = Cli("run nowhere.json one.png");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.output.find("no such file: nowhere.json"), std::string::npos);
}

TEST_F(CliTest, EachRunsOncePerImageOfAFolderWithASummary) {
    fs::create_directories(Path("frames"));
    for (int i = 0; i < 3; ++i) WriteImage("frames/f" + std::to_string(i) + ".png", cv::Mat(4, 4, CV_8UC1, cv::Scalar(i)));
    WriteText("frames/readme.txt", "not an image");
    WriteText("recipe.json", kSourceRecipe);
    WriteText("override.json", R"({"Src":{"Params":[{"Key":"ImageID","Value":"1"}]}})");
    CliRun run = Cli("run recipe.json frames --each --override override.json --out each");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("3 runs: 3 ran, 0 failed; 3 images written to each"), std::string::npos)
        << run.output;
    EXPECT_TRUE(fs::exists(Path("each/recipe_f2_1.png")));
}

TEST_F(CliTest, DemoDrawsRunsAndFindsTheDrawnPads) {
    CliRun run = Cli("demo --root demo");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("The cropped binary image holds 4 pads; the drawing put 4 whole pads"),
              std::string::npos)
        << run.output;
    for (const char* file : {"demo/images/pads.png", "demo/demo_recipe.json", "demo/out/demo_1.png",
                             "demo/out/demo_2.png"})
        EXPECT_TRUE(fs::exists(Path(file))) << file;
    // The recipe it wrote runs again through the run command.
    run = Cli("run demo/demo_recipe.json demo/images/pads.png --out again");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_TRUE(fs::exists(Path("again/demo_recipe_1.png")));
}

}  // namespace
}  // namespace pixmill::test
#endif
