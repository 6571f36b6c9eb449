// The source and probe filters: SourceFilter (master images or a file),
// LoggerPathFilter (pass-through that saves a probe image) and
// DrawCircleFilter (circular masks), driven through their pins and Process.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "Filters/DrawCircleFilter.h"
#include "Filters/LoggerPathFilter.h"
#include "Filters/SourceFilter.h"
#include "TestSupport.h"
#include "framework/FilterRegistry.h"
#include "framework/ImageFiles.h"
#include "framework/Json.h"
#include "platform/Platform.h"

namespace fs = std::filesystem;

namespace pixmill::test {
namespace {

// Sets one parameter the way a recipe document does: {"Params":[{"Key":..,
// "Value":..}]} through Init.
void SetParam(IFilter& filter, const wchar_t* key, const std::wstring& value) {
    JsonDocument doc;
    auto& alloc = doc.GetAllocator();
    JsonValue entry(rapidjson::kObjectType);
    entry.AddMember(L"Key", JsonValue(key, alloc), alloc);
    entry.AddMember(L"Value", JsonValue(value.c_str(), alloc), alloc);
    JsonValue params(rapidjson::kArrayType);
    params.PushBack(entry, alloc);
    doc.SetObject();
    doc.AddMember(L"Params", params, alloc);
    filter.Init(doc);
}

// A colour scene with distinct channels, so a channel mix-up changes the
// gray result.
cv::Mat ColourScene(cv::Size size, int shift) {
    cv::Mat m(size, CV_8UC3, cv::Scalar(20, 60 + shift, 140));
    cv::rectangle(m, cv::Rect(2, 3, size.width / 2, size.height / 3), cv::Scalar(250, 10, 90), -1);
    cv::circle(m, cv::Point(size.width - 6, size.height - 6), 4, cv::Scalar(5, 200, 30 + shift),
               -1);
    return m;
}

cv::Mat GrayOf(const cv::Mat& bgr) {
    cv::Mat gray;
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    return gray;
}

bool SameImage(const cv::Mat& a, const cv::Mat& b) {
    if (a.size() != b.size() || a.type() != b.type()) return false;
    if (a.empty()) return true;
    cv::Mat diff;
    cv::absdiff(a, b, diff);
    return cv::countNonZero(diff.reshape(1)) == 0;
}

std::vector<cv::Mat*> Output(IFilter& filter) {
    return filter.GetPin(-1)->GetImage();
}

fs::path Native(const std::wstring& proberPath) {
    return platform::NativePath(proberPath);
}

// ---------------------------------------------------------------------------
// SourceFilter
// ---------------------------------------------------------------------------

class SourceFilterTest : public PixmillTest {};

TEST_F(SourceFilterTest, EmitsOnlyMastersWithTheChosenIdAsGray) {
    EnableFileLog(1);
    cv::Mat one = ColourScene({24, 18}, 0);
    cv::Mat two = ColourScene({32, 20}, 50);
    CSourceFilter f;
    SetParam(f, L"ImageID", L"2");
    f.SetMasterImage({{&one, 1}, {&two, 2}});

    auto out = Output(f);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0]->channels(), 1);
    EXPECT_TRUE(SameImage(*out[0], GrayOf(two)));
    EXPECT_STREQ(f.GetResult(), L"{\"Count\":\"1\" , \"Type\":\"Master\"}");
    EXPECT_EQ(one.channels(), 3);  // the caller's images stay as they were
    EXPECT_EQ(ReadLog().find("] SourceFilter\n"), std::string::npos);  // Proc logs no tag
}

