// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/diagnostics/RegisteredChannel.h"
#include "core/fixpoint/Fixpoint.h"

namespace halvor::vx {

namespace fixedpoint {
struct EdgeIndex;
class ModelSweep;
}  // namespace fixedpoint

/// Numerical core of the fixed-point engine: the least-squares problem of the float engine with its
/// total-variation prior, solved by conjugate gradients on images of 16 bits.
///
/// Frames are centred on the mean of the reference and scaled so that twice its largest deviation fills 16 bits;
/// every vector of the method stays in that scale. Sums over images are taken in 64 bits, scalars are Fixpoint
/// numbers. Blur kernels have six taps of 16 fractional bits. Where a value leaves 16 bits the element operations
/// report it on the debug channel, at level 2, and go on with its low bits; the plain convolutions raise an
/// Exception instead. Limits of the method, which the class does not enforce: above six frames the sums of an
/// operator leave 16 bits, and with a residue below the noise of the roundings the steps diverge.
///
/// The virtual operations are the seam for blocks of a host's own, in this order. All pixel memory is allocated by
/// the constructor. One thread at a time may use an object; results have the same bits for any number of OpenMP
/// threads.
class VXKIT_API SrIntMinimization
{
public:
    /// @param width, height  size of a frame in pixels
    /// @param numFrames      capacity: the most frames that minimize() may be given
    /// @param factor         enlargement in each direction; only 2 is supported
    /// @throws Exception  if the factor is not 2, a size or the capacity is not positive, or the large image has more
    ///                    than 32767 rows or columns
    SrIntMinimization(short width, short height, short numFrames, short factor);
    SrIntMinimization(const SrIntMinimization&) = delete;
    SrIntMinimization(SrIntMinimization&&) = delete;
    SrIntMinimization& operator=(const SrIntMinimization&) = delete;
    SrIntMinimization& operator=(SrIntMinimization&&) = delete;
    virtual ~SrIntMinimization();

    // The order of the virtual operations is part of the binary interface. An operation with a shift goes to its
    // left form with a shift of 0 or more and to its right form, which rounds, with a negative one. The forms take
    // the count of places; counts beyond the width of the value leave 0.

    /// Mean of all pixels, truncated; 0 for an empty image.
    virtual short computeMean(cv::Mat_<short>& image);
    /// image = (image - mean) * 2^shift, in place. Only pixels whose mask is not 0 are reported when they leave 16
    /// bits.
    virtual void computeNormalisation(cv::Mat_<short>& image, const cv::Mat_<signed char>& mask, short mean,
                                      signed char shift);
    /// out = in * 2^shift + mean, where in is read at an offset right and down.
    ///
    /// @throws Exception  "invalid input or output frame size"
    virtual void computeDenormalisation(const cv::Mat_<short>& in, cv::Mat_<short>& out, short mean,
                                        signed char shift, int offset);
    /// Sum of squares, times 2^shift.
    virtual std::int64_t computeSumSquaredValues(const cv::Mat_<short>& image, signed char shift);
    /// R = B - R, S = R.
    ///
    /// @return the sum of squares of R, times 2^shift
    /// @throws Exception  "invalid R, B or S frame size"
    virtual std::int64_t computeRandS(cv::Mat_<short>& R, const cv::Mat_<short>& B, cv::Mat_<short>& S,
                                      signed char shift);
    /// @return the inner product of S and Q, times 2^shift
    /// @throws Exception  "invalid S or Q frame size"
    virtual std::int64_t computeAlpha(const cv::Mat_<short>& S, const cv::Mat_<short>& Q, signed char shift);
    /// X += mantissa * S * 2^shift
    virtual void computeU(cv::Mat_<short>& X, const cv::Mat_<short>& S, short mantissa, signed char shift);
    /// R -= mantissa * Q * 2^shift
    ///
    /// @return the sum of squares of R, times 2^sumShift
    /// @throws Exception  "invalid R or Q frame size"
    virtual std::int64_t computeR(cv::Mat_<short>& R, const cv::Mat_<short>& Q, short mantissa,
                                  signed char shift, signed char sumShift);
    /// S = R + mantissa * S * 2^shift
    ///
    /// @throws Exception  "invalid S or R frame size"
    virtual void computeS(cv::Mat_<short>& S, const cv::Mat_<short>& R, short mantissa, signed char shift);

