#pragma once
#include <windows.h>

namespace qn {

// Finds a function in a module the process has already loaded; null when either is missing.
template <typename Fn>
Fn GetModuleProc(const wchar_t* module_name, const char* proc_name) {
  HMODULE module = GetModuleHandleW(module_name);
  if (!module) return nullptr;
  FARPROC proc = GetProcAddress(module, proc_name);
  // FARPROC is a placeholder type; the detour through void* keeps -Wcast-function-type quiet.
  return proc ? reinterpret_cast<Fn>(reinterpret_cast<void*>(proc)) : nullptr;
}

}  // namespace qn
