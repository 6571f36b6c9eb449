// The filter base: every processing node of a recipe derives from CFilter.
//
// A filter class adds a constructor that declares its pins and parameters,
// and a Proc that does the work. CFilter owns the pins and parameters, reads
// the node's JSON object, and decides on each pull whether the work has to be
// done at all: a filter that feeds two consumers runs once per change.
#pragma once

#include <cstdint>
#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "framework/Json.h"
#include "framework/Param.h"
#include "framework/Pin.h"

// An input image and the ID that routes it to its consumer. The Mat is not
// owned by the entry.
struct MasterImage {
    cv::Mat* image = nullptr;
    int32_t ImageID = 0;
};

// Root of what the filter registry hands out.
class IBaseObject {
public:
    // Writes the object's class tag to the log.
    virtual void Trace() = 0;
    virtual ~IBaseObject() = default;
};

class IFilter {
public:
    // Reads the node's JSON object; members that are absent leave their
    // fields as they were, so the same call applies a partial override.
    virtual int Init(const pixmill::JsonValue& json) = 0;
    virtual const wchar_t* GetKey() = 0;
    virtual const wchar_t* GetName() = 0;
    virtual void Process() = 0;
    virtual const wchar_t* GetResult() = 0;
    virtual bool IsEndPoint() = 0;
    virtual std::vector<IPin*> GetOutputPins() = 0;
    virtual IPin* GetPin(int key) = 0;
    virtual std::vector<IPin*> GetPins() = 0;
    virtual std::vector<IParam*> GetParams() = 0;
    virtual bool IsProcessed() = 0;
    virtual void SetMasterImage(const std::vector<MasterImage>& images) = 0;
    virtual ~IFilter() = default;
    virtual void ReleaseAll() = 0;
    // The work. Both lists arrive as copies; the objects in them stay owned
    // by the filter.
    virtual void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) = 0;
};

class CFilter : public IFilter, public IBaseObject {
public:
    CFilter() = default;
    ~CFilter() override;

    CFilter(const CFilter&) = delete;
    CFilter& operator=(const CFilter&) = delete;

    int Init(const pixmill::JsonValue& json) override;
    const wchar_t* GetKey() override { return m_key.c_str(); }
    const wchar_t* GetName() override { return m_name.c_str(); }
    void Process() override;
    const wchar_t* GetResult() override { return m_result.c_str(); }
    bool IsEndPoint() override { return m_endPoint; }
    std::vector<IPin*> GetOutputPins() override;
    IPin* GetPin(int key) override;
    std::vector<IPin*> GetPins() override { return m_pins; }
    std::vector<IParam*> GetParams() override { return m_params; }
    bool IsProcessed() override { return m_processed; }
    void SetMasterImage(const std::vector<MasterImage>& images) override;
    void ReleaseAll() override;
    // Pass-through: the images of all input pins, in pin order, go to every
    // output pin.
    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override;
    // Writes "Filter" to standard output; concrete filters log their tag.
    void Trace() override;

    // Stored from "Enable"; nothing reads it.
    bool IsEnabled() const { return m_enable; }

    // The registered name the filter was created under ("ThresholdFilter"),
    // or "" for a filter made directly.
    const std::wstring& TypeName() const { return m_type; }
    void SetTypeName(const std::wstring& type) { m_type = type; }

protected:
    // Declaration helpers for constructors: the pin or parameter is owned by
    // the filter and reported in the order of these calls.
    CPin* AddPin(const wchar_t* name, int key, bool output, bool gray = false);
    template <typename P>
    P* AddParam(P* param) {
        m_params.push_back(param);
        return param;
    }

    // Sets the result fragment by wide printf rules. Numbers are written in
    // the C locale, so the fragment stays valid JSON whatever locale the host
    // has set ("1.57", never "1,57").
    void SetResult(const wchar_t* format, ...);

    std::vector<IPin*> m_pins;
    std::vector<IParam*> m_params;
    std::wstring m_name = L"##Filter";
    std::wstring m_key = L"##Key";
    std::wstring m_type;
    bool m_enable = false;
    bool m_endPoint = false;
    std::vector<MasterImage> m_masterImages;
    // A JSON fragment that the result document pastes in unquoted; starts as
    // an empty JSON string.
    std::wstring m_result = L"\"\"";
    bool m_processed = false;
    std::map<IPin*, int> m_pinVersions;
    bool m_paramChanged = false;
    bool m_masterImageChanged = false;
};
