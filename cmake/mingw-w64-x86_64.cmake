# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 (posix thread model).
# Everything MinGW-specific about the build lives in this file.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# One self-contained exe: no libstdc++, libgcc or winpthread DLLs beside it.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# wWinMain needs the wide CRT start-up; console tests keep the narrow main().
set(HINTWICK_WIDE_ENTRY_LINK_OPTIONS -municode)
set(HINTWICK_COVERAGE_GCOV x86_64-w64-mingw32-gcov-posix)