    /// The left forms of the operations above: the same with a shift of 0 to 255 places to the left.
    virtual void computeNormalisationLeftShift(cv::Mat_<short>& image, const cv::Mat_<signed char>& mask,
                                               short mean, unsigned char shift);
    virtual void computeDenormalisationLeftShift(const cv::Mat_<short>& in, cv::Mat_<short>& out, short mean,
                                                 unsigned char shift, int offset);
    virtual std::int64_t computeSumSquaredValuesLeftShift(const cv::Mat_<short>& image, unsigned char shift);
    virtual void computeUleftShift(cv::Mat_<short>& X, const cv::Mat_<short>& S, short mantissa,
                                   unsigned char shift);
    /// Only reports what leaves 16 bits. A negative sumShift gives 0: targets shift by its unsigned value.
    virtual std::int64_t computeRleftShift(cv::Mat_<short>& R, const cv::Mat_<short>& Q, short mantissa,
                                           unsigned char shift, signed char sumShift);
    /// Where R + t would leave 16 bits, S is set to the bound before the update, and t is formed anew from it.
    virtual void computeSleftShift(cv::Mat_<short>& S, const cv::Mat_<short>& R, short mantissa,
                                   unsigned char shift);

    /// A second report says that a pixel, whatever its mask, uses the headroom of one bit.
    virtual void computeNormalisationRightShift(cv::Mat_<short>& image, const cv::Mat_<signed char>& mask,
                                                short mean, unsigned char shift);
    /// The right forms: the same with a shift of 0 to 255 places to the right, rounded.
    virtual void computeDenormalisationRightShift(const cv::Mat_<short>& in, cv::Mat_<short>& out, short mean,
                                                  unsigned char shift, int offset);
    virtual std::int64_t computeSumSquaredValuesRightShift(const cv::Mat_<short>& image, unsigned char shift);
    /// X += mantissa * S * 2^-shift, rounded.
    virtual void computeUrightShift(cv::Mat_<short>& X, const cv::Mat_<short>& S, short mantissa,
                                    unsigned char shift);
    /// Where R - t would leave 16 bits, R is set to the bound before t is subtracted, which then wraps.
    virtual std::int64_t computeRrightShift(cv::Mat_<short>& R, const cv::Mat_<short>& Q, short mantissa,
                                            unsigned char shift, signed char sumShift);
    /// Only reports what leaves 16 bits.
    virtual void computeSrightShift(cv::Mat_<short>& S, const cv::Mat_<short>& R, short mantissa,
                                    unsigned char shift);

    /// 2^shift with the shift taken as unsigned, by doubling: 0 from 32 on.
    virtual int shiftToFactor(signed char shift);

    // Settings. Those without a check take any value; the engine checks ranges.

    /// Standard deviation of the sensor's point spread in pixels of the large image; 0.683.
    void setPsfSigma(float sigma);
    float getPsfSigma() const { return psfSigma_; }
    /// Inverse strength of the total-variation term, 1 to 600, truncated to an integer; 400. A larger value smooths
    /// less.
    ///
    /// @throws Exception  "invalid value given for setWeightTV (allowed: 1-600)"; the old weight stays
    void setWeightTV(float value);
    float getWeightTV() const { return static_cast<float>(weightTV_); }
    /// Differences at or below epsilon and at or above its inverse take the first and the last weight of the table;
    /// 0.1.
    void setEpsilon(float value);
    float getEpsilon() const { return epsilon_.toFloat(); }
    /// Relative residue at which a round ends; 0.007.
    void setRelRes(float value) { relRes_.fromFloat(value); }
    float getRelRes() const { return relRes_.toFloat(); }
    /// Budget of conjugate-gradient steps for one image, and bound on its rounds; 8.
    void setMaxIter(short value) { maxIter_ = value; }
    short getMaxIter() const { return maxIter_; }
    /// Steps of the last minimize().
    short getCumIters() const { return cumIters_; }

    /// The channel "SrInt": steps at level 11, values out of range at level 2.
    DebugChannel& getDebugChannel() { return debugChannel_; }

    /// Builds the kernels of the first frames.
    ///
    /// @param n       at most the capacity
    /// @param shifts  what is left of each displacement, in frame pixels, -0.5 to 0.5
    /// @throws Exception  beyond that range, as a tap would be negative, and for more shifts than the capacity
    void generatePsfs(short n, const PointF* shifts);

