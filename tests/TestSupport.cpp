#include "TestSupport.h"

#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>

#include "api/Startup.h"
#include "logging/Logger.h"
#include "logging/Trace.h"
#include "platform/Platform.h"
#include "framework/TestHooks.h"

namespace fs = std::filesystem;

namespace pixmill::test {

int64_t LocalMillis(int year, int month, int day, int hour, int minute, int second) {
    // Through mktime, so the instant is that local time in whatever zone the
    // machine runs.
    std::tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    t.tm_isdst = -1;
    return static_cast<int64_t>(std::mktime(&t)) * 1000;
}

int64_t PinnedNowMillis() {
    return LocalMillis(2026, 11, 21, 10, 30, 15) + 250;
}

TempRoot::TempRoot() {
    std::string name = (fs::temp_directory_path() / "pixmill-test-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("cannot create a temporary root");
    m_path = name;
    platform::SetRoot(m_path.string());
}

TempRoot::~TempRoot() {
    platform::SetRoot("");
    std::error_code ec;
    fs::remove_all(m_path, ec);
}

void PixmillTest::SetUp() {
    m_root = std::make_unique<TempRoot>();
    platform::PinClockForTesting(PinnedNowMillis());
    logging::ResetForTesting();
    api::ResetStartupForTesting();
    logging::SetTraceSink(nullptr, nullptr);
    platform::SetDebugOutputForTesting(
        [this](const std::string& line) { m_debugLines.push_back(line); });
}

void PixmillTest::TearDown() {
    platform::SetDebugOutputForTesting(nullptr);
    logging::SetTraceSink(nullptr, nullptr);
    logging::ResetForTesting();
    api::ResetStartupForTesting();
    platform::PinClockForTesting(-1);
    m_root.reset();
}

void PixmillTest::EnableFileLog(int fileLevel) {
    logging::SetPathPrefix(L"C:\\Logs\\SORVIK\\test");
    logging::Thresholds t;
    t.file = fileLevel;
    logging::SetThresholds(t);
}

std::string PixmillTest::LogFilePath() const {
    return platform::NativePath(logging::LogFileNameForNow());
}

std::string PixmillTest::ReadLog() const {
    return ReadFile(LogFilePath());
}

std::string PixmillTest::ReadFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

ReadOnlyImage::ReadOnlyImage(const cv::Mat& image)
    : m_size(image.total() * image.elemSize()), m_rows(image.rows), m_cols(image.cols),
      m_type(image.type()) {
    const size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    m_mapped = (std::max<size_t>(m_size, 1) + page - 1) / page * page;
    m_pages = ::mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m_pages == MAP_FAILED) throw std::runtime_error("mmap failed");
    cv::Mat(m_rows, m_cols, m_type, m_pages).setTo(0);
    image.copyTo(cv::Mat(m_rows, m_cols, m_type, m_pages));
    if (::mprotect(m_pages, m_mapped, PROT_READ) != 0) throw std::runtime_error("mprotect failed");
}

ReadOnlyImage::~ReadOnlyImage() {
    ::munmap(m_pages, m_mapped);
}

int CountOf(const std::string& haystack, const std::string& needle) {
    if (needle.empty()) return 0;
    int n = 0;
    for (size_t pos = haystack.find(needle); pos != std::string::npos;
         pos = haystack.find(needle, pos + needle.size()))
        ++n;
    return n;
}

void InspectionTest::SetUp() {
    PixmillTest::SetUp();
    inspect::SetSavePauses(false);
    logging::SetTraceSink(
        [](const char* line, void* user) { static_cast<std::string*>(user)->append(line); }, &m_trace);
}

void InspectionTest::TearDown() {
    logging::SetTraceSink(nullptr, nullptr);
    inspect::SetSavePauses(true);
    PixmillTest::TearDown();
}

void InspectionTest::WriteImage(const std::string& proberPath, const cv::Mat& image) {
    const std::string native = platform::NativePath(proberPath);
    platform::CreateParentDirectories(native);
    ASSERT_TRUE(cv::imwrite(native, image)) << native;
}

}  // namespace pixmill::test
