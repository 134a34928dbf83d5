// SPDX-License-Identifier: Apache-2.0
#include <opencv2/imgcodecs.hpp>
#include <utility>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

namespace vxapp {

namespace {

class PngFile : public FrameFile
{
public:
    explicit PngFile(std::string path) : path_(std::move(path)) {}

    int frameCount() const override { return 1; }
    std::optional<FrameShape> shapeOfAll() const override { return std::nullopt; }

    cv::Mat read(int /*index*/) override
    {
        cv::Mat frame;
        try {
            const QuietStandardError quiet;
            frame = cv::imread(path_, cv::IMREAD_UNCHANGED);
        } catch (const cv::Exception&) {  // told below
        }
        if (frame.empty())
            throw UsageError(path_ + ": can't be decoded; expected an undamaged, complete image");
        requireFrameType(path_, frame.type());
        return frame;
    }

private:
    std::string path_;
};

}  // namespace

std::unique_ptr<FrameFile> openPngFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<PngFile>(path);
}

}  // namespace vxapp
