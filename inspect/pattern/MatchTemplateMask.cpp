#include "inspect/pattern/MatchTemplateMask.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <opencv2/core/hal/hal.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace pixmill::inspect::pattern {

namespace {

constexpr double kBlockScale = 4.5;  // output tile side in template sides
constexpr int kMinDftSize = 256;     // least transform side

// Raises the cv::Exception of a failed check, naming the caller.
[[noreturn]] void Raise(int code, const char* text, const MatchCaller& caller, int line) {
    cv::error(code, text, caller.function, caller.file, line);
    // cv::error always throws; this keeps the compiler satisfied.
    std::abort();
}

#define PIXMILL_MATCH_CHECK(cond, caller) \
    do {                                  \
        if (!(cond)) Raise(cv::Error::StsAssert, #cond, caller, __LINE__); \
    } while (0)

// How the output is cut into tiles and how large each tile's transform is.
struct TileGrid {
    cv::Size dft;    // transform size of one tile
    cv::Size block;  // output size of one full tile
    int tilesX = 0, tilesY = 0;

    int Count() const { return tilesX * tilesY; }
    // Output rectangle of tile `index` (row order), clipped to `corr`.
    cv::Rect Tile(int index, cv::Size corr) const {
        const int x = (index % tilesX) * block.width, y = (index / tilesX) * block.height;
        return cv::Rect(x, y, std::min(block.width, corr.width - x),
                        std::min(block.height, corr.height - y));
    }
};

// One side of the grid: the tile side, raised so that the transform has at
// least kMinDftSize points and lowered to the output side; then the optimal
// transform size for tile plus template, and the tile side that transform
// actually holds. Returns false when a size does not fit an int.
bool PlanSide(int templ, int corr, int minDft, int* dft, int* block) {
    const double scaled = std::round(static_cast<double>(templ) * kBlockScale);
    int64_t b = scaled > static_cast<double>(std::numeric_limits<int>::max())
                    ? std::numeric_limits<int>::max()
                    : static_cast<int64_t>(scaled);
    b = std::max<int64_t>(b, static_cast<int64_t>(kMinDftSize) - templ + 1);
    b = std::min<int64_t>(b, corr);
    const int64_t span = b + templ - 1;
    if (span > std::numeric_limits<int>::max() || span < 0) return false;
    *dft = std::max(cv::getOptimalDFTSize(static_cast<int>(span)), minDft);
    if (*dft <= 0) return false;
    *block = static_cast<int>(std::min<int64_t>(static_cast<int64_t>(*dft) - templ + 1, corr));
    return *block > 0;
}

TileGrid PlanTiles(cv::Size templ, cv::Size corr, const MatchCaller& caller) {
    TileGrid g;
    if (!PlanSide(templ.width, corr.width, 2, &g.dft.width, &g.block.width) ||
        !PlanSide(templ.height, corr.height, 0, &g.dft.height, &g.block.height))
        Raise(cv::Error::StsOutOfRange, "the input arrays are too big", caller, __LINE__);
    g.tilesX = (corr.width + g.block.width - 1) / g.block.width;
    g.tilesY = (corr.height + g.block.height - 1) / g.block.height;
    return g;
}

// The transform of one template plane, placed in the top left corner of a
// zeroed block of the tile transform's size.
cv::Mat PlaneSpectrum(const cv::Mat& plane, cv::Size dft, int depth) {
    cv::Mat block = cv::Mat::zeros(dft, depth);
    plane.convertTo(block(cv::Rect(0, 0, plane.cols, plane.rows)), depth);
    cv::dft(block, block, 0, plane.rows);
    return block;
}

// The forward and inverse transforms of one worker, prepared once and used
// for every tile it takes. A plan keeps scratch memory, so workers never
// share one.
class Plans {
public:
    Plans(cv::Size dft, int depth, int forwardRows, int inverseRows)
        : m_forward(cv::hal::DFT2D::create(dft.width, dft.height, depth, 1, 1,
                                           CV_HAL_DFT_IS_INPLACE, forwardRows)),
          m_inverse(cv::hal::DFT2D::create(
              dft.width, dft.height, depth, 1, 1,
              CV_HAL_DFT_IS_INPLACE | CV_HAL_DFT_INVERSE | CV_HAL_DFT_SCALE, inverseRows)) {}

    void Forward(cv::Mat& m) { m_forward->apply(m.data, m.step, m.data, m.step); }
    void Inverse(cv::Mat& m) { m_inverse->apply(m.data, m.step, m.data, m.step); }

private:
    cv::Ptr<cv::hal::DFT2D> m_forward, m_inverse;
};

// Workers for `tiles` tiles: one per thread OpenCV may use, at most one per tile.
int StripesFor(int tiles) {
    return std::max(1, std::min(tiles, cv::getNumThreads()));
}

}  // namespace

// ---------------------------------------------------------------------------
// crossCorr
// ---------------------------------------------------------------------------

void crossCorr(const cv::Mat& img, const cv::Mat& _templ, cv::Mat& corr, cv::Point anchor,
               double delta, int borderType, const MatchCaller& caller) {
    PIXMILL_MATCH_CHECK(img.dims <= 2 && _templ.dims <= 2 && corr.dims <= 2, caller);

    const int depth = img.depth(), cn = img.channels();
    int tdepth = _templ.depth();
    const int tcn = _templ.channels();
    const int cdepth = corr.depth(), ccn = corr.channels();

    cv::Mat templ = _templ;
    if (depth != tdepth && tdepth != std::max(static_cast<int>(CV_32F), depth)) {
        _templ.convertTo(templ, std::max(static_cast<int>(CV_32F), depth));
        tdepth = templ.depth();
    }
    PIXMILL_MATCH_CHECK(depth == tdepth || tdepth == CV_32F, caller);
    PIXMILL_MATCH_CHECK(corr.rows <= img.rows + templ.rows - 1 &&
                            corr.cols <= img.cols + templ.cols - 1,
                        caller);
    PIXMILL_MATCH_CHECK(ccn == 1 || delta == 0, caller);
    if (corr.empty() || templ.empty()) return;
    // A template plane per image channel, or one for all; a multi-channel
    // output has one plane per image channel.
    PIXMILL_MATCH_CHECK(tcn == 1 || tcn == cn, caller);
    PIXMILL_MATCH_CHECK(ccn == 1 || ccn == cn, caller);

    const TileGrid grid = PlanTiles(templ.size(), corr.size(), caller);
    const int maxDepth = depth > CV_8S
                             ? CV_64F
                             : std::max(std::max(static_cast<int>(CV_32F), tdepth), cdepth);

    std::vector<cv::Mat> planes;
    cv::split(templ, planes);
    std::vector<cv::Mat> spectra;
    for (const cv::Mat& p : planes) spectra.push_back(PlaneSpectrum(p, grid.dft, maxDepth));

    // Neighbours outside the window come from the parent matrix.
    cv::Mat src0 = img;
    int border = borderType;
    cv::Size wholeSize = img.size();
    cv::Point roiOfs(0, 0);
    if (!(border & cv::BORDER_ISOLATED)) {
        img.locateROI(wholeSize, roiOfs);
        src0.adjustROI(roiOfs.y, wholeSize.height - img.rows - roiOfs.y, roiOfs.x,
                       wholeSize.width - img.cols - roiOfs.x);
    }
    border |= cv::BORDER_ISOLATED;

    const cv::Size region(grid.block.width + templ.cols - 1, grid.block.height + templ.rows - 1);
    Plans plans(grid.dft, maxDepth, region.height, grid.block.height);
    cv::Mat dftImg(grid.dft, maxDepth);
    cv::Mat part(region, CV_MAKETYPE(depth, cn));
    cv::Mat buf;

    for (int t = 0; t < grid.Count(); ++t) {
        const cv::Rect out = grid.Tile(t, corr.size());
        const cv::Size dsz(out.width + templ.cols - 1, out.height + templ.rows - 1);
        // The source region in the parent's coordinates and its part inside.
        const int x0 = out.x - anchor.x + roiOfs.x, y0 = out.y - anchor.y + roiOfs.y;
        const int x1 = std::max(0, x0), y1 = std::max(0, y0);
        const int x2 = std::min(src0.cols, x0 + dsz.width);
        const int y2 = std::min(src0.rows, y0 + dsz.height);
        cv::Mat src = part(cv::Rect(0, 0, dsz.width, dsz.height));
        if (x2 > x1 && y2 > y1) {
            cv::Mat inside = src(cv::Rect(x1 - x0, y1 - y0, x2 - x1, y2 - y1));
            src0(cv::Rect(x1, y1, x2 - x1, y2 - y1)).copyTo(inside);
            if (x2 - x1 < dsz.width || y2 - y1 < dsz.height)
                cv::copyMakeBorder(inside, src, y1 - y0, dsz.height - (y2 - y0), x1 - x0,
                                   dsz.width - (x2 - x0), border);
        } else {
            src.setTo(cv::Scalar::all(0));
        }

        cv::Mat cdst = corr(out);
        for (int k = 0; k < cn; ++k) {
            dftImg.setTo(cv::Scalar::all(0));
            cv::Mat dst = dftImg(cv::Rect(0, 0, dsz.width, dsz.height));
            if (cn > 1) {
                cv::Mat plane;
                cv::extractChannel(src, plane, k);
                plane.convertTo(dst, maxDepth);
            } else {
                src.convertTo(dst, maxDepth);
            }
            plans.Forward(dftImg);
            cv::mulSpectrums(dftImg, spectra[tcn > 1 ? k : 0], dftImg, 0, true);
            plans.Inverse(dftImg);
            cv::Mat res = dftImg(cv::Rect(0, 0, out.width, out.height));
            if (ccn > 1) {
                res.convertTo(buf, cdepth);
                const int pairs[] = {0, k};
                cv::mixChannels(&buf, 1, &cdst, 1, pairs, 1);
            } else if (k == 0) {
                res.convertTo(cdst, cdepth, 1, delta);
            } else {
                res.convertTo(buf, cdepth);
                cv::add(buf, cdst, cdst);
            }
        }
    }
}

// ---------------------------------------------------------------------------
// matchTemplateMask
// ---------------------------------------------------------------------------
//
// The score's four correlations all slide the same mask-derived templates
// over the image (C1 = I*TM, C2 = I*M, C3 = I*M^2) or over its square
// (N = I^2*M^2). Each tile's image is therefore transformed once, and so is
// its square; every correlation is a product of spectra and one inverse
// transform. C1 and the mean correction C2 * sum(TM) / S are merged into one
// correlation with TM - M * sum(TM) / S, and for a binary mask (M^2 == M) C3
// is C2. All of it runs in 64-bit floats, tile by tile on the available
// cores, and each tile's score is composed where it was correlated.

namespace {

// Template-side values of one channel.
struct ChannelTerms {
    double S = 0;   // sum(M)
    double S2 = 0;  // sum(M^2)
};

struct MaskedSpectra {
    std::vector<cv::Mat> numerator;  // per channel: TM - M * sum(TM) / S
    std::vector<cv::Mat> mask;       // per channel: M
    std::vector<cv::Mat> mask2;      // per channel: M^2 (empty when M is binary)
};

class MaskedTiles {
public:
    MaskedTiles(const cv::Mat& img, const TileGrid& grid, cv::Size templ,
                const MaskedSpectra& spectra, const std::vector<ChannelTerms>& terms,
                double normT, cv::Mat& result)
        : m_img(img),
          m_grid(grid),
          m_templ(templ),
          m_spectra(spectra),
          m_terms(terms),
          m_normT(normT),
          m_result(result) {}

