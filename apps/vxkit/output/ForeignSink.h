// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "apps/files/OutputFile.h"
#include "apps/vxkit/output/FrameSinkParts.h"

namespace vxapp {

/// An output that a library of its format writes under the temporary name.
class ForeignSink : public FrameSink
{
protected:
    explicit ForeignSink(const SinkRequest& request);

    /// @throws vxfiles::WriteError with what errno holds if something was not done
    void require(bool isDone) const;

    /// Gives the finished file its name.
    /// @param place  where in the file the frames are, for example " in /frames"
    /// @return what to tell of the output
    std::string commit(const std::string& place = {});

    SequenceShape shape_;
    vxfiles::OutputFile file_;
};

}  // namespace vxapp
