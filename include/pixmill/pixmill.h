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
 * Input: filled by the caller, who keeps owning it; the library reads the
 * pixels in place during the call, never writes into them and keeps no
 * reference to them after it returns. Output: the caller provides the record (zero-filled); the library
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
 * No C++ exception ever leaves an export of this header: a C or Python host
 * could not catch it. Where a recipe's or override's parameter text holds a
 * number that does not read ("abc" for an integer, "x" for an ImageID), the
 * export logs two level-4 lines, one naming the filter (Name, Key, Type),
 * the parameter and the value, one naming the export
 * (<ERROR func="RecipeExecute" result="refused" what="..."/>), and returns
 * what it returns for a recipe it cannot use, as each export below says.
 * PixmillLastError (pixmill_ext.h) gives the calling thread the last of
 * those lines. Any other failure inside (out of memory) is answered the
 * same way.
 */

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
 * Returns 0. A recipe or override with a parameter value that does not read
 * is refused: `output` gets count 0 and an empty result text, as for a
 * malformed recipe, and the refusal is logged.
 */
PIXMILL_API int RecipeExecute(ImageParam* input, ImageParam* output, const wchar_t* recipe,
                              const wchar_t* param);

/*
 * Runs one filter by its registered name. An input image goes to the input
 * pin whose key equals its ImageID (1 is the customary "In" pin).
 * param   the filter's own object: {"Params":[{"Key":"Threshold","Value":"100"}]}.
 * An unknown filter name gives no images and an empty result text.
 * Returns 0; a parameter value that does not read is refused as for
 * RecipeExecute.
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
 * missing, shorter than 10 bytes or unreadable, or if a parameter value does
 * not read (nothing is copied or written then).
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
 * Safe to call from several threads: a concurrent ImageBufferRelease of the
 * same handle waits for nothing and frees the buffer once this call ends.
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
 * Returns the size of the whole result document in bytes; 0 with an empty
 * `resultText` when a parameter value does not read.
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
 * "[ERROR] Invalid  CImageBuffer ID", never touched. A handle is an opaque
 * number that is never handed out twice. The buffer calls may be made from
 * several threads at once, on one handle or many; a release while another
 * thread still uses the buffer takes effect when that use ends. Handles
 * and output records may also be released from a host's exit handlers.
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

/*
 * Frees the buffer and its images. Returns 0, or -1 for an invalid handle;
 * of two concurrent releases of one handle exactly one returns 0.
 */
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

/* ---- Pin inspections: form-factor plates, rotated tips, focus, light ------ */

/*
 * Form-factor pins: a rectangular plate with a smaller, darker base inside
 * it. The three searches read the same camera image as VBcvPinFind, cut
 * the sx x sy search area from its middle and return the offset (X, Y) of
 * the plate's centre from the area centre with Code 0. They write
 * "C:\PROBERPARAM\ParaImg\PinImage\pinResult_Formfactor_EX.jpg" (the first
 * generation: pinResult_Formfactor.jpg) with the plate, its corners and
 * its base marked.
 *
 * VBcvPinFind_Formfactor_EX2: plateWidth x plateHeight is the expected
 * plate, baseWidth x baseHeight (at least 4) the base, whose centre lies
 * (distanceX, distanceY) from the plate's. A plate that arrives in two
 * pieces is merged when their union matches the plate size within the
 * margins FormFactorMarginX / FormFactorMarginY of section PINALIGN of
 * "C:\PROBERFILES\Parameter\Temporary.ini" (10 when absent or above
 * plateHeight / 2). Code 7: the plate is cut by the area (a side within 10
 * pixels of the border); (X, Y) is the offset of what is seen: move there
 * and call again. th2 is the largest error of the measured plate size, th1
 * (0 to 255) the least gray difference plate - base, not tested when
 * skipDifference is not 0. Every other failure, parameters included, gives
 * (-1, -1, -1).
 */
PIXMILL_API PinFindResult VBcvPinFind_Formfactor_EX2(int sx, int sy, int plateWidth,
                                                     int plateHeight, int baseWidth,
                                                     int baseHeight, double distanceX,
                                                     double distanceY, double th1, double th2,
                                                     int skipDifference);

