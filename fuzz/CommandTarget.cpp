// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "apps/vxkit/commands/Program.h"
#include "apps/vxkit/terminal/Failure.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Sandbox.h"

// A command line of vxkit, which a zero byte ends, and behind it what the file "input" holds. The working folder also
// holds a few sound files by the names below.
namespace {

constexpr int mostDigits = 2;  // of a number that may be a size or a count

// A checkered scene that moves by a pixel from frame to frame.
std::string frames(int count, int width, int height)
{
    std::string samples;
    for (int i = 0; i < count; ++i)
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const bool isBright = ((x + i) / 4 + y / 4) % 2 != 0;
                samples.push_back(static_cast<char>((x * 7 + y * 13 + i * 5) % 31));
                samples.push_back(isBright ? '\x40' : '\x3C');
            }
    return samples;
}

std::string numpyFile()
{
    std::string header = "{'descr': '<u2', 'fortran_order': False, 'shape': (6, 18, 24), }";
    header.resize(117, ' ');
    header += '\n';
    return std::string("\x93NUMPY\x01\x00\x76\x00", 10) + header + frames(6, 24, 18);
}

void furnish(const vxfuzz::Sandbox& sandbox, std::string_view input)
{
    sandbox.clear();
    sandbox.write("a.npy", numpyFile());
    sandbox.write("b.raw", frames(6, 24, 18));
    sandbox.write("c.csv", "1,2,3\n4,5,6\n7,8,9\n");
    sandbox.write("input", input);
}

// Keeps what the program tells as its failure.
class HeardErrors
{
public:
    HeardErrors() : before_(std::cerr.rdbuf(text_.rdbuf())) {}
    ~HeardErrors() { std::cerr.rdbuf(before_); }
    HeardErrors(const HeardErrors&) = delete;
    HeardErrors& operator=(const HeardErrors&) = delete;

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* before_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes = vxfuzz::textOf(data, size);
    const auto [line, input] = vxfuzz::splitAtZero(bytes);
    // A settings file may name outputs too.
    const bool isSafe = vxfuzz::staysInside(line) && vxfuzz::asksForLittle(line, mostDigits) &&
                        (line.find("--config") == std::string_view::npos ||
                         (vxfuzz::staysInside(input) && vxfuzz::asksForLittle(input, mostDigits)));
    if (!isSafe)
        return 0;
    furnish(vxfuzz::Sandbox::instance(), input);
    std::istringstream text{std::string(line)};
    const std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
    std::vector<const char*> arguments{"vxkit"};
    for (const std::string& word : words)
        arguments.push_back(word.c_str());
    const HeardErrors errors;
    const int status = vxapp::runProgram(static_cast<int>(arguments.size()), arguments.data());
    vxfuzz::require(status >= vxapp::exitSuccess && status <= vxapp::exitUsage,
                    "vxkit ends with status 0, 1 or 2");
    vxfuzz::require(errors.text().find("unexpected failure") == std::string::npos,
                    "vxkit foresees its failures");
    return 0;
}
