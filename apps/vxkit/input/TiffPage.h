// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "apps/vxkit/formats/TiffHandles.h"

namespace vxapp {

/// A page of a TIFF file, opened by the place of its directory.
///
/// Asked for a directory, the library walks through all before it, so that a recording would cost time by the
/// square of its pages. It is shown a file whose header names this page as the first one.
class TiffPage
{
public:
    /// @param path   a TIFF file or BigTIFF file
    /// @param place  of the page's directory
    /// @throws std::bad_alloc
    TiffPage(const std::string& path, std::uint64_t place);
    ~TiffPage();
    TiffPage(const TiffPage&) = delete;
    TiffPage& operator=(const TiffPage&) = delete;

    /// Whether the library takes the page.
    bool isOpen() const { return tiff_ != nullptr; }
    TIFF* get() const { return tiff_.get(); }

private:
    class View;

    std::unique_ptr<View> view_;  // outlives the library's object
    TiffHandle tiff_;
};

}  // namespace vxapp
