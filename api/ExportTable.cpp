// PixmillDescribeExports: the library's own description of its flat
// exports, one row per export, as a strict-JSON document.
//
// A row names the export, its header, what it does, each argument (name, C
// type, role, meaning), the returned value or record and the values it
// returns on failure. The role tells a generic caller (the pixmill tool, the
// Python binding) how to supply the argument:
//   number            an int, float or double, as the type says
//   flag              an int read as yes (non-zero) or no (0)
//   path              UTF-8 path of a file or folder, or a file name prefix
//   text              text (const char* UTF-8, or const wchar_t*)
//   pixels            8-bit pixels read by the export, rows packed
//   width:X height:X  the pixel block X's width and height
//   size:X            the pixel block X's size in bytes, or the capacity in
//                     bytes of the output buffer X
//   chars:X           the capacity in characters of the text buffer X
//   pixels_out[:X]    a buffer that receives pixels; as large as the pixel
//                     block X when X is named, else as its size: argument
//   width_out:X height_out:X  receive the dimensions of what X received
//   ints_out          an int array the export fills
//   count:X           the number of entries of the int array X
//   text_out          a wide-text buffer that receives a document
//   handle            an image buffer handle (ImageBufferCreate)
//   record_in record_out  an ImageParam record (pixmill.h)
//   callback user     a sink function and the pointer handed back to it
// A new export joins by adding one row to kExports (and a record to
// kRecords if it returns a new one); a test compares the rows with the
// library's dynamic symbol table.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>
#include <vector>

#include "api/Boundary.h"
#include "api/ImageRecords.h"
#include "api/Startup.h"
#include "logging/Logger.h"
#include "pixmill/pixmill_ext.h"
#include "platform/Platform.h"

