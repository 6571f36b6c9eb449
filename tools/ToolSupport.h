// Helpers of the pixmill command-line tool. The tool reaches the library
// only through its public C interface; everything here is the tool's own
// plumbing: text conversion, documents, images and the filter catalogue.
#pragma once

#include <opencv2/core.hpp>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "pixmill/pixmill.h"

namespace pixmill::tool {

// A failure the tool reports as one line and exit code 1: the run failed.
struct ToolError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A malformed argument, reported as one line and exit code 2.
struct UsageError : ToolError {
    using ToolError::ToolError;
};

// Exit codes of every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// Writes one line to standard error under the lock that QuietStderr holds,
// so no line is lost while standard error is turned away.
void ErrorLine(const std::string& line);

// While alive, standard error goes nowhere: image decoders print their own
// complaints there, and the tool reports a bad image in its own words.
class QuietStderr {
public:
    QuietStderr();
    ~QuietStderr();
    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

private:
    int m_saved = -1;
};

// The library's error lines during one run: installed as the library's log
// sink, it shows each level-4 line on standard error as it comes
// ("pixmill: library: ...") and counts them; no log file is written then.
// When PIXMILL_LOG_LEVELS is set the user asked for the log files, so no
// sink is installed and Finish() shows the calling thread's last error.
class LibraryErrors {
public:
    LibraryErrors();
    ~LibraryErrors();
    LibraryErrors(const LibraryErrors&) = delete;
    LibraryErrors& operator=(const LibraryErrors&) = delete;
    // Call right after the library call; returns the error lines seen.
    size_t Finish();

private:
    static void Sink(int level, const char* line, void* user);
    bool m_installed = false;
    std::mutex m_mutex;
    size_t m_count = 0;
};

// Where a parse stopped, as "line L, column C (offset O): message".
std::string JsonErrorText(const std::string& text, size_t offset, const char* message);

std::wstring Widen(const std::string& utf8);
std::string Narrow(const std::wstring& wide);

// Reads a whole file; throws ToolError if it cannot be read.
std::string ReadFileBytes(const std::string& path);

// A recipe or override file as text: UTF-8 with or without a byte order
// mark, or UTF-16 with one.
std::wstring ReadTextFile(const std::string& path);

// Pretty-prints a document, trailing commas allowed (the library's own
// documents have them), as strict JSON; returns false (leaving `out` alone)
// if it does not parse.
bool PrettyJson(const std::string& text, std::string& out);

// The description document's object of one filter as strict JSON; throws
// ToolError if no filter has that name.
std::string FilterDescriptionJson(const std::string& name);

// {"Params":[{"Key":k,"Value":v},...]} for a filter's own object.
std::string ParamsObject(const std::vector<std::pair<std::string, std::string>>& params);

// One parameter of a filter as the description document tells it.
struct ParamInfo {
    std::string name, type, value, defaultValue, min, max, step;
};
struct PinInfo {
    std::string name;  // "IN_In", "OUT_Out"
    int key = 0;
};
struct FilterInfo {
    std::string name;
    std::vector<PinInfo> pins;
    std::vector<ParamInfo> params;
};

// The description document, as the library gives it.
std::string DescriptionDocument();

// The registered filters, sorted by name.
std::vector<FilterInfo> FilterCatalogue();

// Up to three registered names nearest to `name`, nearest first.
std::vector<std::string> NearestNames(const std::string& name, const std::vector<FilterInfo>& all);

// An image read for the library: 8-bit, one or three channels. Throws
// ToolError if the file is missing, a folder or not an image.
cv::Mat LoadImage(const std::string& path);

// An input image and the ID that routes it.
struct InputImage {
    cv::Mat image;
    int id = 1;
    std::string path;
};

// Whether a file in a folder given to `run --each` counts as an image: its
// extension names an image format, or a decoder recognises its first bytes.
// A corrupt ".png" is an image that fails to read, not a file to skip.
bool LooksLikeImage(const std::string& path);

// The number of output pins the description gives a filter.
size_t OutputPins(const FilterInfo& filter);

// Throws ToolError naming `what` when the library logged error lines during
// the run, or when outputs were expected and none came.
void RequireClean(size_t errorLines, int outputImages, size_t expectedOutputs, const std::string& what);

// "path" or "path:ID"; a suffix that is not a number belongs to the path.
InputImage ParseImageArgument(const std::string& argument);

// Owns the records handed to and received from the library.
class Execution {
public:
    explicit Execution(const std::vector<InputImage>& inputs);
    ~Execution();
    Execution(const Execution&) = delete;
    Execution& operator=(const Execution&) = delete;

    ImageParam* input() { return &m_input; }
    ImageParam* output() { return &m_output; }
    std::wstring Result() const;
    int OutputCount() const { return m_output.count; }
    // Writes each output image as <dir>/<stem>_<n>.png; returns the paths.
    // Throws ToolError if the folder cannot be made, a file cannot be
    // written or an output image is empty.
    std::vector<std::string> WriteOutputs(const std::string& dir, const std::string& stem) const;

private:
    std::vector<ImageData> m_data;
    std::vector<ImageData*> m_pointers;
    ImageParam m_input{};
    ImageParam m_output{};
};

}  // namespace pixmill::tool
