#pragma once
// The picture the stand-in game shows, known to the tests that look at the screen: small
// squares of two far-apart colours, so that a blur over them is plain in the numbers.
#include <cstdint>

namespace qn::test {

inline constexpr int kGameSquare = 8;

struct Rgb {
  uint8_t r, g, b;
};

constexpr Rgb GamePixel(int x, int y) {
  return ((x / kGameSquare + y / kGameSquare) % 2) != 0 ? Rgb{230, 200, 40} : Rgb{20, 60, 160};
}

}  // namespace qn::test
