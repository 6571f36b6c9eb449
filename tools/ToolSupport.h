// Helpers of the pixmill command-line tool. The tool reaches the library
// only through its public C interface; everything here is the tool's own
// plumbing: text conversion, documents, images and the filter catalogue.
#pragma once

#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "pixmill/pixmill.h"

namespace pixmill::tool {

// A failure the tool reports as one line and a non-zero exit code.
struct ToolError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::wstring Widen(const std::string& utf8);
std::string Narrow(const std::wstring& wide);

// Reads a whole file; throws ToolError if it cannot be read.
std::string ReadFileBytes(const std::string& path);

// A recipe or override file as text: UTF-8 with or without a byte order
// mark, or UTF-16 with one.
std::wstring ReadTextFile(const std::string& path);

// Drops each comma that stands right before a closing bracket or brace
// (outside strings), which turns the library's documents into strict JSON.
std::string DropTrailingCommas(const std::string& text);

// Pretty-prints a document if it parses once trailing commas are dropped;
// returns false (leaving `out` alone) if it does not.
bool PrettyJson(const std::string& text, std::string& out);

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
// ToolError if the file is missing or not an image.
cv::Mat LoadImage(const std::string& path);

// An input image and the ID that routes it.
struct InputImage {
    cv::Mat image;
    int id = 1;
    std::string path;
};

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
    // Writes each output image as <dir>/<stem>_<n>.png; returns the paths.
    std::vector<std::string> WriteOutputs(const std::string& dir, const std::string& stem) const;

private:
    std::vector<ImageData> m_data;
    std::vector<ImageData*> m_pointers;
    ImageParam m_input{};
    ImageParam m_output{};
};

}  // namespace pixmill::tool