/*
 * The generation before: tx x ty is the base; exactly one plate must be
 * seen, at least 5 pixels off the border, and plate - base must reach th1.
 * No merging, no retry, no ini file; every failure gives (-1, -1, -1).
 */
PIXMILL_API PinFindResult VBcvPinFind_Formfactor_EX(int sx, int sy, int tx, int ty,
                                                    double distanceX, double distanceY,
                                                    double th1);

/*
 * The first generation: finds, in each plate, the darkest tx x tx window
 * (tx must equal ty). A plate whose window is at least 40 gray levels
 * darker than the rest of it is a pin. Codes: 0 one pin, (X, Y) the
 * plate's centre offset; 7 one pin within 5 pixels of the border, (X, Y)
 * as for 0; 9 several pins; 999 none; 2 unreadable file; -1 parameters.
 */
PIXMILL_API PinFindResult VBcvPinFind_Formfactor(int sx, int sy, int tx, int ty);

/*
 * Finds a rectangular tx x ty tip of unknown orientation in the frames
 * "<path>0.bmp" ... "<path>(FNum-1).bmp" (path in UTF-8, a prober path or a
 * native one): their edge images are merged, rotated in whole degrees from
 * -SearchAngle to +SearchAngle by AngleResolution, and the box collecting
 * the most edge is searched at each angle, twice (the second time on the
 * strips of the first answer). Result: X, Y the tip centre in the
 * coordinates of the whole 480 x 480 image, and in Code the angle in
 * degrees by which the image is turned (anticlockwise as displayed, y
 * down) to bring the tip square to the axes; a tip drawn turned clockwise
 * by a gives a. (-1, -1, -1) on failure: sx or sy above 480; tx or ty
 * below 4 or above the area; sx or sy not a multiple of 4; SearchAngle
 * outside 0..180, AngleResolution not above 0, or more than 3601 angles;
 * a frame missing, unreadable or of another size than the first, or FNum
 * below 1; the box reaching outside the area; a mean edge below 30 under
 * the box. MaxFnum is not used. Writes Rotate_Sync_Masking.jpg and
 * Rotate_Sync_Edge.jpg in "C:\PROBERPARAM\ParaImg\PinImage\". Uses two
 * threads of its own, joined before it returns; calls from several
 * threads at once are safe (they share only the debug images).
 */
PIXMILL_API PinFindResult VBcvRotatePinFind(const char* path, int FNum, int MaxFnum, int sx,
                                            int sy, int tx, int ty, double SearchAngle,
                                            double AngleResolution);

typedef struct PinFocusCheckResult {
    double Code;  /* 1 good, 2 blob too small or input unreadable */
    double X, Y;  /* the blob box centre in whole-image coordinates */
    double Width, Height;
} PinFocusCheckResult;

/*
 * Reads "C:\PROBERPARAM\ParaImg\PinImage\FocimageRef.bmp", builds the edge
 * image of the sx x sy area in its middle, keeps the pixels above 0.8 of
 * its maximum and boxes their convex hull. Code 1 when the box is more
 * than tx + 60 wide and ty + 60 high, with its centre and size; else
 * (2, -1, -1, -1, -1). Writes FocimageRes.jpg beside the input.
 */
PIXMILL_API PinFocusCheckResult VBcvPinFocusCheck(int sx, int sy, int tx, int ty);

typedef struct PinFocusingResult {
    int SFrame, TFrame;    /* frame numbers k of "<path>k.bmp" */
    int SX, SY, SWidth, SHeight;  /* S box: centre in whole-image coordinates, size */
    int TX, TY, TWidth, THeight;  /* T box, likewise */
} PinFocusingResult;

