// Host extensions: root folder, log levels and the trace sink.
#include "api/Startup.h"
#include "logging/Trace.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

extern "C" int PixmillSetRoot(const char* root) {
    pixmill::platform::SetRoot(root ? root : "");
    return 0;
}

extern "C" void PixmillSetLogLevels(int file, int console, int debugOutput) {
    pixmill::logging::Thresholds t;
    t.file = file;
    t.console = console;
    t.debugOutput = debugOutput;
    pixmill::api::SetHostLogLevels(t);
}

extern "C" void PixmillSetTraceSink(PixmillTraceSink sink, void* user) {
    pixmill::logging::SetTraceSink(sink, user);
}
