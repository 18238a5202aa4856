#pragma once
// Shared by the fuzz targets: property checks that abort with their text, and exact-size
// copies of the input so that any read past a view trips the sanitizer (a std::string would
// hide it behind its terminator).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#define FUZZ_CHECK(condition)                                                            \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (0)

struct ExactCopy {
  explicit ExactCopy(std::string_view text) : bytes(new char[text.size()]), size(text.size()) {
    if (size > 0) std::memcpy(bytes.get(), text.data(), size);
  }
  std::string_view view() const { return {bytes.get(), size}; }
  std::unique_ptr<char[]> bytes;
  size_t size;
};
