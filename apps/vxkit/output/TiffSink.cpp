// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <string>

#include "apps/files/OutputFile.h"
#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/TiffWriter.h"

namespace vxapp {

namespace {

// The image library would hold all pages in memory until the last one is there.
class TiffSink : public FrameSink
{
public:
    explicit TiffSink(const SinkRequest& request)
        : shape_(request.shape), file_(request.options.path, request.options.force), tiff_(file_, shape_)
    {}

    void add(const cv::Mat& frame) override { tiff_.add(frame); }

    std::string finish() override
    {
        tiff_.finish();
        file_.commit();
        return file_.path().string() + " (" + framesText(shape_) + ", " +
               std::to_string(8 * factsOf(shape_.samples).bytes) +
               (isFloatType(shape_.samples) ? "-bit floats)" : " bits)");
    }

private:
    SequenceShape shape_;
    vxfiles::OutputFile file_;
    TiffWriter tiff_;
};

}  // namespace

std::unique_ptr<FrameSink> openTiffSink(const SinkRequest& request)
{
    return std::make_unique<TiffSink>(request);
}

}  // namespace vxapp
