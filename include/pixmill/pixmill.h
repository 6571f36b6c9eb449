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

/* ---- Enhancement ----------------------------------------------------------- */

/*
 * Pixel functions for one-channel 8-bit images. They need no start-up, write
 * no log and keep nothing between calls, so they may run at the same time on
 * different buffers.
 *
 * src     width*height bytes, rows from top to bottom, no row padding. Only
 *         read. Owned by the caller.
 * dst     width*height bytes that receive the result; a separate buffer
 *         provided and owned by the caller. Nothing is allocated for it.
 * Common outcomes: a negative width or height, or a NULL src or dst when the
 * image has pixels, returns -1 and leaves dst untouched. A width or height
 * of 0 reads and writes nothing (see each function for its return value).
 * -1 is also returned if the work fails inside (out of memory).
 */

/*
 * Sharpens with a second derivative of a Gaussian: flat areas come out at
 * 128 (whatever their grey level), edges swing toward 0 and 255.
 * direction  1 responds to changes along a row (vertical edges), 2 along a
 *            column (horizontal edges), any other value (0 in recipes) both.
 * sigma      width of the filter in pixels; values of 1.0 or less work as
 *            1.0, values above 100 as 100. Kernels are 8*sigma taps long.
 * scale      gain of the edge response; values of 0.1 or less work as 0.1,
 *            values above 3276 as 3276.
 * Returns 0 (also for an image without pixels), or -1 as above.
 */
PIXMILL_API int EnhanceImage(const uint8_t* src, uint8_t* dst, int width, int height, int direction,
                             float sigma, float scale);

/*
 * Binarises with Otsu's threshold, searched on one side of mid-grey only.
 * bright     non-zero: bright features. Otsu's level is searched among pixels
 *            above 127, the threshold used is the larger of `threshold` and
 *            that level, and dst is 255 where src is above it, else 0.
 *            Zero: dark features. Pixels at or below 128 are searched, the
 *            smaller of `threshold` and the level is used, and dst is 255
 *            where src is at or below it.
 * threshold  the caller's floor (bright) or ceiling (dark) for the level.
 * Returns the threshold used. With no pixel on the searched side (and for an
 * image without pixels) Otsu's level counts as 0, so bright returns
 * max(threshold, 0) and dark min(threshold, 0). -1 as above.
 */
PIXMILL_API int Enhance_Threshold_Otsu(const uint8_t* src, uint8_t* dst, int width, int height,
                                       int bright, int threshold);

/*
 * Binarises with a triangle threshold drawn toward the long tail of the
 * histogram: dst is 255 where src is above it, else 0. dst is written upside
 * down: its first row comes from the last row of src.
 * Returns the threshold, from -1 to 256. Note that -1 is also a real result
 * (an image whose pixels are all 1 gives -1 and an all-255 dst), so check the
 * arguments rather than the return value. An image without pixels returns 2
 * (the value of an empty histogram).
 */
PIXMILL_API int Threshold_Triangle(const uint8_t* src, uint8_t* dst, int width, int height);

/*
 * Writes the negative (255 - value) of src. Returns 0 (also for an image
 * without pixels), or -1 as above.
 */
PIXMILL_API int FuncTest(const uint8_t* src, uint8_t* dst, int width, int height);

/* ---- Pin tip search ------------------------------------------------------- */

/*
 * Finds one probe-card needle tip and tells how far it lies from the centre
 * of the search area. The prober first writes the camera image (480 x 480;
 * a colour file is read in gray) to
 * "C:\PROBERPARAM\ParaImg\PinImage\PinRefimage.bmp" (under the root on
 * Linux); the search area is the sx x sy rectangle in its middle.
 *
 * Result: X and Y, the tip centre's offset from the area centre in pixels
 * (right and down positive), and Code, a whole number:
 *   0   tip found.
 *   2   input file missing or unreadable, or the search area does not fit
 *       in the image.
 *   3   too little edge: no edge at all, or Total Edge / Max Edge below
 *       edgeRatioThreshold (Max Edge: the tip's area times 255).
 *   4   no blob left after the clean-up.
 *   5   the blob is smaller than the tip divided by sizeDivisor (radius of
 *       its enclosing circle for a round tip, box width and height for a
 *       rectangular one).
 *   6   round tip: the enclosing radius is above maxCircleRadius.
 *   7   the tip is cut by the border: move the stage by (X, Y) and call
 *       again.
 *   8   round search area: no window corner lies inside it.
 *   10  the tip touches the border of the area (tested only when the area
 *       is at least 46 pixels larger than the tip); X, Y as found.
 *   11  sx or sy is not a multiple of 4.
 *   12  tx or ty is below 4 (crown search: also Alpha or Beta out of range,
 *       or a tip not smaller than the area). Code 12 is tested before 11.
 *   13  verified searches only: another structure stands out like the tip.
 * X and Y are -1 for every code other than 0, 7 and 10.
 *
 * Arguments shared by all four:
 *   sx, sy              search area, pixels; multiples of 4, at most 480.
 *   sType               tip shape: 0 circle, 1 rectangle.
 *   aType               search area shape: 0 circle (diameter sx), 1 rectangle.
 *   tx, ty              expected tip width and height, pixels, at least 4.
 *   edgeRatioThreshold  least Total Edge / Max Edge; the prober passes 0.01.
 *   sizeDivisor         how many times smaller than the tip the blob may be.
 *   maxCircleRadius     largest enclosing radius of a round tip; prober: 280.
 *   reserved            not read.
 *
 * Files written on every call that gets past the file check, overwritten
 * each time, in "C:\PROBERPARAM\ParaImg\PinImage\": pinEdge.jpg (cleaned
 * edge image), pinECircle.jpg and pinBox.jpg (the blob's circle and box),
 * pinResult.jpg (the area with the tip marked), pinDebug.jpg (measures and
 * verdict as text), and for the verified searches PinEdgeGraph.jpg
 * (profiles, guard bands and score map). On codes 3, 4, 5, 6, 8 and 13, and
 * on 7 and 10 while the save mode is -1 or 3, two failure images go to
 * "D:\proberfiles\PinImage\": O_yyMMdd_HHmmss.jpg (the input as read) and
 * P_yyMMdd_HHmmss.jpg (the edge image), named by local time.
 *
 * Progress and failure lines ("[VBcvPinFind] Start \n", "[VBcvPinFind]
 * Fail : File Error\n", ...) go to the trace sink (PixmillSetTraceSink).
 * The save mode and the fixed files are shared by the whole process: call
 * one pin search at a time.
 */
