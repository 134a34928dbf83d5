// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/FilterObject.h"
#include "support/drivers/ClusterFilter.h"

namespace vxc {

namespace {

using namespace vxsupport;

constexpr int mostPercent = 100;
constexpr int largestLimit = 31;
constexpr int largestCluster = 1 << 15;
constexpr double largestCount = 65535.0;
constexpr int usualGain = 6;

SettingsTable unsharpTable()
{
    const UnsharpSettings usual;
    return {atOnce(numberSetting("amount", 0.0, 100.0, usual.amount, "", "Weight of the difference")),
            atOnce(numberSetting("sigma", 0.1, 50.0, usual.sigma, "px", "Deviation of the blur")),
            atOnce(numberSetting("threshold", -1.0, 1.0, -1.0, "",
                                 "Only brighter detail is sharpened, where it exceeds this share of the "
                                 "frame's range, and the frame gets 8 bits; below 0: both sides, all bits"))};
}

SettingsTable clusterTable()
{
    const ClusterLimits usual;
    return {
        integerSetting("cluster-width", 1, largestCluster, usual.width, "px",
                       "Largest cluster that is corrected: wider groups of neighbours that deviate to the "
                       "same side are scene"),
        integerSetting("cluster-height", 1, largestCluster, usual.height, "px", "The same for its height"),
        numberSetting("std-dev-limit", 0.0, largestCount, usual.stdDevLimit, "counts",
                      "Pixels that deviate in time as much or more are left alone"),
        numberSetting("mean-limit", 0.0, largestCount, usual.meanLimit, "counts",
                      "Pixels whose mean is further from a neighbour's are left alone"),
        numberSetting("alpha-damping", 0.0, 1.0, usual.alphaDamping, "",
                      "Share of the correction that is learned"),
        choiceSetting("mode", {"median", "gaussian"}, 0, "What smooths the means")};
}

}  // namespace

const SettingsTable& temporalFilterSettings()
{
    static const SettingsTable table{
        integerSetting("control-gain", 0, 16, 10, "1/10",
                       "The higher, the sooner a difference counts as motion; up to 10, or in hardware units "
                       "up to 16, which is their default"),
        integerSetting("global-threshold", 0, mostPercent, TemporalSettings{}.globalThreshold, "",
                       "Motion of the whole picture above it weakens the filter; 100: never"),
        integerSetting("feedback-factor", 0, 2047, 60, "%",
                       "Strength of the filter; up to 100, or in hardware units up to 2047, by default 1228"),
        switchSetting("hw-units", false, "Control gain and feedback factor are in hardware units")};
    return table;
}

const SettingsTable& patternFilterSettings()
{
    const PatternSettings usual;
    static const SettingsTable table{
        integerSetting("threshold", 0, mostPercent, usual.threshold, "counts",
                       "Deviation from the neighbours above which a pixel is scene"),
        integerSetting("line-limit", 0, largestLimit, usual.lineLimit, "", "Bounds a column's correction"),
        integerSetting("frame-limit", 0, largestLimit, usual.frameLimit, "", "Bounds a pixel's correction")};
    return table;
}

const SettingsTable& spatialFilterSettings()
{
    static const SettingsTable table{atOnce(
        integerSetting("gain", 0, largestLimit, usualGain, "",
                       "The higher, the more is smoothed where the picture is flat; 0 changes nothing"))};
    return table;
}

const SettingsTable& unsharpFilterSettings()
{
    static const SettingsTable table = unsharpTable();
    return table;
}

const SettingsTable& clusterFilterSettings()
{
    static const SettingsTable table = clusterTable();
    return table;
}

}  // namespace vxc
