// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/TiffPage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <new>

#include "apps/files/Descriptor.h"

namespace vxapp {

namespace {

// Beside the page's coded bytes the library takes memory for lists of their places.
constexpr tmsize_t largestExtra = tmsize_t{256} << 20;

}  // namespace

/// The file with another link to its first directory. Its functions are called by a C library: none throws.
class TiffPage::View
{
public:
    View(const std::string& path, std::uint64_t place)
        : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC))  // NOLINT(cppcoreguidelines-pro-type-vararg)
    {
        std::array<unsigned char, 4> start{};
        struct stat status
        {};
        if (!file_.isOpen() || ::fstat(file_.get(), &status) != 0 ||
            readAt(start.data(), start.size(), 0) != static_cast<tmsize_t>(start.size()))
            return;
        size_ = static_cast<std::uint64_t>(status.st_size);
        const bool isBigEndian = start[0] == 'M';
        const bool isBig = start.at(isBigEndian ? 3 : 2) == 43;
        const std::size_t width = isBig ? 8 : 4;
        linkPlace_ = width;  // behind four bytes of a small header, eight of a big one
        linkBytes_ = width;
        for (std::size_t i = 0; i < width; ++i)
            link_.at(i) =
                static_cast<unsigned char>(place >> (8 * (isBigEndian ? width - 1 - i : i)) & 0xFFU);
    }

    std::uint64_t size() const noexcept { return size_; }

    static tmsize_t read(thandle_t handle, void* bytes, tmsize_t count) noexcept
    {
        View& view = *static_cast<View*>(handle);
        const tmsize_t got =
            view.readAt(static_cast<unsigned char*>(bytes), static_cast<std::size_t>(count), view.position_);
        view.position_ += got > 0 ? static_cast<std::uint64_t>(got) : 0;
        return got;
    }
    static tmsize_t write(thandle_t /*handle*/, void* /*bytes*/, tmsize_t /*count*/) noexcept { return -1; }
    static toff_t seek(thandle_t handle, toff_t offset, int whence) noexcept
    {
        View& view = *static_cast<View*>(handle);
        const std::uint64_t base = whence == SEEK_CUR ? view.position_ : whence == SEEK_END ? view.size_ : 0;
        return view.position_ = base + offset;
    }
    static int close(thandle_t /*handle*/) noexcept { return 0; }
    static toff_t sizeOf(thandle_t handle) noexcept { return static_cast<View*>(handle)->size_; }

private:
    tmsize_t readAt(unsigned char* bytes, std::size_t count, std::uint64_t place) const noexcept
    {
        std::size_t done = 0;
        while (done < count) {
            const ssize_t got =
                ::pread(file_.get(), bytes + done, count - done, static_cast<off_t>(place + done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0)
                return -1;
            if (got == 0)
                break;
            done += static_cast<std::size_t>(got);
        }
        const std::uint64_t end = std::min<std::uint64_t>(place + done, linkPlace_ + linkBytes_);
        for (std::uint64_t at = std::max<std::uint64_t>(place, linkPlace_); at < end; ++at)
            bytes[at - place] = link_[at - linkPlace_];
        return static_cast<tmsize_t>(done);
    }

    vxfiles::Descriptor file_;
    std::uint64_t size_ = 0;
    std::uint64_t position_ = 0;
    std::size_t linkPlace_ = 0;
    std::size_t linkBytes_ = 0;  // 0 until the header is known
    std::array<unsigned char, 8> link_{};
};

TiffPage::TiffPage(const std::string& path, std::uint64_t place) : view_(std::make_unique<View>(path, place))
{
    const auto options = quietTiffOptions();
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(view_->size()) + largestExtra);
    tiff_.reset(TIFFClientOpenExt(path.c_str(), "rm", view_.get(), View::read, View::write, View::seek,
                                  View::close, View::sizeOf, nullptr, nullptr, options.get()));
}

TiffPage::~TiffPage() = default;

}  // namespace vxapp
