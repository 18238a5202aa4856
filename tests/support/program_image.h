#pragma once
// The smallest header an x64 Windows program with a window starts with, followed by `rest`:
// what the updater takes for a program, for downloads that are not real builds.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qn::test {

inline std::string ProgramImage(std::string_view rest) {
  std::string image(0xA0, '\0');
  const auto put = [&image](size_t at, uint32_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) image[at + i] = static_cast<char>(value >> (8 * i) & 0xFF);
  };
  put(0, 0x5A4D, 2);          // "MZ"
  put(0x3C, 0x40, 4);         // where the PE header starts
  put(0x40, 0x4550, 4);       // "PE\0\0"
  put(0x44, 0x8664, 2);       // x64
  put(0x58, 0x20B, 2);        // PE32+
  put(0x58 + 68, 2, 2);       // the GUI subsystem
  return image.append(rest);
}

}  // namespace qn::test