TEST_F(SourceFilterTest, SameIdTwiceEmitsBothInOrder) {
    cv::Mat first = ColourScene({16, 16}, 0);
    cv::Mat other = ColourScene({16, 16}, 90);
    cv::Mat gray(10, 12, CV_8UC1, cv::Scalar(77));
    CSourceFilter f;
    SetParam(f, L"ImageID", L"3");
    f.SetMasterImage({{&first, 3}, {&other, 1}, {&gray, 3}});

    auto out = Output(f);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_TRUE(SameImage(*out[0], GrayOf(first)));
    EXPECT_TRUE(SameImage(*out[1], gray));  // one channel already: copied as is
    EXPECT_STREQ(f.GetResult(), L"{\"Count\":\"2\" , \"Type\":\"Master\"}");

    // A master entry without pixels reaches the output as an empty image.
    CSourceFilter g;
    g.SetMasterImage({{nullptr, 0}});
    auto empty = Output(g);
    ASSERT_EQ(empty.size(), 1u);
    EXPECT_TRUE(empty[0]->empty());
    EXPECT_STREQ(g.GetResult(), L"{\"Count\":\"1\" , \"Type\":\"Master\"}");
}

TEST_F(SourceFilterTest, ReadsPathWhenNoMasterHasTheId) {
    const cv::Mat scene = ColourScene({40, 30}, 20);
    const fs::path file = Native(L"C:\\imgs\\a.png");
    fs::create_directories(file.parent_path());
    ASSERT_TRUE(cv::imwrite(file.string(), scene));

    CSourceFilter none;
    SetParam(none, L"Path", L"C:\\imgs\\a.png");
    none.SetMasterImage({});
    auto out = Output(none);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(SameImage(*out[0], GrayOf(scene)));
    EXPECT_STREQ(none.GetResult(), L"{\"Count\":\"1\" , \"Type\":\"Path\"}");

    // Masters that carry other IDs do not stop the path from being read.
    cv::Mat master = ColourScene({8, 8}, 0);
    CSourceFilter other;
    SetParam(other, L"ImageID", L"5");
    SetParam(other, L"Path", L"C:/imgs/a.png");
    other.SetMasterImage({{&master, 1}, {&master, 0}});
    out = Output(other);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(SameImage(*out[0], GrayOf(scene)));
    EXPECT_STREQ(other.GetResult(), L"{\"Count\":\"1\" , \"Type\":\"Path\"}");
}

TEST_F(SourceFilterTest, UnreadablePathGivesOneEmptyImage) {
    const fs::path notes = Native(L"C:\\imgs\\notes.png");
    fs::create_directories(notes.parent_path());
    ASSERT_TRUE(platform::WriteWholeFile(notes.string(), "not an image"));
    const wchar_t* paths[] = {L"", L"C:\\imgs\\missing.png", L"C:\\imgs\\notes.png", L"C:\\imgs"};
    for (const wchar_t* path : paths) {
        SCOPED_TRACE(platform::ToUtf8(path));
        CSourceFilter f;
        SetParam(f, L"Path", path);
        f.SetMasterImage({});
        auto out = Output(f);
        ASSERT_EQ(out.size(), 1u);
        EXPECT_TRUE(out[0]->empty());
        EXPECT_STREQ(f.GetResult(), L"{\"Count\":\"1\" , \"Type\":\"Path\"}");
    }
}

// ---------------------------------------------------------------------------
// LoggerPathFilter
// ---------------------------------------------------------------------------

class LoggerPathFilterTest : public PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        passA = cv::Mat(12, 16, CV_8UC1, cv::Scalar(30));
        cv::line(passA, {0, 0}, {15, 11}, cv::Scalar(200), 2);
        passB = ColourScene({20, 14}, 10);
        logA = cv::Mat(9, 11, CV_8UC1, cv::Scalar(0));
        cv::circle(logA, {5, 4}, 3, cv::Scalar(255), -1);
        logB = cv::Mat(9, 11, CV_8UC1, cv::Scalar(99));
    }
    void Feed(CLoggerPathFilter& f, std::vector<cv::Mat*> pass, std::vector<cv::Mat*> log) {
        f.GetPin(1)->SetImage(pass);
        f.GetPin(2)->SetImage(log);
    }
    void ExpectPassedOn(CLoggerPathFilter& f) {
        auto out = Output(f);
        ASSERT_EQ(out.size(), 2u);
        EXPECT_TRUE(SameImage(*out[0], passA));
        EXPECT_TRUE(SameImage(*out[1], passB));
    }
    cv::Mat passA, passB, logA, logB;
};

