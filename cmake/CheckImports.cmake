# Fails the build when the exe imports a DLL or a function that ALLOWED does not list, and
# deletes the exe so that neither a later build nor scripts/build.sh can pass it on.
#   cmake -DEXE=Hintwick.exe -DALLOWED=AllowedImports.txt -DREADOBJ=llvm-readobj -P CheckImports.cmake
# Windows refuses to start a process whose import it cannot resolve, with a loader error
# instead of the program's own refusal box; and a DLL that Windows does not pin to System32
# is looked for beside the exe first. Neither shows under Wine, so the list is the check.
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND ${READOBJ} --coff-imports ${EXE}
                OUTPUT_VARIABLE listing RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  file(REMOVE ${EXE})
  message(FATAL_ERROR "${READOBJ} could not read the imports of ${EXE}")
endif()

file(STRINGS ${ALLOWED} allowed REGEX "^[^#]")
string(TOLOWER "${allowed}" allowed)

# Ordinary and delay-load imports alike: "Name: X.dll" opens a DLL, "Symbol: F (hint)" follows.
string(REPLACE "\n" ";" lines "${listing}")
set(dll "")
set(refused "")
set(count 0)
foreach(line IN LISTS lines)
  if(line MATCHES "^ *Name: (.+)$")
    string(TOLOWER "${CMAKE_MATCH_1}" dll)
  elseif(line MATCHES "^ *Symbol: ([^ ]*) \\(([0-9]+)\\)$")
    set(function "${CMAKE_MATCH_1}")
    if(function STREQUAL "")
      set(function "#${CMAKE_MATCH_2}")
    endif()
    math(EXPR count "${count} + 1")
    string(TOLOWER "${dll} ${function}" entry)
    if(NOT entry IN_LIST allowed)
      list(APPEND refused "${dll} ${function}")
    endif()
  endif()
endforeach()

if(count EQUAL 0)
  file(REMOVE ${EXE})
  message(FATAL_ERROR "no imports found in ${EXE}; has ${READOBJ} changed its output?")
endif()
if(refused)
  file(REMOVE ${EXE})
  list(JOIN refused "\n  " shown)
  message(FATAL_ERROR "${EXE} imports what ${ALLOWED} does not allow:\n  ${shown}\n"
          "Load a DLL that Windows does not pin to System32 through LoadSystemLibrary, and "
          "look up a function newer than Windows 7 at run time (src/core/module_proc.h).")
endif()
