// SPDX-License-Identifier: Apache-2.0
#include "apps/files/SequenceList.h"

#include <openssl/evp.h>

#include <array>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "apps/files/Failure.h"
#include "apps/files/OutputNames.h"

namespace vxfiles {

namespace fs = std::filesystem;

namespace {

struct FreeDigest
{
    void operator()(EVP_MD_CTX* digest) const { EVP_MD_CTX_free(digest); }
};

std::string checksumOf(const fs::path& path)
{
    const std::unique_ptr<EVP_MD_CTX, FreeDigest> digest(EVP_MD_CTX_new());
    bool isGood = digest && EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) == 1;
    std::ifstream file(path, std::ios::binary);
    isGood = isGood && file.is_open();
    std::vector<char> block(1 << 16);
    while (isGood && file.good()) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        isGood = EVP_DigestUpdate(digest.get(), block.data(), static_cast<std::size_t>(file.gcount())) == 1;
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned length = 0;
    if (!isGood || file.bad() || EVP_DigestFinal_ex(digest.get(), bytes.data(), &length) != 1)
        throw WriteError(path.string() + ": no checksum could be made of it");
    std::string text;
    constexpr std::string_view digits = "0123456789abcdef";
    for (std::size_t i = 0; i < length; ++i) {
        text.push_back(digits[bytes.at(i) >> 4U]);
        text.push_back(digits[bytes.at(i) & 0xFU]);
    }
    return text;
}

// A name with a line's end is written on one line all the same, and the line is marked by a backslash.
std::string lineOf(const std::string& checksum, const std::string& name)
{
    std::string escaped;
    for (const char c : name) {
        if (c == '\n' || c == '\r' || c == '\\')
            escaped.push_back('\\');
        escaped.push_back(c == '\n' ? 'n' : c == '\r' ? 'r' : c);
    }
    return (escaped == name ? "" : "\\") + checksum + "  " + escaped + "\n";
}

}  // namespace

fs::path SequenceList::nameOf(const fs::path& sequence)
{
    return sequence.string() + ".sha256";
}

SequenceList::SequenceList(const fs::path& sequence, bool force) : path_(nameOf(sequence)), force_(force) {}

void SequenceList::withdraw()
{
    std::error_code error;
    if (!force_ || !fs::is_regular_file(path_, error))
        return;
    if (fs::remove(placeOf(path_), error); error)
        throw writeFailure(path_, error.value());
}

void SequenceList::add(const fs::path& name, const fs::path& path)
{
    text_ += lineOf(checksumOf(path), name.filename().string());
}

OutputFile& SequenceList::file()
{
    if (!file_) {
        file_.emplace(path_, force_);
        file_->append(text_);
    }
    return *file_;
}

}  // namespace vxfiles
