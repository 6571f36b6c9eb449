// The library's own version, as the build system numbers it. The same
// number names the shared library's files, the package config and
// pkg-config files and the Debian packages.
#include "logging/Logger.h"
#include "pixmill/pixmill_ext.h"

#ifndef PIXMILL_VERSION_TEXT
#error "PIXMILL_VERSION_TEXT must be defined by the build"
#endif

extern "C" const char* PixmillVersion(void) {
    pixmill::logging::BeginCall();
    return PIXMILL_VERSION_TEXT;
}