TEST_F(LoggerPathFilterTest, InactiveOnlyPassesByPassImagesOn) {
    CLoggerPathFilter f;
    SetParam(f, L"Root", L"C:\\probe");
    SetParam(f, L"Prefix", L"p");
    Feed(f, {&passA, &passB}, {&logA});
    ExpectPassedOn(f);
    EXPECT_STREQ(f.GetResult(), L"\"\"");
    EXPECT_FALSE(fs::exists(Native(L"C:\\probe")));
}

TEST_F(LoggerPathFilterTest, ActiveWritesFirstLogImageUnderTrimmedName) {
    EnableFileLog(1);
    CLoggerPathFilter f;
    SetParam(f, L"Root", L"D:\\logs\\");
    SetParam(f, L"Path", L"\\run\\");
    SetParam(f, L"Prefix", L"a");
    SetParam(f, L"Active", L"true");
    Feed(f, {&passA, &passB}, {&logA, &logB});
    ExpectPassedOn(f);  // the log images never reach the output

    EXPECT_STREQ(f.GetResult(), L"{\"directory\":D:\\logs\\runa.png}");
    const fs::path written = Native(L"D:\\logs\\runa.png");
    EXPECT_EQ(written, m_root->path() / "D" / "logs" / "runa.png");
    EXPECT_TRUE(SameImage(cv::imread(written.string(), cv::IMREAD_UNCHANGED), logA));
    EXPECT_NE(ReadLog().find("] LoggerPathFilter\n"), std::string::npos);
}

TEST_F(LoggerPathFilterTest, BackslashOnlyPartsBecomeEmpty) {
    CLoggerPathFilter f;
    SetParam(f, L"Root", L"\\\\C:\\out\\\\");
    SetParam(f, L"Path", L"\\\\\\");
    SetParam(f, L"Prefix", L"\\\\x\\");
    SetParam(f, L"Active", L"True");
    Feed(f, {}, {&logB});
    EXPECT_TRUE(Output(f).empty());
    EXPECT_STREQ(f.GetResult(), L"{\"directory\":C:\\out\\x.png}");
    EXPECT_TRUE(
        SameImage(cv::imread(Native(L"C:\\out\\x.png").string(), cv::IMREAD_UNCHANGED), logB));
}

TEST_F(LoggerPathFilterTest, NothingToLogOrUnwritableImageKeepsResult) {
    // Active, but the log input is empty: nothing is written.
    CLoggerPathFilter idle;
    SetParam(idle, L"Root", L"C:\\probe");
    SetParam(idle, L"Active", L"true");
    Feed(idle, {&passA, &passB}, {});
    ExpectPassedOn(idle);
    EXPECT_STREQ(idle.GetResult(), L"\"\"");
    EXPECT_FALSE(fs::exists(Native(L"C:\\probe")));

    // An empty log image makes the encoder throw after the outputs are set;
    // Process contains it and the result stays as it was.
    EnableFileLog(4);
    cv::Mat empty;
    CLoggerPathFilter failing;
    SetParam(failing, L"Root", L"C:\\probe");
    SetParam(failing, L"Active", L"true");
    Feed(failing, {&passA, &passB}, {&empty, &logA});
    ExpectPassedOn(failing);
    EXPECT_STREQ(failing.GetResult(), L"\"\"");
    EXPECT_FALSE(fs::exists(Native(L"C:\\probe\\.png")));
    EXPECT_NE(ReadLog().find("[4] <Exception>\n"), std::string::npos);
}