    /// Solves for the large image, with the kernels of the last generatePsfs().
    ///
    /// @param numFrames  frames to use, at most the capacity
    /// @param refIndex   frame whose range and mean set the scale
    /// @param frames     at least numFrames, moved by the whole pixels of their displacements; not changed
    /// @param masks      one per frame: 1 for a usable pixel, else 0
    /// @param result     made at the size of a frame times the factor
    /// @return the conjugate-gradient steps of all rounds together
    /// @throws Exception  if counts or sizes do not fit, if a frame is much brighter than the reference, or if a plain
    ///                    convolution overflows
    short minimize(short numFrames, short refIndex, std::vector<cv::Mat_<float>>& frames,
                   const std::vector<cv::Mat_<signed char>>& masks, cv::Mat_<float>& result);

    // Total-variation operator: a graph Laplacian over eight neighbours. Images have the size of the large grid.

    /// Fills the table of edge weights: entry i is lambda / (i / 8) with 12 fractional bits, entry 0 is 0.
    void computeLambdaDivByEpsLut(const Fixpoint& lambda);
    /// Freezes the edge weights at X, by table.
    ///
    /// @param e  exponent of the image
    /// @throws Exception  "invalid input frame size"
    void computeLSimplified(const cv::Mat_<short>& X, const Fixpoint& epsilon, const Fixpoint& invEpsilon,
                            const Fixpoint& lambda, signed char e);
    /// Weight of the edge from (y0, x0) to (y1, x1) of an image of the large size; 0 if that lies outside.
    ///
    /// @param lo, hi  differences at or below lo take the first entry in use of the table, at or above hi the entry
    ///                of 8. Between them the table's index is the difference in eighths, held within 1 to 127.
    short computeLpixelSimplified(const short* X, short y1, short x1, short y0, short x0, bool diagonal,
                                  Fixpoint epsilon, Fixpoint invEpsilon, short lo, short hi, Fixpoint lambda,
                                  signed char e);
    /// out = L in
    ///
    /// @throws Exception  "invalid input frame size", "invalid result frame size"
    void applyLSimplified(const cv::Mat_<short>& in, cv::Mat_<short>& out);
    /// The same for the pixel at row y and column x, from planes of edge weights of the large size.
    short applyLpixelSimplified(const short* Ldr, const short* Ld, const short* Ldl, const short* Lr,
                                const short* in, short y, short x);
    /// Weight of the centre from the eight around it, NW, N, NE, W, SE, S, SW, E. Corners count half; the first is
    /// rounded after its sign is turned, the others before.
    short computeLc(short c1, short c2, short c3, short c4, short c5, short c6, short c7, short c8);
    /// Value of a plane of the large size, or 0 outside.
    void GetFrameOrientedData(const short* plane, short y, short x, short& value);
    /// Whether row y and column x lie within a frame of that size.
    static bool checkAddrWithinFrame(unsigned short y, unsigned short x, unsigned short height,
                                     unsigned short width);

    // The earlier form of the operator, with a division for each edge.

    /// As computeLSimplified(), with a quotient for each edge; it also keeps the weights of the centres.
    ///
    /// @throws Exception  "invalid input frame size"
    void computeL(const cv::Mat_<short>& X, const Fixpoint& epsilon, const Fixpoint& invEpsilon,
                  const Fixpoint& lambda, signed char e);
    /// Weight of the edge between two pixels of values a and b: lambda by their difference, which is held within
    /// epsilon and its inverse. A weight out of range is reported and becomes 0.
    ///
    /// @param diagonal  the difference counts by the root of a half
    /// @param lo, hi    the bounds in the scale of the image
    /// @param e         exponent of the image
    short computeLpixel(short a, short b, bool diagonal, Fixpoint epsilon, Fixpoint invEpsilon, short lo,
                        short hi, Fixpoint lambda, signed char e);
    /// out = L in, with the weights of computeL().
    ///
    /// @throws Exception  "invalid input frame size", "invalid result frame size"
    void applyL(const cv::Mat_<short>& in, cv::Mat_<short>& out);
    /// The same for the pixel of that index, from planes of edge and centre weights of the large size.
    ///
    /// @param top, left, bottom, leftEdge, right  whether the pixel lies on that edge of the image
    short applyLpixel(const short* Ldr, const short* Ld, const short* Ldl, const short* Lr, const short* Lc,
                      const short* in, int index, bool top, bool left, bool bottom, bool leftEdge,
                      bool right);

    /// Sends largest and mean difference of a - b * 2^shift over a plane at level 11.
    void checkLCoeffs(const cv::Mat_<short>& a, const cv::Mat_<short>& b, unsigned short shift,
                      const std::string& name);
    /// The value with a mantissa of so many bits.
    ///
    /// @throws Exception  "int32 above possible range of fixpoint", "int32 below possible range of fixpoint"
    static Fixpoint convToXBitMantissa(const Fixpoint& value, unsigned char bits);

