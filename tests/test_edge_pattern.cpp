// The pattern window: its images, its answer without a display, and, where
// an Xvfb server can be started, a real window opened and closed on it in a
// child process (the window toolkit ends a process that loses its display,
// so the test's own process never opens one).
#include <gtest/gtest.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <thread>
#include <vector>

#include "EdgeScenes.h"
#include "TestSupport.h"
#include "inspect/edge/EdgePattern.h"
#include "logging/Trace.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

extern char** environ;

namespace pixmill::inspect::edge {
namespace {

void Collect(const char* line, void* user) {
    static_cast<std::string*>(user)->append(line);
}

const char* const kChildFlag = "PIXMILL_PATTERN_CHILD";

cv::Mat PatternFrame() {
    return test::RenderScene(test::QuadrantScene(0, {240, 240}, 400), {640, 480});
}

class EdgePatternTest : public test::PixmillTest {
protected:
    void SetUp() override {
        PixmillTest::SetUp();
        logging::SetTraceSink(Collect, &m_trace);
        const std::string native = platform::NativePath(std::string("C:\\frames\\pattern.bmp"));
        platform::CreateParentDirectories(native);
        cv::Mat colour;
        cv::cvtColor(PatternFrame(), colour, cv::COLOR_GRAY2BGR);
        ASSERT_TRUE(cv::imwrite(native, colour));
    }
    std::string m_trace;
};

TEST(EdgePatternImages, RedEdgesOnBlackAndTheCornerMarker) {
    cv::Mat colour;
    cv::cvtColor(PatternFrame(), colour, cv::COLOR_GRAY2BGR);
    const PatternImages p = MakePatternImages(colour);
    ASSERT_EQ(p.display.size(), colour.size());
    int red = 0, other = 0;
    const cv::Rect marker(640 - 19, 480 - 19, 19, 19);
    for (int r = 0; r < p.display.rows; ++r)
        for (int c = 0; c < p.display.cols; ++c) {
            if (marker.contains({c, r})) continue;
            const cv::Vec3b v = p.display.at<cv::Vec3b>(r, c);
            if (v == cv::Vec3b(0, 0, 255)) ++red;
            else if (v != cv::Vec3b(0, 0, 0)) ++other;
        }
    EXPECT_GT(red, 200) << "the rim's edge";
    EXPECT_EQ(other, 0);
    // The rhombus: one pixel in the first row, 17 in the ninth, none in the
    // last two.
    const cv::Mat m = p.display(marker);
    const auto width = [&](int row) { return cv::countNonZero(m.row(row).reshape(1) == 72); };
    EXPECT_EQ(width(0), 1);
    EXPECT_EQ(width(8), 17);
    EXPECT_EQ(width(16), 1);
    EXPECT_EQ(width(17), 0);
    EXPECT_EQ(width(18), 0);
    EXPECT_GE(cv::countNonZero(p.overlay.reshape(1) != colour.reshape(1)), red);
}

TEST_F(EdgePatternTest, WithoutADisplayAnswersThree) {
    const char* saved = std::getenv("DISPLAY");
    const std::string keep = saved ? saved : "";
    unsetenv("DISPLAY");
    EXPECT_EQ(VBcvEdgePattern("C:\\frames\\pattern.bmp", 10, 10), 3);
    EXPECT_NE(m_trace.find("[VBcvEdgePattern] Fail : No display\n"), std::string::npos);
    // A display number nothing listens on.
    setenv("DISPLAY", ":987", 1);
    EXPECT_EQ(VBcvEdgePattern("C:\\frames\\pattern.bmp", 10, 10), 3);
    EXPECT_FALSE(PatternHeld());
    EXPECT_EQ(VBcvEdgePattern("C:\\frames\\none.bmp", 10, 10), 2) << "the file is read first";
    EXPECT_NE(m_trace.find("[VBcvEdgePattern] Fail : File Error\n"), std::string::npos);
    EXPECT_EQ(VBcvDestroyWindow("PatternImage"), 1);
    EXPECT_EQ(VBcvDestroyWindow(nullptr), 1);
    if (saved) setenv("DISPLAY", keep.c_str(), 1);
    else unsetenv("DISPLAY");
}

// Runs only in the child process started below, with DISPLAY set to Xvfb.
TEST_F(EdgePatternTest, ChildOpensAndClosesTheWindow) {
    if (!std::getenv(kChildFlag)) GTEST_SKIP() << "runs in the child of WindowOnXvfb only";
    ASSERT_EQ(VBcvEdgePattern("C:\\frames\\pattern.bmp", 20, 30), 0) << m_trace;
    EXPECT_TRUE(PatternHeld());
    EXPECT_NE(m_trace.find("[VBcvEdgePattern] End\n"), std::string::npos);
    EXPECT_EQ(VBcvDestroyWindow("PatternImage"), 1);
    EXPECT_FALSE(PatternHeld());
}

// Waits for `pid` at most `seconds`; kills it when it overstays. Returns its
// exit status, or -1 when it had to be killed.
int WaitFor(pid_t pid, int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

TEST(EdgePatternOnXvfb, WindowOpensAndCloses) {
    if (std::getenv(kChildFlag)) GTEST_SKIP() << "the child runs the window test itself";
    const char* xvfb = "/usr/bin/Xvfb";
    if (access(xvfb, X_OK) != 0) GTEST_SKIP() << "Xvfb is not installed (scripts/setup.sh installs it)";
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    // Xvfb picks a free display and writes its number to the pipe when ready.
    const std::string fd = std::to_string(fds[1]);
    std::vector<std::string> args{xvfb, "-displayfd", fd, "-screen", "0", "800x600x24", "-nolisten", "tcp"};
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t server = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const int spawned = posix_spawn(&server, xvfb, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (spawned != 0) {
        close(fds[0]);
        GTEST_SKIP() << "Xvfb could not be started";
    }
    std::string display;
    pollfd p{fds[0], POLLIN, 0};
    char buffer[32];
    while (display.find('\n') == std::string::npos && poll(&p, 1, 10000) == 1) {
        const ssize_t n = read(fds[0], buffer, sizeof buffer);
        if (n <= 0) break;
        display.append(buffer, size_t(n));
    }
    close(fds[0]);
    if (display.find('\n') == std::string::npos) {
        kill(server, SIGTERM);
        WaitFor(server, 5);
        GTEST_SKIP() << "Xvfb did not report a display within 10 s";
    }
    display = ":" + display.substr(0, display.find('\n'));

    // The child: this test program, running only the window test.
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        const std::string entry(*e);
        if (entry.rfind("DISPLAY=", 0) != 0 && entry.rfind("ASAN_OPTIONS=", 0) != 0) env.push_back(entry);
    }
    env.push_back("DISPLAY=" + display);
    env.push_back(std::string(kChildFlag) + "=1");
    env.push_back("ASAN_OPTIONS=detect_leaks=0");  // the toolkit keeps its globals until exit
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    const std::string self = platform::ToUtf8(platform::ExecutablePath());
    std::vector<std::string> childArgs{self, "--gtest_filter=EdgePatternTest.ChildOpensAndClosesTheWindow"};
    std::vector<char*> childArgv;
    for (std::string& a : childArgs) childArgv.push_back(a.data());
    childArgv.push_back(nullptr);
    pid_t child = 0;
    const int started = posix_spawn(&child, self.c_str(), nullptr, nullptr, childArgv.data(), envp.data());
    const int status = started == 0 ? WaitFor(child, 60) : -2;
    kill(server, SIGTERM);
    WaitFor(server, 5);
    ASSERT_EQ(started, 0);
    EXPECT_EQ(status, 0) << "the child's window test failed, crashed (128) or hung (-1)";
}

}  // namespace
}  // namespace pixmill::inspect::edge
