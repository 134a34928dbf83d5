// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"
#include "enhancement/CamInternalSettings.h"
#include "enhancement/EnhancerChain.h"
#include "enhancement/PixelTypes.h"

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
    /// @throws Exception when an int can't count the pixels, like the other constructor
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
    ///             processed, and pixels beyond it are 0 in the result.
    /// @param dst  created at the size of src when it has another; may be src
    /// @tparam T   short, unsigned short, int, unsigned int, float or double
    template <typename T>
    void processFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst);

    /// 0 before the first frame and 1 ever after.
    int getFrameCount() const { return frameCount_; }

    /// 0 bypasses the block, any other value runs it. A change rebuilds the block, which forgets all that it
    /// has learned; the value as it is does nothing.
    void tnrSetBypass(int value);
    void sprSetBypass(int value);
    void snrSetBypass(int value);

    /// Feedback in percent, 0 to 100; more filters more. Like the settings below it holds from the next frame on.
    void tnrSetAlpha(int value) { chain_.settings->tnrAlpha = value; }
    /// Control gain in tenths, 0 to 1000; more filters less where a pixel changes.
    void tnrSetCGain(int value) { chain_.settings->tnrCGain = value; }
    /// Motion of the whole picture above which the feedback falls, 0 to 1000; at 100 it never does.
    void tnrSetGlobal(int value) { chain_.settings->tnrGlobal = value; }
    /// Deviation from the neighbours in counts below which it is learned as pattern, 0 to 32767.
    void sprSetThreshold(int value) { chain_.settings->sprThreshold = value; }
    /// Limit of the correction of a pixel in units of 0.9 counts, 0 to 4095.
    void sprSetMaxFrame(int value) { chain_.settings->sprMaxFrame = value; }
    /// Limit of the correction of a column in units of 0.9 counts, 0 to 4095.
    void sprSetMaxLine(int value) { chain_.settings->sprMaxLine = value; }
    /// Strength of the spatial filter, 0 to 32767; 0 leaves the picture as it is.
    void snrSetGain(int value) { chain_.settings->snrGain = value; }

    /// Settings of the sharpener, see PeakingParam.
    void peakSetEnabled(int value) { chain_.peaking->param.enabled = value; }
    void peakSetGain(int value) { chain_.peaking->param.gain = value; }
    void peakSetCoring(int value) { chain_.peaking->param.coring = value; }
    void peakSetLimit(int value) { chain_.peaking->param.limit = value; }
    void peakSetWidth(int value) { chain_.peaking->param.width = value; }
    void peakSetReductThres(int value) { chain_.peaking->param.reductThres = value; }
    void peakSetReductGain(int value) { chain_.peaking->param.reductGain = value; }

    /// Settings of the equaliser, see HistogramParam.
    void histSetMode(int value) { chain_.histogram->param.mode = value; }
    /// The chain measures 256 bins, so that only 8 gives a picture; set it through the construction.
    void histSetWidth(int value) { chain_.histogram->param.width = value; }
    /// Settings of the equaliser, see HistogramParam.
    void histSetRange(int value) { chain_.histogram->param.range = value; }
    void histSetOffset(int value) { chain_.histogram->param.offset = value; }
    void histSetSpeed(int value) { chain_.histogram->param.speed = value; }
    void histSetGamma(int value) { chain_.histogram->param.gamma = value; }
    void histSetTridis(int value) { chain_.histogram->param.tridis = value; }
    void histSetRangeDis(int value) { chain_.histogram->param.rangedis = value; }
    void histSetPoffdis(int value) { chain_.histogram->param.poffdis = value; }
    void histSetLimit(int value) { chain_.histogram->param.limit = value; }
    void histSetLimit2(int value) { chain_.histogram->param.limit2 = value; }
    void histSetGain(int value) { chain_.histogram->param.gain = value; }
    void histSetGainLow(int value) { chain_.histogram->param.gainlow = value; }
    void histSetGainHigh(int value) { chain_.histogram->param.gainhigh = value; }
    void histSetTest(int value) { chain_.histogram->param.test = value; }
    /// Has no lasting effect: every frame sets 1.
    void histSetHW(int value) { chain_.histogram->param.hw = value; }
    /// Bits of a bin index: see histSetWidth().
    int histGetWidth() const { return chain_.histogram->param.width; }

    /// The images of the last frame, valid as long as the enhancer.
    ChainMatrix* getInputArray() const { return chain_.input.get(); }
    ChainMatrix* getTNRArray() const { return chain_.afterTemporal.get(); }
    ChainMatrix* getSPRArray() const { return chain_.afterPattern.get(); }
    ChainMatrix* getSNRArray() const { return chain_.afterSpatial.get(); }
    ChainMatrix* getHistoArray() const { return chain_.afterHistogram.get(); }
    /// The binary block, see Histogram::WriteBinData.
    ChainMatrix* getHistoBinArray() const { return chain_.binData.get(); }
    /// The enhanced image of the last frame, valid as long as the enhancer.
    ChainMatrix* getPeakArray() const { return chain_.output.get(); }

    /// The blocks; a change of a bypass replaces its block.
    TnrCmod* getTNRModule() const { return chain_.temporal.get(); }
    SprCmod* getSPRModule() const { return chain_.pattern.get(); }
    SnrCmod* getSNRModule() const { return chain_.spatial.get(); }
    Histogram* getHistogramDSPMod() const { return chain_.histogram.get(); }
    Histogram* getHistogramObject() const { return chain_.histogram.get(); }
    Peaking* getPeakingDSPMod() const { return chain_.peaking.get(); }

    /// The equaliser's tables, `1 << histGetWidth()` entries each; the gain table has one more.
    unsigned int* getHistoBinArrayDSP() const;
    /// @param sampledCurve  true for the curve over the measured range, false for the gain table
    unsigned int* getHistoGain(bool sampledCurve) const;
    /// Running sum over the bins of what each contributes to the curve, `1 << histGetWidth()` entries, valid as long
    /// as the enhancer.
    double* getHistoEqu() const { return chain_.histogram->getHistoEqu(); }
    /// Local slope of the curve by the upper bits of an equalised pixel, 256 entries in use, valid as long as the
    /// enhancer.
    double* getLocalGain() const { return chain_.histogram->getLocalGain(); }

private:
    MARLOImageEnhancer(int frameCols, int frameRows, const CamInternalSettings& settings);

    void takeParameters(const CamInternalSettings& settings);
    template <typename T>
    VXKIT_HIDDEN void takeFrame(const cv::Mat_<T>& src);
    template <typename T>
    VXKIT_HIDDEN void giveFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst);

    EnhancerChain chain_;
    [[maybe_unused]] int maxValue_ = 1000;
    [[maybe_unused]] int pixelCount_;
    int frameCount_ = 0;
    NoiseBypasses bypasses_;
    int sprDelay_;
    [[maybe_unused]] std::array<int, 6> further_;
};

}  // namespace halvor::vx
