// The filter base and pins: reading a node's JSON, triggers and the skip
// rule, exception containment, and pulls along links.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "TestFilters.h"
#include "TestSupport.h"
#include "framework/Json.h"

namespace pixmill::test {
namespace {

JsonDocument Parse(const wchar_t* text) {
    JsonDocument doc;
    EXPECT_TRUE(ParseJson(doc, text)) << "test document does not parse";
    return doc;
}

class FilterTest : public PixmillTest {};

TEST_F(FilterTest, InitReadsMembersAndLiteralTrueOnly) {
    CCountingFilter f;
    EXPECT_STREQ(f.GetName(), L"##Filter");
    EXPECT_STREQ(f.GetKey(), L"##Key");
    EXPECT_STREQ(f.GetResult(), L"\"\"");

    auto doc =
        Parse(L"{\"Name\":\"Count\",\"Key\":\"00ff\",\"Enable\":\"true\",\"IsEndPoint\":\"true\"}");
    EXPECT_EQ(f.Init(doc), 1);
    EXPECT_STREQ(f.GetName(), L"Count");
    EXPECT_STREQ(f.GetKey(), L"00ff");
    EXPECT_FALSE(f.IsEnabled());
    EXPECT_FALSE(f.IsEndPoint());  // a string is not the literal true

    auto literal = Parse(L"{\"Enable\":true,\"IsEndPoint\":true}");
    f.Init(literal);
    EXPECT_TRUE(f.IsEnabled());
    EXPECT_TRUE(f.IsEndPoint());
    EXPECT_STREQ(f.GetName(), L"Count");  // absent members leave fields alone

    auto off = Parse(L"{\"IsEndPoint\":1}");
    f.Init(off);
    EXPECT_FALSE(f.IsEndPoint());
}

TEST_F(FilterTest, ParamsEntriesAlwaysCountAsAChange) {
    CCountingFilter f;
    auto unknown = Parse(L"{\"Params\":[{\"Key\":\"NoSuchKey\",\"Value\":\"1\"}]}");
    f.Init(unknown);
    EXPECT_TRUE(f.m_paramChanged);

    CCountingFilter g;
    auto malformed = Parse(
        L"{\"Params\":[7,{\"Key\":3},{\"Value\":\"x\"},{\"Key\":\"Offset\",\"Value\":\"9\"}]}");
    g.Init(malformed);
    EXPECT_TRUE(g.m_paramChanged);
    EXPECT_EQ(ParamValue<int>(g.GetParams(), L"Offset", 0), 9);

    CCountingFilter h;
    auto notArray = Parse(L"{\"Params\":{\"Key\":\"Offset\",\"Value\":\"9\"}}");
    h.Init(notArray);
    EXPECT_FALSE(h.m_paramChanged);
}

TEST_F(FilterTest, BadNumberLeavesInitAsException) {
    CCountingFilter f;
    auto doc = Parse(L"{\"Params\":[{\"Key\":\"Offset\",\"Value\":\"lots\"}]}");
    EXPECT_THROW(f.Init(doc), std::invalid_argument);
}

TEST_F(FilterTest, EnableIsNeverRead) {
    cv::Mat img(4, 4, CV_8UC1, cv::Scalar(10));
    std::vector<MasterImage> masters{{&img, 1}};
    for (const wchar_t* json : {L"{\"Enable\":false}", L"{}", L"{\"Enable\":true}"}) {
        CMasterSourceFilter src;
        auto doc = Parse(json);
        src.Init(doc);
        src.SetMasterImage(masters);
        ASSERT_EQ(src.GetOutputPins().size(), 1u);
        EXPECT_EQ(src.GetOutputPins()[0]->GetImage().size(), 1u) << "for " << src.IsEnabled();
        EXPECT_EQ(src.procCalls, 1);
    }
}

TEST_F(FilterTest, SecondProcessWithoutChangeSkips) {
    EnableFileLog(1);
    CCountingFilter f;
    auto doc = Parse(L"{\"Name\":\"Counter\"}");
    f.Init(doc);
    EXPECT_FALSE(f.IsProcessed());
    f.SetMasterImage({});
    f.Process();
    f.Process();
    EXPECT_TRUE(f.IsProcessed());
    EXPECT_EQ(f.procCalls, 1);
    const std::string log = ReadLog();
    EXPECT_NE(log.find("<Process filter=\"Counter\">\n"), std::string::npos);
    EXPECT_NE(log.find("<Trigger key=\"Master Image Changed\"/>"), std::string::npos);
    EXPECT_EQ(CountOf(log, "<Skip/>"), 1);
    // Skip sits between the opening and closing tags of the second pass.
    size_t skip = log.find("<Skip/>");
    EXPECT_NE(log.rfind("<Process filter=\"Counter\">", skip), std::string::npos);
    EXPECT_NE(log.find("</Process>", skip), std::string::npos);
}

TEST_F(FilterTest, TriggersAreLoggedInOrderAndClearedTogether) {
    EnableFileLog(1);
    CCountingFilter f;
    cv::Mat img(2, 2, CV_8UC1, cv::Scalar(1));
    f.GetPin(1)->SetImage({&img});  // moves the input version
    auto doc = Parse(L"{\"Params\":[{\"Key\":\"Offset\",\"Value\":\"1\"}]}");
    f.Init(doc);
    f.SetMasterImage({});
    f.Process();
    const std::string log = ReadLog();
    size_t prev = log.find("<Trigger key=\"Prev Image Changed\"/>");
    size_t param = log.find("<Trigger key=\"Param Changed\"/>");
    size_t master = log.find("<Trigger key=\"Master Image Changed\"/>");
    ASSERT_NE(prev, std::string::npos);
    ASSERT_NE(param, std::string::npos);
    ASSERT_NE(master, std::string::npos);
    EXPECT_LT(prev, param);
    EXPECT_LT(param, master);
    EXPECT_EQ(f.procCalls, 1);

    // Only a new input version triggers the next run.
    f.Process();
    EXPECT_EQ(f.procCalls, 1);
    f.GetPin(1)->SetImage({});
    f.Process();
    EXPECT_EQ(f.procCalls, 2);
}

TEST_F(FilterTest, StandardExceptionInProcIsContainedAndLogged) {
    EnableFileLog(4);
    CMasterSourceFilter src;
    CThrowingFilter failing;
    CCountingFilter consumer;
    failing.GetPin(1)->SetLink(src.GetPin(-1));
    consumer.GetPin(1)->SetLink(failing.GetPin(-1));
    cv::Mat img(3, 3, CV_8UC1, cv::Scalar(5));
    for (CFilter* f : std::vector<CFilter*>{&src, &failing, &consumer})
        f->SetMasterImage({{&img, 1}});

    std::vector<cv::Mat*> out;
    EXPECT_NO_THROW(out = consumer.GetPin(-1)->GetImage());
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(failing.IsProcessed());
    EXPECT_STREQ(failing.GetResult(), L"\"\"");
    EXPECT_EQ(consumer.procCalls, 1);  // the downstream filter ran on an empty input
    const std::string log = ReadLog();
    EXPECT_NE(log.find("[4] <Exception>\n"), std::string::npos) << log;
    EXPECT_NE(log.find("[4] matrix too small\n"), std::string::npos);
    EXPECT_NE(log.find("[4] </Exception>\n"), std::string::npos);
    EXPECT_EQ(log.find("[1]"), std::string::npos);  // level 4 file threshold
}

TEST_F(FilterTest, OtherExceptionTypesPassThroughProcess) {
    CThrowingFilter failing(false);
    failing.SetMasterImage({});
    EXPECT_THROW(failing.Process(), int);
}

TEST_F(FilterTest, PinsAndParamsInDeclarationOrder) {
    CPassFilter f;
    std::vector<IPin*> pins = f.GetPins();
    ASSERT_EQ(pins.size(), 4u);
    EXPECT_EQ(pins[0]->GetKey(), 1);
    EXPECT_EQ(pins[3]->GetKey(), -2);
    std::vector<IPin*> outs = f.GetOutputPins();
    ASSERT_EQ(outs.size(), 2u);
    EXPECT_EQ(outs[0]->GetKey(), -1);
    EXPECT_EQ(outs[1]->GetKey(), -2);
    EXPECT_EQ(f.GetPin(2), pins[1]);
    EXPECT_EQ(f.GetPin(7), nullptr);
    f.ReleaseAll();
    EXPECT_TRUE(f.GetPins().empty());
    EXPECT_TRUE(f.GetParams().empty());
}

TEST_F(FilterTest, PassThroughConcatenatesInputsIntoEveryOutput) {
    CPassFilter f;
    cv::Mat a(2, 2, CV_8UC1, cv::Scalar(1)), b(2, 2, CV_8UC1, cv::Scalar(2)),
        c(2, 2, CV_8UC1, cv::Scalar(3));
    f.GetPin(2)->SetImage({&c});
    f.GetPin(1)->SetImage({&a, &b});
    f.SetMasterImage({});
    for (int key : {-1, -2}) {
        std::vector<cv::Mat*> out = f.GetPin(key)->GetImage();
        ASSERT_EQ(out.size(), 3u);
        EXPECT_EQ(out[0]->at<uchar>(0, 0), 1);  // pin order, then image order
        EXPECT_EQ(out[1]->at<uchar>(0, 0), 2);
        EXPECT_EQ(out[2]->at<uchar>(0, 0), 3);
    }
}

// ---------------------------------------------------------------------------
// Pins
// ---------------------------------------------------------------------------

TEST_F(FilterTest, SetImageCopiesDeeplyAndMovesVersion) {
    CCountingFilter owner;
    CPin pin(&owner, L"In", 1, false, false);
    cv::Mat src(4, 5, CV_8UC3, cv::Scalar(1, 2, 3));
    pin.SetImage({&src});
    EXPECT_EQ(pin.GetVersion(), 1);
    std::vector<cv::Mat*> held = pin.GetImage();
    ASSERT_EQ(held.size(), 1u);
    EXPECT_NE(held[0]->data, src.data);
    src.setTo(cv::Scalar(9, 9, 9));
    EXPECT_EQ(held[0]->at<cv::Vec3b>(0, 0), cv::Vec3b(1, 2, 3));
    EXPECT_EQ(held[0]->channels(), 3);

    pin.SetImage({});
    EXPECT_EQ(pin.GetVersion(), 2);  // an empty list still moves the version
    EXPECT_TRUE(pin.GetImage().empty());
}

TEST_F(FilterTest, GrayPinReducesOnlyThreeChannelImages) {
    CCountingFilter owner;
    CPin gray(&owner, L"In", 1, false, true);
    cv::Mat bgr(2, 2, CV_8UC3, cv::Scalar(10, 20, 30));
    cv::Mat bgra(2, 2, CV_8UC4, cv::Scalar(10, 20, 30, 40));
    cv::Mat one(2, 2, CV_8UC1, cv::Scalar(7));
    gray.SetImage({&bgr, &bgra, &one});
    std::vector<cv::Mat*> held = gray.GetImage();
    ASSERT_EQ(held.size(), 3u);
    cv::Mat expected;
    cv::cvtColor(bgr, expected, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(held[0]->channels(), 1);
    EXPECT_EQ(held[0]->at<uchar>(0, 0), expected.at<uchar>(0, 0));
    EXPECT_EQ(held[1]->channels(), 4);
    EXPECT_EQ(held[2]->at<uchar>(1, 1), 7);
}

TEST_F(FilterTest, OutputPullRunsOwnerAndConsumersShareImages) {
    EnableFileLog(1);
    CMasterSourceFilter src;
    auto name = Parse(L"{\"Name\":\"Src\"}");
    src.Init(name);
    CCountingFilter left, right;
    left.GetPin(1)->SetLink(src.GetPin(-1));
    right.GetPin(1)->SetLink(src.GetPin(-1));
    cv::Mat img(2, 2, CV_8UC1, cv::Scalar(4));
    for (CFilter* f : std::vector<CFilter*>{&src, &left, &right}) f->SetMasterImage({{&img, 1}});

    std::vector<cv::Mat*> a = left.GetPin(1)->GetImage();
    std::vector<cv::Mat*> b = right.GetPin(1)->GetImage();
    ASSERT_EQ(a.size(), 1u);
    EXPECT_EQ(a, b);  // same pointers, no copy on the way out
    EXPECT_EQ(src.procCalls, 1);
    const std::string log = ReadLog();
    EXPECT_EQ(CountOf(log, "<CPin::GetImage link=\"-1\"/>"), 2);
    EXPECT_EQ(CountOf(log, "<CPin::GetImage procfilter=\"Src\"/>"), 2);
    EXPECT_EQ(CountOf(log, "<Skip/>"), 1);
}

TEST_F(FilterTest, DiamondRunsSharedUpstreamOnce) {
    EnableFileLog(1);
    // src -> (a, b) -> join: the join's two inputs pull src twice.
    CMasterSourceFilter src;
    CCountingFilter a, b;
    CPassFilter join;
    a.GetPin(1)->SetLink(src.GetPin(-1));
    b.GetPin(1)->SetLink(src.GetPin(-1));
    join.GetPin(1)->SetLink(a.GetPin(-1));
    join.GetPin(2)->SetLink(b.GetPin(-1));
    cv::Mat img(2, 2, CV_8UC1, cv::Scalar(4));
    for (CFilter* f : std::vector<CFilter*>{&src, &a, &b, &join}) f->SetMasterImage({{&img, 1}});
    EXPECT_EQ(join.GetPin(-1)->GetImage().size(), 2u);
    EXPECT_EQ(join.GetPin(-2)->GetImage().size(), 2u);  // second output: join skips
    EXPECT_EQ(src.procCalls, 1);
    EXPECT_EQ(a.procCalls, 1);
    EXPECT_EQ(b.procCalls, 1);
    EXPECT_EQ(CountOf(ReadLog(), "<Skip/>"), 2);
}

TEST_F(FilterTest, UnlinkedInputYieldsOwnImagesAndClearDropsLink) {
    CMasterSourceFilter src;
    CCountingFilter f;
    cv::Mat own(2, 2, CV_8UC1, cv::Scalar(8));
    f.GetPin(1)->SetImage({&own});
    EXPECT_EQ(f.GetPin(1)->GetImage().size(), 1u);
    f.GetPin(1)->SetLink(src.GetPin(-1));
    src.SetMasterImage({});
    EXPECT_TRUE(f.GetPin(1)->GetImage().empty());  // a linked input ignores its own list
    f.GetPin(1)->ClearImage();
    EXPECT_EQ(f.GetPin(1)->GetLink(), nullptr);
    EXPECT_TRUE(f.GetPin(1)->GetImage().empty());
}

TEST_F(FilterTest, LinkCyclesTerminate) {
    cv::Mat img(2, 2, CV_8UC1, cv::Scalar(3));
    {
        // Output-to-input cycle through two filters.
        CCountingFilter a, b;
        a.GetPin(1)->SetLink(b.GetPin(-1));
        b.GetPin(1)->SetLink(a.GetPin(-1));
        a.SetMasterImage({{&img, 1}});
        b.SetMasterImage({{&img, 1}});
        EXPECT_TRUE(a.GetPin(-1)->GetImage().empty());
        EXPECT_EQ(a.procCalls, 1);
        EXPECT_EQ(b.procCalls, 1);
    }
    {
        // A filter whose input reads its own output.
        CCountingFilter self;
        self.GetPin(1)->SetLink(self.GetPin(-1));
        self.SetMasterImage({});
        EXPECT_TRUE(self.GetPin(-1)->GetImage().empty());
        EXPECT_EQ(self.procCalls, 1);
    }
    {
        // Input pins linked to each other and to themselves never reach a
        // Process that could skip; the loop is cut at the pin.
        CCountingFilter a, b;
        a.GetPin(1)->SetLink(b.GetPin(1));
        b.GetPin(1)->SetLink(a.GetPin(1));
        EXPECT_TRUE(a.GetPin(1)->GetImage().empty());
        a.GetPin(1)->SetLink(a.GetPin(1));
        EXPECT_TRUE(a.GetPin(1)->GetImage().empty());
    }
}

TEST_F(FilterTest, SelfLoopKeepsImagesReadableAcrossRuns) {
    // A filter fed by its own output copies the previous output before
    // replacing it: nothing is read after it is freed.
    CPassFilter loop;
    CMasterSourceFilter src;
    loop.GetPin(1)->SetLink(src.GetPin(-1));
    loop.GetPin(2)->SetLink(loop.GetPin(-1));
    cv::Mat img(2, 2, CV_8UC1, cv::Scalar(6));
    src.SetMasterImage({{&img, 1}});
    loop.SetMasterImage({{&img, 1}});
    EXPECT_EQ(loop.GetPin(-1)->GetImage().size(), 1u);
    loop.SetMasterImage({{&img, 1}});
    src.SetMasterImage({{&img, 1}});
    std::vector<cv::Mat*> second = loop.GetPin(-1)->GetImage();
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[1]->at<uchar>(0, 0), 6);
    // The second output was filled after the first had dropped its old
    // images; it must still hold the same content.
    std::vector<cv::Mat*> other = loop.GetPin(-2)->GetImage();
    ASSERT_EQ(other.size(), 2u);
    EXPECT_EQ(cv::countNonZero(*other[1] != 6), 0);
}

}  // namespace
}  // namespace pixmill::test
