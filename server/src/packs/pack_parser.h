#pragma once
// Reads a knowledge pack from its TOML text and checks it whole: every mistake an author made
// is reported at once, each with its line, rather than one per run.
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "packs/pack.h"

namespace hintwick {

struct PackError {
  std::int64_t line = 1;
  std::string message;
};

// The pack, or its errors in the order of their lines (never an empty list).
using PackParse = std::variant<Pack, std::vector<PackError>>;

// `file_name` is only used in the texts of TOML's own syntax errors.
PackParse ParsePack(std::string_view text, std::string_view file_name);

// "FILE:LINE: message", the form editors and terminals link to the place.
std::string Located(std::string_view file_name, const PackError& error);

}  // namespace hintwick