    void Run(const cv::Range& range) const {
        const cv::Size region(m_grid.block.width + m_templ.width - 1,
                              m_grid.block.height + m_templ.height - 1);
        Plans plans(m_grid.dft, CV_64F, region.height, m_grid.block.height);
        const cv::Size dft = m_grid.dft;
        cv::Mat A(dft, CV_64F), B(dft, CV_64F), P(dft, CV_64F), C2(dft, CV_64F);
        cv::Mat part;
        cv::Mat num(m_grid.block, CV_64F), den(m_grid.block, CV_64F), sq(m_grid.block, CV_64F);
        const int cn = m_img.channels();

        for (int t = range.start; t < range.end; ++t) {
            const cv::Rect out = m_grid.Tile(t, m_result.size());
            const cv::Rect in(out.x, out.y, out.width + m_templ.width - 1,
                              out.height + m_templ.height - 1);
            // Every region lies inside the image: the output is the valid part.
            m_img(in).convertTo(part, CV_64F);
            cv::Mat n = num(cv::Rect(0, 0, out.width, out.height));
            cv::Mat d = den(cv::Rect(0, 0, out.width, out.height));
            cv::Mat q = sq(cv::Rect(0, 0, out.width, out.height));
            for (int k = 0; k < cn; ++k) {
                A.setTo(0);
                cv::Mat a = A(cv::Rect(0, 0, in.width, in.height));
                if (cn > 1)
                    cv::extractChannel(part, a, k);
                else
                    part.copyTo(a);
                B.setTo(0);
                cv::multiply(a, a, B(cv::Rect(0, 0, in.width, in.height)));
                plans.Forward(A);
                plans.Forward(B);

                const bool binary = m_spectra.mask2.empty();
                const cv::Mat& m2 = binary ? m_spectra.mask[k] : m_spectra.mask2[k];
                // Numerator: C1 - C2 * sum(TM) / S in one correlation.
                Correlate(plans, A, m_spectra.numerator[k], P);
                Accumulate(P, n, k == 0);
                // C2, the window's masked sum.
                Correlate(plans, A, m_spectra.mask[k], C2);
                // N, the window's masked sum of squares.
                Correlate(plans, B, m2, B);
                // C3 (= C2 for a binary mask) into P.
                if (!binary) Correlate(plans, A, m2, P);
                const cv::Mat& C3 = binary ? C2 : P;
                AddVariance(C2, C3, B, m_terms[k], d, k == 0);
                Accumulate(B, q, k == 0);
            }
            WriteScores(n, d, q, m_result(out));
        }
    }

private:
    static void Correlate(Plans& plans, const cv::Mat& spectrum, const cv::Mat& templ,
                          cv::Mat& out) {
        cv::mulSpectrums(spectrum, templ, out, 0, true);
        plans.Inverse(out);
    }

