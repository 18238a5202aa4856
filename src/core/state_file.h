#pragma once
// Whole-file reads and replacing writes for the small state files of the data directory.
// A reader on another thread sees the old file or the new one, never a torn mix.
#include <cstddef>
#include <optional>
#include <string>

namespace qn {

// Empty when the file is missing, unreadable or larger than max_bytes (anything that large
// was not written by us).
std::optional<std::string> ReadStateFile(const std::wstring& path, size_t max_bytes);
bool ReplaceStateFile(const std::wstring& path, const std::string& bytes);

}  // namespace qn
