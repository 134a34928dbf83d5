// SPDX-License-Identifier: Apache-2.0
#include "fuzz/Sandbox.h"

#include <cctype>
#include <cstdlib>
#include <fstream>

#include "fuzz/FuzzInput.h"

namespace vxfuzz {

namespace fs = std::filesystem;

Sandbox& Sandbox::instance()
{
    static Sandbox sandbox;
    return sandbox;
}

Sandbox::Sandbox()
{
    const fs::path memory = "/dev/shm";
    std::string name =
        ((fs::is_directory(memory) ? memory : fs::temp_directory_path()) / "vxkit-fuzz-XXXXXX").string();
    require(::mkdtemp(name.data()) != nullptr, "a temporary folder can be made");
    folder_ = name;
    fs::current_path(folder_);
    ::setenv("TMPDIR", name.c_str(), 1);
}

Sandbox::~Sandbox()
{
    std::error_code error;
    fs::remove_all(folder_, error);
}

void Sandbox::clear() const
{
    for (const fs::directory_entry& entry : fs::directory_iterator(folder_))
        fs::remove_all(entry);
}

void Sandbox::write(const std::string& name, std::string_view bytes) const
{
    std::ofstream(folder_ / name, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool staysInside(std::string_view text)
{
    return text.find_first_of("/~") == std::string_view::npos && text.find("..") == std::string_view::npos;
}

bool asksForLittle(std::string_view text, int digits)
{
    int run = 0;
    for (const char c : text) {
        run = std::isdigit(static_cast<unsigned char>(c)) != 0 ? run + 1 : 0;
        if (run > digits)
            return false;
    }
    return text.find("0x") == std::string_view::npos;
}

}  // namespace vxfuzz
