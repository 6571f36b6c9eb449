/* Runs a two-filter recipe (source, threshold) through the installed
 * library and releases the output record. Exits non-zero, with a line, on
 * the first thing that is not as expected. */
#include <pixmill/pixmill.h>
#include <pixmill/pixmill_ext.h>

#include <stdio.h>
#include <string.h>
#include <wchar.h>

static int fail(const char* what) {
    fprintf(stderr, "pkg-config consumer: %s (last error: %s)\n", what, PixmillLastError());
    return 1;
}

int main(void) {
    static const wchar_t* recipe =
        L"{\"Name\":\"consumer\",\"Filters\":["
        L"{\"Name\":\"Binary\",\"Key\":\"2\",\"Type\":\"ThresholdFilter\",\"IsEndPoint\":true,"
        L"\"Params\":[{\"Key\":\"Threshold\",\"Value\":\"100\"}],"
        L"\"Pins\":[{\"Key\":1,\"Link\":{\"FilterKey\":\"1\",\"PinKey\":-1}},{\"Key\":-1}]},"
        L"{\"Name\":\"Source\",\"Key\":\"1\",\"Type\":\"SourceFilter\","
        L"\"Params\":[{\"Key\":\"ImageID\",\"Value\":\"1\"}],\"Pins\":[{\"Key\":-1}]}]}";
    uint8_t pixels[8] = {0, 50, 99, 100, 101, 150, 200, 255};
    ImageData image = {4, 2, 1, 1, sizeof pixels, pixels};
    ImageData* list[1];
    ImageParam input, output;
    size_t i;

    if (strcmp(PixmillVersion(), PACKAGE_VERSION_TEXT) != 0) {
        fprintf(stderr, "library %s, pkg-config %s\n", PixmillVersion(), PACKAGE_VERSION_TEXT);
        return 1;
    }

    list[0] = &image;
    input.count = 1;
    input.images = list;
    input.result = NULL;
    input.resultSize = 0;
    memset(&output, 0, sizeof output);
    if (RecipeExecute(&input, &output, recipe, NULL) != 0) return fail("RecipeExecute failed");
    if (output.count != 1 || output.images[0] == NULL) return fail("expected one output image");
    if (output.images[0]->width != 4 || output.images[0]->height != 2) return fail("output size");
    for (i = 0; i < sizeof pixels; ++i) {
        uint8_t expected = pixels[i] > 100 ? 255 : 0;
        if (output.images[0]->data[i] != expected) return fail("output is not the thresholded input");
    }
    if (output.result == NULL || wcslen(output.result) == 0) return fail("no result document");
    if (ImageParamRelease(&output) != 1 || output.images != NULL || output.result != NULL)
        return fail("release did not clear the record");
    printf("pkg-config consumer: Pixmill %s ran a recipe\n", PixmillVersion());
    return 0;
}
