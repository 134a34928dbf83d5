#pragma once

#include <array>
#include <memory>
#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"
#include "enhancement/CamInternalSettings.h"
#include "enhancement/Matrix.h"
#include "enhancement/PixelTypes.h"
#include "enhancement/histogram.h"
#include "enhancement/peaking.h"
#include "enhancement/snr_cmod.h"
#include "enhancement/spr_cmod.h"
#include "enhancement/tnr_cmod.h"

namespace halvor::vx {

/// Driver of the camera's enhancer chain: temporal noise reduction, static pattern removal, spatial noise
/// removal, histogram equalisation and peaking, each by the bit-exact model of its hardware block.
///
/// Push the frames of a live stream through processFrame, one after the other; buffers are allocated at
/// construction. Settings may change between frames and are not checked. Every frame prints the equaliser's
/// input gain on the standard output.
///
/// Copies are shallow, as hosts expect: they share blocks, buffers and the settings that the blocks read, and
/// whoever goes last frees them. One object, and so its copies too, belongs to one thread at a time.
class VXKIT_API MARLOImageEnhancer
{
public:
    /// With the defaults of CamInternalSettings, for every frame size.
    MARLOImageEnhancer(int frameCols, int frameRows);
    /// @param settings  is copied; null for the defaults
    MARLOImageEnhancer(int frameCols, int frameRows, const CamInternalSettings* settings);

    /// Enhances one frame.
    ///
    /// The low 16 bits of a pixel are a two's complement sample; floating-point pixels are truncated, beyond
    /// 32 bits taken as the nearest end. Equalised pixels are 0 to 32766, those of histogram mode 0 are
    /// -32767 to 32766 (with peaking), of which 16-bit types keep the low 16 bits.
    ///
    /// For `int` nothing is copied: the input array looks at src until the next frame and keeps its memory
    /// alive, and dst becomes a header on the output array, whose content the next frame overwrites. Such a
    /// dst stays valid when the enhancer is destroyed.
    ///
    /// @param src  rows by cols of the construction. Another size is not reported: the part that both have is
    ///             processed.
    /// @param dst  created at the size of src when it has another; may be src
    /// @tparam T   short, unsigned short, int, unsigned int, float or double
    template <typename T>
    void processFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst);

    /// 0 before the first frame and 1 ever after.
    int getFrameCount() const { return frameCount; }

    /// 0 bypasses the block, any other value runs it. A change rebuilds the block, which forgets all that it
    /// has learned; the value as it is does nothing.
    void tnrSetBypass(int value);
    void sprSetBypass(int value);
    void snrSetBypass(int value);

    void tnrSetAlpha(int value) { blockSettings_->tnrAlpha = value; }
    void tnrSetCGain(int value) { blockSettings_->tnrCGain = value; }
    void tnrSetGlobal(int value) { blockSettings_->tnrGlobal = value; }
    void sprSetThreshold(int value) { blockSettings_->sprThreshold = value; }
    void sprSetMaxFrame(int value) { blockSettings_->sprMaxFrame = value; }
    void sprSetMaxLine(int value) { blockSettings_->sprMaxLine = value; }
    void snrSetGain(int value) { blockSettings_->snrGain = value; }

    void peakSetEnabled(int value) { peakParam->enabled = value; }
    void peakSetGain(int value) { peakParam->gain = value; }
    void peakSetCoring(int value) { peakParam->coring = value; }
    void peakSetLimit(int value) { peakParam->limit = value; }
    void peakSetWidth(int value) { peakParam->width = value; }
    void peakSetReductThres(int value) { peakParam->reductThres = value; }
    void peakSetReductGain(int value) { peakParam->reductGain = value; }

