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

/* ---- Image records ----------------------------------------------------- */

/*
 * One image: 8-bit samples, rows from top to bottom, packed (no row padding),
 * channels interleaved (blue, green, red for three channels).
 */
typedef struct ImageData {
    int32_t width;   /* pixels per row */
    int32_t height;  /* rows */
    int8_t channels; /* 1 or 3 */
    int32_t ImageID; /* routes an input image to its consumer; 0 on output */
    uint64_t size;   /* number of pixel bytes: width * height * channels */
    uint8_t* data;   /* the pixels */
} ImageData;

/*
 * A list of images, and on output the result document.
 * Input: filled by the caller, who keeps owning it; the library copies the
 * pixels. Output: the caller provides the record (zero-filled); the library
 * allocates `images`, each ImageData, each pixel block and `result`, and
 * the caller gives the record back to ImageParamRelease.
 */
typedef struct ImageParam {
    int32_t count;       /* number of entries in `images` */
    ImageData** images;  /* array of `count` pointers (an entry may be NULL on input) */
    wchar_t* result;     /* output only: the result document, NUL-terminated */
    uint64_t resultSize; /* output only: size of `result` in bytes, terminator included */
} ImageParam;

/* ---- Recipe and filter execution ---------------------------------------- */

/*
 * Runs a recipe on the caller's images.
 * input   images for the recipe; a SourceFilter picks those whose ImageID
 *         equals its own ImageID parameter. NULL runs without images.
 * output  receives the images of the recipe's end points and the result
 *         document; must not be NULL. Release it with ImageParamRelease.
 * recipe  the recipe's JSON text. NULL or malformed text runs an empty
 *         recipe: count 0 and an empty result text (resultSize is one
 *         wchar_t, the terminator).
 * param   optional override document: {"<filter Key or Name>":{"Params":[...]}}.
 * Returns 0. A bad number in the recipe's or the override's parameter text
 * ("abc" for an integer) raises std::invalid_argument or std::out_of_range
 * through this call, as it always has: C++ hosts should catch them.
 */
PIXMILL_API int RecipeExecute(ImageParam* input, ImageParam* output, const wchar_t* recipe,
                              const wchar_t* param);

/*
 * Runs one filter by its registered name. An input image goes to the input
 * pin whose key equals its ImageID (1 is the customary "In" pin).
 * param   the filter's own object: {"Params":[{"Key":"Threshold","Value":"100"}]}.
 * An unknown filter name gives no images and an empty result text.
 * Returns 0; exceptions as for RecipeExecute.
 */
PIXMILL_API int FilterExecute(ImageParam* input, ImageParam* output, const wchar_t* filter,
                              const wchar_t* param);

/*
 * Runs a recipe file on image files.
 * inputs      image paths and IDs separated by "|": a token of digits only
 *             sets the ID of the following images (an empty token sets 0),
 *             any other token is an image path read as three channels. The ID
 *             starts at 1 and does not advance by itself: "a.bmp|2|b.bmp"
 *             gives a.bmp ID 1 and b.bmp ID 2. May be NULL.
 * outputPath  if not NULL or empty, the first output image is written there;
 *             the extension chooses the format.
 * recipePath  the recipe file: UTF-8 (with or without BOM) or UTF-16 with BOM.
 * param       written to the log only; no override is applied.
 * resultText  receives at most `resultBytes` bytes of the result document,
 *             without a terminator: zero-fill it first. May be NULL.
 * Returns the size of the whole result document in bytes (characters times
 * sizeof(wchar_t)), also when the copy was cut; 0 if the recipe file is
 * missing, shorter than 10 bytes or unreadable.
 */
PIXMILL_API int RecipeExecuteByPath(const wchar_t* inputs, const wchar_t* outputPath,
                                    const wchar_t* recipePath, const wchar_t* param,
                                    wchar_t* resultText, int resultBytes);

/*
 * Runs a recipe on up to two caller images in memory.
 * image1/size1/width1/height1  image with ImageID 1, skipped if size1 <= 0.
 *                              size1 == width1*height1 means one channel,
 *                              == 3*width1*height1 three channels; any other
 *                              size gives an empty image.
 * image2/...                   the same for ImageID 2.
 * outImage/outSize             receives the first output image's pixels,
 *                              at most outSize bytes; outWidth/outHeight its
 *                              size (left alone when there is no output).
 * recipe                       JSON text if it begins with "{", else the
 *                              path of a recipe file.
 * param                        written to the log only.
 * resultText/resultBytes       as for RecipeExecuteByPath.
 * Returns as RecipeExecuteByPath.
 */
