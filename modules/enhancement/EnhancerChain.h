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
    int tnrCGain;
    int tnrGlobal;
    int tnrAlpha;
    int sprThreshold;
    int sprMaxFrame;
    int sprMaxLine;
    int snrGain;
};

/// For each noise block 0 to bypass it; any other value runs it.
struct NoiseBypasses
{
    int temporal;
    int pattern;
    int spatial;
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

    int cols;
    int rows;
    std::shared_ptr<ChainMatrix> input;
    std::shared_ptr<ChainMatrix> afterTemporal;
    std::shared_ptr<ChainMatrix> afterPattern;
    std::shared_ptr<ChainMatrix> afterSpatial;
    std::shared_ptr<ChainMatrix> afterHistogram;
    std::shared_ptr<ChainMatrix> output;
    std::shared_ptr<ChainMatrix> binData;
    std::shared_ptr<NoiseSettings> settings;
    std::shared_ptr<TnrCmod> temporal;
    std::shared_ptr<SprCmod> pattern;
    std::shared_ptr<SnrCmod> spatial;
    std::shared_ptr<Histogram> histogram;
    std::shared_ptr<Peaking> peaking;
};

}  // namespace halvor::vx
