# The release build: the MinGW-w64 cross build above, compiled by clang and linked by lld,
# which write CodeView debug information into a PDB beside the exe. The exe can then ship
# stripped while a debugger still reads a crash dump of that exact build through its PDB
# (the PDB is matched by the GUID that lld writes into both).
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-x86_64.cmake)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)

# clang looks for the C++ library under a GCC version folder named by number, but Debian's
# posix thread model lives in "12-posix": ask that GCC where its files are.
execute_process(COMMAND x86_64-w64-mingw32-g++-posix -print-libgcc-file-name
                OUTPUT_VARIABLE hintwick_libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(hintwick_gcc_dir ${hintwick_libgcc} DIRECTORY)
set(hintwick_cxx_include ${hintwick_gcc_dir}/include/c++)

set(CMAKE_C_FLAGS_INIT "-g -gcodeview")
set(CMAKE_CXX_FLAGS_INIT "-g -gcodeview -isystem ${hintwick_cxx_include} \
-isystem ${hintwick_cxx_include}/x86_64-w64-mingw32 -isystem ${hintwick_cxx_include}/backward")
# --pdb= with no name puts NAME.pdb beside NAME.exe. The exe records the PDB's bare name, not
# the build machine's path, so that a debugger looks for it along its symbol path.
# winpthread comes last because GCC's driver adds it for the posix thread model and clang's
# does not.
set(CMAKE_EXE_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT} -fuse-ld=lld -L${hintwick_gcc_dir} \
-Wl,--pdb= -Wl,--Xlink=-pdbaltpath:%_PDB% -Wno-unused-command-line-argument -lpthread")
