// Runs a two-filter recipe (source, invert) through the installed library
// and releases the output record. Exits non-zero, with a line, on the first
// thing that is not as expected.
#include <pixmill/pixmill.h>
#include <pixmill/pixmill_ext.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <vector>

namespace {

int Fail(const char* what) {
    std::fprintf(stderr, "find_package consumer: %s (last error: %s)\n", what, PixmillLastError());
    return 1;
}

}  // namespace

int main() {
    if (std::strcmp(PixmillVersion(), PACKAGE_VERSION_TEXT) != 0) {
        std::fprintf(stderr, "library %s, package file %s\n", PixmillVersion(), PACKAGE_VERSION_TEXT);
        return 1;
    }

    const wchar_t* recipe =
        L"{\"Name\":\"consumer\",\"Filters\":["
        L"{\"Name\":\"Invert\",\"Key\":\"2\",\"Type\":\"InvertFilter\",\"IsEndPoint\":true,"
        L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"1\",\"PinKey\":-1}},{\"Key\":-1}]},"
        L"{\"Name\":\"Source\",\"Key\":\"1\",\"Type\":\"SourceFilter\","
        L"\"Params\":[{\"Key\":\"ImageID\",\"Value\":\"1\"}],\"Pins\":[{\"Key\":-1}]}]}";

    std::vector<uint8_t> pixels = {0, 1, 100, 200, 254, 255};
    ImageData image{3, 2, 1, 1, pixels.size(), pixels.data()};
    ImageData* list[] = {&image};
    ImageParam input{1, list, nullptr, 0};
    ImageParam output{};
    if (RecipeExecute(&input, &output, recipe, nullptr) != 0) return Fail("RecipeExecute failed");
    if (output.count != 1 || !output.images[0]) return Fail("expected one output image");
    const ImageData& out = *output.images[0];
    if (out.width != 3 || out.height != 2 || out.channels != 1) return Fail("output size");
    for (size_t i = 0; i < pixels.size(); ++i)
        if (out.data[i] != 255 - pixels[i]) return Fail("output is not the negative of the input");
    if (!output.result || std::wcslen(output.result) == 0) return Fail("no result document");
    if (ImageParamRelease(&output) != 1 || output.images || output.result)
        return Fail("release did not clear the record");
    std::printf("find_package consumer: Pixmill %s ran a recipe\n", PixmillVersion());
    return 0;
}