/*
 * Picks the sharpest frames of a focus series "<path>0.bmp" ...
 * "<path>(FNum-1).bmp", all of one size, in their sx x sy middle. Along
 * rows (for S) and along columns (for T) it marks runs between a rise and
 * a fall of at least max(Diff, 21) gray levels between neighbouring
 * pixels, keeps compact blobs of runs, and scores each frame by how steep
 * the sides of those blobs are. S is the frame whose row runs have the
 * steepest sides (edges across the rows: the tip's left and right), T the
 * frame whose column runs have (its top and bottom); each comes with the
 * box of its blobs. All fields are -1 on failure: sx or sy below 1, tx or
 * ty below 8 or above the area, FNum below 1; a frame missing, unreadable,
 * of another size or smaller than the area; no blob along the rows in any
 * frame, or none along the columns. Writes PinFoc.jpg in
 * "C:\PROBERPARAM\ParaImg\PinImage\".
 */
PIXMILL_API PinFocusingResult VBcvPinFocusing(const char* path, int FNum, int sx, int sy, int tx,
                                              int ty, int Diff);

/*
 * Gray level difference |background - tip| in the sx x sy window whose
 * centre lies (cx, cy) from the centre of the pin camera image. The tip
 * region is fixed at the image centre (239, 239): a disc of radius tx / 2
 * (aType 0) or a tx x ty rectangle (aType 1). Background: the window's
 * pixels outside the region; with mode 0 only those within sx / 2 of the
 * window's centre, with any other mode all of them. Returns -1.0 when the
 * file cannot be read, the window does not fit the image, or the tip or
 * the background has no pixel in the window. Writes pinLightResult.jpg.
 */
PIXMILL_API double VBcvPinLightFind(int sx, int sy, int cx, int cy, int aType, int mode, int tx,
                                    int ty);
/* ---- Wafer edge ------------------------------------------------------------ */

/*
 * The rim camera's frames are 640 x 480 (a colour file is read in gray);
 * the right 160 columns are dropped and the functions work on the 480 x 480
 * region left (a larger frame keeps its top-left 480 x 480; a smaller or
 * unreadable one is a file error). cpos tells which quadrant of the rim the
 * frame shows: 0 top right, 1 top left, 2 bottom left, 3 bottom right; the
 * wafer centre lies toward the opposite corner of the frame, and the rim is
 * expected to cross the frame's diagonal near its middle. Paths are the
 * caller's (UTF-8; "C:\..." maps under the root). Progress and failure
 * lines go to the trace sink (PixmillSetTraceSink).
 *
 * Polarity: VBcvEdgeFind, VBcvEdgeFindEX and VBcvEdgeFindIA look for the
 * wafer brighter than what lies beyond its rim (a bright wafer on a dark
 * chuck); VBcvEdgeFindEX's outer point is where, beyond a dark bevel, the
 * chuck grows brighter again. The four-frame find takes either polarity as
 * long as all four frames agree.
 */

/* Every member -1.0 on a reported failure. */
typedef struct EdgePoint {
    double X;
    double Y;
} EdgePoint;

typedef struct EdgePointPair {
    double InnerX;
    double InnerY;
    double InnerScore;
    double OuterX;
    double OuterY;
    double OuterScore;
} EdgePointPair;

/*
 * One rim point: walking from the frame's corner along its diagonal toward
 * the wafer centre, the position whose onward mean (to the nearer top or
 * bottom side) exceeds the mean of the 30 pixels behind it the most, among
 * positions where the next step grows brighter by 2 or more and x lies in
 * the band of width max(sx, sy) around column 240. The band is the only use
 * of sx and sy; their larger must be 30 to 480. Fails (X, Y = -1.0) on an
 * unreadable frame, cpos outside 0 to 3, a size out of range, or no
 * position (in that order). Pixels the walk would read past the region
 * (its first and last steps) are read at the region's side.
 */
PIXMILL_API EdgePoint VBcvEdgeFind(const char* path, int cpos, int sx, int sy);

/*
 * The inner rim point as VBcvEdgeFind finds it (walk 31 pixels from the
 * sides), then walking back out from it the outer point, rated by the
 * onward mean less the mean of the 20 pixels behind plus 3 times the step's
 * rise. Scores start at -10000; an outer walk that finds nothing leaves the
 * outer point at -1.0 and its score at -10000 (a normal return). Failures
 * as VBcvEdgeFind, six times -1.0.
 */
PIXMILL_API EdgePointPair VBcvEdgeFindEX(const char* path, int cpos, int sx, int sy);

