// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/PngChunks.h"

#include <algorithm>
#include <array>
#include <vector>

namespace vxapp {

namespace {

constexpr std::streamoff signatureBytes = 8;
constexpr std::size_t largestPart = std::size_t{1} << 16;

// Of the polynomial 0xEDB88320, reflected.
constexpr std::array<std::uint32_t, 256> crcTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1U) != 0 ? (crc >> 1U) ^ 0xEDB88320U : crc >> 1U;
        table[byte] = crc;
    }
    return table;
}();

std::uint32_t bigEndian(const char* bytes)
{
    std::uint32_t number = 0;
    for (int i = 0; i < 4; ++i)
        number = number << 8U | static_cast<unsigned char>(bytes[i]);
    return number;
}

bool isNeeded(std::string_view type)
{
    return type.front() >= 'A' && type.front() <= 'Z';
}

}  // namespace

std::uint32_t crcOfChunk(std::string_view bytes, std::uint32_t former)
{
    std::uint32_t crc = ~former;
    for (const char byte : bytes)
        crc = crcTable[(crc ^ static_cast<unsigned char>(byte)) & 0xFFU] ^ (crc >> 8U);
    return ~crc;
}

bool hasWholeChunks(std::istream& file)
{
    file.seekg(signatureBytes);
    std::array<char, 8> head{};
    std::array<char, 4> sum{};
    std::vector<char> part(largestPart);
    while (file.read(head.data(), head.size())) {
        const std::string_view type(head.data() + 4, 4);
        std::uint32_t crc = crcOfChunk(type);
        for (std::size_t left = bigEndian(head.data()); left > 0;) {
            const std::size_t count = std::min(left, part.size());
            if (!file.read(part.data(), static_cast<std::streamsize>(count)))
                return false;
            crc = crcOfChunk({part.data(), count}, crc);
            left -= count;
        }
        if (!file.read(sum.data(), sum.size()) || (isNeeded(type) && crc != bigEndian(sum.data())))
            return false;
        if (type == "IEND")
            return true;
    }
    return false;
}

}  // namespace vxapp
