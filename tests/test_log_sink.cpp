// The host's log sink: it takes the file's place while installed, gets each
// message at or above the file threshold with its level, and can be swapped
// or removed from any thread while others log.
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "logging/Logger.h"
#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

namespace pixmill::test {
namespace {

struct Collected {
    std::mutex mutex;
    std::vector<std::pair<int, std::string>> lines;
};

void Collect(int level, const char* line, void* user) {
    auto* c = static_cast<Collected*>(user);
    std::lock_guard<std::mutex> lock(c->mutex);
    c->lines.emplace_back(level, line);
}

// Calls back into the library from inside the sink: that message must not
// reach the sink again on the same thread.
void Reenter(int level, const char* line, void* user) {
    Collect(level, line, user);
    logging::LogA(4, "from inside the sink");
}

using LogSinkTest = PixmillTest;

TEST_F(LogSinkTest, SinkTakesTheFilesPlaceAtTheFileThresholdAndRemovalRestoresIt) {
    struct Case {
        int fileThreshold;
        std::vector<int> levelsSeen;  // of messages logged at 1, 2 and 4
    } cases[] = {{4, {4}}, {2, {2, 4}}, {1, {1, 2, 4}}, {6, {}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fileThreshold);
        EnableFileLog(c.fileThreshold);
        Collected got;
        PixmillSetLogSink(Collect, &got);
        logging::LogA(1, "trace %d", 1);
        logging::LogW(2, L"entry %ls", L"x");
        logging::LogW(4, L"<ERROR what=\"%ls\"/>", L"\u00e9t\u00e9");
        PixmillSetLogSink(nullptr, nullptr);
        std::vector<int> levels;
        for (const auto& [level, line] : got.lines) levels.push_back(level);
        EXPECT_EQ(levels, c.levelsSeen);
        if (!got.lines.empty()) {
            EXPECT_EQ(got.lines.back().second, "<ERROR what=\"\u00e9t\u00e9\"/>");
        }
        EXPECT_EQ(ReadLog(), "") << "no file while the sink is installed";

        logging::LogA(4, "after removal");
        EXPECT_EQ(got.lines.size(), c.levelsSeen.size());
        if (c.fileThreshold <= 4) {
            EXPECT_NE(ReadLog().find("after removal"), std::string::npos);
        }
        std::filesystem::remove(LogFilePath());
    }
}

TEST_F(LogSinkTest, ExportErrorsReachTheSinkAndTheLastErrorAndReentryIsCutShort) {
    PixmillSetLogLevels(4, 6, 6);
    GetFilterList(nullptr, 0);  // the first call's start-up lines go to the file
    Collected got;
    PixmillSetLogSink(Reenter, &got);
    EXPECT_EQ(ImageBufferRelease(reinterpret_cast<void*>(0x10)), -1);
    const std::string last = PixmillLastError();  // the next call clears it
    PixmillSetLogSink(nullptr, nullptr);
    std::string all;
    for (const auto& [level, line] : got.lines) all += std::to_string(level) + " " + line + "\n";
    ASSERT_EQ(got.lines.size(), 1u) << all;
    EXPECT_EQ(got.lines[0], std::make_pair(4, std::string("[ERROR] Invalid  CImageBuffer ID")));
    // The sink's own message was kept as the thread's error, not passed on.
    EXPECT_EQ(last, "from inside the sink");
}

TEST_F(LogSinkTest, SwappingSinksWhileThreadsLogLosesAndDuplicatesNothing) {
    EnableFileLog(4);
    Collected a, b;
    constexpr int kThreads = 3, kEach = 400;
    std::atomic<bool> go{false};
    PixmillSetLogSink(Collect, &a);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&go, t] {
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < kEach; ++i) logging::LogA(4, "t%d m%d", t, i);
        });
    }
    go = true;
    for (int i = 0; i < 50; ++i) PixmillSetLogSink(Collect, i % 2 ? &a : &b);
    for (std::thread& t : threads) t.join();
    PixmillSetLogSink(nullptr, nullptr);
    // Each message went to exactly one sink, whichever was installed then.
    std::vector<int> seen(kThreads * kEach, 0);
    for (Collected* c : {&a, &b}) {
        for (const auto& [level, line] : c->lines) {
            int t = -1, i = -1;
            ASSERT_EQ(std::sscanf(line.c_str(), "t%d m%d", &t, &i), 2) << line;
            ++seen[static_cast<size_t>(t * kEach + i)];
        }
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), kThreads * kEach);
    EXPECT_EQ(ReadLog(), "");
}

}  // namespace
}  // namespace pixmill::test
