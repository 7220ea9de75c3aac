// Reading whole files with clear errors, and writing files so that a failed
// run never leaves a half-written result behind.
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keloecg {

// The whole content of a regular file. Throws InputError naming the file
// when it does not exist, is a directory or cannot be read.
std::vector<std::uint8_t> read_bytes(const std::filesystem::path& path);
std::string read_text(const std::filesystem::path& path);

// The rest of a stream, which held `size` bytes when it was opened (if
// known): fewer means the file shrank while being read, an InputError
// naming `where`.
std::vector<std::uint8_t> read_all(std::istream& in, std::optional<std::uintmax_t> size, const std::string& where);

// Throws the same InputError as read_bytes when path is not a readable
// regular file; reads nothing.
void require_readable_file(const std::filesystem::path& path);

// Writes content to a temporary file next to path and renames it into
// place, so that path either holds the complete content or is untouched.
// Throws InputError naming path on failure.
void write_file_atomically(const std::filesystem::path& path, std::string_view content);

// A path as the user would recognise it in messages.
std::string display(const std::filesystem::path& path);

}  // namespace keloecg
