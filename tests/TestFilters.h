// Small filters with known behaviour for the framework tests.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "framework/Filter.h"
#include "framework/FilterRegistry.h"
#include "framework/TestHooks.h"

namespace pixmill::test {

// Passes its input through, after adding `Offset` to every pixel, and counts
// how often its work ran. Its result fragment is the text of its "Result"
// parameter, or the count when that is empty.
class CCountingFilter : public CFilter {
public:
    static inline int s_alive = 0;

    CCountingFilter() {
        ++s_alive;
        AddPin(L"In", 1, false);
        AddPin(L"Out", -1, true);
        AddParam(new sorvik::Param<int>(L"Offset", 0, -255, 255, 1));
        AddParam(new sorvik::Param<std::wstring>(L"Result"));
    }
    ~CCountingFilter() override { --s_alive; }

    void Proc(std::vector<IPin*> pins, std::vector<IParam*> params) override {
        ++procCalls;
        int offset = ParamValue<int>(params, L"Offset", 0);
        std::vector<cv::Mat> results;
        for (IPin* pin : pins) {
            if (pin->IsOutput()) continue;
            for (cv::Mat* m : pin->GetImage())
                results.push_back(m->empty() ? cv::Mat() : cv::Mat(*m + cv::Scalar::all(offset)));
        }
        std::vector<cv::Mat*> out;
        for (cv::Mat& m : results) out.push_back(&m);
        for (IPin* pin : pins)
            if (pin->IsOutput()) pin->SetImage(out);
        m_result = ParamValue<std::wstring>(params, L"Result", L"");
        if (m_result.empty()) m_result = L"{\"Calls\":" + std::to_wstring(procCalls) + L"}";
    }
    void Trace() override {}

    int procCalls = 0;
};

// A source of master images: hands every master image to its output.
class CMasterSourceFilter : public CFilter {
public:
    CMasterSourceFilter() { AddPin(L"Out", -1, true); }
    void Proc(std::vector<IPin*> pins, std::vector<IParam*>) override {
        ++procCalls;
        std::vector<cv::Mat*> images;
        for (const MasterImage& m : m_masterImages) images.push_back(m.image);
        for (IPin* pin : pins)
            if (pin->IsOutput()) pin->SetImage(images);
    }
    void Trace() override {}
    int procCalls = 0;
};

// Fails in the middle of its work, after writing its result.
class CThrowingFilter : public CFilter {
public:
    explicit CThrowingFilter(bool standardException = true) : m_standard(standardException) {
        AddPin(L"In", 1, false);
        AddPin(L"Out", -1, true);
    }
    void Proc(std::vector<IPin*> pins, std::vector<IParam*>) override {
        for (IPin* pin : pins)
            if (!pin->IsOutput()) pin->GetImage();
        if (m_standard) throw std::runtime_error("matrix too small");
        throw 42;
    }
    void Trace() override {}

private:
    bool m_standard;
};

// A filter with a second input and a plain pass-through Proc.
class CPassFilter : public CFilter {
public:
    CPassFilter() {
        AddPin(L"In", 1, false);
        AddPin(L"In2", 2, false);
        AddPin(L"Out", -1, true);
        AddPin(L"Out2", -2, true);
    }
};

// Registers the filters above under test names for the life of a fixture;
// tests add types of their own with Add.
class ScopedTestTypes {
public:
    ScopedTestTypes() {
        Add<CMasterSourceFilter>(L"TestSource");
        Add<CCountingFilter>(L"TestResult");
        Add<CCountingFilter>(L"TestCounting");
        Add<CPassFilter>(L"TestPass");
        Add(L"TestThrowingInt",
            [] { return static_cast<IBaseObject*>(new CThrowingFilter(false)); });
    }
    ~ScopedTestTypes() {
        for (const std::wstring& name : m_names) UnregisterFilterForTesting(name);
    }
    void Add(const wchar_t* name, FilterRegistry::Factory factory) {
        FilterRegistry::Instance().Register(name, std::move(factory));
        m_names.push_back(name);
    }
    template <class T>
    void Add(const wchar_t* name) {
        Add(name, [] { return static_cast<IBaseObject*>(new T()); });
    }

private:
    std::vector<std::wstring> m_names;
};

}  // namespace pixmill::test
