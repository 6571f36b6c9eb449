/*
 * Pixmill host extensions: settings that a host program or a test makes
 * before (or between) calls into the library. They are not part of the
 * prober's original interface and change nothing unless called.
 */
#ifndef PIXMILL_PIXMILL_EXT_H
#define PIXMILL_PIXMILL_EXT_H

#include "pixmill/export.h"

PIXMILL_EXTERN_C_BEGIN

/*
 * Sets the folder that stands in for the drives of the prober's paths:
 * "C:\Logs\SORVIK\x.log" is opened as "<root>/C/Logs/SORVIK/x.log".
 * root  UTF-8 path of the folder; NULL or "" returns to the default, which
 *       is the environment variable PIXMILL_ROOT when set, else
 *       "/var/lib/pixmill".
 * Takes effect for every file opened after the call. Returns 0.
 */
PIXMILL_API int PixmillSetRoot(const char* root);

/*
 * Sets the three log thresholds. A sink takes a message whose level is at or
 * above its threshold; levels in use are 1 (trace inside the engine and
 * filters), 2 (entry and exit of exported functions) and 4 (errors).
 * The start-up settings are file 4, console 6 (nothing), debug output 4.
 * Values set here take effect at once and survive the start-up of the first
 * call. For troubleshooting without changing the host, the environment
 * variable PIXMILL_LOG_LEVELS="file,console,debug" (for example "1,6,4")
 * is read at start-up instead; a value set here wins over it.
 * debugOutput goes to syslog (ident "pixmill", facility user, priority debug).
 */
PIXMILL_API void PixmillSetLogLevels(int file, int console, int debugOutput);

/*
 * Receives each line that an inspection function traces ("[VBcvPinFind]
 * Start \n", "Version : 4,6,0,0\n", ...), formatted, with the caller's
 * `user` pointer. NULL removes the sink; with no sink the lines are not
 * formatted at all. The line pointer is valid during the call only.
 */
typedef void (*PixmillTraceSink)(const char* line, void* user);
PIXMILL_API void PixmillSetTraceSink(PixmillTraceSink sink, void* user);

/*
 * The error of the calling thread's last call into the library: the text
 * (UTF-8) of the last level-4 log line that call wrote, whatever the log
 * thresholds, or "" when it wrote none. Every other export starts a new call
 * and clears it; this one does not. Never NULL. The text stays valid until
 * the thread's next call into the library. Each thread has its own.
 */
PIXMILL_API const char* PixmillLastError(void);

/*
 * Host log sink: the host takes the log over from the daily file.
 * While a sink is installed it receives each log message at or above the
 * file threshold (PixmillSetLogLevels; by default level 4, the errors),
 * with its level, the text (UTF-8, valid during the call only) and the
 * caller's `user` pointer, and no log file is written: the host decides
 * what is shown. Console and debug output keep their own thresholds.
 * NULL removes the sink and the files are written again.
 * Safe to call from any thread. When the call returns, the sink it replaced
 * is no longer running on any thread and is not called again, so `user` may
 * be freed. The sink may be called from any thread that calls the library,
 * also from several at once; it must not call PixmillSetLogSink itself.
 * A message that the sink causes by calling into the library is not passed
 * to it again (it still counts for PixmillLastError).
 */
typedef void (*PixmillLogSink)(int level, const char* line, void* user);
PIXMILL_API void PixmillSetLogSink(PixmillLogSink sink, void* user);

PIXMILL_EXTERN_C_END

#endif /* PIXMILL_PIXMILL_EXT_H */
