#include "core/module_proc.h"

namespace qn {

HMODULE LoadSystemLibrary(const wchar_t* name) noexcept {
  return LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

void SearchSystem32Only() noexcept {
  using SetDefaultDllDirectoriesFn = BOOL(WINAPI*)(DWORD);
  auto set_default =
      GetModuleProc<SetDefaultDllDirectoriesFn>(L"kernel32.dll", "SetDefaultDllDirectories");
  if (set_default) set_default(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

}  // namespace qn
