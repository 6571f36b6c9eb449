// Recipe text, override text and a small image through RecipeExecute, with
// the registry's real filters.
#include <vector>

#include "FuzzSupport.h"
#include "pixmill/pixmill.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    FuzzedDataProvider in(data, size);
    const int width = in.ConsumeIntegralInRange(0, 48);
    const int height = in.ConsumeIntegralInRange(0, 48);
    const int8_t channels = in.ConsumeBool() ? 1 : 3;
    const int id = in.ConsumeIntegralInRange(-1, 3);
    std::vector<uint8_t> pixels = in.ConsumeBytes<uint8_t>(static_cast<size_t>(width) * height * channels);
    const std::wstring recipe = pixmill::fuzz::WideText(in.ConsumeRandomLengthString(4096));
    const std::wstring override = pixmill::fuzz::WideText(in.ConsumeRemainingBytesAsString());

    ImageData image{width, height, channels, id, pixels.size(), pixels.data()};
    ImageData* list[] = {&image};
    ImageParam input{1, list, nullptr, 0};
    ImageParam output{};
    // No exception may leave the export, whatever the recipe.
    RecipeExecute(&input, &output, recipe.c_str(), override.empty() ? nullptr : override.c_str());
    ImageParamRelease(&output);
    return 0;
}
