// Shared fixtures: every test runs under a fresh temporary root with the
// clock pinned, the logger and start-up reset, and the debug channel
// captured instead of reaching syslog.
#pragma once

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace pixmill::test {

// A local time in milliseconds since 1970; 2026-11-21 10:30:15.250 is what
// most tests see as "now".
int64_t LocalMillis(int year, int month, int day, int hour, int minute, int second);
int64_t PinnedNowMillis();

class TempRoot {
public:
    TempRoot();
    ~TempRoot();
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

class PixmillTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Turns on file logging at `fileLevel` under "C:\Logs\SORVIK\test".
    void EnableFileLog(int fileLevel = 1);
    // Today's log file (native path) and its whole text.
    std::string LogFilePath() const;
    std::string ReadLog() const;
    // Text of a file under the root, "" if absent.
    static std::string ReadFile(const std::filesystem::path& p);

    std::unique_ptr<TempRoot> m_root;
    std::vector<std::string> m_debugLines;
};

// The fixture of the inspection tests: no pause before debug images, and
// every trace line of the test collected in m_trace.
class InspectionTest : public PixmillTest {
protected:
    void SetUp() override;
    void TearDown() override;
    // Writes `image` at a prober path ("C:\\frames\\a0.bmp"), under the root.
    static void WriteImage(const std::string& proberPath, const cv::Mat& image);

    std::string m_trace;
};

// Pixels on pages that cannot be written: a write into them stops the test
// with a fault. Holds a copy of `image`.
class ReadOnlyImage {
public:
    explicit ReadOnlyImage(const cv::Mat& image);
    ~ReadOnlyImage();
    ReadOnlyImage(const ReadOnlyImage&) = delete;
    ReadOnlyImage& operator=(const ReadOnlyImage&) = delete;
    uint8_t* data() const { return static_cast<uint8_t*>(m_pages); }
    uint64_t size() const { return m_size; }
    // A header over the read-only pixels.
    cv::Mat mat() const { return cv::Mat(m_rows, m_cols, m_type, m_pages); }

private:
    void* m_pages = nullptr;
    size_t m_mapped = 0;
    uint64_t m_size = 0;
    int m_rows = 0, m_cols = 0, m_type = 0;
};

// Counts how often `needle` occurs in `haystack`.
int CountOf(const std::string& haystack, const std::string& needle);

}  // namespace pixmill::test
