// SPDX-License-Identifier: Apache-2.0
#include "enhancement/MARLOImageEnhancer.h"

#include <algorithm>
#include <concepts>

#include "core/base/ParallelPixels.h"
#include "enhancement/arithmetic/PixelConversion.h"

namespace halvor::vx {

namespace {

// The line correction's delay of a new enhancer, whatever the record says: that takes effect with a rebuild.
constexpr int constructionDelay = 1;

NoiseSettings noiseSettings(const CamInternalSettings& s)
{
    return {s.tnrCGain, s.tnrGlobal, s.tnrAlpha, s.sprThreshold, s.sprMaxFrame, s.sprMaxLine, s.snrGain};
}

}  // namespace

MARLOImageEnhancer::MARLOImageEnhancer(int frameCols, int frameRows)
    : MARLOImageEnhancer(frameCols, frameRows, CamInternalSettings{})
{}

MARLOImageEnhancer::MARLOImageEnhancer(int frameCols, int frameRows, const CamInternalSettings* settings)
    : MARLOImageEnhancer(frameCols, frameRows, settings != nullptr ? *settings : CamInternalSettings{})
{}

MARLOImageEnhancer::MARLOImageEnhancer(int frameCols, int frameRows, const CamInternalSettings& settings)
    : chain_(frameCols, frameRows, noiseSettings(settings),
             {settings.tnrBypass, settings.sprBypass, settings.snrBypass}, constructionDelay),
      pixelCount_(chain_.input->size),
      bypasses_{settings.tnrBypass, settings.sprBypass, settings.snrBypass},
      sprDelay_(settings.sprDelay),
      further_(settings.further)
{
    takeParameters(settings);
    const int binWidth = std::clamp(chain_.histogram->param.width, 0, Histogram::maxWidth);
    chain_.makeBinData(1 << binWidth);
}

void MARLOImageEnhancer::takeParameters(const CamInternalSettings& s)
{
    HistogramParam& histogram = chain_.histogram->param;
    histogram.mode = s.histMode;
    histogram.gain = s.histGain;
    histogram.gainlow = s.histGainLow;
    histogram.gainhigh = s.histGainHigh;
    histogram.width = s.histWidth;
    histogram.limit = s.histLimit;
    histogram.limit2 = s.histLimit2;
    PeakingParam& peaking = chain_.peaking->param;
    peaking.enabled = s.peakEnabled;
    peaking.coring = s.peakCoring;
    peaking.gain = s.peakGain;
    peaking.limit = s.peakLimit;
    peaking.width = s.peakWidth;
    peaking.reductThres = s.peakReductThres;
    peaking.reductGain = s.peakReductGain;
    peaking.testmode = s.peakTestmode;
}

template <typename T>
void MARLOImageEnhancer::processFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst)
{
    takeFrame(src);
    chain_.process(frameCount_);
    // Tells the first frame from all later ones and no more: hosts see 0 or 1.
    frameCount_ = 1;
    giveFrame(src, dst);
}

template <typename T>
void MARLOImageEnhancer::takeFrame(const cv::Mat_<T>& src)
{
    if constexpr (std::same_as<T, int>) {
        if (src.rows == chain_.rows && src.cols == chain_.cols && src.isContinuous()) {
            chain_.input->borrow(src);
            return;
        }
    }
    chain_.input->restoreData();
    const int commonRows = std::min(chain_.rows, src.rows);
    const int commonCols = std::min(chain_.cols, src.cols);
#pragma omp parallel for schedule(static) if (src.total() >= lightPassPixels)
    for (int y = 0; y < commonRows; ++y)
        std::transform(src[y], src[y] + commonCols, chain_.input->row(y), toChainSample<T>);
}

template <typename T>
void MARLOImageEnhancer::giveFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst)
{
    if constexpr (std::same_as<T, int>) {
        if (src.rows == chain_.rows && src.cols == chain_.cols) {
            dst = chain_.output->image();
            return;
        }
    }
    dst.create(src.size());
    const int commonRows = std::min(chain_.rows, dst.rows);
    const int commonCols = std::min(chain_.cols, dst.cols);
    if (dst.rows > commonRows || dst.cols > commonCols)
        dst.setTo(0);
#pragma omp parallel for schedule(static) if (src.total() >= lightPassPixels)
    for (int y = 0; y < commonRows; ++y) {
        const int* row = chain_.output->row(y);
        std::transform(row, row + commonCols, dst[y], fromChainSample<T>);
    }
}

void MARLOImageEnhancer::tnrSetBypass(int value)
{
    if (value == bypasses_.temporal)
        return;
    bypasses_.temporal = value;
    chain_.buildTemporal(value);
}

void MARLOImageEnhancer::sprSetBypass(int value)
{
    if (value == bypasses_.pattern)
        return;
    bypasses_.pattern = value;
    chain_.buildPattern(value, sprDelay_);
}

void MARLOImageEnhancer::snrSetBypass(int value)
{
    if (value == bypasses_.spatial)
        return;
    bypasses_.spatial = value;
    chain_.buildSpatial(value);
}

unsigned int* MARLOImageEnhancer::getHistoBinArrayDSP() const
{
    return reinterpret_cast<unsigned int*>(chain_.histogram->getBins());
}

unsigned int* MARLOImageEnhancer::getHistoGain(bool sampledCurve) const
{
    int* table = sampledCurve ? chain_.histogram->getTransferCurve() : chain_.histogram->getGainTable();
    return reinterpret_cast<unsigned int*>(table);
}

template VXKIT_API void MARLOImageEnhancer::processFrame(const cv::Mat_<short>&, cv::Mat_<short>&);
template VXKIT_API void MARLOImageEnhancer::processFrame(const cv::Mat_<unsigned short>&,
                                                         cv::Mat_<unsigned short>&);
template VXKIT_API void MARLOImageEnhancer::processFrame(const cv::Mat_<int>&, cv::Mat_<int>&);
template VXKIT_API void MARLOImageEnhancer::processFrame(const cv::Mat_<unsigned int>&,
                                                         cv::Mat_<unsigned int>&);
template VXKIT_API void MARLOImageEnhancer::processFrame(const cv::Mat_<float>&, cv::Mat_<float>&);
template VXKIT_API void MARLOImageEnhancer::processFrame(const cv::Mat_<double>&, cv::Mat_<double>&);

}  // namespace halvor::vx
