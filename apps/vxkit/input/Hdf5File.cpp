// SPDX-License-Identifier: Apache-2.0
#include <hdf5.h>

#include <array>
#include <exception>
#include <filesystem>
#include <utility>
#include <vector>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/formats/Hdf5Handles.h"
#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

struct Found
{
    std::vector<std::string> images;  // paths of data sets that can hold frames
    hid_t file;
    std::exception_ptr failure;
};

constexpr std::size_t mostNames = 20;  // that a message tells
constexpr std::uint64_t largestChunk = std::uint64_t{1} << 31;

bool isImage(hid_t file, const std::string& path)
{
    const Hdf5Handle set(H5Dopen2(file, path.c_str(), H5P_DEFAULT), H5Dclose);
    const Hdf5Handle space(H5Dget_space(set.get()), H5Sclose);
    const Hdf5Handle type(H5Dget_type(set.get()), H5Tclose);
    const int dimensions = H5Sget_simple_extent_ndims(space.get());
    const H5T_class_t kind = H5Tget_class(type.get());
    return (dimensions == 2 || dimensions == 3) && (kind == H5T_INTEGER || kind == H5T_FLOAT);
}

// Called for each object of the file; the names begin without a stroke.
herr_t visit(hid_t /*object*/, const char* name, const H5O_info_t* info, void* data)
{
    auto& found = *static_cast<Found*>(data);
    // The library is C: an exception must not cross it.
    try {
        if (info->type == H5O_TYPE_DATASET && isImage(found.file, name))
            found.images.push_back(std::string("/") + name);
    } catch (...) {
        found.failure = std::current_exception();
        return 1;
    }
    return found.images.size() < mostNames ? 0 : 1;
}

std::optional<SampleType> samplesOf(hid_t type)
{
    const std::size_t bytes = H5Tget_size(type);
    const bool isWhole = H5Tget_class(type) == H5T_INTEGER;
    const char whole = H5Tget_sign(type) == H5T_SGN_NONE ? 'u' : 's';
    std::string name(1, isWhole ? whole : 'f');
    return sampleTypeNamed(name.append(std::to_string(8 * bytes)));
}

// A data set may name other files for its samples, which the library would open.
bool isInFile(hid_t set)
{
    const Hdf5Handle layout(H5Dget_create_plist(set), H5Pclose);
    return layout && H5Pget_external_count(layout.get()) == 0 && H5Pget_layout(layout.get()) != H5D_VIRTUAL;
}

// What can be read but once lies in a file without a name (see Spool). The library's driver for files wants one; that
// for memory takes the file in as a whole.
Hdf5Handle accessOf(const std::string& path)
{
    constexpr std::uintmax_t largestInMemory = std::uintmax_t{1} << 30;
    constexpr std::size_t growth = 1 << 16;
    Hdf5Handle access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
    std::error_code noName;
    if (const std::filesystem::path name = std::filesystem::canonical(path, noName); !noName)
        return access;
    if (std::filesystem::file_size(path) > largestInMemory)
        throw UsageError(path +
                         ": more than 1 GiB of HDF5 that can be read but once; expected the name of a file");
    H5Pset_fapl_core(access.get(), growth, 0);
    return access;
}

class Hdf5File : public FrameFile
{
public:
    Hdf5File(std::string path, std::string dataset);

    int frameCount() const override { return frames_; }
    std::optional<FrameShape> shapeOfAll() const override
    {
        return FrameShape{size_, factsOf(samples_).storage, samples_};
    }
    cv::Mat read(int index) override;

private:
    Hdf5Handle open() const;
    std::string onlyImage(hid_t file) const;
    void takeShape(hid_t set);
    void checkStorage(hid_t set) const;

    std::string path_;
    std::string dataset_;
    SampleType samples_ = SampleType::u16;
    cv::Size size_;
    int frames_ = 0;
    bool isStack_ = false;
};

Hdf5File::Hdf5File(std::string path, std::string dataset)
    : path_(std::move(path)), dataset_(std::move(dataset))
{
    const QuietHdf5 quiet;
    const Hdf5Handle file = open();
    if (dataset_.empty())
        dataset_ = onlyImage(file.get());
    const Hdf5Handle set(H5Dopen2(file.get(), dataset_.c_str(), H5P_DEFAULT), H5Dclose);
    if (!set || !isImage(file.get(), dataset_))
        throw UsageError(path_ + ": " + dataset_ +
                         " is no data set of numbers in two or three dimensions; expected another --dataset");
    if (!isInFile(set.get()))
        throw UsageError(path_ + ": " + dataset_ +
                         " takes its samples from other files; expected them in the file itself");
    takeShape(set.get());
    checkStorage(set.get());
}

