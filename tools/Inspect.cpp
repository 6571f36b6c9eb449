// `pixmill inspect`: calls any flat export by name.
//
// The export description document tells each argument's C type and role;
// the call itself goes through libffi, so one code path serves every
// signature and every returned record. Roles decide where a value comes
// from: numbers, flags, paths and texts from the command line, pixel blocks
// from image files (their width, height and size follow), output buffers
// allocated here (pixel outputs are written as PNG files), image buffer
// handles made from a list of image files.
#include "Inspect.h"

#include <dlfcn.h>
#include <ffi.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>

#include "ToolSupport.h"
#include "pixmill/pixmill_ext.h"

namespace fs = std::filesystem;

namespace pixmill::tool {
namespace {

// A bad command line: reported as one line with exit code 2.
struct ArgumentError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct ArgEntry {
    std::string name, type, role, of, meaning;
};
struct FieldEntry {
    std::string name, type;
};
struct ExportEntry {
    std::string name, summary, returnType, failure;
    std::vector<ArgEntry> args;
    std::vector<FieldEntry> fields;
};

// Capacity of an output buffer whose size the caller does not know before
// the call (an image read from a file, a document).
constexpr size_t kDefaultPixelCapacity = size_t{16} << 20;
constexpr size_t kDefaultTextBytes = size_t{4} << 20;
// Entries of an int array the export fills, unless the command line gives its count.
constexpr size_t kDefaultIntEntries = 256;
// Largest output buffer a command line may ask for.
constexpr int kMaxCapacity = 256 << 20;

std::vector<ExportEntry> LoadExports() {
    const int bytes = PixmillDescribeExports(nullptr, 0);
    if (bytes <= 0) throw ToolError("the library gave no export description");
    std::wstring text(static_cast<size_t>(bytes) / sizeof(wchar_t), L'\0');
    PixmillDescribeExports(text.data(), bytes);
    rapidjson::Document doc;
    if (doc.Parse(Narrow(text).c_str()).HasParseError() || !doc.IsObject() || !doc.HasMember("exports"))
        throw ToolError("the export description does not parse");
    std::vector<ExportEntry> out;
    for (const auto& e : doc["exports"].GetArray()) {
        ExportEntry entry;
        entry.name = e["name"].GetString();
        entry.summary = e["summary"].GetString();
        entry.returnType = e["returns"]["type"].GetString();
        entry.failure = e["failure"].GetString();
        for (const auto& a : e["args"].GetArray())
            entry.args.push_back({a["name"].GetString(), a["type"].GetString(), a["role"].GetString(),
                                 a.HasMember("of") ? a["of"].GetString() : "", a["meaning"].GetString()});
        if (e["returns"].HasMember("fields"))
            for (const auto& f : e["returns"]["fields"].GetArray())
                entry.fields.push_back({f["name"].GetString(), f["type"].GetString()});
        out.push_back(std::move(entry));
    }
    return out;
}

bool IsPointer(const std::string& type) {
    return type.find('*') != std::string::npos || type == "PixmillTraceSink";
}

ffi_type* ScalarType(const std::string& type) {
    if (IsPointer(type)) return &ffi_type_pointer;
    if (type == "int" || type == "int32_t") return &ffi_type_sint32;
    if (type == "double") return &ffi_type_double;
    if (type == "float") return &ffi_type_float;
    if (type == "int8_t") return &ffi_type_sint8;
    if (type == "bool") return &ffi_type_uint8;
    if (type == "uint64_t") return &ffi_type_uint64;
    if (type == "void") return &ffi_type_void;
    throw ToolError("the tool cannot pass the C type '" + type + "'");
}

// Roles the user supplies, and roles the tool cannot supply at all.
bool UserSupplied(const std::string& role) {
    return role == "number" || role == "flag" || role == "path" || role == "text" || role == "pixels" ||
           role == "handle";
}
bool Unsupported(const std::string& role) {
    return role == "record_in" || role == "record_out" || role == "callback" || role == "user";
}

std::string WhyNotCallable(const ExportEntry& e) {
    for (const ArgEntry& a : e.args)
        if (Unsupported(a.role))
            return e.name + " takes " + a.type + " " + a.name + ", which the tool cannot supply";
    return "";
}

void ListExports(const std::vector<ExportEntry>& exports) {
    for (const ExportEntry& e : exports) {
        std::cout << e.name << "  -> " << e.returnType << "\n    " << e.summary << "\n";
        const std::string why = WhyNotCallable(e);
        if (!why.empty()) std::cout << "    (not callable here: " << why << ")\n";
        for (const ArgEntry& a : e.args) {
            if (!UserSupplied(a.role)) continue;
            std::string value = a.role == "pixels" ? "IMAGE" : a.role == "handle" ? "IMAGE[:ID],..." : a.type;
            if (a.role == "flag") value = "[0|1]";
            std::cout << "    --" << a.name << " " << value << "  " << a.meaning << "\n";
        }
        if (!e.failure.empty()) std::cout << "    fails with: " << e.failure << "\n";
    }
    std::cout << exports.size() << " exports\n";
}

long long ParseInteger(const std::string& name, const std::string& text) {
    long long v = 0;
    const char* end = text.data() + text.size();
    auto [p, ec] = std::from_chars(text.data(), end, v);
    if (ec != std::errc() || p != end || v < INT_MIN || v > INT_MAX)
        throw ArgumentError("--" + name + " wants a whole number, got '" + text + "'");
    return v;
}

double ParseReal(const std::string& name, const std::string& text) {
    double v = 0;
    const char* end = text.data() + text.size();
    auto [p, ec] = std::from_chars(text.data(), end, v);
    if (ec != std::errc() || p != end || !std::isfinite(v))
        throw ArgumentError("--" + name + " wants a number, got '" + text + "'");
    return v;
}

int ParseFlag(const std::string& name, const std::string& text) {
    if (text == "1" || text == "true" || text == "yes" || text == "on") return 1;
    if (text == "0" || text == "false" || text == "no" || text == "off") return 0;
    throw ArgumentError("--" + name + " wants 0 or 1, got '" + text + "'");
}

// "--name value", "--name=value"; a flag may stand alone.
std::map<std::string, std::string> ParseArguments(const ExportEntry& e, const std::vector<std::string>& words) {
    std::map<std::string, const ArgEntry*> known;
    for (const ArgEntry& a : e.args) known[a.name] = &a;
    std::map<std::string, std::string> values;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& w = words[i];
        if (w.rfind("--", 0) != 0 || w.size() < 3)
            throw ArgumentError("unexpected '" + w + "': arguments are --NAME VALUE");
        std::string name = w.substr(2), value;
        const size_t eq = name.find('=');
        const bool inlineValue = eq != std::string::npos;
        if (inlineValue) {
            value = name.substr(eq + 1);
            name = name.substr(0, eq);
        }
        auto it = known.find(name);
        if (it == known.end()) throw ArgumentError(e.name + " has no argument --" + name);
        if (values.count(name)) throw ArgumentError("--" + name + " given twice");
        if (!inlineValue) {
            const bool next = i + 1 < words.size();
            const bool nextIsValue = next && (words[i + 1].rfind("--", 0) != 0);
            if (it->second->role == "flag" && !nextIsValue) {
                value = "1";
            } else if (!next) {
                throw ArgumentError("--" + name + " wants a value");
            } else {
                value = words[++i];
            }
        }
        values[name] = value;
    }
    return values;
}

// One argument's storage: libffi reads the value through `slot`.
union Slot {
    int32_t i;
    float f;
    double d;
    void* p;
};

struct Image {
    cv::Mat mat;  // continuous
};

// Files under `dir` with their size and modification time.
using Snapshot = std::map<std::string, std::pair<uintmax_t, fs::file_time_type>>;

void Scan(const fs::path& dir, bool recursive, Snapshot& into) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return;
    auto add = [&](const fs::directory_entry& e) {
        std::error_code fe;
        if (e.is_regular_file(fe)) into[e.path().lexically_normal().string()] = {e.file_size(fe), e.last_write_time(fe)};
    };
    size_t seen = 0;
    if (recursive) {
        for (auto it = fs::recursive_directory_iterator(dir, fs::directory_options::skip_permission_denied, ec);
             !ec && it != fs::recursive_directory_iterator() && seen < 200000; it.increment(ec), ++seen)
            add(*it);
    } else {
        for (auto it = fs::directory_iterator(dir, ec); !ec && it != fs::directory_iterator(); it.increment(ec))
            add(*it);
    }
}

