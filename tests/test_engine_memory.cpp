// Images between pins without copies, inputs that a consumer cannot spoil
// for another, memory reused across executions, and the debug image switch.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "Filters/SourceFilter.h"
#include "TestFilters.h"
#include "TestSupport.h"
#include "framework/BufferPool.h"
#include "framework/DebugImages.h"
#include "inspect/Inspection.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

namespace pixmill::test {
namespace {

// Writes zeros into whatever its input gives it, then passes that on: the
// worst-behaved consumer.
class CScribbleFilter : public CFilter {
public:
    CScribbleFilter() {
        AddPin(L"In", 1, false);
        AddPin(L"Out", -1, true);
    }
    void Proc(std::vector<IPin*> pins, std::vector<IParam*>) override {
        std::vector<cv::Mat*> images = GetPin(1)->GetImage();
        for (cv::Mat* m : images) m->setTo(cv::Scalar::all(0));
        for (IPin* pin : pins)
            if (pin->IsOutput()) pin->SetImage(images);
    }
    void Trace() override {}
};

// Adds one to each pixel through the image loop; hands its results over
// (std::move) or lets the pins copy them, and then scribbles on its own
// results, which only the copying form may shrug off.
class CLoopFilter : public CFilter {
public:
    explicit CLoopFilter(bool handOver) : m_handOver(handOver) {
        AddPin(L"In", 1, false);
        AddPin(L"Out", -1, true);
        AddPin(L"Out2", -2, true);
    }
    void Proc(std::vector<IPin*> pins, std::vector<IParam*>) override {
        std::vector<cv::Mat> results = filters::MapInputImages(pins, [](const cv::Mat& src) {
            cv::Mat dst = PooledMat();
            cv::add(src, cv::Scalar::all(1), dst);
            return dst;
        });
        if (m_handOver) {
            filters::SetOutputImages(pins, std::move(results));
        } else {
            filters::SetOutputImages(pins, results);
            for (cv::Mat& m : results) m.setTo(cv::Scalar::all(200));
        }
    }
    void Trace() override {}

private:
    bool m_handOver;
};

class EngineMemoryTest : public PixmillTest {};

// Whatever a consumer does with the input it is handed, the source's image,
// the caller's master image and a second consumer's view stay as they were.
struct SpoilCase {
    const char* name;
    bool scribblerFirst;
    bool linked;  // false: the scribbler's input is filled directly
};

class SpoilTest : public EngineMemoryTest, public ::testing::WithParamInterface<SpoilCase> {};

TEST_P(SpoilTest, AConsumerWritingItsInputChangesNothingAnotherSees) {
    const SpoilCase c = GetParam();
    cv::Mat master(6, 8, CV_8UC1, cv::Scalar(40));
    master.at<uchar>(2, 3) = 90;
    const cv::Mat original = master.clone();

    CSourceFilter src;  // shares the master image (ImageID 0) with its output
    src.SetMasterImage({{&master, 0}});
    CScribbleFilter scribbler;
    CLoopFilter reader(true);
    reader.GetPin(1)->SetLink(src.GetPin(-1));
    scribbler.SetMasterImage({});  // a first run, so each filter works once
    reader.SetMasterImage({});
    if (c.linked) {
        scribbler.GetPin(1)->SetLink(src.GetPin(-1));
    } else {
        scribbler.GetPin(1)->SetImages(src.GetPin(-1)->ReadImages());
    }
    std::vector<cv::Mat> seen;
    if (c.scribblerFirst) {
        scribbler.GetPin(-1)->GetImage();
        seen = reader.GetPin(-1)->ReadImages();
    } else {
        seen = reader.GetPin(-1)->ReadImages();
        scribbler.GetPin(-1)->GetImage();
    }
    std::vector<cv::Mat*> scribbled = scribbler.GetPin(-1)->GetImage();
    ASSERT_EQ(scribbled.size(), 1u);
    EXPECT_EQ(cv::countNonZero(*scribbled[0]), 0);  // it did write
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(cv::countNonZero(seen[0] != original + 1), 0);
    EXPECT_EQ(cv::countNonZero(master != original), 0);
    std::vector<cv::Mat> source = src.GetPin(-1)->ReadImages();
    ASSERT_EQ(source.size(), 1u);
    EXPECT_EQ(cv::countNonZero(source[0] != original), 0);
}

INSTANTIATE_TEST_SUITE_P(Consumers, SpoilTest,
                         ::testing::Values(SpoilCase{"ScribblerFirstLinked", true, true},
                                           SpoilCase{"ReaderFirstLinked", false, true},
                                           SpoilCase{"ScribblerFirstFilled", true, false},
                                           SpoilCase{"ReaderFirstFilled", false, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(EngineMemoryTest, HandedOverImagesPassBetweenPinsWithoutCopies) {
    cv::Mat master(5, 7, CV_8UC1, cv::Scalar(3));
    CMasterSourceFilter src;  // stores copies (the plain SetImage)
    src.SetMasterImage({{&master, 1}});
    CLoopFilter first(true), second(true);
    first.GetPin(1)->SetLink(src.GetPin(-1));
    second.GetPin(1)->SetLink(first.GetPin(-1));
    first.SetMasterImage({});
    second.SetMasterImage({});

    std::vector<cv::Mat> out = second.GetPin(-1)->ReadImages();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].at<uchar>(0, 0), 5);
    // Both outputs of a filter and its consumer's input are the same pixels.
    const std::vector<cv::Mat> a = first.GetPin(-1)->ReadImages();
    const std::vector<cv::Mat> b = first.GetPin(-2)->ReadImages();
    const std::vector<cv::Mat> c = second.GetPin(1)->ReadImages();
    ASSERT_TRUE(a.size() == 1 && b.size() == 1 && c.size() == 1);
    EXPECT_EQ(a[0].data, b[0].data);
    EXPECT_EQ(a[0].data, c[0].data);
    // The plain form still copies: a filter may change its results after.
    CLoopFilter copying(false);
    copying.GetPin(1)->SetLink(src.GetPin(-1));
    copying.SetMasterImage({});
    std::vector<cv::Mat> kept = copying.GetPin(-1)->ReadImages();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].at<uchar>(0, 0), 4);
}

TEST_F(EngineMemoryTest, AnInputsCopiesStayPutUntilItsSourceChanges) {
    cv::Mat master(4, 4, CV_8UC1, cv::Scalar(9));
    CMasterSourceFilter src;
    src.SetMasterImage({{&master, 1}});
    CScribbleFilter consumer;
    IPin* in = consumer.GetPin(1);
    in->SetLink(src.GetPin(-1));
    std::vector<cv::Mat*> first = in->GetImage();
    std::vector<cv::Mat*> again = in->GetImage();
    EXPECT_EQ(first, again);  // pointers taken earlier stay valid
    src.SetMasterImage({{&master, 1}});
    std::vector<cv::Mat*> fresh = in->GetImage();
    ASSERT_EQ(fresh.size(), 1u);
    EXPECT_EQ(fresh[0]->at<uchar>(0, 0), 9);
}

TEST_F(EngineMemoryTest, PooledMemoryComesBackForTheNextImageOfItsSize) {
    TrimBufferPool();
    const uint8_t* first = nullptr;
    {
        cv::Mat m = PooledMat();
        m.create(512, 640, CV_8UC1);
        first = m.data;
    }
    const BufferPoolStats idle = GetBufferPoolStats();
    EXPECT_EQ(idle.idleBuffers, 1u);
    EXPECT_EQ(idle.idleBytes, 512u * 640u);
    cv::Mat again = PooledMat();
    cv::GaussianBlur(cv::Mat(512, 640, CV_8UC1, cv::Scalar(1)), again, cv::Size(3, 3), 0);
    EXPECT_EQ(again.data, first);
    EXPECT_EQ(GetBufferPoolStats().reused, idle.reused + 1);
    EXPECT_EQ(again.at<uchar>(10, 10), 1);
    // Small images and caller memory never enter the pool.
    {
        cv::Mat small = PooledMat();
        small.create(8, 8, CV_8UC1);
        uint8_t caller[16] = {};
        cv::Mat wrapped = PooledMat();
        wrapped = cv::Mat(4, 4, CV_8UC1, caller);
    }
    EXPECT_EQ(GetBufferPoolStats().idleBuffers, 0u);
}

TEST_F(EngineMemoryTest, IdleMemoryNeverExceedsItsCap) {
    TrimBufferPool();
    // Untouched memory: the pages are never faulted in.
    const size_t bytes = 60u << 20;
    std::vector<uint8_t*> taken;
    for (int i = 0; i < 6; ++i) taken.push_back(TakePooledBytes(bytes));
    for (uint8_t* p : taken) ReturnPooledBytes(p, bytes);
    const BufferPoolStats s = GetBufferPoolStats();
    EXPECT_LE(s.idleBytes, kPoolIdleCapBytes);
    EXPECT_EQ(s.idleBuffers, kPoolIdleCapBytes / bytes);
    TrimBufferPool();
    EXPECT_EQ(GetBufferPoolStats().idleBytes, 0u);
}

TEST_F(EngineMemoryTest, RepeatedRecipeRunsReuseTheirMemory) {
    PixmillSetDebugImages(0);
    const wchar_t* recipe =
        LR"({"Filters":[{"Name":"src","Key":"s","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"}],"Pins":[{"Key":-1}]},)"
        LR"({"Name":"blur","Key":"g","Type":"GaussianBlurFilter","Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}},{"Key":-1}]},)"
        LR"({"Name":"bin","Key":"t","Type":"ThresholdFilter","IsEndPoint":true,"Pins":[{"Key":1,"Link":{"FilterKey":"g","PinKey":-1}},{"Key":-1}]}]})";
    cv::Mat1b scene(300, 400);
    cv::randu(scene, 0, 255);
    ImageData data{400, 300, 1, 1, scene.total(), scene.data};
    ImageData* list[] = {&data};
    ImageParam input{1, list, nullptr, 0};
    auto run = [&] {
        ImageParam output{};
        RecipeExecute(&input, &output, recipe, nullptr);
        EXPECT_EQ(output.count, 1);
        ImageParamRelease(&output);
    };
    run();
    const uint64_t fresh = GetBufferPoolStats().fresh;
    for (int i = 0; i < 20; ++i) run();
    EXPECT_EQ(GetBufferPoolStats().fresh, fresh);
    EXPECT_GE(GetBufferPoolStats().reused, 20u * 3);
}

