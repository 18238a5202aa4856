# Project-wide compile settings shared by every target through hintwick_options.
add_library(hintwick_options INTERFACE)
target_compile_features(hintwick_options INTERFACE cxx_std_20)

if(MSVC)
  target_compile_options(hintwick_options INTERFACE /W4 /WX /permissive- /utf-8 /EHsc)
else()
  target_compile_options(hintwick_options INTERFACE -Wall -Wextra -Wpedantic -Werror)
  # g++ 12 at -O2 and up reports std::string concatenation as overlapping memcpy
  # (GCC bug 105329); the warning is noise there and nowhere else.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(hintwick_options INTERFACE -Wno-restrict)
  endif()
endif()

if(WIN32)
  target_compile_definitions(hintwick_options INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00 WINVER=0x0A00)
endif()

if(HINTWICK_SANITIZE)
  set(HINTWICK_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(hintwick_options INTERFACE ${HINTWICK_SANITIZER_FLAGS})
  target_link_options(hintwick_options INTERFACE ${HINTWICK_SANITIZER_FLAGS})
endif()

if(HINTWICK_COVERAGE)
  # Atomic counters: several threads (and processes) update the same counts in the tests.
  target_compile_options(hintwick_options INTERFACE --coverage -fprofile-update=atomic -O0)
  target_link_options(hintwick_options INTERFACE --coverage)
endif()
