// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"
#include "enhancement/Matrix.h"
#include "enhancement/PixelTypes.h"
#include "enhancement/hst_cmod.h"

namespace halvor::vx {
struct HistogramScale;
}

/// Settings of the equaliser; they may change between frames and nothing checks them.
struct HistogramParam
{
    int mode = 3;      ///< 0 off, 2 bounded gain, 3 plateau, 4 plain cumulative, any other value linear
    int width = 8;     ///< bits of a bin index, 0 to 15
    int range = 8;     ///< the smallest range that is spread over the output is 1 << range
    int offset = 0;    ///< added to every scaled pixel
    int speed = 1;     ///< a new value has the weight 1 / (1 << speed) in the recursive filters
    int gamma = 0;     ///< in tenths: exponent (gamma + 10) / 10, or 10 / (10 - gamma) for a negative one
    int tridis = 0;    ///< non-zero counts a pixel in one bin instead of splitting it between two
    int rangedis = 0;  ///< non-zero fixes the input gain
    int poffdis = 0;   ///< non-zero switches the centring off
    int limit = 8;     ///< plateau of mode 3, in sixteenths of a pixel
    int limit2 = 0;    ///< read by nothing here
    int gain = 4;      ///< weight of a bin between the two ranks in mode 2
    int gainlow = 0;   ///< lower rank of mode 2; the constructor sets 0.1 % of the pixels
    int gainhigh = 0;  ///< upper rank of mode 2; the constructor sets 99.9 % of the pixels
    int test = 0;      ///< read by nothing here
    int hw = 0;        ///< non-zero measures by HstCmod; the width must then be 8
};

/// Histogram equalisation: turns a 16-bit thermal image into a display image of 15 bits by a transfer curve
/// that follows the image's own histogram.
///
/// A frame takes three steps: MeasureFrame finds the range and the histogram, ProcessFrame maps the pixels
/// with this range and the gain table of the frame before, Update builds the gain table for the next one.
/// Samples are signed, q is a pixel after the input gain on a scale of 0 to 32767; the upper `width` bits of
/// q select a bin and the rest interpolates between two entries of the gain table.
class VXKIT_API Histogram
{
public:
    /// Largest width that the tables have room for.
    static constexpr int maxWidth = 15;
    /// Entries of the tables: every bin of the largest width, and the upper edge of the last.
    static constexpr int tableSize = (1 << maxWidth) + 2;

    /// @param frameCols, frameRows  size of a frame in pixels; an int counts them all
    Histogram(int frameCols, int frameRows);

    /// Read anew with every frame.
    HistogramParam param;

    /// Reads the section "Histogram_Parameter" of a parameter file; prints one line when it can't be opened.
    void SetParam(const char* fileName);

    /// Measures range and histogram of a frame and writes the binary block, see WriteBinData.
    ///
    /// @param frame    number of the frame. Software branch: the same number as before takes the frame's
    ///                 range as it is, a new one filters it. The hardware-model branch ignores it.
    /// @param in       cols * rows samples
    /// @param binData  BinDataRoom() words. May be null in the software branch; the hardware-model branch
    ///                 hands its measurement over through it and without it only measures.
    void MeasureFrame(int frame, const int* in, int* binData);
    /// The same for the chain's images; without the binary block in the software branch alone.
    void MeasureFrame(int frame, halvor::vx::ChainMatrix& in, halvor::vx::ChainMatrix& binData);
    void MeasureFrame(int frame, halvor::vx::ChainMatrix& in);

    /// Maps cols * rows samples and refreshes the local gain of the levels that occur.
    void ProcessFrame(int frame, const int* in, int* out);
    /// Prints the input gain first.
    void ProcessFrame(int frame, halvor::vx::ChainMatrix& in, halvor::vx::ChainMatrix& out);
    /// Maps one sample with the range and gain table as they stand, and refreshes the local gain of its level; the
    /// sample itself in mode 0 and with bypass.
    int ProcessPixel(int pixel);
    /// Slope of the curve at a mapped pixel.
    double LocalGain(int pixel) const;