/*
 * The best score of the last VBcvEdgeFind that got past its checks (-8000
 * when it found nothing), then 0.0 until the next one. Safe to call from
 * any thread; the last writer wins.
 */
PIXMILL_API double VBcvEdgeFind_GetScore(void);

/*
 * Shows the frame's edges (red on black, black see-through where the
 * window system allows) in the window "PatternImage" at screen position
 * (x, y); a left click toggles to the frame with the edges drawn over it.
 * Returns 0 when shown, 2 if the file cannot be read, 3 when no display can
 * be reached (trace "[VBcvEdgePattern] Fail : No display\n") or the window
 * cannot be made. The images stay until VBcvDestroyWindow.
 */
PIXMILL_API int VBcvEdgePattern(const char* path, int x, int y);

/*
 * Closes the window `name` (if a pattern window was ever opened) and
 * releases the pattern images. Returns 1, also when nothing was shown.
 */
PIXMILL_API int VBcvDestroyWindow(const char* name);

/*
 * Four-frame find. Reads "<path>0.bmp" to "<path>3.bmp" (cpos 0 to 3),
 * lists every plausible rim position on each frame's diagonal (a local
 * peak of the diagonal mean's onward rise above EdgeDetectGrayLevelThreshold)
 * and combines one position of each frame into sets that fit one wafer:
 * all four of one polarity, the weakest above EdgeGreyLevelQuadDiffThreshold
 * percent of the strongest, the two diagonals' spans agreeing within 50
 * pixels and neither above 560 diagonal steps. The two thresholds are read
 * from "C:\PROBERFILES\Parameter\Temporary.ini", section "EdgeProfile"
 * (defaults 20 and 40), and written back on every call.
 *
 * Returns the position counts and the combination count; the tables stay
 * for VBcvEdgeFindFEX_GetCoordinate until the next process call or
 * VBcvEdgeFindFEX_Release (a process call replaces them, releasing the old
 * ones). sx or sy above 480: counts 0 and combinations -1 (tables kept).
 * Unreadable frame: all five -1 (tables released). No combination: counts
 * as found, combinations 0, and the canvas goes to
 * "D:\proberfiles\WaferEdgeFail_images\P_yyMMdd_HHmmss.jpg". At most
 * 100000 combinations are kept. Writes "C:\PROBERPARAM\ParaImg\WaferSync.jpg"
 * and, with combinations, WaferEdge.jpg.
 */
typedef struct FEXCounts {
    int Count0;
    int Count1;
    int Count2;
    int Count3;
    int Combinations;
} FEXCounts;

/* (x, y) of positions 0 to 3, -1 where there is none. */
typedef struct FEXCoordinate {
    int X0, Y0, X1, Y1, X2, Y2, X3, Y3;
} FEXCoordinate;

PIXMILL_API FEXCounts VBcvEdgeFindFEX_Process(const char* path, int sx, int sy);

/*
 * The same for a thin-wafer chuck: the ini file is neither read nor
 * written (thresholds 20 and 40), and a second canvas of the averaged
 * frames is saved as WaferSync2.jpg and WaferEdge2.jpg beside the first.
 */
PIXMILL_API FEXCounts VBcvEdgeFindFEX_Process_Thin_Chuck(const char* path, int sx, int sy);

/* Frees the tables; harmless when there are none. */
PIXMILL_API void VBcvEdgeFindFEX_Release(void);

/*
 * mode 0: element `index` of each position's candidate list (strongest
 * first), a coordinate of 480 or more, or a position whose list is
 * shorter, read as -1; a position without candidates reads (-1, -1) at
 * index 0. Other modes: combination `index`, as stored. An index outside
 * every table, or no tables, gives eight -1.
 */
PIXMILL_API FEXCoordinate VBcvEdgeFindFEX_GetCoordinate(int index, int mode);

/*
 * Checks a frame (at least 480 x 480, not cut) for a rim in the band of
 * `width` diagonal steps around the diagonal's middle (step 239) and
 * returns the strength of the last step in the band above `tolerance`, or
 * -1 when none is (also for cpos outside 0 to 3, width of 2 or less, or an
 * unreadable frame). The plot goes to "C:\PROBERPARAM\ParaImg\WaferEdgeIA.jpg".
 */