    // Convolutions between the grid of a frame and the large grid. Kernels are rows of six taps with 16 fractional
    // bits; rowMask is the horizontal one. The full forms add to the result.

    /// Adds the frame, blurred and put on the large grid.
    ///
    /// @param image   a frame
    /// @param mask    of its size: a pixel is multiplied by its mask
    /// @param result  an image of the large size
    /// @param shift   exponent of a tap: -16
    /// @throws Exception  for other sizes; for sums that leave 32 bits and results that leave 16 bits
    void fullConvFromSparse(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                            const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                            cv::Mat_<short>& result, signed char shift);
    /// The same for six taps, seeing each pixel once in the order of a sensor; the shift is -16 whatever is
    /// given, and sums wrap.
    ///
    /// @throws Exception  for other sizes
    void fullConvFromSparseLinewise(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                    const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                                    cv::Mat_<short>& result, signed char shift);
    /// The plain form on lanes, for frames whose width is a multiple of 8. Sums that differ from those without
    /// lanes are reported at level 11.
    ///
    /// @throws Exception  for other sizes, and for results that leave 16 bits
    void fullConvFromSparseNeon(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                                cv::Mat_<short>& result, signed char shift);
    /// The line-wise form two columns at a time.
    ///
    /// @throws Exception  for other sizes
    void fullConvFromSparseLinewise2(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                     const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                                     cv::Mat_<short>& result, signed char shift);
    /// One line of it: adds what is complete to two rows of the large image. Only between the lines of
    /// fullConvFromSparseLinewise2(), whose taps it uses.
    void fullConvFromSparseLine2(const short* __restrict__ src, const signed char* __restrict__ mask,
                                 short* evenRow, short* oddRow);
    /// The line-wise form four columns at a time, for frames whose width is a multiple of 4.
    ///
    /// @throws Exception  for other sizes
    void fullConvFromSparseLinewise4(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                     const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                                     cv::Mat_<short>& result, signed char shift);
    /// One line of it, as fullConvFromSparseLine2().
    void fullConvFromSparseLine4(const short* __restrict__ src, const signed char* __restrict__ mask,
                                 short* evenRow, short* oddRow);
    /// The transposed of it: blurs the large image and takes it on the grid of a frame.
    ///
    /// @param image   an image of the large size
    /// @param result  a frame, overwritten
    /// @param shift   exponent of a tap: -16
    /// @throws Exception  for other sizes; for sums that leave 32 bits and results that leave 16 bits
    void validCorrToSparse(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                           const cv::Mat_<short>& colMask, cv::Mat_<short>& result, signed char shift);
    /// The same for six taps, seeing each pixel once in the order of a sensor; sums wrap.
    ///
    /// @throws Exception  for other sizes
    void validCorrToSparseLinewise(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                   const cv::Mat_<short>& colMask, cv::Mat_<short>& result,
                                   signed char shift);

protected:
    /// One round: freezes the weights, forms the residual and makes steps.
    ///
    /// @return the steps made; 0 if the residue is small already
    short conjugateGradients(short numFrames, const std::vector<cv::Mat_<signed char>>& masks,
                             short maxSteps);
    /// @return true if the residue is small after this step
    bool iteration(short step, short numFrames, const std::vector<cv::Mat_<signed char>>& masks);
    /// out = (sum over frames of A^T M A + L) in
    ///
    /// @throws Exception  "invalid input frame size", "invalid image masks size", "invalid image mask size",
    ///                    "invalid result frame size"; from the convolutions
    void gradient(const cv::Mat_<short>& in, short numFrames, const std::vector<cv::Mat_<signed char>>& masks,
                  cv::Mat_<short>& out);
    bool checkResidueAbort(const Fixpoint& squaredNorm);
    /// Length of the step along the direction.
    ///
    /// @param product  inner product of the direction and the operator applied to it
    Fixpoint stepLength(std::int64_t product) const;
    /// Share of the old direction in the new one.
    Fixpoint directionFactor(const Fixpoint& newRho) const;

    // The parts of minimize(), for a solver that arranges them differently.

    /// Sets imageRange_ to the range of the frames; converts and normalises them into frames_ and sets imageRange_
    /// to the scale after that.
    void prepareFrames(short numFrames, short refIndex, const std::vector<cv::Mat_<float>>& frames,
                       const std::vector<cv::Mat_<signed char>>& masks, const DebugChannel& channel);
    /// Writes the estimate, back in the scale of the frames, and sets imageRange_ to that.
    void finishResult(const cv::Mat_<short>& estimate, cv::Mat_<float>& result, const DebugChannel& channel);