Hdf5Handle Hdf5File::open() const
{
    const Hdf5Handle access = accessOf(path_);
    Hdf5Handle file(H5Fopen(path_.c_str(), H5F_ACC_RDONLY, access.get()), H5Fclose);
    if (!file)
        throw UsageError(path_ + ": can't be decoded; expected an undamaged, complete HDF5 file");
    return file;
}

std::string Hdf5File::onlyImage(hid_t file) const
{
    Found found{{}, file, {}};
    if (H5Ovisit2(file, H5_INDEX_NAME, H5_ITER_INC, visit, &found, H5O_INFO_BASIC) < 0)
        throw UsageError(path_ + ": can't be decoded; expected an undamaged, complete HDF5 file");
    if (found.failure)
        std::rethrow_exception(found.failure);
    if (found.images.size() == 1)
        return found.images.front();
    const std::vector<std::string_view> names(found.images.begin(), found.images.end());
    throw UsageError(path_ + (names.empty()
                                  ? ": holds no data set of numbers in two or three dimensions"
                                  : ": holds several data sets; expected --dataset " + orList(names)));
}

void Hdf5File::takeShape(hid_t set)
{
    const Hdf5Handle space(H5Dget_space(set), H5Sclose);
    const Hdf5Handle type(H5Dget_type(set), H5Tclose);
    const std::optional<SampleType> samples = samplesOf(type.get());
    if (!samples)
        throw UsageError(path_ + ": " + dataset_ + " holds numbers of " +
                         std::to_string(8 * H5Tget_size(type.get())) + " bits; expected " +
                         sampleTypeNames());
    samples_ = *samples;
    std::array<hsize_t, 3> lengths{};
    isStack_ = H5Sget_simple_extent_ndims(space.get()) == 3;
    H5Sget_simple_extent_dims(space.get(), lengths.data(), nullptr);
    const hsize_t rows = lengths.at(isStack_ ? 1 : 0);
    const hsize_t columns = lengths.at(isStack_ ? 2 : 1);
    requireFrameSize(path_, static_cast<std::int64_t>(columns), static_cast<std::int64_t>(rows));
    size_ = {static_cast<int>(columns), static_cast<int>(rows)};
    frames_ = isStack_ ? checkedFrameCount(path_, lengths[0]) : 1;
}

// What reading a frame costs beside the frame: a chunk is decoded as a whole.
void Hdf5File::checkStorage(hid_t set) const
{
    std::uint64_t fileBytes = 0;
    openForReading(path_, fileBytes);
    const std::uint64_t sampleBytes = factsOf(samples_).bytes;
    requirePlausibleSize(path_, static_cast<std::uint64_t>(size_.area()) * sampleBytes, fileBytes);
    const Hdf5Handle plan(H5Dget_create_plist(set), H5Pclose);
    const H5D_layout_t layout = H5Pget_layout(plan.get());
    std::array<hsize_t, 3> chunk{};
    if (layout != H5D_CHUNKED || H5Pget_chunk(plan.get(), 3, chunk.data()) < 2)
        return;
    const std::uint64_t chunkBytes = chunk[0] * chunk[1] * (isStack_ ? chunk[2] : 1) * sampleBytes;
    if (chunkBytes > largestChunk)
        throw UsageError(path_ + ": " + dataset_ + " has chunks of " + std::to_string(chunkBytes) +
                         " bytes; expected at most " + std::to_string(largestChunk));
}

cv::Mat Hdf5File::read(int index)
{
    const QuietHdf5 quiet;
    const Hdf5Handle file = open();
    const Hdf5Handle set(H5Dopen2(file.get(), dataset_.c_str(), H5P_DEFAULT), H5Dclose);
    const Hdf5Handle space(H5Dget_space(set.get()), H5Sclose);
    const std::array<hsize_t, 3> first{static_cast<hsize_t>(index), 0, 0};
    const std::array<hsize_t, 3> count{1, static_cast<hsize_t>(size_.height),
                                       static_cast<hsize_t>(size_.width)};
    const Hdf5Handle memory(H5Screate_simple(2, count.data() + 1, nullptr), H5Sclose);
    if (isStack_)
        H5Sselect_hyperslab(space.get(), H5S_SELECT_SET, first.data(), nullptr, count.data(), nullptr);
    cv::Mat frame(size_, factsOf(samples_).storage);
    if (H5Dread(set.get(), hdf5TypeOf(frame.depth()), memory.get(), space.get(), H5P_DEFAULT, frame.ptr()) <
        0)
        throw UsageError(path_ + ": frame " + std::to_string(index) +
                         " can't be decoded; expected an undamaged, complete HDF5 file");
    return frame;
}

}  // namespace

std::unique_ptr<FrameFile> openHdf5File(const std::string& path, const FileHints& hints)
{
    return std::make_unique<Hdf5File>(path, hints.dataset);
}

}  // namespace vxapp
