#pragma once
#include <windows.h>

namespace qn {

// FARPROC is a placeholder type; the detour through void* keeps -Wcast-function-type quiet.
template <typename Fn>
Fn ProcAs(FARPROC proc) noexcept {
  return proc ? reinterpret_cast<Fn>(reinterpret_cast<void*>(proc)) : nullptr;
}

// Finds a function in a module the process has already loaded; null when either is missing.
template <typename Fn>
Fn GetModuleProc(const wchar_t* module_name, const char* proc_name) noexcept {
  HMODULE module = GetModuleHandleW(module_name);
  return module ? ProcAs<Fn>(GetProcAddress(module, proc_name)) : nullptr;
}

// Loads a DLL of Windows from System32 and nowhere else, and keeps it for the life of the
// process. A DLL that Windows does not pin to System32 is looked for first beside the
// program, and the program runs from Downloads when it installs itself; so only pinned DLLs
// are imported, and every other one comes through here. Null, with GetLastError, when the
// DLL is missing on this Windows.
HMODULE LoadSystemLibrary(const wchar_t* name) noexcept;

// A function of such a DLL; null when the DLL or the function is missing on this Windows.
template <typename Fn>
Fn SystemProc(const wchar_t* library, const char* name) noexcept {
  HMODULE module = LoadSystemLibrary(library);
  return module ? ProcAs<Fn>(GetProcAddress(module, name)) : nullptr;
}

// A System32 function looked up once, for a function-local static at its one call site:
//   static const SystemFunction<decltype(&::PlaySoundW)> play(L"winmm.dll", "PlaySoundW");
// decltype names the SDK's declaration without importing it, so the type cannot drift.
template <typename Fn>
class SystemFunction {
 public:
  SystemFunction(const wchar_t* library, const char* name) noexcept
      : fn_(SystemProc<Fn>(library, name)) {}
  explicit operator bool() const noexcept { return fn_ != nullptr; }
  Fn get() const noexcept { return fn_; }

 private:
  Fn fn_;
};

// Points a table's member at a System32 function; false when it is missing, so that a table
// is known whole or not at all before its first call.
template <typename Fn>
bool Resolve(HMODULE module, Fn& slot, const char* name) noexcept {
  slot = module ? ProcAs<Fn>(GetProcAddress(module, name)) : nullptr;
  return slot != nullptr;
}

// Before anything loads a DLL by name: the program's own folder and the current directory
// leave the search for every later load. The call is missing on Windows 7 without its
// loader update, which then gets the refusal box rather than a loader error.
void SearchSystem32Only() noexcept;

}  // namespace qn