namespace pixmill::api {
namespace {

struct Field {
    const char* name;
    const char* type;
    const char* meaning;
};

struct Record {
    const char* name;
    std::vector<Field> fields;
};

struct Arg {
    const char* name;
    const char* type;
    const char* role;  // "role" or "role:other argument"
    const char* meaning;
};

struct Export {
    const char* name;
    const char* header;
    const char* summary;
    std::vector<Arg> args;
    const char* returns;  // C type: a scalar, a record of kRecords or "void"
    const char* returnMeaning;
    const char* failure;  // the values returned on failure, "" where there are none
};

constexpr const char* kMain = "pixmill.h";
constexpr const char* kExt = "pixmill_ext.h";

const std::vector<Record>& Records() {
    static const std::vector<Record> records = {
        {"ImageData",
         {{"width", "int32_t", "pixels per row"},
          {"height", "int32_t", "rows"},
          {"channels", "int8_t", "1 or 3 (blue, green, red interleaved)"},
          {"ImageID", "int32_t", "routes an input image to its consumer; 0 on output"},
          {"size", "uint64_t", "number of pixel bytes: width * height * channels"},
          {"data", "uint8_t*", "the pixels, rows from top to bottom, packed"}}},
        {"ImageParam",
         {{"count", "int32_t", "number of entries in images"},
          {"images", "ImageData**", "array of count image pointers"},
          {"result", "wchar_t*", "output only: the result document, NUL-terminated"},
          {"resultSize", "uint64_t", "output only: size of result in bytes, terminator included"}}},
        {"PinFindResult",
         {{"X", "double", "tip centre offset from the search area centre, pixels, right positive"},
          {"Y", "double", "tip centre offset, pixels, down positive"},
          {"Code", "double", "0 found; 2, 3, 4, 5, 6, 8, 11, 12, 13 failures; 7 cut by the border; "
                             "10 touches the border (see pixmill.h); for VBcvRotatePinFind the angle"}}},
        {"PinFocusCheckResult",
         {{"Code", "double", "1 good, 2 blob too small or input unreadable"},
          {"X", "double", "blob box centre x, whole-image coordinates"},
          {"Y", "double", "blob box centre y"},
          {"Width", "double", "blob box width"},
          {"Height", "double", "blob box height"}}},
        {"PinFocusingResult",
         {{"SFrame", "int", "frame number of the sharpest left/right sides"},
          {"TFrame", "int", "frame number of the sharpest top/bottom sides"},
          {"SX", "int", "S box centre x"},
          {"SY", "int", "S box centre y"},
          {"SWidth", "int", "S box width"},
          {"SHeight", "int", "S box height"},
          {"TX", "int", "T box centre x"},
          {"TY", "int", "T box centre y"},
          {"TWidth", "int", "T box width"},
          {"THeight", "int", "T box height"}}},
        {"EdgePoint", {{"X", "double", "rim point x"}, {"Y", "double", "rim point y"}}},
        {"EdgePointPair",
         {{"InnerX", "double", "inner rim point x"},
          {"InnerY", "double", "inner rim point y"},
          {"InnerScore", "double", "its score (from -10000)"},
          {"OuterX", "double", "outer rim point x, -1.0 when none"},
          {"OuterY", "double", "outer rim point y, -1.0 when none"},
          {"OuterScore", "double", "its score, -10000 when none"}}},
        {"FEXCounts",
         {{"Count0", "int", "rim positions found on frame 0"},
          {"Count1", "int", "on frame 1"},
          {"Count2", "int", "on frame 2"},
          {"Count3", "int", "on frame 3"},
          {"Combinations", "int", "sets of four positions that fit one wafer"}}},
        {"FEXCoordinate",
         {{"X0", "int", "position 0 x"}, {"Y0", "int", "position 0 y"},
          {"X1", "int", "position 1 x"}, {"Y1", "int", "position 1 y"},
          {"X2", "int", "position 2 x"}, {"Y2", "int", "position 2 y"},
          {"X3", "int", "position 3 x"}, {"Y3", "int", "position 3 y"}}},
        {"PatternMatchResult",
         {{"x", "int32_t", "pattern centre x in the target"},
          {"y", "int32_t", "pattern centre y in the target"},
          {"score", "int32_t", "correlation times 100"}}},
        {"FDPoint",
         {{"X", "double", "point x in the 480 x 480 frame region"},
          {"Y", "double", "point y"},
          {"Value", "double", "index of the chosen frame; -1.0 for the corner finds"}}},
        {"FiducialMarkResult",
         {{"X", "double", "mark centre x, whole-image pixels, sub-pixel"},
          {"Y", "double", "mark centre y"},
          {"Score", "double", "normalised correlation times 100, 0 to 100"}}},
        {"IntensityData",
         {{"Mean", "double", "mean gray level"},
          {"StdDev", "double", "standard deviation, divided by the pixel count"},
          {"Min", "double", "least gray level"},
          {"Max", "double", "greatest gray level"},
          {"Pixels", "double", "pixels in the region"}}},
        {"FlatPadResult",
         {{"Level", "int32_t", "the pad threshold estimator's level"},
          {"Marks", "int32_t", "probe marks kept"},
          {"MarkPixels", "int32_t", "their pixels together"},
          {"MarkX", "int32_t", "box around all marks, left; 0 when none"},
          {"MarkY", "int32_t", "box top"},
          {"MarkWidth", "int32_t", "box width"},
          {"MarkHeight", "int32_t", "box height"}}},
    };
    return records;
}

// Arguments several exports share.
const Arg kSx{"sx", "int", "number", "search area width, pixels: a multiple of 4, at most 480"};
const Arg kSy{"sy", "int", "number", "search area height, pixels: a multiple of 4, at most 480"};
const Arg kSType{"sType", "int", "number", "tip shape: 0 circle, 1 rectangle"};
const Arg kAType{"aType", "int", "number", "search area shape: 0 circle (diameter sx), 1 rectangle"};
const Arg kTx{"tx", "int", "number", "expected tip width, pixels, at least 4"};
const Arg kTy{"ty", "int", "number", "expected tip height, pixels, at least 4"};
const Arg kEdgeRatio{"edgeRatioThreshold", "double", "number", "least Total Edge / Max Edge (prober: 0.01)"};
const Arg kSizeDivisor{"sizeDivisor", "double", "number", "how many times smaller than the tip the blob may be"};
const Arg kMaxRadius{"maxCircleRadius", "double", "number", "largest enclosing radius of a round tip (prober: 280)"};
const Arg kReserved{"reserved", "double", "number", "not read"};
const Arg kSaveMode{"saveMode", "int", "number", "save mode for this and later pin searches: -1 or 3 keep the failure images of codes 7 and 10"};
const Arg kVerify{"verifyFactor", "double", "number", "how strong a rival away from the tip must be, relative to the tip"};
const Arg kFramePath{"path", "const char*", "path", "frame image (UTF-8; prober paths map under the root)"};
const Arg kSeriesPath{"path", "const char*", "path", "prefix of the frames <path>0.bmp, <path>1.bmp, ..."};
const Arg kCpos{"cpos", "int", "number", "rim quadrant of the frame: 0 top right, 1 top left, 2 bottom left, 3 bottom right"};
const Arg kEdgeSx{"sx", "int", "number", "band width; the larger of sx, sy must be 30 to 480"};
const Arg kEdgeSy{"sy", "int", "number", "band height"};
const Arg kSrc{"src", "const uint8_t*", "pixels", "one-channel image, width*height bytes"};
const Arg kDst{"dst", "uint8_t*", "pixels_out:src", "receives width*height bytes"};
const Arg kWidth{"width", "int", "width:src", "pixels per row"};
const Arg kHeight{"height", "int", "height:src", "rows"};
const Arg kRecipe{"recipe", "const wchar_t*", "text", "recipe JSON text, or the path of a recipe file"};
const Arg kLogParam{"param", "const wchar_t*", "text", "written to the log only"};
const Arg kResultText{"resultText", "wchar_t*", "text_out", "receives the result document, without terminator; zero-fill it"};
const Arg kResultBytes{"resultBytes", "int", "size:resultText", "capacity of resultText in bytes"};
const Arg kOutImage{"outImage", "uint8_t*", "pixels_out", "receives the first output image's pixels"};
const Arg kOutSize{"outSize", "int", "size:outImage", "capacity of outImage in bytes"};
const Arg kOutWidth{"outWidth", "int*", "width_out:outImage", "receives the output image's width (left alone without output)"};
const Arg kOutHeight{"outHeight", "int*", "height_out:outImage", "receives its height"};
const Arg kBuffer{"buffer", "void*", "handle", "image buffer handle"};
const Arg kInput{"input", "ImageParam*", "record_in", "input images (the caller's); NULL runs without images"};
const Arg kOutput{"output", "ImageParam*", "record_out", "zero-filled record that receives the output images and the result document; release with ImageParamRelease"};

constexpr const char* kPinReturn = "tip offset and result code";
constexpr const char* kEnhanceFailure = "-1: negative width or height, NULL src or dst for an image with pixels, or an internal failure";
constexpr const char* kResultSizeReturn = "size of the whole result document in bytes, also when the copy was cut";
constexpr const char* kResultSizeFailure = "0: recipe file missing, shorter than 10 bytes or unreadable, or a parameter value that does not read";

const std::vector<Export>& Exports() {
    static const std::vector<Export> exports = {
        // ---- Recipe and filter execution
        {"RecipeExecute", kMain, "Runs a recipe on the caller's images.",
         {kInput, kOutput, {"recipe", "const wchar_t*", "text", "recipe JSON text; NULL or malformed runs an empty recipe"},
          {"param", "const wchar_t*", "text", "optional override document {\"<filter Key or Name>\":{\"Params\":[...]}}"}},
         "int", "0", "a refused recipe gives output count 0 and an empty result text; returns 0"},
        {"FilterExecute", kMain, "Runs one filter by its registered name; an input image goes to the pin whose key is its ImageID.",
         {kInput, kOutput, {"filter", "const wchar_t*", "text", "registered filter name"},
          {"param", "const wchar_t*", "text", "the filter's own object {\"Params\":[{\"Key\":...,\"Value\":...}]}"}},
         "int", "0", "an unknown filter or refused parameter gives no images and an empty result text; returns 0"},
        {"RecipeExecuteByPath", kMain, "Runs a recipe file on image files.",
         {{"inputs", "const wchar_t*", "text", "image paths and IDs separated by |; a digits-only token sets the ID of the following images"},
          {"outputPath", "const wchar_t*", "text", "if not empty, the first output image is written there"},
          {"recipePath", "const wchar_t*", "text", "recipe file, UTF-8 or UTF-16 with BOM"},
          kLogParam, kResultText, kResultBytes},
         "int", kResultSizeReturn, kResultSizeFailure},
        {"RecipeExecuteByBuffer", kMain, "Runs a recipe on up to two caller images in memory.",
         {{"image1", "const uint8_t*", "pixels", "image with ImageID 1"},
          {"size1", "int", "size:image1", "its bytes: width1*height1 (gray) or 3*width1*height1; <= 0 skips it"},
          {"width1", "int", "width:image1", "its width"},
          {"height1", "int", "height:image1", "its height"},
          {"image2", "const uint8_t*", "pixels", "image with ImageID 2"},
          {"size2", "int", "size:image2", "its bytes; <= 0 skips it"},
          {"width2", "int", "width:image2", "its width"},
          {"height2", "int", "height:image2", "its height"},
          kOutImage, kOutSize, kOutWidth, kOutHeight, kRecipe, kLogParam, kResultText, kResultBytes},
         "int", kResultSizeReturn, kResultSizeFailure},
        {"RecipeExecuteByBufferID", kMain, "Runs a recipe on the images of an image buffer.",
         {kBuffer, kOutImage, kOutSize, kOutWidth, kOutHeight, kRecipe,
          {"param", "const wchar_t*", "text", "override document, as for RecipeExecute"}, kResultText, kResultBytes},
         "int", kResultSizeReturn, "-1: buffer is not a live handle; 0 as for RecipeExecuteByPath"},
        {"FilterExecuteByBuffer", kMain, "Runs one filter on a one-channel image (ImageID 1).",
         {{"source", "const uint8_t*", "pixels", "one-channel image, width*height bytes"},
          {"destination", "uint8_t*", "pixels_out:source", "receives at most width*height bytes of the first output image; may be NULL"},
          {"width", "int", "width:source", "pixels per row"},
          {"height", "int", "height:source", "rows"},
          {"filter", "const wchar_t*", "text", "registered filter name"},
          {"param", "const wchar_t*", "text", "the filter's own object {\"Params\":[...]}"},
          {"resultText", "wchar_t*", "text_out", "receives the result document, NUL-terminated, cut to fit"},
          {"resultChars", "int", "chars:resultText", "capacity of resultText in characters"}},
         "int", kResultSizeReturn, "0 with an empty resultText: a parameter value does not read"},
        {"ImageParamRelease", kMain, "Frees what an output record holds and zeroes its count and pointers.",
         {{"record", "ImageParam*", "record_out", "an output record filled by the library"}},
         "int", "1", "0: record is NULL"},
        // ---- Image buffers
        {"ImageBufferCreate", kMain, "Makes an image buffer.", {}, "void*", "the buffer's handle", "NULL"},
        {"ImageBufferAdd", kMain, "Copies an image into the buffer under an ID (never replaces).",
         {kBuffer, {"imageId", "int", "number", "the image's ID"},
          {"data", "const uint8_t*", "pixels", "the pixels"},
          {"size", "int", "size:data", "width*height (gray) or 3*width*height; any other size stores an empty image"},
          {"width", "int", "width:data", "pixels per row"},
          {"height", "int", "height:data", "rows"}},
         "int", "0", "-1: invalid handle"},
        {"ImageBufferGet", kMain, "Finds the newest image with an ID and copies its pixels.",
         {kBuffer, {"imageId", "int", "number", "the image's ID"},
          {"data", "uint8_t*", "pixels_out", "receives at most min(size, width*height) bytes"},
          {"size", "int", "size:data", "capacity of data; 0 to learn the dimensions only"},
          {"width", "int*", "width_out:data", "receives the width"},
          {"height", "int*", "height_out:data", "receives the height"}},
         "int", "width*height", "0: no such image; -1: invalid handle"},
        {"ImageBufferRelease", kMain, "Frees the buffer and its images.", {kBuffer}, "int", "0", "-1: invalid handle"},
        // ---- Image files and pixels
        {"ImageRead", kMain, "Reads an image file as one channel.",
         {{"data", "uint8_t*", "pixels_out", "receives at most min(size, width*height) bytes"},
          {"size", "int", "size:data", "capacity of data; below 1 copies nothing"},
          {"width", "int*", "width_out:data", "receives the width (0 for an unreadable file)"},
          {"height", "int*", "height_out:data", "receives the height"},
          {"path", "const char*", "path", "image file, UTF-8; prober paths map under the root"}},
         "int", "width*height", "0: unreadable file; -1: failure (NULL path)"},
        {"ImageWrite", kMain, "Writes a one-channel image; the extension chooses the format.",
         {{"data", "const uint8_t*", "pixels", "width*height bytes"},
          {"width", "int", "width:data", "pixels per row"},
          {"height", "int", "height:data", "rows"},
          {"path", "const char*", "path", "file to write"}},
         "int", "0", "-1"},
        {"ImageInvert", kMain, "Writes the negative (255 - value) of a one-channel image.",
         {{"source", "const uint8_t*", "pixels", "width*height bytes"},
          {"destination", "uint8_t*", "pixels_out:source", "receives width*height bytes"},
          {"width", "int", "width:source", "pixels per row"},
          {"height", "int", "height:source", "rows"}},
         "int", "0", "-1: a negative dimension"},
        // ---- Enhancement
        {"EnhanceImage", kMain, "Sharpens with a second derivative of a Gaussian; flat areas come out at 128.",
         {kSrc, kDst, kWidth, kHeight,
          {"direction", "int", "number", "1 along rows, 2 along columns, other values both"},
          {"sigma", "float", "number", "filter width in pixels, 1.0 to 100"},
          {"scale", "float", "number", "gain of the edge response, 0.1 to 3276"}},
         "int", "0", kEnhanceFailure},
        {"Enhance_Threshold_Otsu", kMain, "Binarises with Otsu's threshold searched on one side of mid-grey.",
         {kSrc, kDst, kWidth, kHeight,
          {"bright", "int", "flag", "non-zero: bright features, zero: dark features"},
          {"threshold", "int", "number", "floor (bright) or ceiling (dark) of the level"}},
         "int", "the threshold used", kEnhanceFailure},
        {"Threshold_Triangle", kMain, "Binarises with a triangle threshold; dst is written upside down.",
         {kSrc, kDst, kWidth, kHeight}, "int", "the threshold, -1 to 256 (-1 is also a real result)",
         kEnhanceFailure},
        {"FuncTest", kMain, "Writes the negative (255 - value) of src.", {kSrc, kDst, kWidth, kHeight},
         "int", "0", kEnhanceFailure},
        // ---- Pin tip search
        {"VBcvPinFind", kMain, "Finds a probe-card needle tip in PinRefimage.bmp, trying sizes tx to tx + 60.",
         {kSx, kSy, kSType, kAType, kTx, kTy, kEdgeRatio, kSizeDivisor, kMaxRadius, kReserved},
         "PinFindResult", kPinReturn, "X, Y = -1 with Code 2, 3, 4, 5, 6, 8, 11 or 12"},
        {"VBcvPinFind_WRAP", kMain, "VBcvPinFind after setting the save mode.",
         {kSx, kSy, kSType, kAType, kTx, kTy, kEdgeRatio, kSizeDivisor, kMaxRadius, kReserved, kSaveMode},
         "PinFindResult", kPinReturn, "X, Y = -1 with Code 2, 3, 4, 5, 6, 8, 11 or 12"},
        {"VBcvPinFindEX", kMain, "Verified tip search at tx, ty: refuses with Code 13 when a rival stands out.",
         {kSx, kSy, kSType, kAType, kTx, kTy, kEdgeRatio, kSizeDivisor, kMaxRadius, kReserved, kVerify, kSaveMode},
         "PinFindResult", kPinReturn, "X, Y = -1 with Code 2, 3, 4, 5, 6, 8, 11, 12 or 13"},
        {"VBcvCrownPinFind", kMain, "Verified search for crown tips with a guard band.",
         {kSx, kSy, kSType, kAType, kTx, kTy, kEdgeRatio, kSizeDivisor, kMaxRadius, kReserved, kVerify, kSaveMode,
          {"Alpha", "int", "number", "guard band in pixels, 1 to 239"},
          {"Beta", "double", "number", "rival level relative to the tip's profile, above 0, below 1"}},
         "PinFindResult", kPinReturn, "X, Y = -1 with Code 2, 3, 4, 5, 6, 8, 11, 12 or 13"},
        // ---- Small exports
        {"Add", kMain, "Returns a + b.",
         {{"a", "int", "number", "first term"}, {"b", "int", "number", "second term"}}, "int", "a + b", ""},
        {"VBcvTestConv", kMain, "Reads D:\\a.bmp, sets every non-zero pixel to 255, writes D:\\b.bmp.", {},
         "int", "0", "-1: the input cannot be read"},
        {"Gnuplot_splot", kMain, "The fourth field of the version line.", {}, "int", "0 on Linux", ""},
        // ---- Filter description
        {"GetFilterList", kMain, "Copies the filter description document (not strict JSON).",
         {{"text", "wchar_t*", "text_out", "receives at most textBytes bytes, no terminator; NULL to learn the size"},
          {"textBytes", "int", "size:text", "capacity of text in bytes"}},
         "int", "size of the whole document in bytes", "0"},
        {"GetFilterInfo", kMain, "Like GetFilterList, counting characters; prefer GetFilterList.",
         {{"filter", "const wchar_t*", "text", "written to the log only"},
          {"text", "wchar_t*", "text_out", "receives at most textBytes bytes, no terminator"},
          {"textBytes", "int", "size:text", "capacity of text in bytes"}},
         "int", "length of the document in characters", "0"},
        // ---- Pin inspections: form factor, rotated, focus, light
        {"VBcvPinFind_Formfactor_EX2", kMain, "Form-factor pin: a plate with a darker base; merges a plate seen in two pieces.",
         {kSx, kSy, {"plateWidth", "int", "number", "expected plate width"},
          {"plateHeight", "int", "number", "expected plate height"},
          {"baseWidth", "int", "number", "base width, at least 4"},
          {"baseHeight", "int", "number", "base height, at least 4"},
          {"distanceX", "double", "number", "base centre x offset from the plate's"},
          {"distanceY", "double", "number", "base centre y offset from the plate's"},
          {"th1", "double", "number", "least gray difference plate - base, 0 to 255"},
          {"th2", "double", "number", "largest error of the measured plate size"},
          {"skipDifference", "int", "flag", "non-zero: th1 is not tested"}},
         "PinFindResult", "plate centre offset, Code 0 (7: cut by the area)", "-1, -1, -1"},
        {"VBcvPinFind_Formfactor_EX", kMain, "Form-factor pin, the generation before: exactly one plate.",
         {kSx, kSy, {"tx", "int", "number", "base width"}, {"ty", "int", "number", "base height"},
          {"distanceX", "double", "number", "base centre x offset from the plate's"},
          {"distanceY", "double", "number", "base centre y offset from the plate's"},
          {"th1", "double", "number", "least gray difference plate - base"}},
         "PinFindResult", "plate centre offset, Code 0", "-1, -1, -1"},
        {"VBcvPinFind_Formfactor", kMain, "Form-factor pin, first generation: the darkest tx x tx window per plate.",
         {kSx, kSy, {"tx", "int", "number", "window side"}, {"ty", "int", "number", "must equal tx"}},
         "PinFindResult", "Code 0 one pin, 7 one pin near the border, 9 several pins, 999 none",
         "Code 2 unreadable file, -1 parameters"},
        {"VBcvRotatePinFind", kMain, "Finds a rectangular tip of unknown orientation in a series of frames.",
         {kSeriesPath, {"FNum", "int", "number", "number of frames"},
          {"MaxFnum", "int", "number", "not used"}, kSx, kSy, kTx, kTy,
          {"SearchAngle", "double", "number", "angles searched: -SearchAngle to +SearchAngle, 0 to 180 degrees"},
          {"AngleResolution", "double", "number", "angle step in degrees, above 0"}},
         "PinFindResult", "tip centre in whole-image coordinates; Code the angle in degrees", "-1, -1, -1"},
        {"VBcvPinFocusCheck", kMain, "Checks FocimageRef.bmp for an in-focus tip.",
         {kSx, kSy, kTx, kTy}, "PinFocusCheckResult", "Code 1 with the blob box", "2, -1, -1, -1, -1"},
        {"VBcvPinFocusing", kMain, "Picks the sharpest frames of a focus series along rows (S) and columns (T).",
         {kSeriesPath, {"FNum", "int", "number", "number of frames"}, {"sx", "int", "number", "area width, at least 1"},
          {"sy", "int", "number", "area height, at least 1"}, {"tx", "int", "number", "tip width, 8 to sx"},
          {"ty", "int", "number", "tip height, 8 to sy"},
          {"Diff", "int", "number", "least rise or fall between neighbours (at least 21 is used)"}},
         "PinFocusingResult", "the two frames with their boxes", "every field -1"},
        {"VBcvPinLightFind", kMain, "Gray level difference |background - tip| around the image centre.",
         {{"sx", "int", "number", "window width"}, {"sy", "int", "number", "window height"},
          {"cx", "int", "number", "window centre x offset from the image centre"},
          {"cy", "int", "number", "window centre y offset from the image centre"},
          {"aType", "int", "number", "tip region: 0 disc of radius tx / 2, 1 tx x ty rectangle"},
          {"mode", "int", "number", "0: background within sx / 2 of the window centre, other: all"},
          {"tx", "int", "number", "tip width"}, {"ty", "int", "number", "tip height"}},
         "double", "the gray level difference", "-1.0"},
        // ---- Wafer edge
        {"VBcvEdgeFind", kMain, "One rim point along the frame's diagonal.", {kFramePath, kCpos, kEdgeSx, kEdgeSy},
         "EdgePoint", "the rim point", "X, Y = -1.0"},
        {"VBcvEdgeFindEX", kMain, "The inner rim point, then the outer point beyond a dark bevel.",
         {kFramePath, kCpos, kEdgeSx, kEdgeSy}, "EdgePointPair", "inner and outer points with scores",
         "six times -1.0"},
        {"VBcvEdgeFind_GetScore", kMain, "Best score of the last VBcvEdgeFind that got past its checks.", {},
         "double", "the score (-8000 when nothing was found), then 0.0 until the next one", ""},
        {"VBcvEdgePattern", kMain, "Shows the frame's edges in the window PatternImage.",
         {kFramePath, {"x", "int", "number", "window x on screen"}, {"y", "int", "number", "window y on screen"}},
         "int", "0 when shown", "2: unreadable file; 3: no display or no window"},
        {"VBcvDestroyWindow", kMain, "Closes a pattern window and releases the pattern images.",
         {{"name", "const char*", "text", "window name"}}, "int", "1", ""},
        {"VBcvEdgeFindFEX_Process", kMain, "Four-frame find on <path>0.bmp to <path>3.bmp; keeps tables for GetCoordinate.",
         {kSeriesPath, {"sx", "int", "number", "at most 480"}, {"sy", "int", "number", "at most 480"}},
         "FEXCounts", "position counts and combinations",
         "counts 0 and Combinations -1: sx or sy above 480; all -1: unreadable frame"},
        {"VBcvEdgeFindFEX_Process_Thin_Chuck", kMain, "Four-frame find for a thin-wafer chuck (no ini file).",
         {kSeriesPath, {"sx", "int", "number", "at most 480"}, {"sy", "int", "number", "at most 480"}},
         "FEXCounts", "position counts and combinations",
         "counts 0 and Combinations -1: sx or sy above 480; all -1: unreadable frame"},
        {"VBcvEdgeFindFEX_Release", kMain, "Frees the four-frame tables.", {}, "void", "", ""},
        {"VBcvEdgeFindFEX_GetCoordinate", kMain, "Reads the four-frame tables.",
         {{"index", "int", "number", "candidate (mode 0) or combination index"},
          {"mode", "int", "number", "0: candidates of each position, other: combinations"}},
         "FEXCoordinate", "four positions", "eight -1: index outside every table, or no tables"},
        {"VBcvEdgeFindIA", kMain, "Checks a frame for a rim in a band around the diagonal's middle.",
         {kFramePath, kCpos, {"width", "int", "number", "band width in diagonal steps, above 2"},
          {"tolerance", "int", "number", "least step strength"}},
         "int", "strength of the last step in the band above tolerance", "-1"},
        // ---- Focus
        {"TenengradFocusF", kMain, "Tenengrad sharpness of one gray image, times 100.",
         {{"source", "const uint8_t*", "pixels", "width*height bytes"},
          {"destination", "uint8_t*", "pixels_out:source", "receives the first third of the marked picture; may be NULL"},
          {"width", "int", "width:source", "pixels per row"},
          {"height", "int", "height:source", "rows"},
          {"kernel", "int", "number", "box side, kept within 1..30"}},
         "int", "the greatest local mean gradient magnitude times 100", "0: flat image or nothing measured"},
        {"MultiPeakFocusMeasureF", kMain, "The sharpest image of a focus series held in an image buffer (ImageID 1).",
         {kBuffer, {"resultText", "wchar_t*", "text_out", "receives the result document, NUL-terminated; may be NULL"},
          {"resultBytes", "int", "size:resultText", "capacity of resultText in bytes"}},
         "int", "0-based index of the sharpest image (0 also when there is none)", "-1: buffer is NULL or not live"},
        // ---- Pattern matching
        {"VBcv1032Pattern_Matching", kMain, "Probe-mark comparison; writes TempImg.bmp and ResultPadImg.bmp.",
         {{"markPath", "const char*", "path", "pad image after probing"},
          {"referencePath", "const char*", "path", "the same pad before probing"},
          {"resultFolder", "const char*", "path", "folder for the two files (created if missing)"}},
         "double", "1.0; success shows as the two files", ""},
        {"VBcvPadMeanGain", kMain, "Brightness gain of the last comparison's mark image.", {}, "float",
         "(256 - m) / (256 - m * 0.96), m the mark's mean", "0 before the first comparison"},
        {"VBcv1032Pattern_MatchingECC", kMain, "Aligns the reference onto the mark (ECC) and shows the differences.",
         {{"markPath", "const char*", "path", "pad image after probing"},
          {"referencePath", "const char*", "path", "the same pad before probing"}},
         "void", "", ""},
        {"VBcvPatternMatching", kMain, "Finds a pattern image inside a target image by normalised correlation.",
         {{"targetPath", "const char*", "path", "target image"},
          {"patternPath", "const char*", "path", "pattern image"},
          {"scoreThreshold", "int", "number", "least score (correlation times 100)"}},
         "PatternMatchResult", "the pattern's centre and score", "-1, -1, -1"},
        {"VBcvMakePatternMask", kMain, "Masks the pixels that change across a series; writes <path><name>M.bmp.",
         {{"path", "const char*", "path", "folder prefix of the series"},
          {"name", "const char*", "path", "file name stem of the series"},
          {"imageCount", "int", "number", "number of images"},
          {"pixelTolerance", "int", "number", "largest difference from image 0 that counts as unchanged"},
          {"changeLimit", "int", "number", "largest percentage of changing pixels"}},
         "int", "1", "0: missing or mismatched image, bad count, NULL text, or too many changing pixels"},
        // ---- Pad threshold
        {"VBcvGetThreshold_Oval_Auto_Pad_Reg", kMain, "Binarisation level of a pad image from its dark half.",
         {{"data", "const unsigned char*", "pixels", "width*height bytes"},
          {"width", "int", "width:data", "0 to 480"},
          {"height", "int", "height:data", "0 to 480"}},
         "int", "the level, 0 to 255", "-1: a dimension negative or above 480, or NULL data with pixels"},
        // ---- Background subtraction and further inspections
        {"EnhanceImageF", kMain, "Flattens uneven light in a gray image and binarises what stands out of it.",
         {{"source", "const uint8_t*", "pixels", "width*height bytes"},
          {"destination", "uint8_t*", "pixels_out:source", "receives the binary image, 255 on structure; may be NULL"},
          {"width", "int", "width:source", "pixels per row"},
          {"height", "int", "height:source", "rows"},
          {"blurSize", "int", "number", "side of the background square, 3..255"},
          {"threshWeight", "float", "number", "factor on the automatic level, 0.1..10"},
          {"curvedThresh", "bool", "flag", "the level follows the local light"},
          {"blackWhite", "bool", "flag", "structures dark on a bright background"},
          {"erodeCount", "int", "number", "3 x 3 erosions, 0..20"},
          {"edgeDetect", "bool", "flag", "keep only the structures' one-pixel boundary"}},
         "int", "byte size of the filter's result document", "0: failure inside (out of memory)"},
        {"VBcvFiducialMarkFind", kMain, "Finds a cross, circle or square fiducial mark of known size; writes FiducialMark.jpg.",
         {{"path", "const char*", "path", "image file (UTF-8; prober paths map under the root)"},
          {"markType", "int", "number", "0 cross, 1 circle, 2 square"},
          {"tx", "int", "number", "outer mark width, 4 or more"},
          {"ty", "int", "number", "outer mark height, 4 or more"},
          {"lineWidth", "int", "number", "stroke width; 0 fills a circle or square"},
          {"polarity", "int", "number", "0 darker than its ground, 1 brighter, 2 either"},
          {"sx", "int", "number", "search window width at the image centre; 0 the whole width"},
          {"sy", "int", "number", "search window height; 0 the whole height"},
          {"minScore", "double", "number", "least score accepted, 0 to 100"}},
         "FiducialMarkResult", "the mark's centre and score", "all -1: bad parameter, unreadable file, window, low score"},
        {"VBcvGetIntesityData", kMain, "Gray level statistics and histogram of an image region.",
         {{"path", "const char*", "path", "image file (UTF-8; prober paths map under the root)"},
          {"x", "int", "number", "region left"},
          {"y", "int", "number", "region top"},
          {"width", "int", "number", "region width; 0 with all others 0 takes the whole image"},
          {"height", "int", "number", "region height"},
          {"histogram", "int*", "ints_out", "receives the counts of gray levels 0 to 255"},
          {"histogramSize", "int", "count:histogram", "entries in histogram, 256 or more"}},
         "IntensityData", "mean, deviation, least, greatest and pixel count",
         "all -1: NULL or short histogram, unreadable file, region outside the image"},
        {"VBcvBinarization_for_Flat_Pad", kMain, "Binarises a flat pad image so that probe marks stand out; writes it.",
         {{"padPath", "const char*", "path", "pad image, at most 480 x 480 (UTF-8; prober paths map under the root)"},
          {"resultPath", "const char*", "path", "where the binary image is written"},
          {"x", "int", "number", "pad figure centre x"},
          {"y", "int", "number", "pad figure centre y"},
          {"shape", "int", "number", "pad figure shape, 0 to 5"},
          {"blackPad", "int", "flag", "the pad is darker than the marks"},
          {"angle", "int", "number", "pad figure angle"},
          {"offset", "int", "number", "the estimator's offset"}},
         "FlatPadResult", "level, marks and their box", "all -1: bad parameter, unreadable pad, no level, unwritten result"},
        // ---- Die corners
        {"VBcvFDEdgeFind", kMain, "Strongest diagonal step from the dark border into the die over the FrameEdge<i>.bmp series.",
         {{"path", "const char*", "path", "series prefix (UTF-8; prober paths map under the root)"},
          {"cpos", "int", "number", "0 top, 1 right, 2 bottom, 3 left side (corner 0 top left, then clockwise)"},
          {"count", "int", "number", "frames in the series, 1 or more"}},
         "FDPoint", "the point found", "all -1.0: file, cpos, count or nothing found"},
        {"VBcvFDThetaFind", kMain, "The die side as a line in the sharpest FrameTheta<i>.bmp frame.",
         {{"path", "const char*", "path", "series prefix (UTF-8; prober paths map under the root)"},
          {"cpos", "int", "number", "0 top, 1 right, 2 bottom, 3 left side (corner 0 top left, then clockwise)"},
          {"count", "int", "number", "frames in the series, 1 or more"}},
         "FDPoint", "the point found", "all -1.0: file, cpos, count or nothing found"},
        {"VBcvFDCornerFind", kMain, "The die corner of the fused FDC<i>.bmp series; writes FrmadeDieCorner.jpg.",
         {{"path", "const char*", "path", "series prefix (UTF-8; prober paths map under the root)"},
          {"cpos", "int", "number", "0 top, 1 right, 2 bottom, 3 left side (corner 0 top left, then clockwise)"},
          {"count", "int", "number", "frames in the series, 1 or more"}},
         "FDPoint", "the point found", "all -1.0: file, cpos, count or nothing found"},
        {"VBcvFDCornerFind_Ex", kMain, "As VBcvFDCornerFind on the frames above their mean gray, peaks removed and stretched.",
         {{"path", "const char*", "path", "series prefix (UTF-8; prober paths map under the root)"},
          {"cpos", "int", "number", "0 top, 1 right, 2 bottom, 3 left side (corner 0 top left, then clockwise)"},
          {"count", "int", "number", "frames in the series, 1 or more"}},
         "FDPoint", "the point found", "all -1.0: file, cpos, count or nothing found"},
        {"CornerDetectF", kMain, "Finds the one complete die in a crop of a gray image and its four corners.",
         {{"image", "const uint8_t*", "pixels", "width*height bytes"},
          {"size", "int", "size:image", "bytes in image; read only when at least width*height"},
          {"width", "int", "width:image", "pixels per row"},
          {"height", "int", "height:image", "rows"},
          {"x", "int", "number", "crop left"},
          {"y", "int", "number", "crop top"},
          {"cropWidth", "int", "number", "crop width"},
          {"cropHeight", "int", "number", "crop height"},
          {"dieWidth", "int", "number", "expected die width"},
          {"dieHeight", "int", "number", "expected die height"},
          {"toleranceWidth", "int", "number", "tolerance on the width"},
          {"toleranceHeight", "int", "number", "tolerance on the height"},
          {"whiteOnBlack", "int", "flag", "0 bright dies, non-zero dark dies"},
          {"corners", "int*", "ints_out", "receives 10 ints: centre x, y, then LT, RT, RB, LB as x, y; may be NULL"}},
         "int", "1 one complete die", "-1 none, -3 a corner missing, -4 two complete dies"},
        // ---- Host extensions
        {"PixmillSetRoot", kExt, "Sets the folder that stands in for the prober's drives.",
         {{"root", "const char*", "path", "UTF-8 folder; NULL or empty returns to the default"}}, "int", "0", "-1"},
        {"PixmillSetLogLevels", kExt, "Sets the file, console and debug-output log thresholds.",
         {{"file", "int", "number", "file threshold"}, {"console", "int", "number", "console threshold"},
          {"debugOutput", "int", "number", "debug output threshold"}},
         "void", "", ""},
        {"PixmillSetTraceSink", kExt, "Installs the receiver of inspection trace lines; NULL removes it.",
         {{"sink", "PixmillTraceSink", "callback", "void (*)(const char* line, void* user)"},
          {"user", "void*", "user", "handed back to the sink"}},
         "void", "", ""},
        {"PixmillLastError", kExt, "The last level-4 log line of the calling thread's last call.", {},
         "const char*", "UTF-8 text, \"\" when there was none; never NULL", ""},
        {"PixmillDescribeExports", kExt, "Copies this document: every flat export with its arguments and results.",
         {{"text", "wchar_t*", "text_out", "receives at most textBytes bytes, no terminator; NULL to learn the size"},
          {"textBytes", "int", "size:text", "capacity of text in bytes"}},
         "int", "size of the whole document in bytes", "0"},
        {"PixmillVersion", kExt, "The library's version, MAJOR.MINOR.PATCH.", {},
         "const char*", "static text, never NULL", ""},
        {"PixmillSetDebugImages", kExt, "Switches the fixed-path debug images of filters and inspections on or off.",
         {{"enabled", "int", "flag", "non-zero on (the default), 0 off"}}, "void", "", ""},
        {"PixmillSetLogSink", kExt, "Installs the host's receiver of log lines in place of the log file; NULL removes it.",
         {{"sink", "PixmillLogSink", "callback", "void (*)(int level, const char* line, void* user)"},
          {"user", "void*", "user", "handed back to the sink"}},
         "void", "", ""},
    };
    return exports;
}

const Record* FindRecord(const char* name) {
    for (const Record& r : Records())
        if (std::string(r.name) == name) return &r;
    return nullptr;
}

template <class W>
void WriteFields(W& w, const std::vector<Field>& fields) {
    w.StartArray();
    for (const Field& f : fields) {
        w.StartObject();
        w.Key("name"), w.String(f.name);
        w.Key("type"), w.String(f.type);
        w.Key("meaning"), w.String(f.meaning);
        w.EndObject();
    }
    w.EndArray();
}

std::string ExportDocument() {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
    w.StartObject();
    w.Key("exports");
    w.StartArray();
    for (const Export& e : Exports()) {
        w.StartObject();
        w.Key("name"), w.String(e.name);
        w.Key("header"), w.String(e.header);
        w.Key("summary"), w.String(e.summary);
        w.Key("args");
        w.StartArray();
        for (const Arg& a : e.args) {
            const std::string role = a.role;
            const size_t colon = role.find(':');
            w.StartObject();
            w.Key("name"), w.String(a.name);
            w.Key("type"), w.String(a.type);
            w.Key("role"), w.String(role.substr(0, colon));
            if (colon != std::string::npos) w.Key("of"), w.String(role.substr(colon + 1));
            w.Key("meaning"), w.String(a.meaning);
            w.EndObject();
        }
        w.EndArray();
        w.Key("returns");
        w.StartObject();
        w.Key("type"), w.String(e.returns);
        w.Key("meaning"), w.String(e.returnMeaning);
        if (const Record* r = FindRecord(e.returns)) {
            w.Key("fields");
            WriteFields(w, r->fields);
        }
        w.EndObject();
        w.Key("failure"), w.String(e.failure);
        w.EndObject();
    }
    w.EndArray();
    w.Key("records");
    w.StartArray();
    for (const Record& r : Records()) {
        w.StartObject();
        w.Key("name"), w.String(r.name);
        w.Key("fields");
        WriteFields(w, r.fields);
        w.EndObject();
    }
    w.EndArray();
    w.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace
}  // namespace pixmill::api

extern "C" int PixmillDescribeExports(wchar_t* text, int textBytes) try {
    pixmill::api::EnsureStartup();
    pixmill::logging::LogW(2, L"<PixmillDescribeExports>");
    const std::wstring doc = pixmill::platform::FromUtf8(pixmill::api::ExportDocument());
    pixmill::api::CopyResultBytes(doc, text, textBytes);
    pixmill::logging::LogW(2, L"</PixmillDescribeExports>");
    return pixmill::api::ResultBytes(doc);
} catch (...) {
    pixmill::api::LogRefusal(L"PixmillDescribeExports");
    return 0;
}
