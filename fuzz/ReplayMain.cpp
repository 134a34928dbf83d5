// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/FuzzInput.h"

namespace {

namespace fs = std::filesystem;

void replay(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    std::fprintf(stderr, "%s\n", path.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

// Runs a target once on each of the given files and on those in the given folders; a folder may be missing.
int main(int argc, char** argv)
{
    std::vector<fs::path> files;
    for (const fs::path path : std::vector<const char*>(argv + 1, argv + argc)) {
        if (fs::is_regular_file(path))
            files.push_back(fs::absolute(path));
        else if (fs::is_directory(path))
            for (const fs::directory_entry& entry : fs::directory_iterator(fs::absolute(path)))
                files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    LLVMFuzzerInitialize(&argc, &argv);
    for (const fs::path& file : files)
        replay(file);
    std::fprintf(stderr, "%zu files were replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
