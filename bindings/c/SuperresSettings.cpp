// SPDX-License-Identifier: Apache-2.0
// The settings of the engines, by the names of the options of `vxkit superres`.

#include <cmath>
#include <limits>

#include "bindings/c/SuperresObject.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "support/drivers/EngineLimits.h"

namespace vxc {

namespace {

using halvor::vx::EngineDefaults;
using vxsupport::EngineLimits;
using vxsupport::FixedPointLimits;

constexpr double aboveZero = std::numeric_limits<float>::min();
constexpr double largest = std::numeric_limits<float>::max();

// The engines compare with 1e-6 in double precision, which the float of that name is below.
double smallestResidue()
{
    return static_cast<double>(std::nextafter(1e-6F, 1.0F));
}

Setting window(int least, int most, int standard)
{
    return integerSetting("window", least, most, standard, "frames", "Frames that one image is made from");
}

Setting reference(int most, int standard)
{
    return integerSetting("reference", 0, most - 1, standard, "frames",
                          "Frame that the image is aligned with, counted back from the newest; by default "
                          "this one or the window's oldest");
}

Setting camera()
{
    return textSetting("camera", "",
                       "Camera model and lens, which set the point spread, such as \"k325 FOV25\"; others "
                       "leave it as it is");
}

Setting psfSigma(float standard, double most)
{
    return numberSetting("psf-sigma", aboveZero, most, asWritten(standard), "px",
                         "Deviation of the camera's point spread in pixels of the image; wins over camera");
}

Setting weight(double least, double most)
{
    return numberSetting("weight", least, most, asWritten(EngineDefaults::weightTV), "",
                         "Inverse strength of the smoothing; a larger value smooths less");
}

Setting registrationError()
{
    return numberSetting("registration-error", aboveZero, 1.0, asWritten(EngineDefaults::regError), "px^2",
                         "Largest local registration error of a usable pixel");
}

Setting relativeResidue(double least, double most)
{
    return numberSetting("relative-residue", least, most, asWritten(EngineDefaults::relativeResidue), "",
                         "Relative residue at which a round of the solver ends");
}

Setting iterations(int most)
{
    return integerSetting("iterations", 1, most, EngineDefaults::maxCGIters, "",
                          "Most conjugate-gradient steps for one image");
}

SettingsTable floatEngineTable()
{
    return {window(EngineLimits::smallestWindow, EngineLimits::largestWindow, EngineDefaults::flatWindow),
            reference(EngineLimits::largestWindow, EngineDefaults::flatReferenceIndex),
            camera(),
            psfSigma(EngineDefaults::psfSigma, largest),
            weight(1.0, largest),
            registrationError(),
            relativeResidue(smallestResidue(), largest),
            iterations(std::numeric_limits<int>::max())};
}

SettingsTable referenceEngineTable()
{
    SettingsTable table = floatEngineTable();
    table.push_back(switchSetting("quality", true, "Also compute the result \"quality\""));
    return table;
}

SettingsTable localMotionTable()
{
    return {
        window(EngineLimits::smallestWindow, EngineLimits::largestWindow, EngineDefaults::flatWindow),
        reference(EngineLimits::largestWindow, EngineDefaults::flatReferenceIndex), camera(),
        psfSigma(EngineDefaults::motionPsfSigma, static_cast<double>(EngineLimits::largestMotionPsfSigma)),
        choiceSetting("motion", {"local", "auto"}, 0,
                      "auto: the reference frame alone where the burst promises no gain over it")};
}

}  // namespace

const SettingsTable& floatEngineSettings()
{
    static const SettingsTable table = floatEngineTable();
    return table;
}

const SettingsTable& referenceEngineSettings()
{
    static const SettingsTable table = referenceEngineTable();
    return table;
}

const SettingsTable& fixedPointSettings()
{
    static const SettingsTable table{
        window(EngineLimits::smallestWindow, FixedPointLimits::largestWindow, EngineDefaults::flatWindow),
        reference(FixedPointLimits::largestWindow, EngineDefaults::referenceIndex),
        camera(),
        psfSigma(EngineDefaults::psfSigma, largest),
        weight(static_cast<double>(FixedPointLimits::smallestWeight),
               static_cast<double>(FixedPointLimits::largestWeight)),
        registrationError(),
        relativeResidue(static_cast<double>(FixedPointLimits::smallestResidue), 1.0),
        iterations(FixedPointLimits::largestIterations)};
    return table;
}

const SettingsTable& localMotionSettings()
{
    static const SettingsTable table = localMotionTable();
    return table;
}

const SettingsTable& singleFrameSettings()
{
    static const SettingsTable table{
        window(1, EngineLimits::largestWindow, 1), reference(EngineLimits::largestWindow, 0), camera(),
        psfSigma(EngineDefaults::motionPsfSigma, static_cast<double>(EngineLimits::largestMotionPsfSigma))};
    return table;
}

}  // namespace vxc
