// The trace call of the inspection functions.
//
// Every VBcv function hands its "Start", "End", "Fail" and measurement lines
// to VBcvTrace. By default the call does nothing: no line is formatted or
// stored. A host or a test may install a sink, which then receives each
// line formatted with the C library's printf rules.
#pragma once

namespace pixmill::logging {

using TraceSink = void (*)(const char* line, void* user);

// Installs the sink (null removes it). Not for use while another thread is
// inside a VBcv call.
void SetTraceSink(TraceSink sink, void* user);

}  // namespace pixmill::logging

void VBcvTrace(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