fs::path Root() {
    const char* root = std::getenv("PIXMILL_ROOT");
    return root && *root ? fs::path(root) : fs::path("/var/lib/pixmill");
}

// The folders a call may write to: the root, and around each path argument.
Snapshot TakeSnapshot(const std::vector<std::string>& paths) {
    Snapshot s;
    Scan(Root(), true, s);
    for (const std::string& p : paths) {
        if (p.size() > 1 && p[1] == ':') continue;  // a prober path, under the root
        const fs::path path = fs::absolute(p);
        Scan(path, true, s);
        Scan(path.parent_path(), false, s);
    }
    return s;
}

void WriteScalar(rapidjson::Writer<rapidjson::StringBuffer>& w, const std::string& type, const void* at) {
    if (type == "int" || type == "int32_t") {
        int32_t v;
        std::memcpy(&v, at, sizeof v);
        w.Int(v);
    } else if (type == "int8_t") {
        w.Int(*static_cast<const int8_t*>(at));
    } else if (type == "uint64_t") {
        uint64_t v;
        std::memcpy(&v, at, sizeof v);
        w.Uint64(v);
    } else if (type == "double" || type == "float") {
        double v;
        if (type == "float") {
            float f;
            std::memcpy(&f, at, sizeof f);
            v = f;
        } else {
            std::memcpy(&v, at, sizeof v);
        }
        if (std::isfinite(v)) w.Double(v); else w.Null();
    } else if (type == "const char*") {
        const char* text;
        std::memcpy(&text, at, sizeof text);
        if (text) w.String(text); else w.Null();
    } else {
        void* p;
        std::memcpy(&p, at, sizeof p);
        w.Uint64(reinterpret_cast<uintptr_t>(p));
    }
}

