/* A host that loads the library at run time (as a Python or plug-in host
 * does) and releases its image buffer and output record from an exit
 * handler. The handler was registered before the library was loaded, so it
 * runs after the library's own static destructors: the library's tables
 * must still be there. Exits non-zero if a release is refused. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <wchar.h>

#include "pixmill/pixmill.h"

typedef void* (*CreateFn)(void);
typedef int (*AddFn)(void*, int, const uint8_t*, int, int, int);
typedef int (*ReleaseFn)(void*);
typedef int (*FilterFn)(ImageParam*, ImageParam*, const wchar_t*, const wchar_t*);
typedef int (*RecordReleaseFn)(ImageParam*);

static void* g_buffer;
static ImageParam g_output;
static ReleaseFn g_release;
static RecordReleaseFn g_recordRelease;

static void ReleaseAtExit(void) {
    int buffer = g_release(g_buffer);
    int record = g_recordRelease(&g_output);
    if (buffer != 0 || record != 1 || g_output.images != NULL) {
        fprintf(stderr, "release at exit refused: buffer %d, record %d\n", buffer, record);
        _exit(1);
    }
}

int main(void) {
    void* lib;
    uint8_t pixels[4] = {10, 200, 30, 250};
    ImageData image = {2, 2, 1, 1, 4, pixels};
    ImageData* list[1] = {&image};
    ImageParam input = {1, list, NULL, 0};

    atexit(ReleaseAtExit);
    lib = dlopen(PIXMILL_LIBRARY_PATH, RTLD_NOW);
    if (!lib) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    g_release = (ReleaseFn)dlsym(lib, "ImageBufferRelease");
    g_recordRelease = (RecordReleaseFn)dlsym(lib, "ImageParamRelease");
    CreateFn create = (CreateFn)dlsym(lib, "ImageBufferCreate");
    AddFn add = (AddFn)dlsym(lib, "ImageBufferAdd");
    FilterFn filter = (FilterFn)dlsym(lib, "FilterExecute");
    if (!g_release || !g_recordRelease || !create || !add || !filter) return 2;

    g_buffer = create();
    if (!g_buffer || add(g_buffer, 1, pixels, 4, 2, 2) != 0) return 3;
    if (filter(&input, &g_output, L"ThresholdFilter", L"") != 0 || g_output.count != 1) return 4;
    return 0;
}
