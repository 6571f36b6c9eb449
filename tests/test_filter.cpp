// The filter base and pins: reading a node's JSON, triggers and the skip
// rule, exception containment, and pulls along links.
#include <gtest/gtest.h>

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
}

// Any Params array runs the filter again, whatever its entries; only a new
// input version does otherwise.
TEST_F(FilterTest, WhatRunsTheFilterAgain) {
    CCountingFilter f;
    f.SetMasterImage({});
    f.Process();
    f.Process();
    EXPECT_EQ(f.procCalls, 1);
    for (const wchar_t* json :
         {L"{\"Params\":[{\"Key\":\"NoSuchKey\",\"Value\":\"1\"}]}",
          L"{\"Params\":[7,{\"Key\":3},{\"Value\":\"x\"},{\"Key\":\"Offset\",\"Value\":\"9\"}]}"}) {
        auto doc = Parse(json);
        f.Init(doc);
        f.Process();
    }
    EXPECT_EQ(f.procCalls, 3);
    EXPECT_EQ(ParamValue<int>(f.GetParams(), L"Offset", 0), 9);
    f.GetPin(1)->SetImage({});
    f.Process();
    EXPECT_EQ(f.procCalls, 4);
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
}

// ---------------------------------------------------------------------------
// Pins
// ---------------------------------------------------------------------------

// An input copies what it is given and moves its version even for an empty
// list; once linked it yields the link's images only, until cleared.
TEST_F(FilterTest, InputPinsCopyDeeplyAndPreferTheirLink) {
    CMasterSourceFilter src;
    CCountingFilter f;
    IPin* pin = f.GetPin(1);
    cv::Mat own(4, 5, CV_8UC3, cv::Scalar(1, 2, 3));
    pin->SetImage({&own});
    EXPECT_EQ(pin->GetVersion(), 1);
    std::vector<cv::Mat*> held = pin->GetImage();
    ASSERT_EQ(held.size(), 1u);
    own.setTo(cv::Scalar(9, 9, 9));
    EXPECT_EQ(held[0]->at<cv::Vec3b>(0, 0), cv::Vec3b(1, 2, 3));
    pin->SetLink(src.GetPin(-1));
    src.SetMasterImage({});
    EXPECT_TRUE(pin->GetImage().empty());  // a linked input ignores its own list
    pin->ClearImage();
    EXPECT_EQ(pin->GetLink(), nullptr);
    EXPECT_TRUE(pin->GetImage().empty());
    pin->SetImage({});
    EXPECT_EQ(pin->GetVersion(), 2);
}

TEST_F(FilterTest, OutputPullRunsOwnerAndConsumersShareImages) {
    EnableFileLog(1);
    CMasterSourceFilter src;
    CCountingFilter left, right;
    left.GetPin(1)->SetLink(src.GetPin(-1));
    right.GetPin(1)->SetLink(src.GetPin(-1));
    cv::Mat img(2, 2, CV_8UC1, cv::Scalar(4));
    for (CFilter* f : std::vector<CFilter*>{&src, &left, &right}) f->SetMasterImage({{&img, 1}});

    std::vector<cv::Mat> a = left.GetPin(1)->ReadImages();
    std::vector<cv::Mat> b = right.GetPin(1)->ReadImages();
    ASSERT_EQ(a.size(), 1u);
    ASSERT_EQ(b.size(), 1u);
    EXPECT_EQ(a[0].data, b[0].data);  // the same pixels, no copy on the way out
    EXPECT_EQ(src.procCalls, 1);
    EXPECT_EQ(CountOf(ReadLog(), "<Skip/>"), 1);  // the second pull
    // Asked for images they may write into, the consumers get copies of
    // their own.
    std::vector<cv::Mat*> own = left.GetPin(1)->GetImage();
    ASSERT_EQ(own.size(), 1u);
    EXPECT_NE(own[0]->data, a[0].data);
    EXPECT_EQ(own[0]->at<uchar>(1, 1), 4);
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
