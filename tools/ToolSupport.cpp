#include "ToolSupport.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <fcntl.h>
#include <unistd.h>

#include "pixmill/pixmill_ext.h"

namespace fs = std::filesystem;

namespace pixmill::tool {

std::wstring Widen(const std::string& utf8) {
    std::wstring out;
    std::mbstate_t state{};
    const char* p = utf8.data();
    const char* end = p + utf8.size();
    while (p < end) {
        wchar_t c = 0;
        size_t n = std::mbrtowc(&c, p, static_cast<size_t>(end - p), &state);
        if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) {
            out += L'\xFFFD';
            state = std::mbstate_t{};
            ++p;
            continue;
        }
        out += c;
        p += n == 0 ? 1 : n;
    }
    return out;
}

std::string Narrow(const std::wstring& wide) {
    std::string out;
    std::mbstate_t state{};
    char buf[MB_LEN_MAX];
    for (wchar_t c : wide) {
        size_t n = std::wcrtomb(buf, c, &state);
        if (n == static_cast<size_t>(-1)) {
            out += '?';
            state = std::mbstate_t{};
            continue;
        }
        out.append(buf, n);
    }
    return out;
}

std::string ReadFileBytes(const std::string& path) {
    std::error_code ec;
    if (fs::is_directory(path, ec)) throw ToolError("is a directory, not a file: " + path);
    if (!fs::is_regular_file(path, ec)) throw ToolError("no such file: " + path);
    std::ifstream in(path, std::ios::binary);
    if (!in) throw ToolError("cannot read " + path);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::wstring ReadTextFile(const std::string& path) {
    std::string bytes = ReadFileBytes(path);
    auto utf16 = [&bytes](bool bigEndian) {
        std::u16string units;
        for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
            auto hi = static_cast<unsigned char>(bytes[bigEndian ? i : i + 1]);
            auto lo = static_cast<unsigned char>(bytes[bigEndian ? i + 1 : i]);
            units += static_cast<char16_t>((hi << 8) | lo);
        }
        std::wstring out;
        for (size_t i = 0; i < units.size(); ++i) {
            char32_t c = units[i];
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size()) {
                c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
            }
            out += static_cast<wchar_t>(c);
        }
        return out;
    };
    if (bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE') return utf16(false);
    if (bytes.size() >= 2 && bytes[0] == '\xFE' && bytes[1] == '\xFF') return utf16(true);
    if (bytes.rfind("\xEF\xBB\xBF", 0) == 0) bytes.erase(0, 3);
    return Widen(bytes);
}

namespace {

constexpr unsigned kLenientFlags = rapidjson::kParseTrailingCommasFlag;

std::string Pretty(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 2);
    value.Accept(writer);
    return buffer.GetString();
}

// The one lock of everything the tool writes to standard error.
std::mutex& StderrMutex() {
    static std::mutex m;
    return m;
}

}  // namespace

void ErrorLine(const std::string& line) {
    std::lock_guard<std::mutex> lock(StderrMutex());
    std::fprintf(stderr, "%s\n", line.c_str());
    std::fflush(stderr);
}

QuietStderr::QuietStderr() {
    StderrMutex().lock();
    std::fflush(stderr);
    m_saved = ::dup(STDERR_FILENO);
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0) {
        ::dup2(null, STDERR_FILENO);
        ::close(null);
    }
}

QuietStderr::~QuietStderr() {
    std::fflush(stderr);
    if (m_saved >= 0) {
        ::dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
    }
    StderrMutex().unlock();
}

namespace {

// One sink serves every run in the process; each line is counted for the run
// of the thread that logged it, so runs on several threads keep apart.
std::mutex g_sinkUsers;
int g_sinkUserCount = 0;
thread_local LibraryErrors* t_run = nullptr;

}  // namespace

