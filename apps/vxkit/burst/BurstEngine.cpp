// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/BurstEngine.h"

#include <utility>

#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/OutputRedirect.h"
#include "core/base/Exception.h"
#include "support/drivers/SettingError.h"

namespace vxapp {

namespace {

/// The reference engine tells its times on the standard output.
class RedirectedEngine : public BurstEngine
{
public:
    RedirectedEngine(std::unique_ptr<BurstEngine> engine, std::shared_ptr<halvor::vx::DebugDeviceBase> trace)
        : engine_(std::move(engine)), trace_(std::move(trace))
    {}

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override
    {
        const OutputRedirect redirected(trace_);
        return engine_->addFrame(frame);
    }
    cv::Mat_<float> image() override { return engine_->image(); }

private:
    std::unique_ptr<BurstEngine> engine_;
    std::shared_ptr<halvor::vx::DebugDeviceBase> trace_;  // may be empty
};

std::unique_ptr<BurstEngine> openQuietly(cv::Size frameSize, const SuperresSettings& settings)
{
    if (settings.motion != BurstMotion::global || settings.kind() != EngineKind::reference)
        return vxsupport::openBurstEngine(frameSize, settings);
    const OutputRedirect redirected(settings.trace);
    return std::make_unique<RedirectedEngine>(vxsupport::openBurstEngine(frameSize, settings),
                                              settings.trace);
}

template <typename Work>
auto asOption(Work&& work)
{
    try {
        return std::forward<Work>(work)();
    } catch (const vxsupport::SettingError& error) {
        throw UsageError("--" + std::string(error.what()));
    }
}

}  // namespace

BurstMotion motionFrom(const std::string& name)
{
    return asOption([&] { return vxsupport::motionFrom(name); });
}

EngineKind engineKindFrom(const std::string& name)
{
    return asOption([&] { return vxsupport::engineKindFrom(name); });
}

std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const SuperresSettings& settings)
{
    try {
        return asOption([&] { return openQuietly(frameSize, settings); });
    } catch (const halvor::vx::Exception& error) {
        throw EngineError(error.what());
    }
}

}  // namespace vxapp