    static void Accumulate(const cv::Mat& full, cv::Mat& acc, bool first) {
        const cv::Mat part = full(cv::Rect(0, 0, acc.cols, acc.rows));
        if (first)
            part.copyTo(acc);
        else
            acc += part;
    }

    // d (+)= N + C2 / S * (C2 * S2 / S - 2 * C3): the window's masked sum of
    // squared deviations from its masked mean.
    static void AddVariance(const cv::Mat& C2, const cv::Mat& C3, const cv::Mat& N,
                            const ChannelTerms& c, cv::Mat& d, bool first) {
        const double invS = 1.0 / c.S, s2OverS = c.S2 / c.S;
        for (int r = 0; r < d.rows; ++r) {
            const double* c2 = C2.ptr<double>(r);
            const double* c3 = C3.ptr<double>(r);
            const double* nn = N.ptr<double>(r);
            double* out = d.ptr<double>(r);
            for (int x = 0; x < d.cols; ++x) {
                const double v = nn[x] + c2[x] * invS * (c2[x] * s2OverS - 2.0 * c3[x]);
                out[x] = first ? v : out[x] + v;
            }
        }
    }

    // A window whose masked variance is within the transform's rounding of
    // 0 (below 1e-12 of its masked sum of squares; double rounding is about
    // 1e-14 of it) is flat: its score is undefined and comes out NaN rather
    // than as a ratio of rounding noise.
    void WriteScores(const cv::Mat& n, const cv::Mat& d, const cv::Mat& q, cv::Mat out) const {
        constexpr double kFlat = 1e-12;
        const float nan = std::numeric_limits<float>::quiet_NaN();
        for (int r = 0; r < out.rows; ++r) {
            const double* nr = n.ptr<double>(r);
            const double* dr = d.ptr<double>(r);
            const double* qr = q.ptr<double>(r);
            float* o = out.ptr<float>(r);
            for (int x = 0; x < out.cols; ++x) {
                const double den = std::sqrt(std::max(dr[x], 0.0)) * m_normT;
                o[x] = dr[x] > kFlat * std::fabs(qr[x]) && den > 0.0
                           ? static_cast<float>(nr[x] / den)
                           : nan;
            }
        }
    }