TEST_F(LoggerPathFilterTest, FileNameIsCutAt255Characters) {
    // Folder names stay short enough for any file system; only the whole
    // name reaches the limit.
    std::wstring root = L"C:";
    while (root.size() < 240) root += L"\\" + std::wstring(40, L'd');
    root.resize(240);
    const std::wstring fits = std::wstring(255 - root.size() - 1 - 4, L'n');  // 255 in all
    CLoggerPathFilter f;
    SetParam(f, L"Root", root);
    SetParam(f, L"Path", fits);
    SetParam(f, L"Active", L"true");
    Feed(f, {}, {&logA});
    Output(f);
    const std::wstring name = root + L"\\" + fits + L".png";
    ASSERT_EQ(name.size(), 255u);
    EXPECT_EQ(std::wstring(f.GetResult()), L"{\"directory\":" + name + L"}");
    EXPECT_TRUE(fs::exists(Native(name)));

    // One character more: the cut takes the extension's last letter, the
    // encoder refuses the name, and the result stays.
    CLoggerPathFilter longer;
    SetParam(longer, L"Root", root);
    SetParam(longer, L"Path", fits);
    SetParam(longer, L"Prefix", L"z");
    SetParam(longer, L"Active", L"true");
    Feed(longer, {&passA}, {&logA});
    ASSERT_EQ(Output(longer).size(), 1u);
    EXPECT_STREQ(longer.GetResult(), L"\"\"");
    EXPECT_FALSE(fs::exists(Native(root + L"\\" + fits + L"z.png")));
    EXPECT_FALSE(fs::exists(Native(root + L"\\" + fits + L"z.pn")));

}

// ---------------------------------------------------------------------------
// DrawCircleFilter
// ---------------------------------------------------------------------------

class DrawCircleFilterTest : public PixmillTest {
protected:
    // A one-channel input whose pixels must not show in the mask.
    static cv::Mat Input(cv::Size size, int type = CV_8UC1) {
        cv::Mat m(size, type, cv::Scalar(90));
        cv::rectangle(m, cv::Rect(1, 1, size.width / 2, size.height / 2), cv::Scalar(200), -1);
        return m;
    }
    static void SetCircle(CDrawCircleFilter& f, int x, int y, int width) {
        SetParam(f, L"center_x", std::to_wstring(x));
        SetParam(f, L"center_y", std::to_wstring(y));
        SetParam(f, L"width", std::to_wstring(width));
    }
    std::vector<cv::Mat*> Run(CDrawCircleFilter& f, std::vector<cv::Mat*> inputs) {
        f.GetPin(1)->SetImage(inputs);
        return Output(f);
    }
    static cv::Mat Channel(const cv::Mat& m, int c) {
        cv::Mat out;
        cv::extractChannel(m, out, c);
        return out;
    }
    // Under the fixture's root, so only valid once SetUp has run.
    static fs::path DebugFile() {
        return Native(L"C:/PROBERPARAM/ParaImg/DrawCircleFilter_image.png");
    }
};

TEST_F(DrawCircleFilterTest, WidthZeroDrawsOneWhiteDot) {
    EnableFileLog(1);
    cv::Mat in = Input({40, 30});
    CDrawCircleFilter f;
    SetCircle(f, 10, 12, 0);
    auto out = Run(f, {&in});
    ASSERT_EQ(out.size(), 1u);
    ASSERT_EQ(out[0]->type(), CV_8UC3);
    ASSERT_EQ(out[0]->size(), in.size());
    for (int c = 0; c < 3; ++c) EXPECT_EQ(cv::countNonZero(Channel(*out[0], c)), 1);
    EXPECT_EQ(out[0]->at<cv::Vec3b>(12, 10), cv::Vec3b(255, 255, 255));
    EXPECT_STREQ(f.GetResult(), L"\"\"");
    EXPECT_NE(ReadLog().find("] DrawCircleFilter\n"), std::string::npos);
}

