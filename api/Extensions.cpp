// Host extensions: root folder, log levels and the trace sink.
#include "api/Boundary.h"
#include "api/Startup.h"
#include "logging/Logger.h"
#include "logging/Trace.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

extern "C" int PixmillSetRoot(const char* root) try {
    pixmill::logging::BeginCall();
    pixmill::platform::SetRoot(root ? root : "");
    return 0;
} catch (...) {
    pixmill::api::LogRefusal(L"PixmillSetRoot");
    return -1;
}

extern "C" void PixmillSetLogLevels(int file, int console, int debugOutput) try {
    pixmill::logging::BeginCall();
    pixmill::logging::Thresholds t;
    t.file = file;
    t.console = console;
    t.debugOutput = debugOutput;
    pixmill::api::SetHostLogLevels(t);
} catch (...) {
    pixmill::api::LogRefusal(L"PixmillSetLogLevels");
    return;
}

extern "C" void PixmillSetTraceSink(PixmillTraceSink sink, void* user) {
    pixmill::logging::BeginCall();
    pixmill::logging::SetTraceSink(sink, user);
}

extern "C" const char* PixmillLastError(void) {
    return pixmill::logging::LastError();
}

extern "C" void PixmillSetLogSink(PixmillLogSink sink, void* user) {
    pixmill::logging::BeginCall();
    pixmill::logging::SetLogSink(sink, user);
}
