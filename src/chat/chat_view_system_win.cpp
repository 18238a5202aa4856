// What the chat view takes from the system beyond drawing: its fonts, the clipboard and the
// caret's blink.
#include <dwrite_1.h>

#include <cstdint>
#include <cwchar>
#include <limits>
#include <string>

#include "chat/chat_view.h"
#include "core/log.h"

namespace qn {
namespace {

std::wstring FamilyName(IDWriteFontFamily* family) {
  ComPtr<IDWriteLocalizedStrings> names;
  UINT32 length = 0;
  if (FAILED(family->GetFamilyNames(names.put())) || FAILED(names->GetStringLength(0, &length))) {
    return {};
  }
  std::wstring name(length + 1, L'\0');
  if (FAILED(names->GetString(0, name.data(), length + 1))) return {};
  name.resize(length);
  return name;
}

bool IsMonospaced(IDWriteFontFamily* family) {
  ComPtr<IDWriteFont> font;
  if (FAILED(family->GetFont(0, font.put()))) return false;
  const auto font1 = font.As<IDWriteFont1>();
  return font1 && font1->IsMonospacedFont();
}

}  // namespace

// DirectWrite draws nothing at all for a family that is not installed, so a system without
// Segoe UI or Consolas (trimmed-down images, Wine) gets the first family it has that fits.
std::wstring InstalledFamily(IDWriteFactory* factory, const wchar_t* wanted, bool monospaced,
                             const std::wstring& fallback) {
  ComPtr<IDWriteFontCollection> fonts;
  if (FAILED(factory->GetSystemFontCollection(fonts.put(), FALSE))) return fallback;
  UINT32 index = 0;
  BOOL exists = FALSE;
  if (SUCCEEDED(fonts->FindFamilyName(wanted, &index, &exists)) && exists) return wanted;
  for (UINT32 i = 0; i < fonts->GetFontFamilyCount(); ++i) {
    ComPtr<IDWriteFontFamily> family;
    if (FAILED(fonts->GetFontFamily(i, family.put()))) continue;
    if (monospaced && !IsMonospaced(family.get())) continue;
    std::wstring name = FamilyName(family.get());
    Log(kLogInfo, L"font '%ls' is not installed; using '%ls'", wanted, name.c_str());
    return name;
  }
  return fallback;
}

// Never read past the block, whatever its owner left in it.
std::wstring ReadClipboardText() {
  const OpenedClipboard clipboard(nullptr);
  if (!clipboard) {
    LogLastError(L"OpenClipboard", kLogWarn);
    return {};
  }
  HANDLE data = GetClipboardData(CF_UNICODETEXT);
  if (!data) return {};
  const GlobalLockScope<const wchar_t> units(data);
  if (!units) return {};
  return std::wstring(units.get(), wcsnlen(units.get(), GlobalSize(data) / sizeof(wchar_t)));
}

// Read at each opening, so that a change in the system's settings shows the next time.
// Systems before the caret's time-out existed refuse the question and keep the default.
CaretBlink SystemCaretBlink() {
  constexpr UINT kGetCaretTimeout = 0x2022;  // SPI_GETCARETTIMEOUT, declared from 1709 headers
  CaretBlink blink;
  const UINT phase_ms = GetCaretBlinkTime();
  if (phase_ms == INFINITE) {
    blink.phase_ms = 0;
  } else if (phase_ms != 0) {
    blink.phase_ms = phase_ms;
  }
  DWORD rest_ms = 0;
  if (SystemParametersInfoW(kGetCaretTimeout, 0, &rest_ms, 0)) {
    // Nothing documents 0; it is taken, like INFINITE, for a caret that never rests.
    const bool never = rest_ms == 0 || rest_ms == INFINITE;
    blink.rest_after_ms = never ? std::numeric_limits<uint64_t>::max() : rest_ms;
  }
  return blink;
}

}  // namespace qn