    void histSetMode(int value) { histParam->mode = value; }
    /// The chain measures 256 bins, so that only 8 gives a picture; set it through the construction.
    void histSetWidth(int value) { histParam->width = value; }
    void histSetRange(int value) { histParam->range = value; }
    void histSetOffset(int value) { histParam->offset = value; }
    void histSetSpeed(int value) { histParam->speed = value; }
    void histSetGamma(int value) { histParam->gamma = value; }
    void histSetTridis(int value) { histParam->tridis = value; }
    void histSetRangeDis(int value) { histParam->rangedis = value; }
    void histSetPoffdis(int value) { histParam->poffdis = value; }
    void histSetLimit(int value) { histParam->limit = value; }
    void histSetLimit2(int value) { histParam->limit2 = value; }
    void histSetGain(int value) { histParam->gain = value; }
    void histSetGainLow(int value) { histParam->gainlow = value; }
    void histSetGainHigh(int value) { histParam->gainhigh = value; }
    void histSetTest(int value) { histParam->test = value; }
    /// Has no lasting effect: every frame sets 1.
    void histSetHW(int value) { histParam->hw = value; }
    int histGetWidth() const { return histParam->width; }

    /// The images of the last frame, valid as long as the enhancer.
    ChainMatrix* getInputArray() const { return inputArray.get(); }
    ChainMatrix* getTNRArray() const { return tnrArray.get(); }
    ChainMatrix* getSPRArray() const { return sprArray.get(); }
    ChainMatrix* getSNRArray() const { return snrArray.get(); }
    ChainMatrix* getHistoArray() const { return histoArray.get(); }
    /// The binary block, see Histogram::WriteBinData.
    ChainMatrix* getHistoBinArray() const { return histoBinArray.get(); }
    ChainMatrix* getPeakArray() const { return peakArray.get(); }

    /// The blocks; a change of a bypass replaces its block.
    TnrCmod* getTNRModule() const { return tnrModule.get(); }
    SprCmod* getSPRModule() const { return sprModule.get(); }
    SnrCmod* getSNRModule() const { return snrModule.get(); }
    Histogram* getHistogramDSPMod() const { return histogramModule.get(); }
    Histogram* getHistogramObject() const { return histogramModule.get(); }
    Peaking* getPeakingDSPMod() const { return peakingModule.get(); }

    /// The equaliser's tables, `1 << histGetWidth()` entries each; the gain table has one more.
    unsigned int* getHistoBinArrayDSP() const;
    /// @param sampledCurve  true for the curve over the measured range, false for the gain table
    unsigned int* getHistoGain(bool sampledCurve) const;
    double* getHistoEqu() const { return histogramModule->getHistoEqu(); }
    double* getLocalGain() const { return histogramModule->getLocalGain(); }

private:
    // What the blocks hold references to; it lives as long as any block that does.
    struct BlockSettings
    {
        int tnrCGain;
        int tnrGlobal;
        int tnrAlpha;
        int sprThreshold;
        int sprMaxFrame;
        int sprMaxLine;
        int snrGain;
    };

    void buildTemporal();
    void buildPattern(int delay);
    void buildSpatial();
    void takeSettings(const CamInternalSettings& settings);
    template <typename T>
    void takeFrame(const cv::Mat_<T>& src);
    template <typename T>
    void giveFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst);
    void coreProc(int frame);

    int cols;
    int rows;
    [[maybe_unused]] int maxValue = 1000;
    [[maybe_unused]] int pixelCount;
    int frameCount = 0;
    std::shared_ptr<ChainMatrix> inputArray;
    std::shared_ptr<ChainMatrix> tnrArray;
    std::shared_ptr<ChainMatrix> sprArray;
    std::shared_ptr<ChainMatrix> snrArray;
    std::shared_ptr<ChainMatrix> histoArray;
    std::shared_ptr<ChainMatrix> histoBinArray;
    std::shared_ptr<ChainMatrix> peakArray;
    std::shared_ptr<BlockSettings> blockSettings_;
    std::shared_ptr<TnrCmod> tnrModule;
    std::shared_ptr<SprCmod> sprModule;
    std::shared_ptr<SnrCmod> snrModule;
    std::shared_ptr<Histogram> histogramModule;
    std::shared_ptr<Peaking> peakingModule;
    PeakingParam* peakParam;
    HistogramParam* histParam;
    int tnrBypass = 0;
    int sprBypass = 0;
    int sprDelay = 0;
    int snrBypass = 0;
    [[maybe_unused]] std::array<int, 6> further{};
};

}  // namespace halvor::vx
