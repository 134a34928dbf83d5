// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/SimulatorObject.h"

#include <algorithm>
#include <optional>

#include "bindings/c/Failure.h"
#include "support/Sensor.h"
#include "support/drivers/SimulatorSettings.h"

namespace vxc {

namespace {

using namespace vxsupport;

constexpr double largestDeviation = 1e6;            // kelvin
constexpr double largestSeed = 9007199254740992.0;  // which a double holds

std::vector<std::string> sceneNames()
{
    std::vector<std::string> names;
    for (const SceneKind kind : allSceneKinds())
        names.emplace_back(nameOf(kind));
    return names;
}

Setting deviation(const char* name, double standard, const char* help)
{
    return numberSetting(name, 0.0, largestDeviation, standard, "K", help);
}

SettingsTable commonTable(int frames, double subjectSpeed)
{
    const SimulatorSettings usual;
    return {
        choiceSetting("scene", sceneNames(), 0, "What the camera looks at"),
        numberSetting("zoom", 0.1, 10.0, usual.scene.zoom, "", "Enlarges what is seen"),
        integerSetting("scene-seed", 0, largestSeed, static_cast<double>(usual.scene.seed), "",
                       "Arranges what is random about the scene"),
        integerSetting("seed", 0, largestSeed, static_cast<double>(usual.seed), "",
                       "Seed of motion, noise, offsets and defects"),
        integerSetting("frames", 1, mostSimulatedFrames, frames, "frames", "Number of frames"),
        numberSetting("shake", 0.0, 20.0, usual.shake, "",
                      "Tremor of the hand; 1 is that of a measured burst, 0.3 pixels"),
        numberSetting("drift", 0.0, 20.0, usual.drift, "px",
                      "Whole pixels that the view drifts per frame, deviation"),
        numberSetting("subject-speed", -100.0, 100.0, subjectSpeed, "px",
                      "Pixels per frame that a subject moves through the scene; a burst has one only where "
                      "this is set"),
        deviation("netd", usual.netd, "Deviation of the temporal noise"),
        numberSetting("psf-sigma", 0.05, maxPsfSigma, usual.psfSigma, "1/2 px",
                      "Deviation of the point spread in half pixels"),
        deviation("column-offset", usual.columnOffset,
                  "Deviation of the columns' fixed offsets; rows of a recording: half of it"),
        deviation("pixel-offset", usual.pixelOffset, "Deviation of the pixels' fixed offsets"),
        integerSetting("defects", 0, mostSimulatedDefects, 0, "px", "Number of defect pixels"),
        choiceSetting("defect-style", {"stuck", "markers"}, 0,
                      "stuck: dead and hot pixels; markers: bad-pixel marks"),
    };
}

SettingsTable burstTable()
{
    SettingsTable table = commonTable(BurstSettings{}.frameCount, BurstSettings{}.subjectSpeed);
    table.push_back(integerSetting("reference", 0, mostSimulatedFrames - 1, BurstSettings{}.reference,
                                   "frames", "Frame on whose grid the truth lies"));
    table.push_back(
        numberSetting("turn", 0.0, 0.2, 0.0, "rad", "Deviation of a frame's angle about its middle"));
    table.push_back(numberSetting("parallax", 0.0, 10.0, 0.0, "",
                                  "How much more the near scene in the middle moves than the far one at the "
                                  "sides, as a share of the shift"));
    return table;
}

/// What the two simulators have in common.
class SimulatorObject : public Object
{
public:
    SimulatorObject(const Kind& kind, cv::Size size);

protected:
    SimulatorSettings settings() const;
    /// A frame's place; opens what simulates.
    /// @throws Failure  for an index that no frame has
    std::size_t checked(int index);
};

SimulatorObject::SimulatorObject(const Kind& kind, cv::Size size) : Object(kind, size)
{
    if (std::min(size.width, size.height) < smallestSimulatedSide ||
        std::max(size.width, size.height) > largestSimulatedSide)
        throw Failure(VXKIT_OUT_OF_RANGE, "size " + std::to_string(size.width) + "x" +
                                              std::to_string(size.height) + ": expected sides of " +
                                              std::to_string(smallestSimulatedSide) + " to " +
                                              std::to_string(largestSimulatedSide) + " pixels");
}

SimulatorSettings SimulatorObject::settings() const
{
    SimulatorSettings settings;
    const auto seed = [this](const char* name) { return static_cast<std::uint64_t>(values().number(name)); };
    settings.scene = {allSceneKinds().at(static_cast<std::size_t>(values().integer("scene"))), frame(),
                      seed("scene-seed"), values().number("zoom")};
    settings.frames = values().integer("frames");
    settings.seed = seed("seed");
    settings.netd = values().number("netd");
    settings.psfSigma = values().number("psf-sigma");
    settings.shake = values().number("shake");
    settings.drift = values().number("drift");
    if (values().isChosen("subject-speed"))
        settings.subjectSpeed = values().number("subject-speed");
    settings.columnOffset = values().number("column-offset");
    settings.pixelOffset = values().number("pixel-offset");
    settings.defects = {values().integer("defects"),
                        values().integer("defect-style") == 1 ? DefectStyle::markers : DefectStyle::stuck};
    return settings;
}

std::size_t SimulatorObject::checked(int index)
{
    const int frames = values().integer("frames");
    if (index < 0 || index >= frames)
        throw Failure(VXKIT_OUT_OF_RANGE,
                      "index " + std::to_string(index) + ": expected 0 to " + std::to_string(frames - 1));
    start();
    return static_cast<std::size_t>(index);
}

class BurstObject : public SimulatorObject
{
public:
    using SimulatorObject::SimulatorObject;

