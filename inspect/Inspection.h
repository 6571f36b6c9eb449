// The toolkit every VBcv inspection is written with.
//
// An inspection is one flat exported call: it traces the version line and its
// "Start" line, reads its fixed input file, cuts the region it works on,
// writes fixed-name debug images, and answers with a result record. When a
// step fails it raises a Fail carrying the result code and the trace lines
// that explain it; one handler per inspection traces them, writes the
// failure images the code calls for and fills the result. Nothing else may
// leave: RunGuarded turns any other exception (cv::Exception, bad_alloc) into
// the inspection's own failure result.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace pixmill::inspect {

// ---------------------------------------------------------------------------
// Trace lines
// ---------------------------------------------------------------------------

// Traces "Version : %d,%d,%d,%d\n", the first line of every inspection.
void TraceVersion();

// Formats a text by printf rules (canvas lines, file names).
std::string Format(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// ---------------------------------------------------------------------------
// Failures
// ---------------------------------------------------------------------------

// A failure raised inside an inspection: the code the caller receives and
// the trace lines its handler emits, in order. Not a std::exception, so a
// handler never mistakes a library error for an inspection's own verdict.
class Fail {
public:
    explicit Fail(int code) : m_code(code) {}

    // Appends one formatted trace line (printf rules).
    Fail& Line(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

    int Code() const {
        return m_code;
    }
    const std::vector<std::string>& Lines() const {
        return m_lines;
    }

    // Hands every line to VBcvTrace.
    void Trace() const;

private:
    int m_code;
    std::vector<std::string> m_lines;
};

// Runs `body` and returns its result. Any exception that escapes it (a Fail
// must be handled inside) is answered by `stray()`, which traces the
// family's "Fail" line and returns its failure record; should that throw too
// (out of memory while tracing), `failure` itself comes back. `failure` is
// the family's failure record, never a success: a false "found" moves a probe
// card. No exception leaves.
template <class Result, class Body, class Stray>
Result RunGuarded(const Result& failure, Body&& body, Stray&& stray) noexcept {
    static_assert(std::is_nothrow_copy_constructible_v<Result>,
                  "the failure record must be returned without allocating");
    try {
        return body();
    } catch (...) {
        try {
            return stray();
        } catch (...) {
            return failure;
        }
    }
}

// ---------------------------------------------------------------------------
// Fixed files
// ---------------------------------------------------------------------------

// Where an inspection reads and writes its images, by prober path
// ("C:\PROBERPARAM\ParaImg\PinImage\PinRefimage.bmp"). Neither call throws.
class ImageStore {
public:
    virtual ~ImageStore() = default;
    // The image at `proberPath` read with cv::imread `flags`; empty if absent
    // or unreadable.
    virtual cv::Mat Read(const std::wstring& proberPath, int flags) = 0;
    // Writes `image`, creating the folders above it. A failed write is
    // silent.
    virtual void Write(const std::wstring& proberPath, const cv::Mat& image) = 0;
};

// The files under the root (NativePath mapping).
ImageStore& Files();

// Each debug image is written after a pause of 1 ms, the pin family's
// habit before a save (tests switch it off through TestHooks.h).
void PauseBeforeSave();

// Pauses (when enabled) and writes a debug image; does nothing at all while
// debug images are off (framework/DebugImages.h).
void SaveDebugImage(ImageStore& store, const std::wstring& proberPath, const cv::Mat& image);

// Name of a failure image without folder or extension: the letter, "_",
// then "%2d%02d%02d_%02d%02d%02d" of local time (year - 2000, month, day,
// hour, minute, second), for instance "O_261121_103015". The clock is read
// on each call.
std::string FailureImageName(char letter);

// Writes `image` as "<folder><FailureImageName(letter)>.jpg"; nothing while
// debug images are off.
void SaveFailureImage(ImageStore& store, const std::wstring& folder, char letter,
                      const cv::Mat& image);

// ---------------------------------------------------------------------------
// Regions
// ---------------------------------------------------------------------------

// A copy of the w x h region whose top-left corner is (x, y). Empty when
// the region is empty or does not lie wholly inside the image.
cv::Mat CutRegion(const cv::Mat& image, int x, int y, int w, int h);

// ---------------------------------------------------------------------------
// Debug canvas
// ---------------------------------------------------------------------------

// A colour image on which an inspection writes its measures as text, with
// the Hershey simplex font at scale 0.5, thickness 1, line type 8.
class TextCanvas {
public:
    TextCanvas(int width, int height);

    // Writes formatted text with its baseline starting at (x, y).
    void Put(int x, int y, const cv::Scalar& colour, const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 5, 6)))
#endif
        ;

    const cv::Mat& Image() const {
        return m_image;
    }

private:
    cv::Mat m_image;
};

// ---------------------------------------------------------------------------
// Process-wide settings
// ---------------------------------------------------------------------------

// PinImageSaveMode: set by the last argument of the pin searches that take
// one, initially -1. It stays until set again.
int PinImageSaveMode();
void SetPinImageSaveMode(int mode);

// ---------------------------------------------------------------------------
// Arithmetic
// ---------------------------------------------------------------------------

// Cuts a value to an integer, dropping the fraction. Values beyond the int
// range saturate and a NaN gives 0, where a plain cast would be undefined.
int CutToInt(double value);

}  // namespace pixmill::inspect