TEST_F(DrawCircleFilterTest, RadiusIsHalfTheWidthRoundedTowardZero) {
    cv::Mat in = Input({40, 30});
    const cv::Point c(20, 15);
    // Reference masks of radius 2 and 0 drawn with a named connected line.
    cv::Mat radius2 = cv::Mat::zeros(in.size(), CV_8UC3);
    cv::circle(radius2, c, 2, cv::Scalar::all(255), cv::FILLED, cv::LINE_4);
    cv::Mat radius0 = cv::Mat::zeros(in.size(), CV_8UC3);
    radius0.at<cv::Vec3b>(c) = cv::Vec3b(255, 255, 255);

    struct Case {
        int width;
        const cv::Mat* expected;
    } cases[] = {{5, &radius2}, {4, &radius2}, {1, &radius0}, {-1, &radius0}};
    for (const Case& k : cases) {
        SCOPED_TRACE(k.width);
        CDrawCircleFilter f;
        SetCircle(f, c.x, c.y, k.width);
        auto out = Run(f, {&in});
        ASSERT_EQ(out.size(), 1u);
        EXPECT_TRUE(SameImage(*out[0], *k.expected));
    }
    // Radius 2 reaches two pixels out along the axes and no further.
    EXPECT_EQ(radius2.at<cv::Vec3b>(c.y, c.x + 2), cv::Vec3b(255, 255, 255));
    EXPECT_EQ(radius2.at<cv::Vec3b>(c.y - 2, c.x), cv::Vec3b(255, 255, 255));
    EXPECT_EQ(radius2.at<cv::Vec3b>(c.y, c.x + 3), cv::Vec3b(0, 0, 0));
    EXPECT_EQ(radius2.at<cv::Vec3b>(c.y + 3, c.x), cv::Vec3b(0, 0, 0));
}

TEST_F(DrawCircleFilterTest, OneMaskPerImageAndDebugFileHoldsTheLast) {
    cv::Mat small = Input({26, 20});
    cv::Mat deep = Input({30, 24}, CV_16UC1);
    CDrawCircleFilter f;
    SetCircle(f, 12, 9, 9);
    auto out = Run(f, {&small, &deep});
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0]->size(), small.size());
    EXPECT_EQ(out[0]->type(), CV_8UC3);
    EXPECT_EQ(out[1]->size(), deep.size());
    EXPECT_EQ(out[1]->type(), CV_16UC3);  // same depth as the input
    EXPECT_EQ(out[1]->at<cv::Vec3w>(9, 12), cv::Vec3w(255, 255, 255));
    EXPECT_EQ(out[1]->at<cv::Vec3w>(9, 12 + 5), cv::Vec3w(0, 0, 0));
    EXPECT_EQ(cv::countNonZero(Channel(*out[1], 0)), cv::countNonZero(Channel(*out[0], 0)));

    ASSERT_TRUE(fs::exists(DebugFile()));
    EXPECT_TRUE(SameImage(cv::imread(DebugFile().string(), cv::IMREAD_UNCHANGED), *out[1]));

    // A centre outside the image leaves an all-black mask.
    CDrawCircleFilter outside;
    SetCircle(outside, 500, -40, 20);
    out = Run(outside, {&small});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(cv::countNonZero(Channel(*out[0], 0)), 0);
}

TEST_F(DrawCircleFilterTest, BadInputIsContainedAndLeavesNoOutput) {
    EnableFileLog(4);
    cv::Mat colour = ColourScene({16, 16}, 0);
    cv::Mat empty;
    cv::Mat gray = Input({16, 16});
    struct Case {
        const char* what;
        cv::Mat* image;
        int width;
    } cases[] = {
        {"three channels", &colour, 4}, {"empty", &empty, 4}, {"negative width", &gray, -4}};
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        CDrawCircleFilter f;
        SetCircle(f, 3, 3, k.width);
        EXPECT_TRUE(Run(f, {k.image}).empty());
        EXPECT_STREQ(f.GetResult(), L"\"\"");
    }
    EXPECT_FALSE(fs::exists(DebugFile()));
    EXPECT_EQ(CountOf(ReadLog(), "[4] <Exception>\n"), 3);
}

// ---------------------------------------------------------------------------
// Registry entries and the image file helpers the filters use
// ---------------------------------------------------------------------------

class SourceFilterRegistryTest : public PixmillTest {};

std::wstring IntParamEntry(const wchar_t* name) {
    return std::wstring(L"{ \"Name\":\"") + name +
           L"\",\"Type\":\"int\",\"Attributes\":[{\"Name\":\"value\",\"Value\":\"0\"},{\"Name\":"
           L"\"default\",\"Value\":\"0\"},{\"Name\":\"min\",\"Value\":\"0\"},{\"Name\":\"max\","
           L"\"Value\":\"960\"},{\"Name\":\"step\",\"Value\":\"1\"},]}, ";
}

