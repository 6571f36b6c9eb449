/* Prints the filter description document of libpixmill, read through the
 * public C interface exactly as a recipe editor reads it. */
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include "pixmill/pixmill.h"

int main(void) {
    int bytes;
    wchar_t* text;

    setlocale(LC_ALL, "C.UTF-8");
    bytes = GetFilterList(NULL, 0);
    text = (wchar_t*)calloc((size_t)bytes / sizeof(wchar_t) + 1, sizeof(wchar_t));
    if (!text) {
        fprintf(stderr, "describe_filters: out of memory\n");
        return 1;
    }
    GetFilterList(text, bytes);
    printf("%ls\n", text);
    free(text);
    return 0;
}
