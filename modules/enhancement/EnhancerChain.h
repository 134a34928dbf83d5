// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "core/base/Export.h"
#include "enhancement/Matrix.h"
#include "enhancement/histogram.h"
#include "enhancement/peaking.h"
#include "enhancement/snr_cmod.h"
#include "enhancement/spr_cmod.h"
#include "enhancement/tnr_cmod.h"

namespace halvor::vx {

/// What the noise blocks of a chain refer to: a change takes effect with the next frame.
struct NoiseSettings
{
    int tnrCGain;      ///< control gain in tenths, 0 to 1000; more filters less where a pixel changes
    int tnrGlobal;     ///< motion of the picture above which the feedback falls, 0 to 1000; 100: never
    int tnrAlpha;      ///< feedback in percent, 0 to 100; more filters more
    int sprThreshold;  ///< deviation in counts below which it is learned as pattern, 0 to 32767
    int sprMaxFrame;   ///< limit of the correction of a pixel in units of 0.9 counts, 0 to 4095
    int sprMaxLine;    ///< limit of the correction of a column in units of 0.9 counts, 0 to 4095
    int snrGain;       ///< strength of the spatial filter, 0 to 32767; 0: the picture stays as it is
};

/// For each noise block 0 to bypass it; any other value runs it.
struct NoiseBypasses
{
    int temporal;  ///< TnrCmod
    int pattern;   ///< SprCmod
    int spatial;   ///< SnrCmod
};

/// The blocks of the enhancer chain, the settings that they refer to and the image behind each of them.
///
/// Images and blocks are allocated at construction; a frame allocates nothing. Copies share blocks, images
/// and settings until one of them builds a block anew, and whoever goes last frees them.
class VXKIT_API EnhancerChain
{
public:
    /// @param delay  of the static pattern block's line correction
    /// @throws Exception when an int can't count the pixels
    EnhancerChain(int cols, int rows, const NoiseSettings& settings, const NoiseBypasses& bypasses,
                  int delay);

    /// Each replaces a block by one that has learned nothing, with the settings as they stand.
    void buildTemporal(int bypass);
    void buildPattern(int bypass, int delay);
    void buildSpatial(int bypass);

    /// Allocates the image that takes the measuring block's words: 4 rows, and at least
    /// Histogram::BinDataRoom() words. To be called once before the first frame.
    void makeBinData(int cols);

    /// Pushes the frame in `input` through the chain: temporal noise, static pattern, spatial noise,
    /// equalisation by the gain table of the frame before, peaking, and the gain table for the next frame.
    /// The histogram is always measured by the hardware model.
    ///
    /// @param frame  0 sets the gain table, any other number filters it
    void process(int frame);

    int cols;                                     ///< of a frame, in pixels; not to be changed
    int rows;                                     ///< of a frame, in pixels; not to be changed
    std::shared_ptr<ChainMatrix> input;           ///< the frame to process; rows by cols, as all images here
    std::shared_ptr<ChainMatrix> afterTemporal;   ///< behind the temporal noise reduction
    std::shared_ptr<ChainMatrix> afterPattern;    ///< behind the static pattern removal
    std::shared_ptr<ChainMatrix> afterSpatial;    ///< behind the spatial noise removal
    std::shared_ptr<ChainMatrix> afterHistogram;  ///< equalised, 0 to 32767
    std::shared_ptr<ChainMatrix> output;          ///< behind peaking
    std::shared_ptr<ChainMatrix> binData;         ///< the measuring block's words; null before makeBinData()
    std::shared_ptr<NoiseSettings> settings;      ///< what the three noise blocks refer to
    std::shared_ptr<TnrCmod> temporal;            ///< temporal noise reduction
    std::shared_ptr<SprCmod> pattern;             ///< static pattern removal
    std::shared_ptr<SnrCmod> spatial;             ///< spatial noise removal
    std::shared_ptr<Histogram> histogram;         ///< equalisation
    std::shared_ptr<Peaking> peaking;             ///< sharpening
};

}  // namespace halvor::vx