// The caller's pixels are read where they lie: on read-only pages a recipe
// of several filters and two end points runs without a fault and answers
// exactly as it does on a writable copy.
TEST_F(EngineMemoryTest, CallersPixelsAreReadInPlaceAndNeverWritten) {
    const wchar_t* recipe =
        LR"({"Filters":[{"Name":"src","Key":"s","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"}],"Pins":[{"Key":-1}]},)"
        LR"({"Name":"crop","Key":"c","Type":"CropFilter","IsEndPoint":true,"Params":[{"Key":"x","Value":"3"},{"Key":"y","Value":"2"},{"Key":"width","Value":"40"},{"Key":"height","Value":"30"}],)"
        LR"("Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}},{"Key":-1}]},)"
        LR"({"Name":"blur","Key":"g","Type":"GaussianBlurFilter","Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}},{"Key":-1}]},)"
        LR"({"Name":"inv","Key":"i","Type":"InvertFilter","Pins":[{"Key":1,"Link":{"FilterKey":"g","PinKey":-1}},{"Key":-1}]},)"
        LR"({"Name":"bin","Key":"t","Type":"ThresholdFilter","IsEndPoint":true,"Pins":[{"Key":1,"Link":{"FilterKey":"i","PinKey":-1}},{"Key":-1}]}]})";
    cv::Mat1b scene(60, 80);
    cv::randu(scene, 0, 255);
    const ReadOnlyImage pixels(scene);
    auto run = [&](uint8_t* data) {
        ImageData image{80, 60, 1, 1, scene.total(), data};
        ImageData* list[] = {&image};
        ImageParam input{1, list, nullptr, 0}, output{};
        RecipeExecute(&input, &output, recipe, nullptr);
        std::vector<cv::Mat> images;
        for (int i = 0; i < output.count; ++i) {
            const ImageData* d = output.images[i];
            images.push_back(cv::Mat(d->height, d->width, CV_8UC(d->channels), d->data).clone());
        }
        ImageParamRelease(&output);
        return images;
    };
    const std::vector<cv::Mat> fromPages = run(pixels.data());
    const std::vector<cv::Mat> fromCopy = run(scene.data);
    ASSERT_EQ(fromPages.size(), 2u);
    ASSERT_EQ(fromCopy.size(), 2u);
    EXPECT_EQ(cv::countNonZero(fromPages[0] != scene(cv::Rect(3, 2, 40, 30))), 0);
    EXPECT_EQ(fromPages[1].size(), scene.size());
    for (size_t i = 0; i < 2; ++i) EXPECT_EQ(cv::norm(fromPages[i], fromCopy[i], cv::NORM_INF), 0);
}