    const cv::Mat& m_img;
    const TileGrid& m_grid;
    cv::Size m_templ;
    const MaskedSpectra& m_spectra;
    const std::vector<ChannelTerms>& m_terms;
    double m_normT;
    cv::Mat& m_result;
};

}  // namespace

void matchTemplateMask(cv::InputArray _img, cv::InputArray _templ, cv::OutputArray _result,
                       cv::InputArray _mask, const MatchCaller& caller) {
    PIXMILL_MATCH_CHECK(_mask.depth() == CV_8U || _mask.depth() == CV_32F, caller);
    PIXMILL_MATCH_CHECK(_mask.channels() == _templ.channels() || _mask.channels() == 1, caller);
    PIXMILL_MATCH_CHECK(_templ.size() == _mask.size(), caller);
    PIXMILL_MATCH_CHECK(_img.size().height >= _templ.size().height &&
                            _img.size().width >= _templ.size().width,
                        caller);
    PIXMILL_MATCH_CHECK(_img.channels() == _templ.channels() && _templ.channels() <= 4, caller);
    PIXMILL_MATCH_CHECK(!_templ.empty(), caller);

    const cv::Mat img = _img.getMat();
    const cv::Mat templ8 = _templ.getMat();
    const cv::Mat mask0 = _mask.getMat();
    const int cn = templ8.channels();

    cv::Mat T, M;
    templ8.convertTo(T, CV_64F);
    if (mask0.depth() == CV_8U) {
        // An 8-bit mask is binary: any non-zero value counts as 1.
        cv::Mat binary;
        cv::threshold(mask0, binary, 0, 1.0, cv::THRESH_BINARY);
        binary.convertTo(M, CV_64F);
    } else {
        mask0.convertTo(M, CV_64F);
    }
    if (M.channels() != cn) {
        std::vector<cv::Mat> copies(cn, M);
        cv::merge(copies, M);
    }

    const cv::Size corrSize(img.cols - T.cols + 1, img.rows - T.rows + 1);
    _result.create(corrSize, CV_32F);
    cv::Mat result = _result.getMat();

    const cv::Scalar S = cv::sum(M);
    for (int c = 0; c < cn; ++c) {
        if (S[c] == 0.0 || !std::isfinite(S[c])) {
            // No masked pixel: there is no mean to correlate against.
            result.setTo(cv::Scalar::all(std::numeric_limits<double>::quiet_NaN()));
            return;
        }
    }

    // Template side: Tx = T - sum(M.T)/S, TM = M^2 Tx, normT = ||M Tx||.
    // Channel by channel: Scalar / Scalar would be a quaternion division.
    const cv::Scalar sumMT = cv::sum(M.mul(T));
    cv::Scalar meanT;
    for (int c = 0; c < cn; ++c) meanT[c] = sumMT[c] / S[c];
    cv::Mat Tx = T - meanT;
    cv::Mat MTx = M.mul(Tx);
    const cv::Mat TM = M.mul(MTx);
    const double normT = cv::norm(MTx, cv::NORM_L2);
    const cv::Scalar sumTM = cv::sum(TM);
    const cv::Mat M2 = M.mul(M);
    const cv::Scalar S2 = cv::sum(M2);
    const bool binary = cv::norm(M2, M, cv::NORM_INF) == 0.0;

    const TileGrid grid = PlanTiles(T.size(), corrSize, caller);
    std::vector<cv::Mat> tmPlanes, mPlanes, m2Planes;
    cv::split(TM, tmPlanes);
    cv::split(M, mPlanes);
    cv::split(M2, m2Planes);
    MaskedSpectra spectra;
    std::vector<ChannelTerms> terms(cn);
    for (int c = 0; c < cn; ++c) {
        terms[c].S = S[c];
        terms[c].S2 = S2[c];
        const cv::Mat numerator = tmPlanes[c] - mPlanes[c] * (sumTM[c] / S[c]);
        spectra.numerator.push_back(PlaneSpectrum(numerator, grid.dft, CV_64F));
        spectra.mask.push_back(PlaneSpectrum(mPlanes[c], grid.dft, CV_64F));
        if (!binary) spectra.mask2.push_back(PlaneSpectrum(m2Planes[c], grid.dft, CV_64F));
    }

    const MaskedTiles tiles(img, grid, T.size(), spectra, terms, normT, result);
    cv::parallel_for_(
        cv::Range(0, grid.Count()), [&tiles](const cv::Range& r) { tiles.Run(r); },
        StripesFor(grid.Count()));
}

}  // namespace pixmill::inspect::pattern
