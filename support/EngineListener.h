#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "core/diagnostics/DebugDeviceBase.h"
#include "enhancement/superresolution/reference/SuperResolution.h"

namespace vxsupport {

/// Levels of the engines' debug lines.
inline constexpr int solverLevel = 11;
inline constexpr int finestLevel = 12;

/// Hears the debug lines of an engine: reads off them how many steps the solver took, and hands them on.
class EngineListener : public halvor::vx::DebugDeviceBase
{
public:
    /// @param next  takes the lines, too; may be empty
    explicit EngineListener(std::shared_ptr<halvor::vx::DebugDeviceBase> next = nullptr)
        : next_(std::move(next))
    {}

    void write(std::string_view channel, std::string_view text, int level) override;

    /// Conjugate-gradient steps of the last image.
    int iterations() const { return iterations_; }

private:
    std::shared_ptr<halvor::vx::DebugDeviceBase> next_;
    int iterations_ = 0;
};

/// Has the channels of all fast engines in the process send to a device while it lives; silences them at its
/// end.
class FastEngineChannels
{
public:
    FastEngineChannels(const std::shared_ptr<halvor::vx::DebugDeviceBase>& device, int level);
    FastEngineChannels(const FastEngineChannels&) = delete;
    FastEngineChannels& operator=(const FastEngineChannels&) = delete;
    ~FastEngineChannels();
};

/// Has the channels of a reference engine, its own and its solver's, send to a device for the engine's life.
void listenTo(halvor::vx::SuperResolution& engine, const std::shared_ptr<halvor::vx::DebugDeviceBase>& device,
              int level);

}  // namespace vxsupport
