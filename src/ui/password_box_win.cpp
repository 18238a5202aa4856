// The password box: nothing copies the password out of it, and a paste brings no control
// characters in. Its text is read once, for the sign-in, and then wiped.
#include <windows.h>

#include <commctrl.h>

#include <string>

#include "core/handles.h"
#include "core/log.h"
#include "core/secret.h"
#include "core/utf.h"
#include "ui/tray_window_state_win.h"
#include "ui/tray_window_text.h"

namespace qn {
namespace {

constexpr UINT_PTR kPasswordSubclass = 1;

std::wstring ClipboardText(HWND owner) {
  const OpenedClipboard clipboard(owner);
  const HANDLE data = clipboard ? GetClipboardData(CF_UNICODETEXT) : nullptr;
  if (!data) return {};
  const GlobalLockScope<const wchar_t> locked(data);
  if (!locked) return {};
  const size_t capacity = GlobalSize(data) / sizeof(wchar_t);
  return std::wstring(locked.get(), wcsnlen(locked.get(), capacity));
}

void PasteWithoutControlCharacters(HWND box) {
  std::wstring pasted = ClipboardText(box);
  std::wstring kept = WithoutControlCharacters(pasted);
  SendMessageW(box, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(kept.c_str()));
  Wipe(pasted);
  Wipe(kept);
}

LRESULT CALLBACK PasswordBoxProc(HWND box, UINT message, WPARAM wparam, LPARAM lparam, UINT_PTR,
                                 DWORD_PTR) noexcept {
  switch (message) {
    case WM_COPY:
    case WM_CUT: return 0;
    case WM_PASTE:
      try {
        PasteWithoutControlCharacters(box);
      } catch (...) {
        Log(kLogWarn, L"paste into the password box failed");
      }
      return 0;
    case WM_NCDESTROY: RemoveWindowSubclass(box, &PasswordBoxProc, kPasswordSubclass); break;
    default: break;
  }
  return DefSubclassProc(box, message, wparam, lparam);
}

}  // namespace

void SubclassPasswordBox(HWND box) {
  if (!SetWindowSubclass(box, &PasswordBoxProc, kPasswordSubclass, 0)) {
    Log(kLogWarn, L"could not subclass the password box");
  }
}

// The edit control frees its old text without clearing it, so the text is overwritten in
// place with a filler of the same length before the box is emptied.
void TakePassword(HWND box, const std::function<void(const std::string&)>& use) {
  const int length = GetWindowTextLengthW(box);
  std::wstring typed(static_cast<size_t>(length) + 1, L'\0');
  typed.resize(static_cast<size_t>(GetWindowTextW(box, typed.data(), length + 1)));
  std::string password = WideToUtf8(typed);
  Wipe(typed);
  SetWindowTextW(box, std::wstring(static_cast<size_t>(length), L'*').c_str());
  SetWindowTextW(box, L"");
  try {
    use(password);
  } catch (...) {
    Wipe(password);
    throw;
  }
  Wipe(password);
}

}  // namespace qn
