// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <type_traits>
#include <utility>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/input/Spool.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

// A file that lies in a spool, under the name that the user knows.
class SpooledFile : public FrameFile
{
public:
    SpooledFile(std::string name, std::unique_ptr<Spool> spool, const FileOpener& open)
        : name_(std::move(name)), spool_(std::move(spool)), file_(named([&] { return open(spool_->path()); }))
    {}

    int frameCount() const override { return file_->frameCount(); }
    std::optional<FrameShape> shapeOfAll() const override { return file_->shapeOfAll(); }
    SampleType sampleOf(const cv::Mat& frame) const override { return file_->sampleOf(frame); }
    cv::Mat read(int index) override
    {
        return named([&] { return file_->read(index); });
    }

private:
    template <typename Action>
    std::invoke_result_t<Action> named(Action action) const
    {
        try {
            return action();
        } catch (const UsageError& error) {
            std::string text = error.what();
            const std::size_t place = text.find(spool_->path());
            if (place != std::string::npos)
                text.replace(place, spool_->path().size(), name_);
            throw UsageError(text);
        }
    }

    std::string name_;
    std::unique_ptr<Spool> spool_;
    std::unique_ptr<FrameFile> file_;
};

}  // namespace

std::unique_ptr<FrameFile> openSpooled(const std::string& name, std::unique_ptr<Spool> spool,
                                       const FileOpener& open)
{
    return std::make_unique<SpooledFile>(name, std::move(spool), open);
}

std::unique_ptr<FrameFile> openReadOnce(const std::string& path, const FileOpener& open)
{
    auto spool = std::make_unique<Spool>();
    const std::string name = path == "-" ? "standard input" : path;
    if (path == "-") {
        spool->appendAll(STDIN_FILENO, name);
        return openSpooled(name, std::move(spool), open);
    }
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        throw UsageError(path + ": can't be read (" + std::strerror(errno) + ")");
    try {
        spool->appendAll(descriptor, name);
    } catch (...) {
        ::close(descriptor);
        throw;
    }
    ::close(descriptor);
    return openSpooled(name, std::move(spool), open);
}

}  // namespace vxapp
