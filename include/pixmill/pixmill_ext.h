/*
 * Pixmill host extensions: settings that a host program or a test makes
 * before (or between) calls into the library. They are not part of the
 * prober's original interface and change nothing unless called.
 */
#ifndef PIXMILL_PIXMILL_EXT_H
#define PIXMILL_PIXMILL_EXT_H

#include <wchar.h>

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
 * debugOutput goes to the system log with the identifier "pixmill", facility
 * user, priority debug: to the journal where one runs, else through syslog
 * with "pixmill: " before the text. The host's own syslog identity (openlog)
 * is left as it is.
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
 * Copies the export description document into `text`: strict JSON (UTF-8
 * content as wide text) describing every flat export of pixmill.h and of
 * this header,
 *   {"exports":[{"name":"VBcvEdgeFind","header":"pixmill.h","summary":"...",
 *     "args":[{"name":"path","type":"const char*","role":"path","meaning":"..."},...],
 *     "returns":{"type":"EdgePoint","meaning":"...","fields":[{"name":"X",
 *     "type":"double","meaning":"..."},...]},"failure":"X, Y = -1.0"},...],
 *   "records":[{"name":"ImageParam","fields":[...]},...]}
 * "fields" appears where the export returns a record. An argument's "role"
 * tells a generic caller how to supply it: number, flag (int read as yes or
 * no), path (UTF-8), text, pixels (8-bit pixels read), pixels_out (a buffer
 * that receives pixels), width / height / size (of the pixel block or
 * buffer named by "of", size in bytes), chars (capacity in characters of the
 * text buffer named by "of"), width_out / height_out (receive the size of
 * what "of" received), text_out (a wide-text buffer that receives a
 * document), handle (an image buffer), record_in / record_out (ImageParam),
 * callback and user. A pixels_out with "of" is as large as that pixel block.
 *
 * text       caller's buffer, or NULL to learn the size only.
 * textBytes  capacity of `text` in bytes.
 * Returns the size of the whole document in bytes (characters times
 * sizeof(wchar_t)), whatever was copied; at most `textBytes` bytes are
 * copied and no terminator is added: zero-fill the buffer first. Returns 0
 * on an internal failure (out of memory).
 */
PIXMILL_API int PixmillDescribeExports(wchar_t* text, int textBytes);

/*
 * The library's version, "MAJOR.MINOR.PATCH" ("1.0.0"): the number of the
 * installed files (libpixmill.so.MAJOR), of the CMake package
 * (find_package(Pixmill MAJOR)), of pixmill.pc and of the Debian packages.
 * A host can log it or refuse a library older than it needs. The text is
 * static and never NULL. Like every export but PixmillLastError, it starts a
 * new call: the calling thread's last error becomes "".
 */
PIXMILL_API const char* PixmillVersion(void);

/*
 * Switches the debug images on (non-zero) or off (0): the images that
 * filters and inspections write to fixed paths for a person to look at
 * (the crop filter's "CropFilter_image.png", the pin searches' stage images,
 * pattern matching's result and failure images, ...). They are on by
 * default, exactly as without this call. Off, no such file is written and
 * the short pause before each inspection debug image is skipped; results,
 * output images and log lines stay the same. Images that a call is asked
 * for (an output path, a mask or result folder named by the caller) are
 * always written. Without changing the host, the environment variable
 * PIXMILL_DEBUG_IMAGES=0 turns them off when the library starts; a value
 * set here wins over it. Takes effect at once, for every thread.
 * Turning them off is what makes running one recipe from several threads
 * at once meaningful: the fixed paths are shared by all calls.
 */
PIXMILL_API void PixmillSetDebugImages(int enabled);

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
