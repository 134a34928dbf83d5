// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/FrameTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#ifdef VXKIT_HDF5
#include <hdf5.h>
#endif

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/input/FrameFile.h"
#include "apps/vxkit/terminal/Failure.h"
#include "doubles/AllocationCounter.h"

using namespace vxapp;
using testing::AllOf;
using testing::HasSubstr;
using vxtest::AllocationCounter;

namespace {

constexpr std::size_t kibi = 1024;
constexpr std::size_t mebi = kibi * kibi;

class SmallFilesOfManyFrames : public TemporaryFolder
{
protected:
    // The bytes, and zeros up to a size that takes no room on the disk.
    std::string write(const std::string& name, const std::string& bytes, std::uint64_t size = 0) const
    {
        writeText(at(name), bytes);
        if (size > bytes.size())
            std::filesystem::resize_file(at(name), size);
        return at(name);
    }

    static std::string refusalOf(const std::string& path)
    {
        try {
            openImageFile(path)->read(0);
        } catch (const UsageError& error) {
            return error.what();
        }
        return "accepted";
    }
};

std::string word(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text.push_back(static_cast<char>(static_cast<unsigned char>(value >> (8 * i) & 0xFFU)));
    return text;
}

// Pages without entries, each of 6 bytes; the last one links to `tail`.
std::string emptyPages(std::uint32_t count, std::uint32_t tail)
{
    std::string file = "II*" + std::string(1, '\0') + word(8, 4);
    for (std::uint32_t page = 1; page <= count; ++page)
        file += word(0, 2) + word(page < count ? 8 + 6 * page : tail, 4);
    return file;
}

std::string npyHeader(const std::string& order, const std::string& shape)
{
    const std::string text = "{'descr': '<u2', 'fortran_order': " + order + ", 'shape': (" + shape + "), }\n";
    return "\x93NUMPY" + word(1, 2) + word(text.size(), 2) + text;
}

std::string fitsCard(const std::string& key, const std::string& value)
{
    std::string card = key;
    card.resize(8, ' ');
    card += "= " + std::string(20 - value.size(), ' ') + value;
    card.resize(80, ' ');
    return card;
}

}  // namespace

TEST(FrameTable, TakesEightBytesAFrameUpToItsLimitAndNamesTheFileBeyondIt)
{
    constexpr std::size_t frames = 100'000;
    FrameTable table("long.tif", frames);
    const auto fill = [](FrameTable& filled) {
        for (std::size_t i = 0; i < frames; ++i)
            filled.add(i);
    };
    {
        const AllocationCounter large(64 * kibi);
        fill(table);
        EXPECT_EQ(large.count(), 0U) << "the table is not copied when it grows";
    }
    FrameTable other("long.tif", frames);
    const AllocationCounter all;
    fill(other);
    EXPECT_LT(all.count(), frames / 50);
    EXPECT_EQ(table[99'999], 99'999U);
    try {
        table.add(0);
        FAIL() << "one more";
    } catch (const UsageError& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("long.tif"), HasSubstr("100000 frames")));
    }
}

TEST_F(SmallFilesOfManyFrames, FindsLoopsOfPagesWithoutWalkingThroughTheFile)
{
    for (const auto& [pages, tail] : {std::pair(1U, 8U), {2U, 8U}, {7U, 8U + 6 * 4}, {100U, 8U + 6 * 99}}) {
        const std::string path = write("loop.tif", emptyPages(pages, tail), 256 * mebi);
        const AllocationCounter counter;
        EXPECT_THAT(refusalOf(path), AllOf(HasSubstr("loop.tif"), HasSubstr("form a loop"))) << pages;
        EXPECT_LT(counter.count(), 300U) << pages;
    }
}

TEST_F(SmallFilesOfManyFrames, RefusesHeadersThatClaimWhatTheFileCantHold)
{
    const std::string png =
        "\x89PNG\r\n\x1a\n" + std::string("\0\0\0\rIHDR\0\0\x75\x30\0\0\x75\x30\x10\0\0\0\0", 21);
    std::string fits = fitsCard("SIMPLE", "T") + fitsCard("BITPIX", "-64") + fitsCard("NAXIS", "2") +
                       fitsCard("NAXIS1", "65536") + fitsCard("NAXIS2", "4096") + "END";
    fits.resize(2 * 2880, ' ');
    EXPECT_THAT(refusalOf(write("a.png", png, 100)), AllOf(HasSubstr("a.png"), HasSubstr("30000x30000")));
    EXPECT_THAT(refusalOf(write("b.npy", npyHeader("False", "1000000, 64, 64"), 400)), HasSubstr("cut off"));
    EXPECT_THAT(
        refusalOf(write("c.npy", "\x93NUMPY" + word(2, 2) + word(3U << 30, 4), std::uint64_t{4} << 30)),
        AllOf(HasSubstr("c.npy"), HasSubstr("header of 3221225472 bytes")));
    EXPECT_THAT(refusalOf(write("d.pgm", "P5 65536 65536 65535\n", 100)), HasSubstr("65536x65536"));
#ifdef VXKIT_FITS
    EXPECT_THAT(refusalOf(write("e.fits", fits)), AllOf(HasSubstr("e.fits"), HasSubstr("2147483648 bytes")));
#endif
}