PIXMILL_API int RecipeExecuteByBuffer(const uint8_t* image1, int size1, int width1, int height1,
                                      const uint8_t* image2, int size2, int width2, int height2,
                                      uint8_t* outImage, int outSize, int* outWidth, int* outHeight,
                                      const wchar_t* recipe, const wchar_t* param,
                                      wchar_t* resultText, int resultBytes);

/*
 * Runs a recipe on the images of an image buffer (see ImageBufferCreate),
 * which stay owned by the buffer. `param` is applied as an override
 * document, as for RecipeExecute. Other arguments as RecipeExecuteByBuffer.
 * Returns as RecipeExecuteByPath, or -1 if `buffer` is not a live handle.
 */
PIXMILL_API int RecipeExecuteByBufferID(void* buffer, uint8_t* outImage, int outSize, int* outWidth,
                                        int* outHeight, const wchar_t* recipe, const wchar_t* param,
                                        wchar_t* resultText, int resultBytes);

/*
 * Runs one filter on a one-channel image of width*height bytes (ImageID 1).
 * destination  receives at most width*height bytes of the first output
 *              image; may be NULL.
 * resultText   receives the result document, NUL-terminated, cut to fit
 *              `resultChars` characters (terminator included); may be NULL.
 * Returns the size of the whole result document in bytes.
 */
PIXMILL_API int FilterExecuteByBuffer(const uint8_t* source, uint8_t* destination, int width,
                                      int height, const wchar_t* filter, const wchar_t* param,
                                      wchar_t* resultText, int resultChars);

/*
 * Frees what an output record holds and zeroes its count and pointers (the
 * resultSize field is left as it was). Releasing twice is harmless.
 * Returns 1, or 0 for NULL.
 */
PIXMILL_API int ImageParamRelease(ImageParam* record);

/* ---- Image buffers -------------------------------------------------------- */

/*
 * A numbered store of images that a caller fills once and recipes then read
 * (RecipeExecuteByBufferID). Returns a handle, or NULL on failure. The
 * handle stays valid until ImageBufferRelease; any other value (a released
 * handle, garbage) is refused with -1 and the log line
 * "[ERROR] Invalid  CImageBuffer ID", never touched.
 */
PIXMILL_API void* ImageBufferCreate(void);

/*
 * Copies an image into the buffer under `imageId`. Adding never replaces:
 * two images with one ID both stay. A size that is neither width*height
 * (one channel) nor 3*width*height (three channels) stores an empty image.
 * Returns 0, or -1 for an invalid handle.
 */
PIXMILL_API int ImageBufferAdd(void* buffer, int imageId, const uint8_t* data, int size, int width,
                               int height);

/*
 * Finds the newest image with `imageId`. If size > 0, copies at most
 * min(size, width*height) bytes into `data` (a count of pixels, so a
 * three-channel image delivers its first third); sets *width and *height.
 * Call with size 0 to learn the dimensions first.
 * Returns width*height, 0 if there is no such image (width and height
 * untouched), -1 for an invalid handle.
 */
PIXMILL_API int ImageBufferGet(void* buffer, int imageId, uint8_t* data, int size, int* width,
                               int* height);

/* Frees the buffer and its images. Returns 0, or -1 for an invalid handle. */
PIXMILL_API int ImageBufferRelease(void* buffer);

/* ---- Image files and pixels --------------------------------------------- */

/*
 * Reads an image file as one channel. `path` is UTF-8; prober paths such as
 * "D:\a.bmp" are mapped under the root. Copies at most min(size,
 * width*height) bytes if size >= 1; sets *width and *height (0 for a file
 * that cannot be read). Returns width*height (0 for an unreadable file), or
 * -1 on failure.
 */
PIXMILL_API int ImageRead(uint8_t* data, int size, int* width, int* height, const char* path);

/*
 * Writes a one-channel image of width*height bytes; the extension of `path`
 * chooses the format. Returns 0, or -1 on failure.
 */
PIXMILL_API int ImageWrite(const uint8_t* data, int width, int height, const char* path);

/*
 * Writes the negative (255 - value) of a one-channel image of width*height
 * bytes. Returns 0, or -1 if a dimension is negative.
 */
PIXMILL_API int ImageInvert(const uint8_t* source, uint8_t* destination, int width, int height);

/* ---- Small exports -------------------------------------------------------- */

/* Returns a + b. */
PIXMILL_API int Add(int a, int b);

/*
 * Reads "D:\a.bmp" (under the root), sets every non-zero pixel to 255 and
 * writes "D:\b.bmp". Returns 0, or -1 if the input cannot be read.
 */
PIXMILL_API int VBcvTestConv(void);

/* Returns the fourth field of the version line (0 on Linux). */
PIXMILL_API int Gnuplot_splot(void);

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