    RegisteredChannel debugChannel_{"SrInt"};
    short inWidth_;
    short inHeight_;
    short factor_;
    short psfSize_;
    short fullWidth_;
    short fullHeight_;
    short numFrames_;
    float psfSigma_ = 0.0F;
    short weightTV_ = 0;
    Fixpoint relRes_;
    short maxIter_ = 0;
    std::vector<float> basePsf_;
    std::vector<cv::Mat_<short>> psfX_;
    std::vector<cv::Mat_<short>> psfY_;
    Fixpoint imageRange_;
    Fixpoint psfRange_;
    cv::Mat_<short> B_;
    cv::Mat_<short> X_;
    cv::Mat_<short> R_;
    cv::Mat_<short> S_;
    cv::Mat_<short> Q_;
    cv::Mat_<short> TmpLow_;
    Fixpoint lambda_;
    Fixpoint epsilon_;
    Fixpoint invEpsilon_;
    Fixpoint rho_;
    Fixpoint normB_;
    short cumIters_ = 0;
    cv::Mat_<short> Lr_;
    cv::Mat_<short> Ld_;
    cv::Mat_<short> Ldl_;
    cv::Mat_<short> Ldr_;
    cv::Mat_<short> Lc_;
    short convWidth_;
    short convHeight_;
    cv::Mat_<int> convScratch_;
    std::array<short, 6> colTaps_{};
    std::array<short, 6> rowTaps_{};
    std::int32_t* lineA_ = nullptr;
    std::int32_t* lineB_ = nullptr;
    int lineRow_ = 0;
    std::vector<std::int32_t> lineBuf0_;
    std::vector<std::int32_t> lineBuf1_;
    std::vector<short> tapBuf_;
    std::vector<signed char> zeroMask_;
    std::vector<short> lambdaLut_;

private:
    void requireBurst(short numFrames, short refIndex, const std::vector<cv::Mat_<float>>& frames,
                      const std::vector<cv::Mat_<signed char>>& masks) const;
    void requireGradientSizes(const cv::Mat_<short>& in, short numFrames,
                              const std::vector<cv::Mat_<signed char>>& masks,
                              const cv::Mat_<short>& out) const;
    void projectBack(short numFrames, const std::vector<cv::Mat_<signed char>>& masks);
    bool takeModel(short numFrames, const std::vector<cv::Mat_<signed char>>& masks);
    void addSystemByOperators(const cv::Mat_<short>& in, short numFrames,
                              const std::vector<cv::Mat_<signed char>>& masks, cv::Mat_<short>& out);
    // How many taps a kernel may have.
    struct TapRange
    {
        int fewest;
        int most;
    };
    void requireFullSizes(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                          const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                          const cv::Mat_<short>& result, TapRange taps, const char* function) const;
    void requireValidSizes(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                           const cv::Mat_<short>& colMask, const cv::Mat_<short>& result, TapRange taps,
                           const char* function) const;
    void startLines(const cv::Mat_<short>& rowMask, const cv::Mat_<short>& colMask);
    void addEightChecked(const short* src, const signed char* mask, short tap, std::int32_t* sums);
    std::int64_t squaredValues(const cv::Mat_<short>& image);
    template <typename Scale>
    VXKIT_HIDDEN std::int64_t stepImage(cv::Mat_<short>& R, const cv::Mat_<short>& Q, short mantissa,
                                        Scale scale);
    void fillWeightRow(const fixedpoint::EdgeIndex& index, const short* table, const cv::Mat_<short>& X,
                       int y);
    void fillWeightsByPixel(const cv::Mat_<short>& X, const Fixpoint& epsilon, const Fixpoint& invEpsilon,
                            short lo, short hi, const Fixpoint& lambda, signed char e);
    void applyWeightRow(const cv::Mat_<short>& in, int y, short* out);

protected:
    std::vector<cv::Mat_<short>> frames_;  // converted and normalised
    short mean_ = 0;                       // of the reference, in imageRange_ before the normalisation
    signed char normShift_ = 0;            // places by which the normalisation scales
    cv::Mat_<short> check_;                // what a line-wise form gives, beside the large images
    cv::Mat_<short> checkLow_;             // the same beside TmpLow_
    cv::Mat_<short> result_;               // estimate without its margin
    std::vector<short> zeroRow_;
    std::unique_ptr<fixedpoint::ModelSweep> model_;
};

}  // namespace halvor::vx