PIXMILL_API int VBcvEdgeFindIA(const char* path, int cpos, int width, int tolerance);
/* ---- Canned focus measurements ----------------------------------------- */

/*
 * Rates the sharpness of one gray image of width*height bytes with the
 * Tenengrad measure (TenengradFocusFilter, box side `kernel`, kept within
 * 1..30) and returns the greatest local mean of the gradient magnitude
 * times 100, truncated: 12.345 gives 1234. Returns 0 for a flat image and
 * when nothing could be measured (null source, a dimension below 1).
 * destination  receives at most width*height bytes of the marked picture,
 *              which has three channels, so only its first third arrives;
 *              may be NULL.
 */
PIXMILL_API int TenengradFocusF(const uint8_t* source, uint8_t* destination, int width, int height,
                                int kernel);

/*
 * Chooses the sharpest image of a focus series: runs a built-in recipe
 * (MultiPeakFocusMeasureFilter on the images with ImageID 1) on an image
 * buffer, whose images stay owned by the buffer. The images of the series
 * must share one size.
 * resultText   receives the result document, NUL-terminated, cut to the
 *              whole characters that fit in `resultBytes` bytes; may be NULL.
 * Returns the 0-based index of the sharpest image; 0 when the series gives
 * none (no images, all flat, images of different sizes); -1, running
 * nothing, when `buffer` is NULL or not a live handle. The result document
 * tells index 0 from "none".
 */
PIXMILL_API int MultiPeakFocusMeasureF(void* buffer, wchar_t* resultText, int resultBytes);
/* ---- Pattern matching ----------------------------------------------------- */

/*
 * Probe-mark comparison. `markPath` is a pad image after probing, and
 * `referencePath` the same pad before probing (both read as gray; the
 * reference is resized to the mark's size). The two are lined up on the
 * pad's repeating pattern (mean offset of paired dark features, at most 4
 * pixels per axis), the reference's brightness is evened out, and the mark
 * is divided by the reference, so that shared pattern goes flat and a probe
 * mark stands out. Written to `resultFolder` (created if missing):
 *   TempImg.bmp       the flattened ratio image (about 200 where both agree),
 *   ResultPadImg.bmp  255 where TempImg is darker than 0.9 times its mean
 *                     (a probe mark), else 0.
 * Returns 1.0 on every path: success shows as the two files. A missing or
 * unreadable image, a NULL or empty resultFolder, or one too long for a
 * 256-byte file name writes no file. Lines go to the trace sink.
 */
PIXMILL_API double VBcv1032Pattern_Matching(const char* markPath, const char* referencePath,
                                            const char* resultFolder);

/*
 * Brightness gain of the mark image of the last VBcv1032Pattern_Matching:
 * (256 - m) / (256 - m * 0.96), m the mark's mean gray level. Published
 * for the host; 0 before the first comparison.
 */
PIXMILL_API float VBcvPadMeanGain(void);

/*
 * Aligns the reference onto the mark with a Euclidean ECC (at most 100
 * iterations, epsilon 1e-10) and shows the warped images and their
 * differences in five windows ("OrgMask", "OrgSub", "NormalizeSub",
 * "Normal-OrgSub", "Normal-NormalizeSub") until a key is pressed. Writes no
 * file. Without a display it traces "[VBcv1032Pattern_MatchingECC] No
 * display : ..." and returns at once. Missing images return at once.
 */
PIXMILL_API void VBcv1032Pattern_MatchingECC(const char* markPath, const char* referencePath);

/* The pattern's centre in the target and its score; all -1 on failure. */
typedef struct PatternMatchResult {
    int32_t x;
    int32_t y;
    int32_t score;
} PatternMatchResult;

