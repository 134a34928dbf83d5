// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <opencv2/core/mat.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vxapp {

/// Words of a test vector: little-endian, row by row, frame after frame.
struct VectorFile
{
    std::string name;         ///< "image"
    std::string_view format;  ///< "s8", "u8", "s16", "s32", "s64" or "f32"
    int frames = 0;
    int rows = 0;
    int cols = 0;
    std::string bytes{};

    std::size_t wordBytes() const;
    /// A word as text, for people.
    std::string wordText(std::size_t index) const;
};

/// What one block of the hardware is given and must answer.
class VectorCase
{
public:
    explicit VectorCase(std::string block) : block_(std::move(block)) {}

    template <typename Value>
    void setting(const std::string& name, Value value)
    {
        std::ostringstream text;
        text << +value;
        settings_.emplace_back(name, text.str());
    }

    template <typename Word>
    void input(const std::string& name, const cv::Mat_<Word>& image)
    {
        addFrame(inputs_, name, image);
    }
    /// Calls with one name are the frames of one file.
    template <typename Word>
    void output(const std::string& name, const cv::Mat_<Word>& image)
    {
        addFrame(outputs_, name, image);
    }
    void output(const std::string& name, std::int64_t number);

    const std::string& block() const { return block_; }
    const std::vector<std::pair<std::string, std::string>>& settings() const { return settings_; }
    const std::vector<VectorFile>& inputs() const { return inputs_; }
    const std::vector<VectorFile>& outputs() const { return outputs_; }

private:
    template <typename Word>
    void addFrame(std::vector<VectorFile>& files, const std::string& name, const cv::Mat_<Word>& image);
    static VectorFile& fileFor(std::vector<VectorFile>& files, const std::string& name,
                               std::string_view format, int rows, int cols);

    std::string block_;
    std::vector<std::pair<std::string, std::string>> settings_;
    std::vector<VectorFile> inputs_;
    std::vector<VectorFile> outputs_;
};

/// What a set of vectors is made from; the same values give the same bytes on every machine.
struct VectorRequest
{
    std::uint64_t seed = 1;
    cv::Size size{64, 48};
    int frames = 8;  ///< of the blocks that learn from frame to frame
};

/// Vectors of the fixed-point engine's kernels and of the enhancer chain's blocks.
std::vector<VectorCase> fixedPointVectors(const VectorRequest& request);
std::vector<VectorCase> chainVectors(const VectorRequest& request);
std::vector<VectorCase> allVectors(const VectorRequest& request);

/// Writes BLOCK/in/NAME.FORMAT.raw and BLOCK/out/NAME.FORMAT.raw, and vectors.txt, which tells sizes, formats and
/// settings.
///
/// @param folder  made if there is none
/// @throws UsageError if a file exists already and `force` is off, or can't be written
void writeVectors(const std::filesystem::path& folder, const VectorRequest& request,
                  const std::vector<VectorCase>& cases, bool force);

/// The request of a folder's vectors.txt; `usual` where it holds none.
VectorRequest requestOf(const std::filesystem::path& folder, const VectorRequest& usual);

struct VectorComparison
{
    std::vector<std::string> equal;   ///< blocks of which every output is there and the same
    std::vector<std::string> absent;  ///< blocks of which no output is there
    std::vector<std::string>
        faults;  ///< one line each: a file that differs, is of another length or is missing
};

/// Compares somebody's outputs in a folder laid out like that of writeVectors() with the expected ones.
VectorComparison compareVectors(const std::filesystem::path& folder, const std::vector<VectorCase>& cases);

template <typename Word>
void VectorCase::addFrame(std::vector<VectorFile>& files, const std::string& name,
                          const cv::Mat_<Word>& image)
{
    static constexpr std::string_view integers[] = {"s8", "s16", "", "s32", "", "", "", "s64"};
    constexpr std::string_view format = std::is_same_v<Word, float>           ? "f32"
                                        : std::is_same_v<Word, unsigned char> ? "u8"
                                                                              : integers[sizeof(Word) - 1];
    VectorFile& file = fileFor(files, name, format, image.rows, image.cols);
    ++file.frames;
    for (const Word word : image) {
        std::uint64_t bits = 0;
        if constexpr (std::is_same_v<Word, float>)
            bits = std::bit_cast<std::uint32_t>(word);
        else
            bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(word));
        for (std::size_t i = 0; i < sizeof(Word); ++i)
            file.bytes.push_back(static_cast<char>(static_cast<unsigned char>(bits >> (8 * i))));
    }
}

}  // namespace vxapp
