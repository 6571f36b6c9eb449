/* Compiled as C: proves the public headers are valid C and that the shared
 * library exports what they declare. Exits non-zero on the first failure. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

static int g_failures = 0;

#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++g_failures;                                                            \
        }                                                                            \
    } while (0)

static void count_lines(const char* line, void* user) {
    (void)line;
    ++*(int*)user;
}

int main(void) {
    int bytes, chars;
    wchar_t* text;
    int traced = 0;

    PixmillSetLogLevels(4, 6, 6);
    PixmillSetTraceSink(count_lines, &traced);
    PixmillSetTraceSink(NULL, NULL);

    bytes = GetFilterList(NULL, 0);
    CHECK(bytes >= (int)(sizeof("{\"filters\":[]}") - 1) * (int)sizeof(wchar_t));
    CHECK(bytes % (int)sizeof(wchar_t) == 0);

    text = (wchar_t*)calloc((size_t)bytes / sizeof(wchar_t) + 1, sizeof(wchar_t));
    CHECK(text != NULL);
    if (text) {
        CHECK(GetFilterList(text, bytes) == bytes);
        CHECK(wcsncmp(text, L"{\"filters\":[", 12) == 0);
        CHECK(wcscmp(text + wcslen(text) - 2, L"]}") == 0);
        free(text);
    }

    chars = GetFilterInfo(L"ThresholdFilter", NULL, 0);
    CHECK(chars * (int)sizeof(wchar_t) == bytes);

    /* A recipe run on an image record: the source hands image 1 back out. */
    {
        static const wchar_t* recipe =
            L"{\"Name\":\"c\",\"Filters\":[{\"Name\":\"Src\",\"Key\":\"s\",\"Type\":"
            L"\"SourceFilter\","
            L"\"IsEndPoint\":true,\"Params\":[{\"Key\":\"ImageID\",\"Value\":\"1\"}]}]}";
        uint8_t pixels[6] = {1, 2, 3, 4, 5, 6};
        ImageData image = {3, 2, 1, 1, sizeof pixels, pixels};
        ImageData* list[1];
        ImageParam input, output;
        list[0] = &image;
        input.count = 1;
        input.images = list;
        input.result = NULL;
        input.resultSize = 0;
        memset(&output, 0, sizeof output);
        CHECK(RecipeExecute(&input, &output, recipe, NULL) == 0);
        CHECK(output.count == 1);
        if (output.count == 1) {
            CHECK(output.images[0]->width == 3 && output.images[0]->height == 2);
            CHECK(memcmp(output.images[0]->data, pixels, sizeof pixels) == 0);
        }
        CHECK(output.result != NULL && wcsstr(output.result, L"\"Type\":\"Master\"") != NULL);
        CHECK(ImageParamRelease(&output) == 1);
        CHECK(output.images == NULL && output.result == NULL);
    }

    /* An image buffer through its whole life. */
    {
        uint8_t pixels[4] = {9, 8, 7, 6}, back[4] = {0, 0, 0, 0};
        int w = 0, h = 0;
        void* buffer = ImageBufferCreate();
        CHECK(buffer != NULL);
        CHECK(ImageBufferAdd(buffer, 3, pixels, 4, 2, 2) == 0);
        CHECK(ImageBufferGet(buffer, 3, back, 4, &w, &h) == 4);
        CHECK(w == 2 && h == 2 && back[3] == 6);
        CHECK(ImageBufferRelease(buffer) == 0);
        CHECK(ImageBufferRelease(buffer) == -1);
    }

    {
        uint8_t src[3] = {0, 100, 255}, dst[3];
        CHECK(ImageInvert(src, dst, 3, 1) == 0);
        CHECK(dst[0] == 255 && dst[1] == 155 && dst[2] == 0);
    }
    {
        uint8_t flat[4] = {9, 9, 9, 9}, out[4] = {0, 0, 0, 0};
        CHECK(EnhanceImage(flat, out, 2, 2, 0, 4.0f, 1.0f) == 0 && out[0] == 128 && out[3] == 128);
        CHECK(FuncTest(flat, out, 2, 2) == 0 && out[1] == 246);
        CHECK(Enhance_Threshold_Otsu(flat, out, 2, 2, 1, 50) == 50 && out[2] == 0);
        CHECK(Threshold_Triangle(flat, NULL, 2, 2) == -1);
    }
    CHECK(Add(40, 2) == 42);
    CHECK(Gnuplot_splot() == 0);

    /* Pin tip searches: the parameter checks answer before any file is read. */
    {
        PinFindResult r = VBcvPinFind(200, 200, 0, 1, 3, 40, 0.01, 2.0, 280.0, 0.0);
        CHECK(r.Code == 12.0 && r.X == -1.0 && r.Y == -1.0);
        r = VBcvPinFind_WRAP(202, 200, 0, 1, 40, 40, 0.01, 2.0, 280.0, 0.0, -1);
        CHECK(r.Code == 11.0);
        r = VBcvPinFindEX(200, 200, 0, 1, 40, 40, 0.01, 2.0, 280.0, 0.0, 0.5, -1);
        CHECK(r.Code == 2.0); /* no camera image under the test root */
        r = VBcvCrownPinFind(200, 200, 0, 1, 40, 40, 0.01, 2.0, 280.0, 0.0, 0.5, -1, 0, 0.5);
        CHECK(r.Code == 12.0);
    }

    if (g_failures == 0) printf("1 passed, 0 failed\n");
    return g_failures == 0 ? 0 : 1;
}
