// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/input/TiffPage.h"
#include "apps/vxkit/terminal/Failure.h"

// The TIFF library ends at the first page that it can't find, so a file that was cut off would look like a
// shorter recording. Following the chain of page directories shows the loss, and where each page is.
namespace vxapp {

namespace {

// Classic TIFF or BigTIFF: the widths of the fields differ.
struct TiffLayout
{
    bool bigEndian;
    std::size_t firstLink;    // place of the link to the first directory
    std::size_t countBytes;   // width of a directory's entry count
    std::size_t entryBytes;   // width of an entry
    std::size_t offsetBytes;  // width of a link
};

class TiffChain
{
public:
    explicit TiffChain(const std::string& path) : path_(path), file_(openForReading(path, bytes_))
    {
        const bool bigEndian = number(0, 2, false) == 0x4D4D;
        const bool big = number(2, 2, bigEndian) == 43;
        layout_ = big ? TiffLayout{bigEndian, 8, 8, 20, 8} : TiffLayout{bigEndian, 4, 2, 12, 4};
    }

    FrameTable pages()
    {
        FrameTable places(path_);
        // A page that is met again after 1, 2, 4, ... steps shows a loop within three times its length.
        std::uint64_t mark = 0;
        std::uint64_t steps = 0;
        std::uint64_t nextMark = 1;
        for (std::uint64_t place = link(layout_.firstLink); place != 0; place = behind(place)) {
            if (place == mark)
                throw UsageError(path_ + ": the TIFF pages form a loop; expected a sound file");
            if (isFrame(place))
                places.add(place);
            if (++steps == nextMark) {
                mark = place;
                nextMark *= 2;
            }
        }
        if (steps == 0)
            throw cutOff();
        if (places.empty())
            throw UsageError(path_ + ": holds masks and smaller copies only; expected pages of full size");
        return places;
    }

private:
    // Smaller copies of a page and masks are no frames. Entries are sorted: what tells them comes first.
    bool isFrame(std::uint64_t place)
    {
        const std::uint64_t tag =
            number(place, layout_.countBytes, layout_.bigEndian) == 0
                ? 0
                : number(place + layout_.countBytes, sizeof(std::uint16_t), layout_.bigEndian);
        if (tag != TIFFTAG_SUBFILETYPE && tag != TIFFTAG_OSUBFILETYPE)
            return true;
        const TiffPage page(path_, place);
        std::uint32_t kind = 0;
        return !page.isOpen() || TIFFGetField(page.get(), TIFFTAG_SUBFILETYPE, &kind) != 1 ||
               (kind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) == 0;
    }

    // The directory that follows one.
    std::uint64_t behind(std::uint64_t place)
    {
        const std::uint64_t entries = number(place, layout_.countBytes, layout_.bigEndian);
        if (entries > bytes_ / layout_.entryBytes)
            throw cutOff();
        return link(place + layout_.countBytes + entries * layout_.entryBytes);
    }

    std::uint64_t link(std::uint64_t place) { return number(place, layout_.offsetBytes, layout_.bigEndian); }

    std::uint64_t number(std::uint64_t place, std::size_t width, bool bigEndian)
    {
        std::array<char, 8> text{};
        if (place >= bytes_ || !readBytes(file_, place, text.data(), width))
            throw cutOff();
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t shift = 8 * (bigEndian ? width - 1 - i : i);
            value |= static_cast<std::uint64_t>(static_cast<unsigned char>(text.at(i))) << shift;
        }
        return value;
    }

    UsageError cutOff() const
    {
        return UsageError(path_ + ": cut off or damaged; expected a complete TIFF file");
    }

    std::string path_;
    std::uint64_t bytes_ = 0;
    std::ifstream file_;
    TiffLayout layout_{};
};

}  // namespace

FrameTable tiffPages(const std::string& path)
{
    return TiffChain(path).pages();
}

}  // namespace vxapp
