// Parameter text through FilterExecute, for every registered filter in
// turn: either a Params object built from the filter's own parameter names
// with arbitrary values, or arbitrary text.
#include <algorithm>
#include <vector>

#include "FuzzSupport.h"
#include "framework/Filter.h"
#include "framework/FilterRegistry.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

namespace {

struct Known {
    std::wstring type;
    std::vector<std::string> params;
};

const std::vector<Known>& Filters() {
    static const std::vector<Known> all = [] {
        std::vector<Known> out;
        auto names = pixmill::FilterRegistry::Instance().List();
        std::sort(names.begin(), names.end());
        for (const std::wstring& name : names) {
            Known k{name, {}};
            std::unique_ptr<IBaseObject> object(pixmill::FilterRegistry::Instance().Create(name.c_str()));
            if (auto* f = dynamic_cast<IFilter*>(object.get()))
                for (IParam* p : f->GetParams()) k.params.push_back(pixmill::platform::ToUtf8(p->GetName()));
            out.push_back(std::move(k));
        }
        return out;
    }();
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    if (Filters().empty()) return 0;
    FuzzedDataProvider in(data, size);
    const Known& filter = Filters()[in.ConsumeIntegralInRange<size_t>(0, Filters().size() - 1)];
    const int width = in.ConsumeIntegralInRange(1, 40);
    const int height = in.ConsumeIntegralInRange(1, 40);
    const int8_t channels = in.ConsumeBool() ? 1 : 3;
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * channels);
    const uint8_t fill = in.ConsumeIntegral<uint8_t>();
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(fill + i * 7);

    std::string params;
    if (in.ConsumeBool() && !filter.params.empty()) {
        params = "{\"Params\":[";
        const int count = in.ConsumeIntegralInRange(1, 6);
        for (int i = 0; i < count; ++i) {
            const std::string& key = filter.params[in.ConsumeIntegralInRange<size_t>(0, filter.params.size() - 1)];
            params += (i ? "," : "");
            params += "{\"Key\":\"" + key + "\",\"Value\":\"" +
                      pixmill::fuzz::JsonEscape(in.ConsumeRandomLengthString(24)) + "\"}";
        }
        params += "]}";
    } else {
        params = in.ConsumeRemainingBytesAsString();
    }
    const std::wstring text = pixmill::fuzz::WideText(params);

    ImageData image{width, height, channels, 1, pixels.size(), pixels.data()};
    ImageData* list[] = {&image};
    ImageParam input{1, list, nullptr, 0};
    ImageParam output{};
    // No exception may leave the export, whatever the text: one that did
    // would end the target as a finding.
    FilterExecute(&input, &output, filter.type.c_str(), text.c_str());
    ImageParamRelease(&output);
    return 0;
}
