#include "enhancement/MARLOImageEnhancer.h"

#include <algorithm>
#include <concepts>

#include "core/base/ParallelPixels.h"
#include "enhancement/EnhancerStages.h"
#include "enhancement/PixelConversion.h"

namespace halvor::vx {

namespace {

// The line correction's delay of a new enhancer, whatever the record says: that takes effect with a rebuild.
constexpr int constructionDelay = 1;

std::shared_ptr<ChainMatrix> makeImage(int rows, int cols)
{
    return std::make_shared<ChainMatrix>(rows, cols);
}

}  // namespace

MARLOImageEnhancer::MARLOImageEnhancer(int frameCols, int frameRows)
    : MARLOImageEnhancer(frameCols, frameRows, nullptr)
{}

MARLOImageEnhancer::MARLOImageEnhancer(int frameCols, int frameRows, const CamInternalSettings* settings)
    : cols(frameCols),
      rows(frameRows),
      pixelCount(frameCols * frameRows),
      inputArray(makeImage(rows, cols)),
      tnrArray(makeImage(rows, cols)),
      sprArray(makeImage(rows, cols)),
      snrArray(makeImage(rows, cols)),
      histoArray(makeImage(rows, cols)),
      peakArray(makeImage(rows, cols)),
      blockSettings_(std::make_shared<BlockSettings>()),
      histogramModule(std::make_shared<Histogram>(cols, rows)),
      peakingModule(std::make_shared<Peaking>(cols, rows)),
      peakParam(&peakingModule->param),
      histParam(&histogramModule->param)
{
    takeSettings(settings != nullptr ? *settings : CamInternalSettings{});
    buildTemporal();
    buildPattern(constructionDelay);
    buildSpatial();
    const int binWidth = std::clamp(histParam->width, 0, Histogram::maxWidth);
    histoBinArray = std::make_shared<ChainMatrix>(4, 1 << binWidth, histogramModule->BinDataRoom());
}

void MARLOImageEnhancer::takeSettings(const CamInternalSettings& s)
{
    tnrBypass = s.tnrBypass;
    sprBypass = s.sprBypass;
    sprDelay = s.sprDelay;
    snrBypass = s.snrBypass;
    *blockSettings_ = {s.tnrCGain,    s.tnrGlobal,  s.tnrAlpha, s.sprThreshold,
                       s.sprMaxFrame, s.sprMaxLine, s.snrGain};
    histParam->mode = s.histMode;
    histParam->gain = s.histGain;
    histParam->gainlow = s.histGainLow;
    histParam->gainhigh = s.histGainHigh;
    histParam->width = s.histWidth;
    histParam->limit = s.histLimit;
    histParam->limit2 = s.histLimit2;
    further = s.further;
    peakParam->enabled = s.peakEnabled;
    peakParam->coring = s.peakCoring;
    peakParam->gain = s.peakGain;
    peakParam->limit = s.peakLimit;
    peakParam->width = s.peakWidth;
    peakParam->reductThres = s.peakReductThres;
    peakParam->reductGain = s.peakReductGain;
    peakParam->testmode = s.peakTestmode;
}

void MARLOImageEnhancer::buildTemporal()
{
    BlockSettings& s = *blockSettings_;
    tnrModule =
        std::make_shared<TnrCmod>(cols, rows, s.tnrCGain, s.tnrGlobal, s.tnrAlpha, tnrBypass == 0 ? 1 : 0, 0);
}

void MARLOImageEnhancer::buildPattern(int delay)
{
    BlockSettings& s = *blockSettings_;
    sprModule = std::make_shared<SprCmod>(cols, rows, s.sprThreshold, s.sprMaxLine, s.sprMaxFrame, delay,
                                          sprBypass == 0 ? 1 : 0);
}

void MARLOImageEnhancer::buildSpatial()
{
    snrModule = std::make_shared<SnrCmod>(cols, rows, blockSettings_->snrGain, snrBypass == 0 ? 1 : 0);
}

template <typename T>
void MARLOImageEnhancer::processFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst)
{
    takeFrame(src);
    coreProc(frameCount);
    // Tells the first frame from all later ones and no more: hosts see 0 or 1.
    frameCount = 1;
    giveFrame(src, dst);
}

template <typename T>
void MARLOImageEnhancer::takeFrame(const cv::Mat_<T>& src)
{
    if constexpr (std::same_as<T, int>) {
        if (src.rows == rows && src.cols == cols && src.isContinuous()) {
            inputArray->borrow(src);
            return;
        }
    }
    inputArray->restoreData();
    const int commonRows = std::min(rows, src.rows);
    const int commonCols = std::min(cols, src.cols);
#pragma omp parallel for schedule(static) if (src.total() >= lightPassPixels)
    for (int y = 0; y < commonRows; ++y)
        std::transform(src[y], src[y] + commonCols, inputArray->row(y), toChainSample<T>);
}

template <typename T>
void MARLOImageEnhancer::giveFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst)
{
    if constexpr (std::same_as<T, int>) {
        if (src.rows == rows && src.cols == cols) {
            dst = peakArray->image();
            return;
        }
    }
    dst.create(src.size());
    const int commonRows = std::min(rows, dst.rows);
    const int commonCols = std::min(cols, dst.cols);
#pragma omp parallel for schedule(static) if (src.total() >= lightPassPixels)
    for (int y = 0; y < commonRows; ++y) {
        const int* row = peakArray->row(y);
        std::transform(row, row + commonCols, dst[y], fromChainSample<T>);
    }
}

void MARLOImageEnhancer::coreProc(int frame)
{
    runStages(frame, {*tnrModule, *sprModule, *snrModule, *histogramModule, *peakingModule, *inputArray,
                      *tnrArray, *sprArray, *snrArray, *histoArray, *histoBinArray, *peakArray});
}

void MARLOImageEnhancer::tnrSetBypass(int value)
{
    if (value == tnrBypass)
        return;
    tnrBypass = value;
    buildTemporal();
}

void MARLOImageEnhancer::sprSetBypass(int value)
{
    if (value == sprBypass)
        return;
    sprBypass = value;
    buildPattern(sprDelay);
}

void MARLOImageEnhancer::snrSetBypass(int value)
{
    if (value == snrBypass)
        return;
    snrBypass = value;
    buildSpatial();
}

unsigned int* MARLOImageEnhancer::getHistoBinArrayDSP() const
{
    return reinterpret_cast<unsigned int*>(histogramModule->getBins());
}

unsigned int* MARLOImageEnhancer::getHistoGain(bool sampledCurve) const
{
    int* table = sampledCurve ? histogramModule->getTransferCurve() : histogramModule->getGainTable();
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
