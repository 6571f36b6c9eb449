// The pixmill tool tells the truth: every case runs the built binary and
// checks its exit code (0 done, 1 failed, 2 usage) and what it says.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "TestSupport.h"

#ifdef PIXMILL_CLI_PATH
namespace pixmill::test {
namespace {

namespace fs = std::filesystem;

struct Ran {
    int exitCode = -1;
    std::string out, err;
};

class CliErrorsTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        cv::Mat gray(24, 32, CV_8UC1, cv::Scalar(40));
        cv::rectangle(gray, cv::Rect(8, 6, 12, 10), cv::Scalar(200), cv::FILLED);
        ASSERT_TRUE(cv::imwrite(Path("in.png"), gray));
        std::vector<uchar> png;
        cv::imencode(".png", gray, png);
        Write("cut.png", std::string(png.begin(), png.begin() + static_cast<long>(png.size() / 2)));
        fs::create_directories(Path("frames"));
        fs::copy_file(Path("in.png"), Path("frames/a.png"));
        fs::copy_file(Path("cut.png"), Path("frames/b.png"));
        Write("frames/notes.txt", "not an image");
        Write("source.json", R"({"Filters":[{"Name":"Src","Key":"s","Type":"SourceFilter","IsEndPoint":true,)"
                             R"("Params":[{"Key":"ImageID","Value":"1"}]}]})");
    }
    std::string Path(const std::string& name) const { return (m_root->path() / name).string(); }
    void Write(const std::string& name, const std::string& text) {
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    // Runs the tool in the test's folder, standard output and error apart.
    Ran Cli(const std::string& args) {
        const std::string dir = m_root->path().string();
        const std::string command = "cd '" + dir + "' && PIXMILL_ROOT='" + dir + "' '" PIXMILL_CLI_PATH "' " +
                                    args + " 2>'" + dir + "/stderr.txt'";
        Ran ran;
        FILE* pipe = ::popen(command.c_str(), "r");
        if (!pipe) return ran;
        std::array<char, 4096> buf;
        size_t n;
        while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) ran.out.append(buf.data(), n);
        const int status = ::pclose(pipe);
        ran.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        ran.err = ReadFile(m_root->path() / "stderr.txt");
        return ran;
    }
};

struct Case {
    const char* name;
    std::string recipe;  // written to r.json when not empty
    std::string args;
    int exitCode;
    std::vector<std::string> said;  // each must appear in stdout or stderr
};