class Call {
public:
    Call(const ExportEntry& e, std::map<std::string, std::string> values, std::string outDir)
        : m_e(e), m_values(std::move(values)), m_outDir(std::move(outDir)) {}
    ~Call() {
        for (void* h : m_handles) ImageBufferRelease(h);
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    void Prepare();
    std::string Invoke(std::vector<std::string>& wrote);
    std::vector<std::string> PathArguments() const {
        std::vector<std::string> out;
        for (const ArgEntry& a : m_e.args)
            if (a.role == "path" && m_values.count(a.name)) out.push_back(m_values.at(a.name));
        return out;
    }

private:
    size_t Index(const std::string& name) const {
        for (size_t i = 0; i < m_e.args.size(); ++i)
            if (m_e.args[i].name == name) return i;
        throw ToolError("the export description names no argument '" + name + "'");
    }
    const ArgEntry* SizerOf(const std::string& buffer, const std::string& role) const {
        for (const ArgEntry& a : m_e.args)
            if (a.role == role && a.of == buffer) return &a;
        return nullptr;
    }
    int UserInt(const ArgEntry& a) const { return static_cast<int>(ParseInteger(a.name, m_values.at(a.name))); }
    // A capacity the command line gives for an output buffer.
    size_t UserCapacity(const ArgEntry& a, size_t unit) const {
        const int v = UserInt(a);
        if (v > kMaxCapacity / static_cast<int>(unit))
            throw ArgumentError("--" + a.name + " asks for more than " + std::to_string(kMaxCapacity >> 20) + " MiB");
        return v > 0 ? static_cast<size_t>(v) * unit : 0;
    }

    const ExportEntry& m_e;
    std::map<std::string, std::string> m_values;
    std::string m_outDir;
    std::vector<Slot> m_slots;
    std::map<std::string, cv::Mat> m_images;              // pixels arguments
    std::map<std::string, std::vector<uint8_t>> m_bytes;  // output pixel buffers
    std::map<std::string, std::vector<wchar_t>> m_texts;  // wide texts in and out
    std::map<std::string, std::string> m_narrow;          // UTF-8 texts and paths
    std::map<std::string, int32_t> m_outInts;             // width_out, height_out
    std::map<std::string, std::vector<int32_t>> m_intArrays;  // ints_out
    std::vector<void*> m_handles;
};

void Call::Prepare() {
    m_slots.assign(m_e.args.size(), Slot{});
    // Values from the command line first: derived sizes need the images.
    for (size_t i = 0; i < m_e.args.size(); ++i) {
        const ArgEntry& a = m_e.args[i];
        Slot& s = m_slots[i];
        const bool given = m_values.count(a.name) != 0;
        if (a.role == "number") {
            if (!given) throw ArgumentError(m_e.name + " needs --" + a.name + " (" + a.type + ": " + a.meaning + ")");
            if (a.type == "double") s.d = ParseReal(a.name, m_values[a.name]);
            else if (a.type == "float") s.f = static_cast<float>(ParseReal(a.name, m_values[a.name]));
            else s.i = static_cast<int32_t>(ParseInteger(a.name, m_values[a.name]));
        } else if (a.role == "flag") {
            s.i = given ? ParseFlag(a.name, m_values[a.name]) : 0;
        } else if (a.role == "path" || a.role == "text") {
            if (!given) throw ArgumentError(m_e.name + " needs --" + a.name + " (" + a.type + ": " + a.meaning + ")");
            if (a.type.find("wchar_t") != std::string::npos) {
                std::wstring w = Widen(m_values[a.name]);
                m_texts[a.name].assign(w.begin(), w.end());
                m_texts[a.name].push_back(L'\0');
                s.p = m_texts[a.name].data();
            } else {
                m_narrow[a.name] = m_values[a.name];
                s.p = m_narrow[a.name].data();
            }
        } else if (a.role == "pixels") {
            // Not given: NULL and no pixels, which each export answers as
            // its description says.
            if (!given) continue;
            cv::Mat image;
            try {
                image = LoadImage(m_values[a.name]);
            } catch (const ToolError& error) {
                throw ArgumentError("--" + a.name + ": " + error.what());
            }
            if (!SizerOf(a.name, "size") && image.channels() != 1) cv::cvtColor(image, image, cv::COLOR_BGR2GRAY);
            m_images[a.name] = image.isContinuous() ? image : image.clone();
            s.p = m_images[a.name].data;
        } else if (a.role == "handle") {
            if (!given) throw ArgumentError(m_e.name + " needs --" + a.name + " IMAGE[:ID],...");
            void* h = ImageBufferCreate();
            if (!h) throw ToolError("could not make an image buffer");
            m_handles.push_back(h);
            std::string list = m_values[a.name];
            for (size_t start = 0; start <= list.size();) {
                size_t comma = list.find(',', start);
                if (comma == std::string::npos) comma = list.size();
                const std::string item = list.substr(start, comma - start);
                start = comma + 1;
                if (item.empty()) continue;
                InputImage in;
                try {
                    in = ParseImageArgument(item);
                } catch (const ToolError& error) {
                    throw ArgumentError("--" + a.name + ": " + error.what());
                }
                const cv::Mat& m = in.image.isContinuous() ? in.image : in.image.clone();
                ImageBufferAdd(h, in.id, m.data, static_cast<int>(m.total() * m.elemSize()), m.cols, m.rows);
            }
            s.p = h;
        } else if (Unsupported(a.role)) {
            throw ArgumentError(WhyNotCallable(m_e));
        }
    }
    // Output buffers, then the sizes that go with them and with the images.
    for (size_t i = 0; i < m_e.args.size(); ++i) {
        const ArgEntry& a = m_e.args[i];
        if (a.role == "pixels_out") {
            size_t capacity = kDefaultPixelCapacity;
            if (!a.of.empty()) {
                auto it = m_images.find(a.of);
                capacity = it == m_images.end() ? 0 : it->second.total();
            } else if (const ArgEntry* size = SizerOf(a.name, "size"); size && m_values.count(size->name)) {
                capacity = UserCapacity(*size, 1);
            }
            m_bytes[a.name].assign(capacity, 0);
            m_slots[i].p = capacity ? m_bytes[a.name].data() : nullptr;
        } else if (a.role == "text_out") {
            size_t bytes = kDefaultTextBytes;
            if (const ArgEntry* size = SizerOf(a.name, "size"); size && m_values.count(size->name))
                bytes = UserCapacity(*size, 1);
            if (const ArgEntry* chars = SizerOf(a.name, "chars"); chars && m_values.count(chars->name))
                bytes = UserCapacity(*chars, sizeof(wchar_t));
            m_texts[a.name].assign(bytes / sizeof(wchar_t) + 1, L'\0');
            m_slots[i].p = m_texts[a.name].data();
        } else if (a.role == "width_out" || a.role == "height_out") {
            m_outInts[a.name] = 0;
            m_slots[i].p = &m_outInts[a.name];
        } else if (a.role == "ints_out") {
            size_t entries = kDefaultIntEntries;
            if (const ArgEntry* count = SizerOf(a.name, "count"); count && m_values.count(count->name))
                entries = UserCapacity(*count, sizeof(int32_t)) / sizeof(int32_t);
            m_intArrays[a.name].assign(entries, 0);
            m_slots[i].p = entries ? m_intArrays[a.name].data() : nullptr;
        }
    }
    for (size_t i = 0; i < m_e.args.size(); ++i) {
        const ArgEntry& a = m_e.args[i];
        if (a.role != "width" && a.role != "height" && a.role != "size" && a.role != "chars" && a.role != "count")
            continue;
        if (m_values.count(a.name)) {  // the caller's own value wins
            m_slots[i].i = UserInt(a);
            continue;
        }
        int32_t v = 0;
        if (auto img = m_images.find(a.of); img != m_images.end()) {
            const cv::Mat& m = img->second;
            v = a.role == "width" ? m.cols : a.role == "height" ? m.rows : static_cast<int32_t>(m.total() * m.elemSize());
        } else if (auto out = m_bytes.find(a.of); out != m_bytes.end()) {
            v = static_cast<int32_t>(std::min<size_t>(out->second.size(), INT_MAX));
        } else if (auto ints = m_intArrays.find(a.of); ints != m_intArrays.end()) {
            v = static_cast<int32_t>(std::min<size_t>(ints->second.size(), INT_MAX));
        } else if (auto text = m_texts.find(a.of); text != m_texts.end()) {
            const size_t chars = text->second.size() - 1;  // the last one stays a terminator
            v = static_cast<int32_t>(std::min<size_t>(a.role == "chars" ? chars : chars * sizeof(wchar_t), INT_MAX));
        }
        m_slots[i].i = v;
    }
    // Sizes given by hand must stay within the images, which the export
    // reads (and, for outputs shaped like them, writes) that far.
    for (const auto& [name, image] : m_images) {
        long long width = 0, height = 0, size = 0;
        for (size_t i = 0; i < m_e.args.size(); ++i) {
            if (m_e.args[i].of != name) continue;
            const std::string& role = m_e.args[i].role;
            if (role == "width") width = m_slots[i].i;
            if (role == "height") height = m_slots[i].i;
            if (role == "size") size = m_slots[i].i;
        }
        const long long bytes = static_cast<long long>(image.total() * image.elemSize());
        if ((width > 0 && height > 0 && width * height > bytes) || size > bytes)
            throw ArgumentError("the sizes given for --" + name + " exceed its " + std::to_string(bytes) + " bytes");
    }
}

std::string Call::Invoke(std::vector<std::string>& wrote) {
    void* function = ::dlsym(RTLD_DEFAULT, m_e.name.c_str());
    if (!function) throw ToolError("the library does not export " + m_e.name);

    std::vector<ffi_type*> argTypes;
    std::vector<void*> argValues;
    for (size_t i = 0; i < m_e.args.size(); ++i) {
        argTypes.push_back(ScalarType(m_e.args[i].type));
        argValues.push_back(&m_slots[i]);
    }
    // A returned record is described to libffi field by field.
    std::vector<ffi_type*> elements;
    ffi_type record{};
    ffi_type* returnType;
    if (!m_e.fields.empty()) {
        for (const FieldEntry& f : m_e.fields) elements.push_back(ScalarType(f.type));
        elements.push_back(nullptr);
        record.type = FFI_TYPE_STRUCT;
        record.elements = elements.data();
        returnType = &record;
    } else {
        returnType = ScalarType(m_e.returnType);
    }
    ffi_cif cif;
    if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(argTypes.size()), returnType, argTypes.data()) != FFI_OK)
        throw ToolError("libffi cannot describe " + m_e.name);
    std::vector<size_t> offsets(m_e.fields.size());
    if (!m_e.fields.empty() && ffi_get_struct_offsets(FFI_DEFAULT_ABI, &record, offsets.data()) != FFI_OK)
        throw ToolError("libffi cannot lay out " + m_e.returnType);
    // libffi widens small integer returns to a full register.
    std::vector<unsigned char> result(std::max<size_t>(returnType->size, sizeof(ffi_arg)) + 16, 0);
    ffi_call(&cif, FFI_FN(function), result.data(), argValues.data());

    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
    w.StartObject();
    if (!m_e.fields.empty()) {
        for (size_t i = 0; i < m_e.fields.size(); ++i) {
            w.Key(m_e.fields[i].name.c_str());
            WriteScalar(w, m_e.fields[i].type, result.data() + offsets[i]);
        }
    } else if (m_e.returnType != "void") {
        w.Key("result");
        if (m_e.returnType == "int" || m_e.returnType == "int32_t") {
            ffi_sarg v;
            std::memcpy(&v, result.data(), sizeof v);
            w.Int(static_cast<int>(v));
        } else {
            WriteScalar(w, m_e.returnType, result.data());
        }
    }
    for (const ArgEntry& a : m_e.args) {
        if (a.role == "width_out" || a.role == "height_out") {
            w.Key(a.name.c_str());
            w.Int(m_outInts[a.name]);
        } else if (a.role == "text_out") {
            const std::vector<wchar_t>& t = m_texts[a.name];
            w.Key(a.name.c_str());
            w.String(Narrow(std::wstring(t.data())).c_str());
        } else if (a.role == "ints_out") {
            w.Key(a.name.c_str());
            w.StartArray();
            for (int32_t v : m_intArrays[a.name]) w.Int(v);
            w.EndArray();
        }
    }
    w.EndObject();

    // Output pixels become PNG files, sized as their source image or as the
    // dimensions the export reported.
    for (const ArgEntry& a : m_e.args) {
        if (a.role != "pixels_out" || m_bytes[a.name].empty()) continue;
        int width = 0, height = 0;
        if (auto img = m_images.find(a.of); img != m_images.end()) {
            width = img->second.cols;
            height = img->second.rows;
        } else {
            const ArgEntry* wo = SizerOf(a.name, "width_out");
            const ArgEntry* ho = SizerOf(a.name, "height_out");
            if (wo && ho) width = m_outInts[wo->name], height = m_outInts[ho->name];
        }
        const std::vector<uint8_t>& bytes = m_bytes[a.name];
        if (width <= 0 || height <= 0 || static_cast<size_t>(width) * height > bytes.size()) continue;
        std::error_code ec;
        fs::create_directories(m_outDir, ec);
        const std::string path = (fs::path(m_outDir) / (m_e.name + "_" + a.name + ".png")).string();
        cv::Mat image(height, width, CV_8UC1, const_cast<uint8_t*>(bytes.data()));
        if (!cv::imwrite(path, image)) throw ToolError("cannot write " + path);
        wrote.push_back(path);
    }
    return std::string(buffer.GetString(), buffer.GetSize());
}

