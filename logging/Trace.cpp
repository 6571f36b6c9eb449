#include "logging/Trace.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "platform/Platform.h"

namespace pixmill::logging {

namespace {

std::mutex g_sinkMutex;
TraceSink g_sink = nullptr;
void* g_user = nullptr;

}  // namespace

void SetTraceSink(TraceSink sink, void* user) {
    std::lock_guard<std::mutex> lock(g_sinkMutex);
    g_sink = sink;
    g_user = user;
}

// Formats one line and hands it to the installed sink, if any. With no sink
// nothing is formatted, as the inspections call this on every step.
void EmitTrace(const char* format, va_list args) {
    TraceSink sink;
    void* user;
    {
        std::lock_guard<std::mutex> lock(g_sinkMutex);
        sink = g_sink;
        user = g_user;
    }
    if (!sink || !format) return;
    const std::string text = platform::FormatNarrow(format, args);
    sink(text.c_str(), user);
}

}  // namespace pixmill::logging

void VBcvTrace(const char* format, ...) {
    va_list args;
    va_start(args, format);
    pixmill::logging::EmitTrace(format, args);
    va_end(args);
}
