// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/vectors/VectorSet.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>

#include "apps/files/OutputFile.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/input/RegularFile.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace fs = std::filesystem;

namespace {

constexpr const char* listName = "vectors.txt";

fs::path pathOf(const fs::path& folder, const VectorCase& block, const char* direction,
                const VectorFile& file)
{
    return folder / block.block() / direction / (file.name + "." + std::string(file.format) + ".raw");
}

fs::path outputPath(const fs::path& folder, const VectorCase& block, const VectorFile& file)
{
    return pathOf(folder, block, "out", file);
}

std::string listOf(const VectorRequest& request, const std::vector<VectorCase>& cases)
{
    std::ostringstream text;
    text << "# Test vectors. Files are BLOCK/in/NAME.FORMAT.raw and BLOCK/out/...: little-endian words, row "
            "by row, frame after "
            "frame.\n"
         << "# s8, s16, s32, s64: two's complement; u8: unsigned; f32: IEEE 754.\n"
         << "seed " << request.seed << "\nsize " << request.size.width << 'x' << request.size.height
         << "\nframes " << request.frames << '\n';
    const auto list = [&text](const char* kind, const std::vector<VectorFile>& files) {
        for (const VectorFile& file : files)
            text << "  " << kind << ' ' << file.name << ' ' << file.format << " frames " << file.frames
                 << " rows " << file.rows << " cols " << file.cols << '\n';
    };
    for (const VectorCase& block : cases) {
        text << "\nblock " << block.block() << '\n';
        for (const auto& [name, value] : block.settings())
            text << "  setting " << name << ' ' << value << '\n';
        list("input", block.inputs());
        list("output", block.outputs());
    }
    return text.str();
}

std::string fileText(const fs::path& path)
{
    requireRegularFile(path.string(), "a file of vectors");
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void makeFolder(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw UsageError(folder.string() + " can't be made: " + error.message());
}

std::string differenceText(const fs::path& path, const VectorFile& expected, const std::string& found)
{
    if (found.size() != expected.bytes.size())
        return path.string() + ": has " + std::to_string(found.size()) + " bytes, expected " +
               std::to_string(expected.bytes.size());
    const auto [different, unused] =
        std::mismatch(expected.bytes.begin(), expected.bytes.end(), found.begin());
    if (different == expected.bytes.end())
        return "";
    VectorFile other = expected;
    other.bytes = found;
    const std::size_t word =
        static_cast<std::size_t>(different - expected.bytes.begin()) / expected.wordBytes();
    const std::size_t rowWords = static_cast<std::size_t>(expected.cols);
    const std::size_t frameWords = rowWords * static_cast<std::size_t>(expected.rows);
    std::ostringstream text;
    text << path.string() << ": frame " << word / frameWords << ", row " << word % frameWords / rowWords
         << ", column " << word % rowWords << ": expected " << expected.wordText(word) << ", found "
         << other.wordText(word);
    return text.str();
}

}  // namespace

std::size_t VectorFile::wordBytes() const
{
    return static_cast<std::size_t>(std::stoi(std::string(format.substr(1)))) / 8;
}

std::string VectorFile::wordText(std::size_t index) const
{
    const std::size_t length = wordBytes();
    std::uint64_t bits = 0;
    for (std::size_t i = length; i-- > 0;)
        bits = bits << 8 | static_cast<unsigned char>(bytes.at(index * length + i));
    std::ostringstream text;
    if (format.front() == 'f') {
        text.precision(9);
        text << std::bit_cast<float>(static_cast<std::uint32_t>(bits));
        return text.str();
    }
    if (format.front() == 's' && length > 0 && length < 8) {
        const std::uint64_t sign = std::uint64_t{1} << (8 * length - 1);
        bits = (bits ^ sign) - sign;
    }
    text << static_cast<std::int64_t>(bits);
    return text.str();
}

void VectorCase::output(const std::string& name, std::int64_t number)
{
    VectorFile& file = fileFor(outputs_, name, "s64", 1, 1);
    ++file.frames;
    for (int shift = 0; shift < 64; shift += 8)
        file.bytes.push_back(static_cast<char>(static_cast<unsigned char>(number >> shift)));
}

VectorFile& VectorCase::fileFor(std::vector<VectorFile>& files, const std::string& name,
                                std::string_view format, int rows, int cols)
{
    const auto found =
        std::find_if(files.begin(), files.end(), [&](const VectorFile& file) { return file.name == name; });
    if (found != files.end())
        return *found;
    return files.emplace_back(VectorFile{name, format, 0, rows, cols});
}

std::vector<VectorCase> allVectors(const VectorRequest& request)
{
    std::vector<VectorCase> cases = fixedPointVectors(request);
    std::vector<VectorCase> chain = chainVectors(request);
    std::move(chain.begin(), chain.end(), std::back_inserter(cases));
    return cases;
}

void writeVectors(const fs::path& folder, const VectorRequest& request, const std::vector<VectorCase>& cases,
                  bool force)
{
    std::vector<std::pair<fs::path, const std::string*>> files;
    for (const VectorCase& block : cases) {
        for (const VectorFile& file : block.inputs())
            files.emplace_back(pathOf(folder, block, "in", file), &file.bytes);
        for (const VectorFile& file : block.outputs())
            files.emplace_back(outputPath(folder, block, file), &file.bytes);
    }
    // The last to be put in place, so that a folder with a list is whole.
    const std::string list = listOf(request, cases);
    files.emplace_back(folder / listName, &list);

    for (const auto& [path, bytes] : files)
        makeFolder(path.parent_path());
    std::vector<std::unique_ptr<vxfiles::OutputFile>> outputs;
    std::vector<vxfiles::OutputFile*> whole;
    for (const auto& [path, bytes] : files) {
        outputs.push_back(std::make_unique<vxfiles::OutputFile>(
            path, force, outputs.empty() ? nullptr : outputs.back()->folder()));
        outputs.back()->append(*bytes);
        outputs.back()->close();
        whole.push_back(outputs.back().get());
    }
    whole.pop_back();
    vxfiles::putInPlace(whole, outputs.back().get());
}

VectorRequest requestOf(const fs::path& folder, const VectorRequest& usual)
{
    VectorRequest request = usual;
    requireRegularFile((folder / listName).string(), "a list of vectors");
    std::ifstream list(folder / listName);
    std::string size;
    for (std::string line; std::getline(list, line) && !line.starts_with("block ");) {
        std::istringstream words(line);
        std::string key;
        if (!(words >> key))
            continue;
        if (key == "seed")
            words >> request.seed;
        else if (key == "frames")
            words >> request.frames;
        else if (key == "size" && words >> size)
            request.size = parseSize(size);
        if (words.fail())
            throw UsageError((folder / listName).string() + ": '" + line + "' can't be read");
    }
    return request;
}

VectorComparison compareVectors(const fs::path& folder, const std::vector<VectorCase>& cases)
{
    VectorComparison result;
    for (const VectorCase& block : cases) {
        const auto isThere = [&](const VectorFile& file) {
            return fs::exists(outputPath(folder, block, file));
        };
        if (std::none_of(block.outputs().begin(), block.outputs().end(), isThere)) {
            result.absent.push_back(block.block());
            continue;
        }
        const std::size_t faults = result.faults.size();
        for (const VectorFile& file : block.outputs()) {
            const fs::path path = outputPath(folder, block, file);
            const std::string fault = isThere(file)
                                          ? differenceText(path, file, fileText(path))
                                          : path.string() + ": missing, while others of its block are there";
            if (!fault.empty())
                result.faults.push_back(fault);
        }
        if (result.faults.size() == faults)
            result.equal.push_back(block.block());
    }
    return result;
}

}  // namespace vxapp