    cv::Mat simulatedFrame(int index) override
    {
        const std::size_t place = checked(index);
        return simulated().frames[place];
    }
    cv::Mat simulatedIdeal(int index) override;
    cv::Point2d simulatedShift(int index) override;
    cv::Mat result(const std::string& name) const override;

private:
    void open() override {}  // all is simulated when it is asked for
    void close() noexcept override { burst_.reset(); }
    double effectiveNumber(std::size_t index) const override;
    SimulatorSettings burstSettings() const;
    // All at once, and not before it is asked for: the frames of a burst belong together.
    const Burst& simulated() const;

    mutable std::optional<Burst> burst_;
};

SimulatorSettings BurstObject::burstSettings() const
{
    SimulatorSettings chosen = settings();
    if (values().isChosen("reference"))
        chosen.reference = values().integer("reference");
    chosen.turn = values().number("turn");
    chosen.parallax = values().number("parallax");
    return chosen;
}

double BurstObject::effectiveNumber(std::size_t index) const
{
    if (table()[index].name == "reference" && !values().isChosen(index))
        return burstSettingsOf(settings()).reference;
    return values().number(index);
}

const Burst& BurstObject::simulated() const
{
    if (!burst_)
        burst_ = simulateBurst(burstSettingsOf(burstSettings()));
    return *burst_;
}

cv::Mat BurstObject::simulatedIdeal(int /*index*/)
{
    refuseResult("ideal", "\"truth\"");
}

cv::Point2d BurstObject::simulatedShift(int index)
{
    const std::size_t place = checked(index);
    const PointF shift = simulated().shifts[place];
    return {static_cast<double>(shift.x), static_cast<double>(shift.y)};
}

cv::Mat BurstObject::result(const std::string& name) const
{
    if (name != "truth")
        refuseResult(name, "\"truth\"");
    return simulated().truth;
}

class RecordingObject : public SimulatorObject
{
public:
    using SimulatorObject::SimulatorObject;

    cv::Mat simulatedFrame(int index) override
    {
        checked(index);
        return stream_->frame(index);
    }
    cv::Mat simulatedIdeal(int index) override
    {
        checked(index);
        return stream_->ideal(index);
    }
    cv::Point2d simulatedShift(int index) override
    {
        checked(index);
        const PointF shift = stream_->shift(index);
        return {static_cast<double>(shift.x), static_cast<double>(shift.y)};
    }

private:
    void open() override { stream_.emplace(streamSettingsOf(settings())); }
    void close() noexcept override { stream_.reset(); }

    std::optional<StreamSimulator> stream_;
};

}  // namespace

const SettingsTable& burstSettings()
{
    static const SettingsTable table = burstTable();
    return table;
}

const SettingsTable& recordingSettings()
{
    static const SettingsTable table =
        commonTable(StreamSettings{}.frameCount, StreamSettings{}.subjectSpeed);
    return table;
}

std::unique_ptr<Object> makeBurst(const Kind& kind, cv::Size frame)
{
    return std::make_unique<BurstObject>(kind, frame);
}

std::unique_ptr<Object> makeRecording(const Kind& kind, cv::Size frame)
{
    return std::make_unique<RecordingObject>(kind, frame);
}

}  // namespace vxc
