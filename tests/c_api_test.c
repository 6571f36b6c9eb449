/* Compiled as C: proves the public headers are valid C and that the shared
 * library exports what they declare. Exits non-zero on the first failure. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "pixmill/pixmill.h"
#include "pixmill/pixmill_ext.h"

static int g_failures = 0;

#define CHECK(cond)                                                        \
    do {                                                                   \
        if (!(cond)) {                                                     \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++g_failures;                                                  \
        }                                                                  \
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

    if (g_failures == 0) printf("1 passed, 0 failed\n");
    return g_failures == 0 ? 0 : 1;
}