const ExportEntry& FindExport(const std::string& name, const std::vector<ExportEntry>& all) {
    for (const ExportEntry& e : all)
        if (e.name == name) return e;
    throw ArgumentError("unknown export '" + name + "' (pixmill inspect lists them)");
}

}  // namespace

CLI::App* AddInspectCommand(CLI::App& app, InspectOptions& options) {
    auto* inspect = app.add_subcommand(
        "inspect", "List the library's flat exports, or call one: pixmill inspect NAME --ARG VALUE ...");
    inspect->add_option("NAME", options.name, "Export to call; without it every export is listed");
    inspect->add_option("--out", options.outDir, "Folder for output images")->capture_default_str();
    inspect->allow_extras();
    inspect->positionals_at_end(false);
    return inspect;
}

int RunInspect(const CLI::App& command, const InspectOptions& options) {
    try {
        const std::vector<ExportEntry> exports = LoadExports();
        if (options.name.empty()) {
            if (!command.remaining().empty())
                throw ArgumentError("arguments without an export name: '" + command.remaining().front() + "'");
            ListExports(exports);
            return 0;
        }
        const ExportEntry& e = FindExport(options.name, exports);
        const std::string why = WhyNotCallable(e);
        if (!why.empty()) throw ArgumentError(why);
        Call call(e, ParseArguments(e, command.remaining()), options.outDir);
        call.Prepare();
        const Snapshot before = TakeSnapshot(call.PathArguments());
        std::vector<std::string> wrote;
        const std::string record = call.Invoke(wrote);
        const Snapshot after = TakeSnapshot(call.PathArguments());
        std::cout << record << "\n";
        for (const auto& [path, stamp] : after) {
            auto it = before.find(path);
            if (it == before.end() || it->second != stamp) std::cout << "wrote " << path << "\n";
        }
        for (const std::string& path : wrote) std::cout << "wrote " << path << "\n";
        const std::string last = PixmillLastError();
        if (!last.empty()) std::cerr << "pixmill: " << e.name << ": " << last << "\n";
        return 0;
    } catch (const ArgumentError& e) {
        std::cerr << "pixmill: " << e.what() << "\n";
        return 2;
    } catch (const ToolError& e) {
        std::cerr << "pixmill: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace pixmill::tool
