#include "framework/Filter.h"

#include <cstdarg>
#include <cstdio>
#include <exception>

#include "logging/Logger.h"
#include "platform/Platform.h"

using pixmill::JsonValue;
using pixmill::logging::LogA;
using pixmill::logging::LogW;

CFilter::~CFilter() {
    ReleaseAll();
}

CPin* CFilter::AddPin(const wchar_t* name, int key, bool output, bool gray) {
    auto* pin = new CPin(this, name, key, output, gray);
    m_pins.push_back(pin);
    return pin;
}

int CFilter::Init(const JsonValue& json) {
    bool found = false;
    std::wstring text = pixmill::StringMember(json, L"Name", &found);
    if (found) {
        m_name = text;
        LogW(1, L"%ls", m_name.c_str());
    }
    text = pixmill::StringMember(json, L"Key", &found);
    if (found) m_key = text;
    // Only the JSON literal true counts; the string "true" does not.
    if (const JsonValue* v = pixmill::FindMember(json, L"Enable")) m_enable = v->IsTrue();
    if (const JsonValue* v = pixmill::FindMember(json, L"IsEndPoint")) m_endPoint = v->IsTrue();
    if (const JsonValue* params = pixmill::FindMember(json, L"Params")) {
        if (params->IsArray()) {
            for (const JsonValue& entry : params->GetArray()) {
                // Every entry counts as a change, known key or not.
                m_paramChanged = true;
                std::wstring key = pixmill::StringMember(entry, L"Key");
                std::wstring value = pixmill::StringMember(entry, L"Value");
                LogW(1, L"<param key=\"%ls\" value=\"%ls\"/>", key.c_str(), value.c_str());
                try {
                    pixmill::SetParamFromText(m_params, key, value);
                } catch (const std::exception& e) {
                    // The text is not a number of the parameter's type. The
                    // exception goes on to the caller (the export refuses the
                    // recipe); this line says which filter and value it was.
                    LogW(4,
                         L"<ERROR func=\"CFilter::Init\" Name=\"%ls\" Key=\"%ls\" Type=\"%ls\" "
                         L"param=\"%ls\" value=\"%ls\" result=\"%s\"/>",
                         m_name.c_str(), m_key.c_str(), m_type.c_str(), key.c_str(), value.c_str(),
                         e.what());
                    throw;
                }
            }
        }
    }
    return 1;
}

std::vector<IPin*> CFilter::GetOutputPins() {
    std::vector<IPin*> out;
    for (IPin* pin : m_pins)
        if (pin->IsOutput()) out.push_back(pin);
    return out;
}

IPin* CFilter::GetPin(int key) {
    for (IPin* pin : m_pins)
        if (pin->GetKey() == key) return pin;
    return nullptr;
}

void CFilter::SetMasterImage(const std::vector<MasterImage>& images) {
    m_masterImageChanged = true;
    if (&images != &m_masterImages) m_masterImages = images;
}

void CFilter::Process() {
    m_processed = true;

    bool changed = false;
    for (IPin* pin : m_pins) {
        if (pin->IsOutput()) continue;
        int version = pin->GetVersion();
        int& seen = m_pinVersions[pin];  // a new entry starts at 0
        if (seen != version) changed = true;
        seen = version;
    }

    LogW(1, L"<Process filter=\"%ls\">", m_name.c_str());
    if (!changed && !m_paramChanged && !m_masterImageChanged) {
        LogW(1, L"<Skip/>");
        LogW(1, L"</Process>");
        return;
    }
    LogW(1, L"<Triggers>");
    if (changed) LogW(1, L"<Trigger key=\"Prev Image Changed\"/>");
    if (m_paramChanged) LogW(1, L"<Trigger key=\"Param Changed\"/>");
    if (m_masterImageChanged) LogW(1, L"<Trigger key=\"Master Image Changed\"/>");
    LogW(1, L"</Triggers>");

    // Cleared before the work, so a pull that comes back here through a
    // cycle of links skips instead of recursing.
    m_paramChanged = false;
    m_masterImageChanged = false;

    try {
        Proc(m_pins, m_params);
    } catch (const std::exception& e) {
        // A failing filter keeps its outputs as they were; the recipe goes on.
        const char* what = e.what();
        LogW(4, L"<Exception>");
        LogA(4, "%s", (what && *what) ? what : "Unknown exception");
        LogW(4, L"</Exception>");
    }
    LogW(1, L"</Process>");
}

void CFilter::ReleaseAll() {
    for (IPin* pin : m_pins) {
        if (auto* concrete = dynamic_cast<CPin*>(pin)) {
            delete concrete;
        } else {
            delete pin;
        }
    }
    m_pins.clear();
    for (IParam* param : m_params) delete param;
    m_params.clear();
    m_pinVersions.clear();
}

void CFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> /*params*/) {
    // Headers that share the pixels keep them alive while the outputs are
    // replaced one after the other, also when an input is linked to one of
    // this filter's own outputs. No pixels are copied here: the outputs
    // share what the inputs read.
    std::vector<cv::Mat> held;
    for (IPin* pin : pins) {
        if (pin->IsOutput()) continue;
        for (cv::Mat& m : pin->ReadImages()) held.push_back(std::move(m));
    }
    for (IPin* pin : pins)
        if (pin->IsOutput()) pin->SetImages(held);
}

void CFilter::SetResult(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring text;
    if (pixmill::platform::FormatWide(format, args, text)) m_result = std::move(text);
    va_end(args);
}

void CFilter::Trace() {
    std::fputs("Filter", stdout);
}