/*
 * Finds the pattern image inside the target image by normalised correlation
 * (both read unchanged: same channels and 8-bit or float pixels). Returns the
 * centre of the best placement (pattern width / 2 and height / 2 added to its
 * corner, truncating) and its score, the correlation times 100 cut to an
 * integer, when that score is at least scoreThreshold; the target with the
 * placement drawn goes to "C:\PROBERPARAM\ParaImg\PinLowAlignResult.jpg".
 * Otherwise -1, -1, -1 and the drawing goes to "...\PinLowAlignFail.jpg".
 * Also -1, -1, -1 (no file) for: a NULL or empty path, a negative
 * scoreThreshold, a target or pattern that cannot be loaded (NULL paths and
 * unloadable patterns are refused here rather than read or passed on), a
 * pattern larger than the target, or images of different types. Lines go to
 * the log: progress at level 2, failures at level 4.
 */
PIXMILL_API PatternMatchResult VBcvPatternMatching(const char* targetPath, const char* patternPath,
                                                   int scoreThreshold);

/*
 * Compares the series "<path><name>0.bmp" ... "<path><name><imageCount-1>.bmp"
 * (read unchanged) pixel by pixel with image 0 and writes
 * "<path><name>M.bmp": 0 where every image lies within pixelTolerance of
 * image 0 (bytes compared as signed values, so 127 and 128 lie 255 apart),
 * 255 elsewhere. Returns 1, or 0 without writing when an image is missing or
 * differs in size or type from image 0, imageCount is 0 or less, a text is
 * NULL ("File Error"), or when count * 100 / (rows * cols) of changing pixels
 * is above changeLimit. A pixelTolerance of 0 or less marks every pixel.
 */
PIXMILL_API int VBcvMakePatternMask(const char* path, const char* name, int imageCount,
                                    int pixelTolerance, int changeLimit);
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

/* ---- Background subtraction ------------------------------------------- */

/* The flags of EnhanceImageF are C99 bool, one byte as in C++. */
#include <stdbool.h>

/*
 * Flattens uneven illumination in one gray image of width*height bytes and
 * binarises what stands out of it (BackgroundSubstractFilter):
 *   blurSize      side in pixels of the square over which the background is
 *                 estimated, 3..255 (odd; structures that do not fill such a
 *                 square are kept).
 *   threshWeight  factor on the automatic level, 0.1..10 (1 for a NaN).
 *   curvedThresh  the level follows the local light instead of being one
 *                 number for the whole image.
 *   blackWhite    the structures are dark on a bright background.
 *   erodeCount    3 x 3 erosions of the binary image, 0..20.
 *   edgeDetect    keep only the one-pixel boundary of the structures.
 * Values outside the ranges are brought inside them.
 * destination  receives width*height bytes, 255 on structure and 0 elsewhere;
 *              may be NULL.
 * Returns the byte size of the filter's result document, as
 * FilterExecuteByBuffer does. A NULL source or a width or height below 1
 * leaves destination untouched (the document then carries no result); a
 * failure inside (out of memory) returns 0.
 */
PIXMILL_API int EnhanceImageF(const uint8_t* source, uint8_t* destination, int width, int height,
                              int blurSize, float threshWeight, bool curvedThresh, bool blackWhite,
                              int erodeCount, bool edgeDetect);

/* ---- Further inspections ------------------------------------------------ */

/*
 * Paths are the caller's (UTF-8; "C:\..." maps under the root). Each call
 * first traces the version line and "[<name>] Start \n", and says why it
 * failed in a trace line ("[<name>] Fail : File Error \n", ...). Every
 * member of a record is -1 on a failure.
 */

typedef struct FiducialMarkResult {
    double X;     /* the mark's centre in whole-image pixels, sub-pixel */
    double Y;
    double Score; /* normalised correlation times 100, 0 to 100 */
} FiducialMarkResult;

/*
 * Finds a fiducial mark of known form and size in the image at `path`
 * (read as gray) by normalised correlation with a drawn mark.
 *   markType   0 cross, 1 circle (an ellipse when tx != ty), 2 square (a
 *              rectangle when tx != ty).
 *   tx, ty     outer width and height of the mark, 4 or more.
 *   lineWidth  stroke width; 0 fills a circle or square; a cross needs 1
 *              or more.
 *   polarity   0 mark darker than its ground, 1 brighter, 2 either.
 *   sx, sy     the search window, centred in the image; 0 takes the whole
 *              image along that axis. The mark's centre must lie half the
 *              mark plus a margin of max(4, min(tx, ty) / 8) inside it.
 *   minScore   least score accepted, 0 to 100.
 * Fails for a parameter out of range ("Parameter Error"), an unreadable
 * file ("File Error"), a window outside the image or smaller than the mark
 * with its margin ("Region Error"), a best score below minScore ("Low
 * Score"). A window without contrast scores 0. Writes
 * "C:\PROBERPARAM\ParaImg\FiducialMark.jpg" (the window, the mark boxed
 * green when accepted, red when not) whenever the search ran.
 */
