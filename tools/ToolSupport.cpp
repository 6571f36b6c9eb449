#include "ToolSupport.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>

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

std::string DropTrailingCommas(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (inString) {
            out += c;
            if (c == '\\' && i + 1 < text.size()) {
                out += text[++i];
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') inString = true;
        if (c == ',') {
            size_t j = i + 1;
            while (j < text.size() && std::isspace(static_cast<unsigned char>(text[j]))) ++j;
            if (j < text.size() && (text[j] == ']' || text[j] == '}')) continue;
        }
        out += c;
    }
    return out;
}

bool PrettyJson(const std::string& text, std::string& out) {
    rapidjson::Document doc;
    std::string strict = DropTrailingCommas(text);
    if (doc.Parse(strict.c_str()).HasParseError()) return false;
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 2);
    doc.Accept(writer);
    out = buffer.GetString();
    return true;
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
    std::string strict = DropTrailingCommas(DescriptionDocument());
    if (doc.Parse(strict.c_str()).HasParseError() || !doc.IsObject() || !doc.HasMember("filters") ||
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
    if (!fs::is_regular_file(path, ec)) throw ToolError("no such image file: " + path);
    cv::Mat image;
    try {
        image = cv::imread(path, cv::IMREAD_UNCHANGED);
    } catch (const cv::Exception&) {
        image.release();
    }
    if (image.empty()) throw ToolError("not a readable image: " + path);
    if (image.depth() != CV_8U) image.convertTo(image, CV_8U, image.depth() == CV_16U ? 1.0 / 257 : 1.0);
    if (image.channels() == 4) cv::cvtColor(image, image, cv::COLOR_BGRA2BGR);
    if (image.channels() == 2) cv::extractChannel(image, image, 0);
    return image;
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
    for (int i = 0; i < m_output.count; ++i) {
        const ImageData* d = m_output.images[i];
        if (!d || d->width < 1 || d->height < 1 || (d->channels != 1 && d->channels != 3)) continue;
        if (d->size != static_cast<uint64_t>(d->width) * d->height * d->channels) continue;
        cv::Mat m(d->height, d->width, d->channels == 1 ? CV_8UC1 : CV_8UC3, d->data);
        std::string path = (fs::path(dir) / (stem + "_" + std::to_string(i + 1) + ".png")).string();
        if (cv::imwrite(path, m)) written.push_back(path);
    }
    return written;
}

}  // namespace pixmill::tool
