/*
 * Pixmill: machine vision for wafer probers.
 *
 * The exported C interface of libpixmill. Every function here may be called
 * from C or C++ on the caller's thread, one call at a time.
 *
 * Text. Wide text is wchar_t, NUL-terminated. Where a size is given in
 * "bytes" for wide text, a byte count is characters times sizeof(wchar_t)
 * (4 on Linux, 2 on Windows).
 *
 * Start-up. The first call of any function below works out the log file
 * ("C:\Logs\SORVIK\<stem>_<YYYYMMDD>.log", under the folder named by
 * PIXMILL_ROOT on Linux), sets the log levels and removes log files older
 * than seven days, once a day.
 */
#ifndef PIXMILL_PIXMILL_H
#define PIXMILL_PIXMILL_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#include "pixmill/export.h"

PIXMILL_EXTERN_C_BEGIN

/* ---- Filter description ----------------------------------------------- */

/*
 * Copies the filter description document into `text`: every registered
 * filter with its pins and parameters, as
 *   {"filters":[{"Name":"ThresholdFilter","Pin":[{ "Name":"IN_In", "Key":1},...,],
 *    "Param":[{ "Name":"Threshold","Type":"int","Attributes":[...]}, ...,]},...]}
 * A comma stands before each closing bracket, so the text is not strict JSON.
 *
 * text       caller's buffer, or NULL to learn the size only.
 * textBytes  capacity of `text` in bytes.
 * Returns the size of the whole document in bytes (characters times
 * sizeof(wchar_t)), whatever was copied. At most `textBytes` bytes are copied
 * and no terminator is added: zero-fill the buffer first.
 */
PIXMILL_API int GetFilterList(wchar_t* text, int textBytes);

/*
 * Like GetFilterList, but counts in characters where GetFilterList counts
 * bytes: it returns the document's length in characters and copies that
 * many bytes at most, so a buffer sized from its return value receives only
 * the first part of the document. `filter` is written to the log and
 * otherwise not used (it may be NULL). Kept for callers that rely on it;
 * prefer GetFilterList.
 */
PIXMILL_API int GetFilterInfo(const wchar_t* filter, wchar_t* text, int textBytes);

PIXMILL_EXTERN_C_END

#endif /* PIXMILL_PIXMILL_H */