PIXMILL_API FiducialMarkResult VBcvFiducialMarkFind(const char* path, int markType, int tx,
                                                    int ty, int lineWidth, int polarity, int sx,
                                                    int sy, double minScore);

typedef struct IntensityData {
    double Mean;   /* mean gray level */
    double StdDev; /* standard deviation, divided by the pixel count */
    double Min;    /* least gray level */
    double Max;    /* greatest gray level */
    double Pixels; /* pixels in the region */
} IntensityData;

/*
 * Gray level statistics of the region (x, y, width, height) of the image
 * at `path` (read as 8-bit gray). width = height = 0 with x = y = 0 takes
 * the whole image; any other region must be non-empty and lie wholly
 * inside the image ("Region Error").
 *   histogram      receives the pixel counts of gray levels 0 to 255 in
 *                  its first 256 entries; later entries are left alone.
 *   histogramSize  entries in `histogram`; below 256, or a NULL
 *                  histogram, fails ("Parameter Error") before the file
 *                  is read.
 * On a failure the buffer is not touched. Writes no file.
 */
PIXMILL_API IntensityData VBcvGetIntesityData(const char* path, int x, int y, int width,
                                              int height, int* histogram, int histogramSize);

typedef struct FlatPadResult {
    int32_t Level;      /* the estimator's level, in the image's scale */
    int32_t Marks;      /* marks kept */
    int32_t MarkPixels; /* their pixels together */
    int32_t MarkX;      /* box around all marks; 0, 0, 0, 0 when none */
    int32_t MarkY;
    int32_t MarkWidth;
    int32_t MarkHeight;
} FlatPadResult;

/*
 * Binarises a flat pad image (at most 480 x 480, read as gray) so that
 * its probe marks stand out, and writes the binary image (255 marks, 0
 * elsewhere) to `resultPath`, in the format its extension names. The
 * level is VBcvGetThresholdEx's on the pad figure (x, y, shape 0 to 5,
 * blackPad, angle, offset: see the pad threshold estimators). Marks are
 * found as the pixels inside the figure at or below the level on a bright
 * pad, above it on a black pad (blackPad non-zero), in connected groups
 * of 5 pixels or more; each is then outlined half-way between the pad's
 * median gray level and its own. Fails for a NULL or empty path or a result extension
 * that cannot be written ("Parameter Error", before reading), an
 * unreadable pad ("File Error"), an estimator refusal or no level
 * ("Threshold Error"), an unwritten result ("Write Error"). Also writes
 * "C:\PROBERPARAM\ParaImg\FlatPadResult.jpg" (marks red, box green).
 */
PIXMILL_API FlatPadResult VBcvBinarization_for_Flat_Pad(const char* padPath,
                                                        const char* resultPath, int x, int y,
                                                        int shape, int blackPad, int angle,
                                                        int offset);

/* ---- Die corners and alignment ------------------------------------------- */

/*
 * Framed die functions. A series of frames "<path>FrameEdge<i>.bmp",
 * "<path>FrameTheta<i>.bmp" or "<path>FDC<i>.bmp", i = 0 to count - 1, each
 * cut to its 480 x 480 region (right 160 columns dropped; a smaller or
 * unreadable frame is a file error). The die is brighter than its dark
 * border. cpos, 0 to 3:
 *   0: edge walk from (30, 450) by (+1, -1); top side; corner nearest (0, 0)
 *   1: edge walk from (450, 450) by (-1, -1); right side; corner nearest (479, 0)
 *   2: edge walk from (450, 30) by (-1, +1); bottom side; corner nearest (479, 479)
 *   3: edge walk from (30, 30) by (+1, +1); left side; corner nearest (0, 479)
 * Every member is -1.0 on a reported failure (file, cpos, nothing found,
 * count of 0 or less).
 */
