// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <tiffio.h>

#include <cstdarg>
#include <memory>
#include <new>

namespace vxapp {

struct CloseTiff
{
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffHandle = std::unique_ptr<TIFF, CloseTiff>;

struct FreeTiffOptions
{
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

/// How files are to be opened: the library's remarks on them go nowhere. Its handlers for the whole process are a
/// host's, which may use the library too.
inline std::unique_ptr<TIFFOpenOptions, FreeTiffOptions> quietTiffOptions()
{
    std::unique_ptr<TIFFOpenOptions, FreeTiffOptions> options(TIFFOpenOptionsAlloc());
    if (!options)
        throw std::bad_alloc();
    const auto silence = [](TIFF*, void*, const char*, const char*, va_list) noexcept { return 1; };
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), silence, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), silence, nullptr);
    return options;
}

}  // namespace vxapp