// ---------------------------------------------------------------------------
// Debug images
// ---------------------------------------------------------------------------

struct RecordingStore final : inspect::ImageStore {
    int writes = 0;
    cv::Mat Read(const std::wstring&, int) override { return cv::Mat(); }
    void Write(const std::wstring&, const cv::Mat&) override { ++writes; }
};

struct SwitchCase {
    const char* name;
    const char* env;  // null: unset
    int host;         // -1: no host call
    bool written;
};

class DebugSwitchTest : public EngineMemoryTest,
                        public ::testing::WithParamInterface<SwitchCase> {
protected:
    void TearDown() override {
        ::unsetenv("PIXMILL_DEBUG_IMAGES");
        ResetDebugImagesForTesting();
        EngineMemoryTest::TearDown();
    }
};

TEST_P(DebugSwitchTest, DecidesWhetherFixedPathImagesAreWritten) {
    const SwitchCase c = GetParam();
    ResetDebugImagesForTesting();
    if (c.env) {
        ::setenv("PIXMILL_DEBUG_IMAGES", c.env, 1);
    } else {
        ::unsetenv("PIXMILL_DEBUG_IMAGES");
    }
    if (c.host >= 0) PixmillSetDebugImages(c.host);

    const wchar_t* recipe =
        LR"({"Filters":[{"Name":"src","Key":"s","Type":"SourceFilter","Params":[{"Key":"ImageID","Value":"1"}],"Pins":[{"Key":-1}]},)"
        LR"({"Name":"crop","Key":"c","Type":"CropFilter","IsEndPoint":true,"Params":[{"Key":"x","Value":"2"},{"Key":"y","Value":"1"},{"Key":"width","Value":"5"},{"Key":"height","Value":"4"}],)"
        LR"("Pins":[{"Key":1,"Link":{"FilterKey":"s","PinKey":-1}},{"Key":-1}]}]})";
    cv::Mat1b scene(10, 12);
    cv::randu(scene, 0, 255);
    ImageData data{12, 10, 1, 1, scene.total(), scene.data};
    ImageData* list[] = {&data};
    ImageParam input{1, list, nullptr, 0}, output{};
    RecipeExecute(&input, &output, recipe, nullptr);
    ASSERT_EQ(output.count, 1);
    const cv::Mat got(4, 5, CV_8UC1, output.images[0]->data);
    EXPECT_EQ(cv::countNonZero(got != scene(cv::Rect(2, 1, 5, 4))), 0);  // same either way
    ImageParamRelease(&output);

    const auto file = m_root->path() / "C/PROBERPARAM/ParaImg/PinImage/CropFilter_image.png";
    EXPECT_EQ(std::filesystem::exists(file), c.written);
    RecordingStore store;
    inspect::SetSavePauses(false);
    inspect::SaveDebugImage(store, L"C:\\x.jpg", scene);
    inspect::SaveFailureImage(store, L"C:\\f\\", 'P', scene);
    EXPECT_EQ(store.writes, c.written ? 2 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, DebugSwitchTest,
    ::testing::Values(SwitchCase{"DefaultOn", nullptr, -1, true},
                      SwitchCase{"EnvironmentOff", "0", -1, false},
                      SwitchCase{"EnvironmentOtherTextStaysOn", "false", -1, true},
                      SwitchCase{"HostOnWinsOverEnvironment", "0", 1, true},
                      SwitchCase{"HostOffWinsOverEnvironment", "1", 0, false},
                      SwitchCase{"HostOff", nullptr, 0, false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace pixmill::test
