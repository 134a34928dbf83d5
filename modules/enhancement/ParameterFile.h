// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <string>

#include "core/base/Export.h"

namespace halvor::vx {

/// Reads settings files in INI form line by line.
///
/// A line that begins with "[" and a word is a section head; the section's name is that word with its closing
/// bracket ("Main_Window]"). All other lines are handed out. A line counts up to 254 characters: what is
/// longer goes on as a line of its own.
class VXKIT_API ParameterFile
{
public:
    /// @param fileName  may be null or name no regular file: then isOpen() is false
    explicit ParameterFile(const char* fileName);

    /// Whether the file could be opened; without one next() gives false.
    bool isOpen() const { return open_; }

    /// Goes to the next line that is no section head; false at the end of the file.
    bool next();

    /// The section of the current line; empty ahead of the first head.
    const std::string& section() const { return section_; }
    /// @param name  a section with its closing bracket, for example "Main_Window]"
    bool inSection(const char* name) const { return section_ == name; }

    /// Matches `key` at the beginning of the current line and reads the number behind it.
    ///
    /// @param value  unchanged if the line is another; a number beyond 32 bits keeps its low bits
    bool readDecimal(const char* key, int& value) const;
    /// Like readDecimal; a leading 0x makes the number hexadecimal, a leading 0 octal.
    bool readInteger(const char* key, int& value) const;
    /// Reads two decimal numbers; if only the first can be read, only that is stored.
    bool readDecimalPair(const char* key, int& first, int& second) const;
    /// Reads the word behind the key, up to the next white space.
    bool readWord(const char* key, std::string& word) const;

private:
    const char* behind(const char* key) const;

    std::ifstream file_;
    bool open_;
    std::string line_;
    std::string section_;
};

}  // namespace halvor::vx
