// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>

#include "bindings/c/ChainObject.h"
#include "bindings/c/Failure.h"
#include "bindings/c/FilterObject.h"
#include "bindings/c/Object.h"
#include "bindings/c/SimulatorObject.h"
#include "bindings/c/SuperresObject.h"

namespace vxc {

namespace {

constexpr std::array<Kind, 20> kinds{{
    {"production", VXKIT_SUPERRES, "The engine that runs on cameras: one shift per frame, tracked corners.",
     VXKIT_F32, VXKIT_F32, floatEngineSettings, makeSuperres},
    {"phase", VXKIT_SUPERRES, "The same with phase correlation, for frames full of detail.", VXKIT_F32,
     VXKIT_F32, floatEngineSettings, makeSuperres},
    {"reference", VXKIT_SUPERRES, "The serial twin of \"phase\", which also tells a map of quality.",
     VXKIT_F32, VXKIT_F32, referenceEngineSettings, makeSuperres},
    {"fixed-point", VXKIT_SUPERRES, "The engine in 16 bits; frames and image are signed counts.", VXKIT_I16,
     VXKIT_F32, fixedPointSettings, makeSuperres},
    {"fixed-point-fpga", VXKIT_SUPERRES,
     "The same with the solver in the shape of an FPGA's pipeline, for frames of 160x120.", VXKIT_I16,
     VXKIT_F32, fixedPointSettings, makeSuperres},
    {"local", VXKIT_SUPERRES,
     "For bursts whose parts move differently: hands that turn, depth, moving things.", VXKIT_F32, VXKIT_F32,
     localMotionSettings, makeSuperres},
    {"single", VXKIT_SUPERRES, "Undoes the point spread of one frame at twice its size.", VXKIT_F32,
     VXKIT_F32, singleFrameSettings, makeSuperres},
    {"enhancer", VXKIT_FILTER,
     "The camera's whole chain: temporal noise, static pattern, spatial noise, equalisation, peaking.",
     VXKIT_U16, VXKIT_U16, chainSettings, makeChain},
    {"tnr", VXKIT_FILTER, "The chain's block against temporal noise.", VXKIT_U16, VXKIT_U16,
     temporalBlockSettings, makeBlock},
    {"spr", VXKIT_FILTER, "The chain's block against static pattern.", VXKIT_U16, VXKIT_U16,
     patternBlockSettings, makeBlock},
    {"snr", VXKIT_FILTER, "The chain's block against spatial noise.", VXKIT_U16, VXKIT_U16,
     spatialBlockSettings, makeBlock},
    {"hist", VXKIT_FILTER, "The chain's equaliser, which maps a frame by the frames before it.", VXKIT_U16,
     VXKIT_U16, histogramBlockSettings, makeBlock},
    {"peak", VXKIT_FILTER, "The chain's sharpener, on frames that are not equalised.", VXKIT_U16, VXKIT_U16,
     peakingBlockSettings, makeBlock},
    {"temporal", VXKIT_FILTER, "Temporal noise: a recursive filter per pixel that gives way to motion.",
     VXKIT_U16, VXKIT_U16, temporalFilterSettings, makeFilter},
    {"static-pattern", VXKIT_FILTER, "Static pattern: learns stripes and pixel offsets and takes them off.",
     VXKIT_U16, VXKIT_U16, patternFilterSettings, makeFilter},
    {"spatial", VXKIT_FILTER, "Spatial noise: smooths 3x3 pixels where the picture is flat.", VXKIT_U16,
     VXKIT_U16, spatialFilterSettings, makeFilter},
    {"cluster", VXKIT_FILTER,
     "Cluster pattern: learns from a uniform scene by what each pixel is to be multiplied.", VXKIT_U16,
     VXKIT_U16, clusterFilterSettings, makeCluster},
    {"unsharp", VXKIT_FILTER, "Unsharp mask: adds the difference to a Gaussian blur.", VXKIT_U16, VXKIT_U16,
     unsharpFilterSettings, makeFilter},
    {"burst", VXKIT_SIMULATOR, "A short hand-held recording of a still scene, with its ground truth.",
     VXKIT_F32, VXKIT_F32, burstSettings, makeBurst},
    {"recording", VXKIT_SIMULATOR, "A long recording with a moving subject, and the same without noise.",
     VXKIT_F32, VXKIT_F32, recordingSettings, makeRecording},
}};

}  // namespace

std::span<const Kind> allKinds()
{
    return kinds;
}

const Kind& kindNamed(std::string_view name)
{
    const auto found =
        std::find_if(kinds.begin(), kinds.end(), [name](const Kind& kind) { return name == kind.name; });
    if (found != kinds.end())
        return *found;
    std::string names;
    for (const Kind& kind : kinds)
        names += (names.empty() ? "" : ", ") + std::string(kind.name);
    throw Failure(VXKIT_UNKNOWN_NAME, "kind \"" + std::string(name) + "\": expected one of " + names);
}

}  // namespace vxc
