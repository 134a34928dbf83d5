// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/ForeignSink.h"

#include <cerrno>

#include "apps/files/Failure.h"

namespace vxapp {

ForeignSink::ForeignSink(const SinkRequest& request)
    : shape_(request.shape), file_(request.options.path, request.options.force)
{}

void ForeignSink::require(bool isDone) const
{
    if (!isDone)
        throw vxfiles::writeFailure(file_.path(), errno);
}

std::string ForeignSink::commit(const std::string& place)
{
    file_.commit();
    return file_.path().string() + " (" + framesText(shape_) + place + ", " +
           std::string(factsOf(shape_.samples).text) + ")";
}

}  // namespace vxapp