typedef struct FDPoint {
    double X;
    double Y;
    double Value; /* index of the chosen frame; -1.0 for the corner finds */
} FDPoint;

/*
 * The strongest diagonal step from the dark border into the die, over all
 * frames (diagonal means, score 3 * step + onward mean - mean of the 20
 * pixels behind), then placed on the frames themselves: the greatest rise
 * from one walk point to the next from 40 steps before to 15 after it (the
 * whole walk when the means give none), in the frame where it is greatest.
 * X, Y of the last border pixel before the step; Value that frame.
 */
PIXMILL_API FDPoint VBcvFDEdgeFind(const char* path, int cpos, int count);

/*
 * The die's side as a straight line in the frame with the strongest edge
 * (above 1000): horizontal for cpos 0 and 2 (X = 240, Y = the line), vertical
 * for 1 and 3 (Y = 240). The line is the first row or column of the die
 * itself, not the start of the 5-line window that found it. Lines across
 * the side whose 5-line means step by less than 10 grays (border beside a
 * die that does not span the frame) take no part in the mean.
 */
PIXMILL_API FDPoint VBcvFDThetaFind(const char* path, int cpos, int count);

/*
 * The series fused (bright parts of the frames up to the last change of
 * mean gray), the die objects reaching the frame's sides outlined by their
 * convex hulls, and the corner of kind cpos (top-left, top-right,
 * bottom-right, bottom-left) nearest the reference corner; corners within
 * 20 pixels of a side are never taken. A plain die, which fuses to an open
 * rim, is outlined from its sharpest frame split at its Otsu level, and a
 * whole die inside its border (reaching no side) from that shape too. The
 * corner is then measured on the die's two sides in the sharpest frame of
 * the series: X, Y is the centre of the die's corner pixel, to a fraction of
 * a pixel (the outline's corner stands when the sides give no clean line).
 * Writes "C:\PROBERPARAM\ParaImg\FrmadeDieCorner.jpg", also on failure.
 */
PIXMILL_API FDPoint VBcvFDCornerFind(const char* path, int cpos, int count);

/*
 * As VBcvFDCornerFind, fusing only frames whose Otsu level lies above their
 * mean gray less 5 (all frames when none does, as for a die covering most
 * of the frame), each with dominant gray peaks removed and stretched;
 * objects must be at least 50 x 50 with square-set sides.
 */
PIXMILL_API FDPoint VBcvFDCornerFind_Ex(const char* path, int cpos, int count);

/*
 * Crops (x, y, cropWidth, cropHeight) out of a width x height 8-bit gray
 * image (read only when size >= width * height), binarises it (bright
 * features when whiteOnBlack is 0, dark features otherwise) and finds dies
 * of about dieWidth x dieHeight (within the tolerances). Returns 1 for
 * exactly one complete die: corners[0..1] its centre, corners[2..9] LT, RT,
 * RB, LB as x, y, all in image coordinates; -4 for two complete dies; -3
 * for a die with a corner missing (present corners offset, missing ones 0
 * or negative) and none complete; -1 for none. corners may be null. Writes
 * "C:\PROBERPARAM\ParaImg\PinImage\PinResult_Corner.bmp".
 * Bright dies are split from their background at Otsu's level among the
 * grays above 127, never below 128: dies over a grey background are found
 * to a pixel; on pure black, dies at 128 or darker are not seen (-1), noisy
 * dies just above it break into speckle (-1), and bright dies (160 and up)
 * are found with corners up to 2 pixels inside the die's blurred rim.
 */
PIXMILL_API int CornerDetectF(const uint8_t* image, int size, int width, int height, int x, int y,
                              int cropWidth, int cropHeight, int dieWidth, int dieHeight,
                              int toleranceWidth, int toleranceHeight, int whiteOnBlack, int* corners);

PIXMILL_EXTERN_C_END

#endif /* PIXMILL_PIXMILL_H */