TEST_F(CliErrorsTest, EachCaseExitsWithItsCodeAndNamesTheThingAndReason) {
    const std::string crop = R"({"Name":"C","Key":"c","Type":"CropFilter","IsEndPoint":true,"Params":[)";
    const std::string inv = R"({"Name":"I","Key":"i","Type":"InvertFilter")";
    const Case cases[] = {
        // Usage errors: every parser complaint is 2.
        {"unknown option", "", "--bogus", 2, {}},
        {"no subcommand", "", "", 2, {"A subcommand is required"}},
        {"missing type", "", "filter", 2, {"TYPE is required"}},
        {"unknown subcommand", "", "frobnicate", 2, {}},
        {"set without value", "", "filter InvertFilter in.png --set Kernel", 2, {"--set wants KEY=VALUE"}},
        {"override neither file nor JSON", "", "run source.json in.png --override '{bad'", 2,
         {"--override '{bad' is neither an existing file nor valid JSON", "offset 1"}},
        {"misspelt override file", "", "run source.json in.png --override overide.json", 2,
         {"'overide.json' is neither an existing file nor valid JSON"}},
        // The library's error lines reach stderr, and the run fails.
        {"crop beyond any image", "", "filter CropFilter in.png --set width=100000 --set height=100000", 1,
         {"warning: CropFilter: parameter 'width' = '100000' is outside the described range 0..960",
          "pixmill: library: CropFilter: the requested rectangle exceeds", "the library reported 3 error lines"}},
        {"output folder not writable", "", "filter InvertFilter in.png --out /proc/nope", 1,
         {"cannot make the output folder /proc/nope"}},
        {"no output image", "", "filter FindPinholeFilter in.png", 1, {"FindPinholeFilter gave no output image"}},
        {"directory as image", "", "filter InvertFilter frames", 1, {"is a directory, not an image: frames"}},
        {"truncated png", "", "filter InvertFilter cut.png", 1, {"not a readable image: cut.png"}},
        {"directory as recipe", "", "check frames", 1, {"is a directory, not a file: frames"}},
        {"each counts the unreadable image", "", "run source.json frames --each --out e", 1,
         {"frames/b.png: not a readable image", "2 runs: 1 ran, 1 failed; 1 images written to e"}},
        // Warnings do not stop a run.
        {"unknown key and range", "", "filter InvertFilter in.png --set Nope=1 --out o", 0,
         {"warning: InvertFilter: parameter 'Nope' is not a parameter of InvertFilter"}},
        {"override naming no filter", "", "run source.json in.png --override '{\"Nope\":{}}' --out o", 0,
         {"warning: override 'Nope' names no filter of the recipe", "wrote o/source_1.png"}},
        // Recipes: found before anything runs, one line each.
        {"empty recipe", " ", "run r.json in.png", 1,
         {"the recipe is not valid JSON: line 1, column 2 (offset 1): The document is empty.",
          "the recipe was not run: 1 error"}},
        {"truncated recipe", R"({"Filters":[{"Type":"SourceFilter")", "check r.json", 1,
         {"r.json: error: the recipe is not valid JSON: line 1, column 35 (offset 34): Missing a comma or '}'"}},
        {"array recipe", "[1,2]", "check r.json", 1, {"not a JSON object with a \"Filters\" array"}},
        {"unknown type", R"({"Filters":[{"Key":"a","Type":"CropFiltr","IsEndPoint":true}]})", "check r.json", 1,
         {"filter 1 (Key 'a', CropFiltr): unknown filter type 'CropFiltr'; did you mean CropFilter?"}},
        {"link to a missing key", R"({"Filters":[)" + inv + R"(,"IsEndPoint":true,"Pins":[{"Key":1,"Link":{"FilterKey":"zz","PinKey":-1}}]}]})",
         "check r.json", 1, {"pin 1: links to filter Key 'zz', which no filter has"}},
        {"link to a missing pin", R"({"Filters":[)" + inv + R"(,"IsEndPoint":true},)" + R"({"Key":"j","Type":"InvertFilter","Pins":[{"Key":1,"Link":{"FilterKey":"i","PinKey":5}}]}]})",
         "check r.json", 1, {"links to pin 5 of filter 1 (Key 'i', InvertFilter), which is no output pin (outputs: -1)"}},
        {"self-link", R"({"Filters":[)" + inv + R"(,"IsEndPoint":true,"Pins":[{"Key":1,"Link":{"FilterKey":"i","PinKey":-1}}]}]})",
         "check r.json", 1, {"the filter links to itself"}},
        {"cycle", R"({"Filters":[{"Key":"a","Type":"InvertFilter","IsEndPoint":true,"Pins":[{"Key":1,"Link":{"FilterKey":"b","PinKey":-1}}]},)"
                  R"({"Key":"b","Type":"InvertFilter","Pins":[{"Key":1,"Link":{"FilterKey":"a","PinKey":-1}}]}]})",
         "run r.json in.png", 1, {"links form a cycle: 'a' <- 'b' <- 'a'", "the recipe was not run"}},
        {"no end point", R"({"Filters":[)" + inv + "}]}", "check r.json", 1, {"no filter is an end point"}},
        {"duplicate keys warn", R"({"Filters":[)" + inv + R"(,"IsEndPoint":true},)" + inv + "}]}", "check r.json", 0,
         {"r.json: warning: filter 2 (Key 'i', InvertFilter): Key 'i' is taken by filter 1"}},
        {"values and keys", R"({"Filters":[)" + crop + R"({"Key":"x","Value":"5000"},{"Key":"y","Value":"abc"},)"
                            R"({"Key":"z","Value":"1"},{"Key":"width","Value":7}]}]})",
         "check r.json", 1,
         {"warning: filter 1 (Key 'c', CropFilter): parameter 'x' = '5000' is outside the described range 0..960",
          "error: filter 1 (Key 'c', CropFilter): parameter 'y' = 'abc' is not an integer",
          "parameter 'z' is not a parameter of CropFilter", "parameter 'width': \"Value\" must be a JSON string"}},
        {"a clean recipe", "", "check source.json", 0, {"source.json: ok"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (!c.recipe.empty()) Write("r.json", c.recipe);
        const Ran ran = Cli(c.args);
        EXPECT_EQ(ran.exitCode, c.exitCode) << ran.out << ran.err;
        for (const std::string& text : c.said)
            EXPECT_NE((ran.out + ran.err).find(text), std::string::npos) << text << "\n" << ran.out << ran.err;
        // Decoders' own complaints never reach the user.
        EXPECT_EQ(ran.err.find("libpng"), std::string::npos) << ran.err;
        fs::remove(Path("r.json"));
    }
}

TEST_F(CliErrorsTest, VersionAndOneFilterAsJson) {
    Ran ran = Cli("--version");
    EXPECT_EQ(ran.exitCode, 0);
    // "pixmill MAJOR.MINOR.PATCH" and nothing else.
    int major = -1, minor = -1, patch = -1, consumed = 0;
    ASSERT_EQ(std::sscanf(ran.out.c_str(), "pixmill %d.%d.%d\n%n", &major, &minor, &patch, &consumed), 3) << ran.out;
    EXPECT_EQ(static_cast<size_t>(consumed), ran.out.size()) << ran.out;
    EXPECT_GE(major, 1);

    ran = Cli("filters CropFilter --json");
    ASSERT_EQ(ran.exitCode, 0) << ran.err;
    rapidjson::Document doc;
    ASSERT_FALSE(doc.Parse(ran.out.c_str()).HasParseError()) << ran.out;
    ASSERT_TRUE(doc.IsObject());
    EXPECT_STREQ(doc["Name"].GetString(), "CropFilter");
    EXPECT_EQ(doc["Param"].Size(), 4u);

    ran = Cli("filters CropFiltr --json");
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_NE(ran.err.find("did you mean CropFilter"), std::string::npos) << ran.err;
}

TEST_F(CliErrorsTest, WithLogLevelsSetTheFileIsKeptAndTheLastErrorStillShown) {
    // The sink is not installed when the user asked for the log file.
    const Ran ran = Cli("filter CropFilter in.png --set width=100000 --set height=100000 >/dev/null 2>&1; "
                        "PIXMILL_LOG_LEVELS=4,6,6 PIXMILL_ROOT='" + m_root->path().string() + "' '" PIXMILL_CLI_PATH
                        "' filter CropFilter in.png --set width=100000 --set height=100000");
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_NE(ran.err.find("pixmill: library: </Exception>"), std::string::npos) << ran.err;
    size_t logs = 0;
    for (const auto& e : fs::recursive_directory_iterator(m_root->path()))
        if (e.path().extension() == ".log" && ReadFile(e.path()).find("requested rectangle") != std::string::npos)
            ++logs;
    EXPECT_EQ(logs, 1u) << "only the run with PIXMILL_LOG_LEVELS writes its file";
}

}  // namespace
}  // namespace pixmill::test
#endif