LibraryErrors::LibraryErrors() {
    const char* levels = std::getenv("PIXMILL_LOG_LEVELS");
    m_installed = !levels || !*levels;
    t_run = this;
    if (!m_installed) return;
    std::lock_guard<std::mutex> lock(g_sinkUsers);
    if (g_sinkUserCount++ == 0) PixmillSetLogSink(&LibraryErrors::Sink, nullptr);
}

LibraryErrors::~LibraryErrors() {
    if (t_run == this) t_run = nullptr;
    if (!m_installed) return;
    std::lock_guard<std::mutex> lock(g_sinkUsers);
    if (--g_sinkUserCount == 0) PixmillSetLogSink(nullptr, nullptr);
}

size_t LibraryErrors::Finish() {
    if (!m_installed) {
        const std::string last = PixmillLastError();
        if (!last.empty()) Sink(4, last.c_str(), nullptr);
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_count;
}

void LibraryErrors::Sink(int level, const char* line, void* /*user*/) {
    if (level < 4 || !line) return;
    if (LibraryErrors* run = t_run) {
        std::lock_guard<std::mutex> lock(run->m_mutex);
        ++run->m_count;
    }
    ErrorLine(std::string("pixmill: library: ") + line);
}

std::string JsonErrorText(const std::string& text, size_t offset, const char* message) {
    size_t line = 1, column = 1;
    for (size_t i = 0; i < offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            ++column;  // characters, not the bytes of one
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column) + " (offset " +
           std::to_string(offset) + "): " + message;
}

bool PrettyJson(const std::string& text, std::string& out) {
    rapidjson::Document doc;
    if (doc.Parse<kLenientFlags>(text.c_str()).HasParseError()) return false;
    out = Pretty(doc);
    return true;
}

std::string FilterDescriptionJson(const std::string& name) {
    rapidjson::Document doc;
    const std::string text = DescriptionDocument();
    if (doc.Parse<kLenientFlags>(text.c_str()).HasParseError() || !doc.IsObject() ||
        !doc.HasMember("filters") || !doc["filters"].IsArray())
        throw ToolError("the library's filter description does not parse");
    for (const auto& f : doc["filters"].GetArray()) {
        if (f.IsObject() && f.HasMember("Name") && f["Name"].IsString() && name == f["Name"].GetString())
            return Pretty(f);
    }
    throw ToolError("unknown filter '" + name + "'");
}

std::string ParamsObject(const std::vector<std::pair<std::string, std::string>>& params) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("Params");
    writer.StartArray();
    for (const auto& [key, value] : params) {
        writer.StartObject();
        writer.Key("Key");
        writer.String(key.c_str(), static_cast<rapidjson::SizeType>(key.size()));
        writer.Key("Value");
        writer.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return buffer.GetString();
}

std::string DescriptionDocument() {
    int bytes = GetFilterList(nullptr, 0);
    std::vector<wchar_t> text(static_cast<size_t>(bytes) / sizeof(wchar_t) + 1, L'\0');
    GetFilterList(text.data(), bytes);
    return Narrow(text.data());
}

namespace {

std::string StringOf(const rapidjson::Value& object, const char* key) {
    if (!object.IsObject()) return "";
    auto it = object.FindMember(key);
    if (it == object.MemberEnd()) return "";
    if (it->value.IsString()) return it->value.GetString();
    if (it->value.IsInt()) return std::to_string(it->value.GetInt());
    return "";
}

}  // namespace

std::vector<FilterInfo> FilterCatalogue() {
    rapidjson::Document doc;
    const std::string text = DescriptionDocument();
    if (doc.Parse<kLenientFlags>(text.c_str()).HasParseError() || !doc.IsObject() || !doc.HasMember("filters") ||
        !doc["filters"].IsArray())
        throw ToolError("the library's filter description does not parse");
    std::vector<FilterInfo> all;
    for (const auto& f : doc["filters"].GetArray()) {
        FilterInfo info;
        info.name = StringOf(f, "Name");
        if (info.name.empty()) continue;
        if (f.HasMember("Pin") && f["Pin"].IsArray()) {
            for (const auto& p : f["Pin"].GetArray()) {
                PinInfo pin;
                pin.name = StringOf(p, "Name");
                pin.key = p.HasMember("Key") && p["Key"].IsInt() ? p["Key"].GetInt() : 0;
                info.pins.push_back(pin);
            }
        }
        if (f.HasMember("Param") && f["Param"].IsArray()) {
            for (const auto& p : f["Param"].GetArray()) {
                ParamInfo param;
                param.name = StringOf(p, "Name");
                param.type = StringOf(p, "Type");
                if (p.HasMember("Attributes") && p["Attributes"].IsArray()) {
                    for (const auto& a : p["Attributes"].GetArray()) {
                        std::string which = StringOf(a, "Name"), value = StringOf(a, "Value");
                        if (which == "value") param.value = value;
                        if (which == "default") param.defaultValue = value;
                        if (which == "min") param.min = value;
                        if (which == "max") param.max = value;
                        if (which == "step") param.step = value;
                    }
                }
                info.params.push_back(param);
            }
        }
        all.push_back(std::move(info));
    }
    std::sort(all.begin(), all.end(),
              [](const FilterInfo& a, const FilterInfo& b) { return a.name < b.name; });
    return all;
}

namespace {

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

std::vector<std::string> NearestNames(const std::string& name, const std::vector<FilterInfo>& all) {
    const std::string wanted = Lower(name);
    std::vector<std::pair<size_t, std::string>> scored;
    for (const FilterInfo& f : all) {
        const std::string candidate = Lower(f.name);
        size_t d = EditDistance(wanted, candidate);
        // A name that contains what was typed is a good guess too.
        if (!wanted.empty() && candidate.find(wanted) != std::string::npos) d = std::min<size_t>(d, 1);
        if (d <= std::max<size_t>(2, wanted.size() / 4)) scored.emplace_back(d, f.name);
    }
    std::sort(scored.begin(), scored.end());
    std::vector<std::string> names;
    for (size_t i = 0; i < scored.size() && i < 3; ++i) names.push_back(scored[i].second);
    return names;
}

cv::Mat LoadImage(const std::string& path) {
    std::error_code ec;
    if (fs::is_directory(path, ec)) throw ToolError("is a directory, not an image: " + path);
    if (!fs::exists(path, ec)) throw ToolError("no such image file: " + path);
    std::string bytes;
    try {
        bytes = ReadFileBytes(path);
    } catch (const ToolError&) {
        throw ToolError("cannot read image file: " + path);
    }
    cv::Mat image;
    {
        // The decoders' own lines ("libpng error: ...") stay unseen; the
        // line below says what went wrong.
        QuietStderr quiet;
        try {
            image = cv::imdecode(cv::Mat(1, static_cast<int>(bytes.size()), CV_8UC1, bytes.data()),
                                 cv::IMREAD_UNCHANGED);
        } catch (const cv::Exception&) {
            image.release();
        }
    }
    if (image.empty()) throw ToolError("not a readable image: " + path);
    if (image.depth() != CV_8U) image.convertTo(image, CV_8U, image.depth() == CV_16U ? 1.0 / 257 : 1.0);
    if (image.channels() == 4) cv::cvtColor(image, image, cv::COLOR_BGRA2BGR);
    if (image.channels() == 2) cv::extractChannel(image, image, 0);
    return image;
}

bool LooksLikeImage(const std::string& path) {
    static const char* const kExtensions[] = {".png", ".bmp", ".dib", ".jpg", ".jpeg", ".jpe", ".tif", ".tiff",
                                              ".pgm", ".ppm", ".pbm", ".pnm", ".webp", ".jp2", ".exr", ".hdr",
                                              ".pic", ".ras", ".sr", ".pxm", ".pfm"};
    const std::string extension = Lower(fs::path(path).extension().string());
    for (const char* known : kExtensions)
        if (extension == known) return true;
    QuietStderr quiet;
    try {
        return cv::haveImageReader(path);
    } catch (const cv::Exception&) {
        return false;
    }
}

size_t OutputPins(const FilterInfo& filter) {
    size_t n = 0;
    for (const PinInfo& p : filter.pins) n += p.name.rfind("OUT_", 0) == 0 ? 1 : 0;
    return n;
}

void RequireClean(size_t errorLines, int outputImages, size_t expectedOutputs, const std::string& what) {
    if (errorLines > 0)
        throw ToolError(what + ": the library reported " + std::to_string(errorLines) +
                        (errorLines == 1 ? " error line" : " error lines") + " (shown above)");
    if (expectedOutputs > 0 && outputImages < 1) throw ToolError(what + " gave no output image");
}

InputImage ParseImageArgument(const std::string& argument) {
    InputImage input;
    input.path = argument;
    size_t colon = argument.rfind(':');
    if (colon != std::string::npos && colon + 1 < argument.size()) {
        std::string suffix = argument.substr(colon + 1);
        bool digits = std::all_of(suffix.begin(), suffix.end(),
                                  [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }) ||
                      (suffix[0] == '-' && suffix.size() > 1 &&
                       std::all_of(suffix.begin() + 1, suffix.end(),
                                   [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }));
        if (digits && suffix.size() < 10) {
            input.id = std::stoi(suffix);
            input.path = argument.substr(0, colon);
        }
    }
    input.image = LoadImage(input.path);
    return input;
}

Execution::Execution(const std::vector<InputImage>& inputs) {
    m_data.reserve(inputs.size());
    for (const InputImage& in : inputs) {
        ImageData d{};
        d.width = in.image.cols;
        d.height = in.image.rows;
        d.channels = static_cast<int8_t>(in.image.channels());
        d.ImageID = in.id;
        d.size = in.image.total() * in.image.elemSize();
        d.data = in.image.data;  // continuous: read or converted just now
        m_data.push_back(d);
    }
    for (ImageData& d : m_data) m_pointers.push_back(&d);
    m_input.count = static_cast<int32_t>(m_pointers.size());
    m_input.images = m_pointers.empty() ? nullptr : m_pointers.data();
}

Execution::~Execution() { ImageParamRelease(&m_output); }

std::wstring Execution::Result() const { return m_output.result ? m_output.result : L""; }

std::vector<std::string> Execution::WriteOutputs(const std::string& dir, const std::string& stem) const {
    std::vector<std::string> written;
    if (m_output.count < 1 || !m_output.images) return written;
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (!fs::is_directory(dir)) {
        throw ToolError("cannot make the output folder " + dir + (ec ? ": " + ec.message() : ""));
    }
    // Every image that can be written is; the first problem is then reported.
    std::string problem;
    for (int i = 0; i < m_output.count; ++i) {
        const ImageData* d = m_output.images[i];
        const std::string name = "output image " + std::to_string(i + 1);
        if (!d || d->width < 1 || d->height < 1 || !d->data) {
            if (problem.empty()) problem = name + " is empty";
            continue;
        }
        if ((d->channels != 1 && d->channels != 3) ||
            d->size != static_cast<uint64_t>(d->width) * d->height * d->channels) {
            if (problem.empty()) problem = name + " has a layout the tool cannot write";
            continue;
        }
        cv::Mat m(d->height, d->width, d->channels == 1 ? CV_8UC1 : CV_8UC3, d->data);
        std::string path = (fs::path(dir) / (stem + "_" + std::to_string(i + 1) + ".png")).string();
        bool ok = false;
        try {
            ok = cv::imwrite(path, m);
        } catch (const cv::Exception&) {
            ok = false;
        }
        if (!ok) throw ToolError("cannot write " + path);
        written.push_back(path);
    }
    if (!problem.empty()) throw ToolError(problem);
    return written;
}

}  // namespace pixmill::tool
