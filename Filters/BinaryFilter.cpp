// How a filter is written, step by step, on a small one.
//
// A filter is a class derived from CFilter with two parts: a constructor that
// declares what the filter exposes to a recipe (its pins and parameters), and
// a Proc that does the work when a consumer pulls the filter's output. CFilter
// decides whether Proc has to run at all (new input, changed parameters or new
// master images), and contains any std::exception that leaves Proc: the
// failure is logged and the filter's output pins keep what they held.
#include "Filters/BinaryFilter.h"

#include <opencv2/imgproc.hpp>

#include "Filters/ImageLoop.h"
#include "framework/BufferPool.h"
#include "framework/FilterRegistry.h"
#include "logging/Logger.h"

using pixmill::logging::LogW;

// Step 1, the constructor: declare pins and parameters once. Both lists are
// owned by CFilter and reported to recipe editors in the order of these
// calls, so the order is part of the filter's description and must not
// change once recipes use it.
CBinaryFilter::CBinaryFilter() {
    // Pins: (name, key, output flag). Inputs take positive keys 1, 2, ...
    // and outputs negative keys -1, -2, ...; a recipe links pins by key. A
    // fourth argument, the gray flag, would make the pin store three-channel
    // images as gray; this filter wants to see what it is given.
    AddPin(L"In", 1, false);
    AddPin(L"Out", -1, true);
    // The numeric form (name, default, min, max, step) also builds the
    // attributes text an editor shows. min, max and step describe the
    // parameter; nothing enforces them, so Proc must cope with any value.
    AddParam(new sorvik::Param<int>(L"Threshold", 127, 0, 255, 1));
    // The bare form carries a name only: no attributes, and the value stays
    // false until a recipe document sets it.
    AddParam(new sorvik::Param<bool>(L"Invert"));
}

// Step 2, Proc: runs once per change of input, however many consumers pull.
// `pins` and `params` are copies of the filter's own lists; the objects in
// them stay owned by the filter.
void CBinaryFilter::Proc(std::vector<IPin*> pins, std::vector<IParam*> params) {
    // Put the filter's tag in the log, so a trace shows which filter ran.
    Trace();

    // Read the parameters by name. The fallback is this filter's own
    // default, used should the list not hold the name.
    const int threshold = pixmill::ParamValue<int>(params, L"Threshold", 127);
    const bool invert = pixmill::ParamValue<bool>(params, L"Invert", false);

    // Pull the inputs and map each image to one output image. MapInputImages
    // calls GetImage on every input pin in pin order (which runs the upstream
    // filters) and hands each image to the lambda. The images stay owned by
    // their pins and are read-only here: write into images you create.
    std::vector<cv::Mat> results =
        pixmill::filters::MapInputImages(pins, [&](const cv::Mat& src) {
            // The round trip through three channels accepts one-channel
            // images only: GRAY2BGR throws on a colour image, and that
            // exception is how the filter refuses it.
            // Pooled images reuse the memory of earlier runs.
            cv::Mat bgr = pixmill::PooledMat();
            cv::Mat gray = pixmill::PooledMat();
            cv::Mat dst = pixmill::PooledMat();
            cv::cvtColor(src, bgr, cv::COLOR_GRAY2BGR);
            cv::cvtColor(bgr, gray, cv::COLOR_RGB2GRAY);
            cv::threshold(gray, dst, threshold, 255,
                          invert ? cv::THRESH_BINARY_INV : cv::THRESH_BINARY);
            return dst;
        });

    // Set the outputs: every output pin gets the whole list. Handed over
    // with std::move, the images are not copied; the filter must not touch
    // them afterwards (the plain form stores copies instead).
    pixmill::filters::SetOutputImages(pins, std::move(results));

    // Write the result: a JSON fragment that the recipe's result document
    // pastes in unquoted. A filter that writes none reports "" there.
    // SetResult formats numbers in the C locale, so the fragment stays valid
    // JSON under any host locale; never format result numbers by hand.
    SetResult(L"{\"threshold\":%d}", threshold);
}

void CBinaryFilter::Trace() {
    LogW(1, L"BinaryFilter");
}

// Step 3, registration: the name that a recipe's "Type" uses. One line per
// class, at namespace scope; it runs when the library loads.
PIXMILL_REGISTER_FILTER(L"ThresholdFilter", CBinaryFilter);