TEST_F(SmallFilesOfManyFrames, ReadsTablesWithLinesOfAnyLengthInBoundedMemory)
{
    std::string row;
    for (int i = 0; i < 70'000; ++i)
        row += "1,";
    write("wide.csv", row + "1\n");
    write("zeros.csv", "1 2\n", std::uint64_t{2} << 30);
    write("remark.csv", "1 2\n#" + std::string(5 * mebi, 'x') + "\n3 4\n");
    std::string rows;
    for (int i = 0; i < 70'000; ++i)
        rows += "1\n";
    write("high.csv", rows);
    const AllocationCounter large(16 * mebi);
    EXPECT_THAT(refusalOf(at("wide.csv")), HasSubstr("frames of 65537x1"));
    EXPECT_THAT(refusalOf(at("high.csv")), HasSubstr("frames of 1x65537"));
    EXPECT_THAT(refusalOf(at("zeros.csv")), AllOf(HasSubstr("zeros.csv: line 2"), HasSubstr("longer")));
    EXPECT_THAT(refusalOf(at("remark.csv")), HasSubstr("line 2 is longer than 4194304 bytes"));
    EXPECT_EQ(large.count(), 0U);
}

// Each sample of a frame lies in another part of the file.
TEST_F(SmallFilesOfManyFrames, ReadsAFrameOfAColumnMajorArrayInBoundedMemory)
{
    constexpr std::size_t frames = 700'000;
    const cv::Size size{3, 4};
    const std::string header = npyHeader("True", "700000, 4, 3");
    const std::string path = write("f.npy", header, header.size() + frames * 12 * 2);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    cv::Mat_<std::uint16_t> expected(size);
    for (int x = 0; x < size.width; ++x)
        for (int y = 0; y < size.height; ++y) {
            expected(y, x) = static_cast<std::uint16_t>(1000 + 10 * y + x);
            const std::size_t sample = static_cast<std::size_t>(x * size.height + y) * frames + 123'456;
            file.seekp(static_cast<std::streamoff>(header.size() + 2 * sample));
            file << word(expected(y, x), 2);
        }
    file.close();
    const AllocationCounter large(2 * mebi);
    EXPECT_TRUE(sameBits(openImageFile(path)->read(123'456), expected));
    EXPECT_EQ(large.count(), 0U);
}

TEST_F(SmallFilesOfManyFrames, TriesFewOfThePlacesWhereAJpegMayHoldAnImage)
{
    std::string segment = "CAM" + std::string(1, '\0');
    while (segment.size() < 60'000)
        segment += "II*" + std::string(1, '\0');
    std::string file = "\xFF\xD8";
    for (int i = 0; i < 20; ++i)
        file += "\xFF\xE1" + std::string(1, static_cast<char>(60'002 >> 8)) +
                static_cast<char>(60'002 & 0xFF) + segment;
    const std::string path = write("a.jpg", file);
    const AllocationCounter counter;
    EXPECT_THAT(refusalOf(path), HasSubstr("without a raw image"));
    EXPECT_LT(counter.count(), 5000U) << "of 300,000 places";
}

#ifdef VXKIT_HDF5
namespace {

// A data set of doubles that nothing was written to.
void makeDataset(const std::string& path, std::vector<hsize_t> lengths,
                 const std::function<void(hid_t)>& plan)
{
    const hid_t file = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    const hid_t space = H5Screate_simple(static_cast<int>(lengths.size()), lengths.data(), nullptr);
    const hid_t properties = H5Pcreate(H5P_DATASET_CREATE);
    plan(properties);
    H5Dclose(H5Dcreate2(file, "a", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, properties, H5P_DEFAULT));
    H5Pclose(properties);
    H5Sclose(space);
    H5Fclose(file);
}

}  // namespace

TEST_F(SmallFilesOfManyFrames, BoundsWhatHdf5FilesAskFor)
{
    const auto chunked = [](hsize_t frames, hsize_t rows) {
        return [frames, rows](hid_t plan) {
            const std::array<hsize_t, 3> chunk{frames, rows, 64};
            H5Pset_chunk(plan, 3, chunk.data());
        };
    };
    makeDataset(at("long.h5"), {1'000'000, 64, 64}, chunked(1, 64));
    EXPECT_EQ(openImageFile(at("long.h5"))->read(999'999).size(), cv::Size(64, 64)) << "never written: zeros";
    makeDataset(at("chunk.h5"), {1'000'000, 64, 64}, chunked(100'000, 64));
    EXPECT_THAT(refusalOf(at("chunk.h5")),
                AllOf(HasSubstr("chunk.h5"), HasSubstr("chunks of 3276800000 bytes")));
    makeDataset(at("large.h5"), {65536, 4096}, [](hid_t) {});
    EXPECT_THAT(refusalOf(at("large.h5")), HasSubstr("a frame of 2147483648 bytes"));
}
#endif
