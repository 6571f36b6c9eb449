#include "platform/Profile.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <string_view>
#include <vector>

#include "platform/Platform.h"

namespace pixmill::platform {

namespace {

// Settings files are a few kilobytes; anything past this is not read.
constexpr size_t kMaxProfileBytes = size_t{4} << 20;

std::string_view Trim(std::string_view s) {
    const char* ws = " \t\r\n";
    const size_t b = s.find_first_not_of(ws);
    if (b == std::string_view::npos) return {};
    const size_t e = s.find_last_not_of(ws);
    return s.substr(b, e - b + 1);
}

bool SameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

// One line of the file: where it starts, its text without the line end, and
// where the next line starts.
struct Line {
    size_t begin, end, next;
    std::string_view text;
};

std::vector<Line> SplitLines(const std::string& bytes) {
    std::vector<Line> lines;
    size_t pos = 0;
    while (pos < bytes.size()) {
        size_t nl = bytes.find('\n', pos);
        const size_t next = nl == std::string::npos ? bytes.size() : nl + 1;
        size_t end = nl == std::string::npos ? bytes.size() : nl;
        if (end > pos && bytes[end - 1] == '\r') --end;
        lines.push_back({pos, end, next, std::string_view(bytes).substr(pos, end - pos)});
        pos = next;
    }
    return lines;
}

// The section name of a "[name]" line, or false for any other line.
bool SectionOf(std::string_view line, std::string_view& name) {
    line = Trim(line);
    if (line.size() < 2 || line.front() != '[') return false;
    const size_t close = line.find(']');
    if (close == std::string_view::npos) return false;
    name = Trim(line.substr(1, close - 1));
    return true;
}

// The key and value of a "key=value" line; comments and other lines give
// false.
bool EntryOf(std::string_view line, std::string_view& key, std::string_view& value) {
    const std::string_view t = Trim(line);
    if (t.empty() || t.front() == ';' || t.front() == '[') return false;
    const size_t eq = t.find('=');
    if (eq == std::string_view::npos) return false;
    key = Trim(t.substr(0, eq));
    value = Trim(t.substr(eq + 1));
    return true;
}

// Where a key stands in the file: the line of the key (if any), the line of
// its section header (if any) and the last non-blank line of that section.
struct Place {
    const Line* section = nullptr;
    const Line* lastInSection = nullptr;
    const Line* entry = nullptr;
    std::string_view value;
};

Place Find(const std::vector<Line>& lines, std::string_view section, std::string_view key) {
    Place place;
    bool inside = false;
    for (const Line& line : lines) {
        std::string_view name;
        if (SectionOf(line.text, name)) {
            if (place.section) break;  // the first matching section only
            inside = SameName(name, section);
            if (inside) place.section = place.lastInSection = &line;
            continue;
        }
        if (!inside) continue;
        if (!Trim(line.text).empty()) place.lastInSection = &line;
        std::string_view k, v;
        if (!place.entry && EntryOf(line.text, k, v) && SameName(k, key)) {
            place.entry = &line;
            place.value = v;
        }
    }
    return place;
}

bool ReadProfile(const std::wstring& file, std::string& bytes) {
    uint64_t size = 0;
    return ReadFilePrefix(NativePath(file), kMaxProfileBytes, bytes, size);
}

}  // namespace

std::wstring ProfileString(const std::wstring& file, const std::wstring& section,
                           const std::wstring& key, const std::wstring& defaultValue) {
    std::string bytes;
    if (!ReadProfile(file, bytes)) return defaultValue;
    const std::vector<Line> lines = SplitLines(bytes);
    const Place place = Find(lines, ToUtf8(section), ToUtf8(key));
    if (!place.entry) return defaultValue;
    return FromUtf8(std::string(place.value));
}

int ProfileInt(const std::wstring& file, const std::wstring& section, const std::wstring& key,
               int defaultValue) {
    const std::string value = ToUtf8(ProfileString(file, section, key, L""));
    size_t i = 0;
    bool negative = false;
    if (i < value.size() && (value[i] == '+' || value[i] == '-')) negative = value[i++] == '-';
    if (i >= value.size() || value[i] < '0' || value[i] > '9') return defaultValue;
    long long n = 0;
    for (; i < value.size() && value[i] >= '0' && value[i] <= '9'; ++i) {
        n = n * 10 + (value[i] - '0');
        if (n > static_cast<long long>(INT_MAX) + 1) n = static_cast<long long>(INT_MAX) + 1;
    }
    if (negative) n = -n;
    if (n > INT_MAX) return INT_MAX;
    if (n < INT_MIN) return INT_MIN;
    return static_cast<int>(n);
}

bool WriteProfileString(const std::wstring& file, const std::wstring& section,
                        const std::wstring& key, const std::wstring& value) {
    const std::string native = NativePath(file);
    std::string bytes;
    ReadProfile(file, bytes);  // absent: an empty file is created
    const std::string s = ToUtf8(section), k = ToUtf8(key), v = ToUtf8(value);
    // New lines follow the file's own line ends; a new file gets CR LF, as
    // the prober's own tools write them.
    const std::string eol = (bytes.empty() || bytes.find("\r\n") != std::string::npos) ? "\r\n" : "\n";

    const std::vector<Line> lines = SplitLines(bytes);
    const Place place = Find(lines, s, k);
    std::string out;
    if (place.entry) {
        // Keep the key as the file spells it and anything before it.
        const std::string_view line = place.entry->text;
        const size_t eq = line.find('=');
        out = bytes.substr(0, place.entry->begin) + std::string(line.substr(0, eq + 1)) + v +
              bytes.substr(place.entry->end);
    } else if (place.section) {
        const Line* after = place.lastInSection;
        std::string head = bytes.substr(0, after->next);
        if (after->next == after->end) head += eol;  // the last line had no line end
        out = head + k + "=" + v + eol + bytes.substr(after->next);
    } else {
        out = bytes;
        if (!out.empty() && out.back() != '\n') out += eol;
        out += "[" + s + "]" + eol + k + "=" + v + eol;
    }

    CreateParentDirectories(native);
    static std::atomic<unsigned> writes{0};
    const std::string temp = native + ".pixmill-" + std::to_string(ProcessId()) + "-" +
                             std::to_string(writes.fetch_add(1));
    if (!WriteWholeFile(temp, out)) {
        RemoveFile(temp);
        return false;
    }
    if (std::rename(temp.c_str(), native.c_str()) != 0) {
        RemoveFile(temp);
        return false;
    }
    return true;
}

}  // namespace pixmill::platform