TEST_F(SourceFilterRegistryTest, DescriptionShowsPinsAndParamsInOrder) {
    const std::wstring doc = FilterRegistry::Instance().Describe();
    const std::wstring source =
        L"{\"Name\":\"SourceFilter\",\"Pin\":[{ \"Name\":\"OUT_Out\", \"Key\":-1},], \"Param\":[{ "
        L"\"Name\":\"ImageID\",\"Type\":\"int\"}, { \"Name\":\"Path\",\"Type\":\"std::wstring\"}, "
        L"]},";
    const std::wstring logger =
        L"{\"Name\":\"LoggerPathFilter\",\"Pin\":[{ \"Name\":\"IN_ByPass\", \"Key\":1},{ "
        L"\"Name\":\"IN_Log\", \"Key\":2},{ \"Name\":\"OUT_Out\", \"Key\":-1},], \"Param\":[{ "
        L"\"Name\":\"Root\",\"Type\":\"std::wstring\"}, { \"Name\":\"Path\",\"Type\":"
        L"\"std::wstring\"}, { \"Name\":\"Prefix\",\"Type\":\"std::wstring\"}, { \"Name\":"
        L"\"Active\",\"Type\":\"bool\"}, ]},";
    const std::wstring circle =
        L"{\"Name\":\"DrawCircleFilter\",\"Pin\":[{ \"Name\":\"IN_In\", \"Key\":1},{ "
        L"\"Name\":\"OUT_Out\", \"Key\":-1},], \"Param\":[" +
        IntParamEntry(L"center_x") + IntParamEntry(L"center_y") + IntParamEntry(L"width") + L"]},";
    EXPECT_NE(doc.find(source), std::wstring::npos) << platform::ToUtf8(doc);
    EXPECT_NE(doc.find(logger), std::wstring::npos) << platform::ToUtf8(doc);
    EXPECT_NE(doc.find(circle), std::wstring::npos) << platform::ToUtf8(doc);

    // The flag form keeps Active's value false until a document sets it.
    CLoggerPathFilter f;
    EXPECT_FALSE(ParamValue<bool>(f.GetParams(), L"Active", true));
}

class SourceFilterImageFilesTest : public PixmillTest {};

TEST_F(SourceFilterImageFilesTest, WriteCreatesFoldersReadHonoursFlagsFailuresReturnEmpty) {
    const cv::Mat scene = ColourScene({25, 15}, 40);
    EXPECT_TRUE(WriteImageFile(L"C:\\deep\\er\\scene.png", scene));
    EXPECT_TRUE(fs::exists(m_root->path() / "C" / "deep" / "er" / "scene.png"));

    const cv::Mat colour = ReadImageFile(L"C:/deep/er/scene.png", 1);
    EXPECT_TRUE(SameImage(colour, scene));
    const cv::Mat gray = ReadImageFile(L"C:\\deep\\er\\scene.png", 0);
    ASSERT_EQ(gray.type(), CV_8UC1);
    EXPECT_EQ(gray.size(), scene.size());

    EXPECT_TRUE(ReadImageFile(L"C:\\deep\\er\\missing.png", 1).empty());
    EXPECT_TRUE(ReadImageFile(L"", 1).empty());

    // Failed writes return false and log the image library's reason.
    EnableFileLog(1);
    EXPECT_FALSE(WriteImageFile(L"C:\\w\\empty.png", cv::Mat()));
    EXPECT_FALSE(WriteImageFile(L"C:\\w\\scene.unknownext", ColourScene({8, 8}, 0)));
    EXPECT_FALSE(WriteImageFile(L"", ColourScene({8, 8}, 0)));
    EXPECT_EQ(CountOf(ReadLog(), "imwrite"), 3) << ReadLog();
    EXPECT_FALSE(fs::exists(m_root->path() / "C" / "w" / "empty.png"));
}

}  // namespace
}  // namespace pixmill::test