typedef struct PinFindResult {
    double X;
    double Y;
    double Code;
} PinFindResult;

/*
 * Tries tip sizes tx, tx + 4, ... up to tx + 60 (while they fit in the
 * area) and keeps the one whose ring lies best on edge pixels, so the tip
 * may be found at a larger size than tx, ty.
 */
PIXMILL_API PinFindResult VBcvPinFind(int sx, int sy, int sType, int aType, int tx, int ty,
                                      double edgeRatioThreshold, double sizeDivisor,
                                      double maxCircleRadius, double reserved);

/*
 * VBcvPinFind after setting the save mode to saveMode. The mode stays for
 * all later pin searches until set again: -1 (the start value) and 3 keep
 * the failure images of codes 7 and 10, any other value leaves them out.
 */
PIXMILL_API PinFindResult VBcvPinFind_WRAP(int sx, int sy, int sType, int aType, int tx, int ty,
                                           double edgeRatioThreshold, double sizeDivisor,
                                           double maxCircleRadius, double reserved, int saveMode);

/*
 * Scans once at tx, ty (no other size) and then refuses the answer with
 * code 13 when a rival stands out away from the tip, more than 30 pixels
 * beyond it: a window of the edge profile through the tip's rows or columns
 * whose sum reaches verifyFactor times the tip's own, or a window position
 * outside both bands scoring at least verifyFactor times the peak. A
 * verifyFactor of 0 makes every such window a rival; above 1 only a
 * stronger structure is. saveMode is stored first, as for VBcvPinFind_WRAP.
 */
PIXMILL_API PinFindResult VBcvPinFindEX(int sx, int sy, int sType, int aType, int tx, int ty,
                                        double edgeRatioThreshold, double sizeDivisor,
                                        double maxCircleRadius, double reserved,
                                        double verifyFactor, int saveMode);

/*
 * VBcvPinFindEX for crown tips. The guard band is Alpha pixels (1 to 239)
 * on each side of the tip, and any single row or column outside it whose
 * profile reaches Beta (above 0, below 1) times the tip's mean profile
 * level is a rival (code 13). Window positions are judged as in
 * VBcvPinFindEX with verifyFactor, outside the Alpha band. Checked before
 * the file is read, in this order: Alpha and Beta (12), tx >= sx or
 * ty >= sy (12), then the checks of VBcvPinFind.
 */
PIXMILL_API PinFindResult VBcvCrownPinFind(int sx, int sy, int sType, int aType, int tx, int ty,
                                           double edgeRatioThreshold, double sizeDivisor,
                                           double maxCircleRadius, double reserved,
                                           double verifyFactor, int saveMode, int Alpha,
                                           double Beta);

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

/* ---- Pad threshold ----------------------------------------------------- */

/*
 * A binarisation level of a pad image, found in the dark part of its
 * histogram (pixels below the level are the dark class).
 * data    width*height bytes, rows from top to bottom, no row padding.
 * Works in two stages: t1, Otsu's level over the pixels below 128 only
 * (every histogram bin counted one extra, so an empty half still gives a
 * level); then the mean of the pixels below t1, and the result is
 * (mean + t1) / 2 in whole numbers. When no pixel lies below t1 (also for a
 * width or height of 0) the result is t1 / 2. The pixels are visited column
 * index first (address column * width + row); this covers a square image
 * once, and stops at the end of the buffer for other shapes.
 * Returns the level (0 to 255), or -1 when width or height is negative or
 * above 480, or data is NULL for an image with pixels.
 * Lines go to the trace sink: the version line, then "Final Threshold : %d
",
 * or "Image Buffer Sise is wrong! 
" and "[VBcvGetThreshold_Oval] End 
"
 * on a refusal.
 */
PIXMILL_API int VBcvGetThreshold_Oval_Auto_Pad_Reg(const unsigned char* data, int width,
                                                   int height);

PIXMILL_EXTERN_C_END

#endif /* PIXMILL_PIXMILL_H */