    /// Builds gain table and sampled curve from the last histogram.
    ///
    /// @param frame  the frame of the last MeasureFrame sets the table; another one filters it
    void Update(int frame);
    /// Forces the range low to high into the histogram first.
    void Update(int frame, int low, int high);

    /// Binary block of 2 * B + 8 words for B = 1 << width: two words a bin (low 16 bits, the rest), min, max,
    /// lo, hi, pgain, poffset, and a mark (22136, 4660) that tells whether the equaliser is on. No effect
    /// when null.
    void WriteBinData(int* out) const;
    /// Takes such a block without the mark, as measured on an unsigned scale: `bias` is subtracted from the
    /// range, gain and offset are halved. No effect when null.
    void ReadBinData(const int* in, int bias);
    /// Restores what a camera stored beside an image. No effect when `bins` is null.
    ///
    /// @param bins  1 << width values
    void importAttachmentData(const int* bins, short min, short max, short lo, short hi, unsigned short pgain,
                              unsigned short poffset);
    /// Words that MeasureFrame may write or read for any width.
    int BinDataRoom() const;

    /// 0 until the first Update has ended, then 1.
    unsigned int initializedGain() const { return initializedGain_; }

    /// With the bypass on pixels pass as they are, with a local gain of 1, as in mode 0; off at first. Frames are
    /// measured all the same.
    bool isBypassed() const { return bypass_; }
    void setBypass(bool value) { bypass_ = value; }

    /// Maps an image of a host's pixel type through the curve as it stands; the state is not touched.
    ///
    /// @param src  rows by cols; floating-point pixels are truncated, beyond 32 bits taken as the nearest end
    /// @param dst  created at the size of src; a copy of it in mode 0 and with bypass
    /// @tparam T   short, unsigned short, int, unsigned int, float or double
    /// @throws halvor::vx::Exception for another size, before dst is touched
    template <typename T>
    void processFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst) const;

    /// Tables and measured values, for display and for the chain.
    int* getBins() { return bins_.data(); }
    int* getGainTable() { return gainTable_.data(); }
    int* getTransferCurve() { return transferCurve_.data(); }
    double* getLocalGain() { return localGain_.data(); }
    double* getHistoEqu() { return histoEqu_.data(); }
    int getPgain() const { return pgain_; }
    int getPoffset() const { return poffset_; }
    int getMin() const { return min_; }
    int getMax() const { return max_; }
    int getLo() const { return lo_; }
    int getHi() const { return hi_; }
    int getRangeUsed() const { return rangeUsed_; }
    /// Whether the last frame of the software branch held samples at the ends of the range.
    bool getHasInvalidPixels() const { return hasInvalidPixels_; }

private:
    static constexpr int chunkSize = 512;  // samples that a kernel takes at once, for buffers on the stack

    int legalWidth() const;
    halvor::vx::HistogramScale currentScale() const;
    bool isOff() const { return param.mode == 0 || bypass_; }
    std::size_t displayLevel(int pixel) const;
    double localSlope(int bin) const;

    void countPixels(const int* in);
    void filterRange(int frame);
    void computeGain();
    void accumulate();
    void buildGainTable(int frame);
    void sampleCurve();

    std::vector<int> bins_;
    std::vector<int> gainTable_;
    std::vector<int> transferCurve_;
    std::vector<double> localGain_;
    std::vector<double> histoEqu_;
    int pgain_;
    int min_ = 32767;
    int max_ = -32768;
    int lo_ = -32768;
    int hi_ = 32767;
    int rangeUsed_ = 0;
    int poffset_ = 0;
    bool hasInvalidPixels_ = false;
    bool bypass_ = false;
    int cols_;
    int rows_;
    int pixelCount_;
    int lastFrame_ = 0;
    int speedLow_ = 0;
    int speedHigh_ = 0;
    int holdLow_ = 0;
    int holdHigh_ = 0;
    std::unique_ptr<HstCmod> hstCmod_;
    unsigned int initializedGain_ = 0;
};
