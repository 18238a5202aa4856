// The account and settings window's controls: made from the layout, scaled to the window's
// DPI, and showing the working copy of the settings, the account and the progress.
#include <windows.h>

#include <commctrl.h>
#include <oleacc.h>

#include <cwchar>
#include <optional>

#include "core/handles.h"
#include "core/log.h"
#include "core/os.h"
#include "core/settings.h"
#include "core/utf.h"
#include "net/session.h"
#include "ui/tray_window_layout.h"
#include "ui/tray_window_state_win.h"
#include "ui/tray_window_text.h"

namespace qn {
namespace {

constexpr LONG kBoldWeight = 600;

struct ControlClass {
  const wchar_t* name;
  DWORD style;
  DWORD ex_style;
};

ControlClass ClassOf(ControlKind kind) {
  switch (kind) {
    case ControlKind::kHeading:
    case ControlKind::kLabel:
      return {L"STATIC", SS_LEFT | SS_NOPREFIX, 0};
    case ControlKind::kSeparator:
      return {L"STATIC", SS_ETCHEDHORZ, 0};
    case ControlKind::kEdit:
      return {L"EDIT", ES_AUTOHSCROLL | WS_TABSTOP, WS_EX_CLIENTEDGE};
    case ControlKind::kPasswordEdit:
      return {L"EDIT", ES_AUTOHSCROLL | ES_PASSWORD | WS_TABSTOP, WS_EX_CLIENTEDGE};
    case ControlKind::kButton:
      return {L"BUTTON", BS_PUSHBUTTON | WS_TABSTOP, 0};
    case ControlKind::kCheckBox:
      return {L"BUTTON", BS_AUTOCHECKBOX | WS_TABSTOP, 0};
    case ControlKind::kSlider:
      return {TRACKBAR_CLASSW, TBS_HORZ | TBS_NOTICKS | WS_TABSTOP, 0};
    case ControlKind::kComboBox:
      return {L"COMBOBOX", CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP, 0};
  }
  return {L"STATIC", 0, 0};
}

// Each slider, the label that names it and the setting it edits.
struct SliderField {
  int slider;
  int label;
  int32_t Settings::*value;
  std::wstring (*text)(int percent);
  int low, high;
};
constexpr SliderField kSliderFields[] = {
    {kIdDrawerSlider, kIdDrawerLabel, &Settings::drawer_pct, &DrawerHeightLabel, 20, 50},
    {kIdBlurSlider, kIdBlurLabel, &Settings::blur_pct, &BlurLabel, 0, 100},
    {kIdVolumeSlider, kIdVolumeLabel, &Settings::sound_volume, &VolumeLabel, 0, 100},
};

const SliderField* SliderFieldOf(int slider) {
  for (const SliderField& field : kSliderFields) {
    if (field.slider == slider) return &field;
  }
  return nullptr;
}

constexpr UINT_PTR kFocusSubclass = 2;

// Tab reaches controls scrolled out of view; they say so when they take the focus.
LRESULT CALLBACK ReportFocus(HWND control, UINT message, WPARAM wparam, LPARAM lparam, UINT_PTR,
                             DWORD_PTR) noexcept {
  if (message == WM_SETFOCUS) {
    PostMessageW(GetParent(control), kMsgControlFocused, reinterpret_cast<WPARAM>(control), 0);
  } else if (message == WM_NCDESTROY) {
    RemoveWindowSubclass(control, &ReportFocus, kFocusSubclass);
  }
  return DefSubclassProc(control, message, wparam, lparam);
}

void SetupControl(HWND control, const ControlPlan& plan) {
  if (GetWindowLongPtrW(control, GWL_STYLE) & WS_TABSTOP) {
    SetWindowSubclass(control, &ReportFocus, kFocusSubclass, 0);
  }
  if (const SliderField* field = SliderFieldOf(plan.id)) {
    SendMessageW(control, TBM_SETRANGE, FALSE, MAKELPARAM(field->low, field->high));
  }
  switch (plan.id) {
    case kIdPassword:
      SubclassPasswordBox(control);
      break;
    case kIdDirectness:
      for (const wchar_t* style : {L"Coach - ask first, answer last",
                                   L"Hints - nudge, then answer if pressed", L"Just answer"}) {
        SendMessageW(control, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(style));
      }
      break;
    default:
      break;
  }
}

HWND Control(const TrayWindowState& state, int id) { return GetDlgItem(state.window, id); }

void SetText(HWND window, int id, const std::wstring& text) {
  SetDlgItemTextW(window, id, text.c_str());
}

void ShowSliderLabel(const TrayWindowState& state, const SliderField& field) {
  SetText(state.window, field.label, field.text(state.working.*field.value));
}

}  // namespace

// A screen reader announces the status lines when they change, as it would a web page's live
// region: "Saved." or why a sign-in failed, wherever the player's focus is.
constexpr CLSID kAccPropServices = {
    0xb5f8350b, 0x0548, 0x48b1, {0xa6, 0xee, 0x88, 0xbd, 0x00, 0xb4, 0xa5, 0xe7}};
constexpr IID kIAccPropServices = {
    0x6e26e776, 0x04f0, 0x495d, {0x80, 0xe4, 0x33, 0x30, 0x35, 0x2e, 0x31, 0x69}};
constexpr GUID kLiveSettingProperty = {
    0xc12bcd8e, 0x2a8e, 0x4950, {0x8a, 0xe7, 0x36, 0x25, 0x11, 0x1d, 0x58, 0xeb}};
constexpr LONG kLivePolite = 1;

void MarkLiveRegion(HWND control) {
  ComPtr<IAccPropServices> services;
  HRESULT hr = CoCreateInstance(kAccPropServices, nullptr, CLSCTX_INPROC_SERVER, kIAccPropServices,
                                reinterpret_cast<void**>(services.put()));
  if (SUCCEEDED(hr)) {
    VARIANT polite{};
    polite.vt = VT_I4;
    polite.lVal = kLivePolite;
    hr = services->SetHwndProp(control, static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF,
                               kLiveSettingProperty, polite);
  }
  if (FAILED(hr))
    Log(kLogWarn, L"the status line is not announced to screen readers (0x%08lx)", hr);
}

bool CreateTrayWindowControls(TrayWindowState& state, HINSTANCE instance) {
  for (const ControlPlan& plan : TrayWindowControls()) {
    ControlClass type = ClassOf(plan.kind);
    // A label with an access key takes the focus to the field after it; the others show
    // their text as it is, an '&' in an e-mail address included.
    if (AccessKeyOf(plan.text)) type.style &= ~static_cast<DWORD>(SS_NOPREFIX);
    const HWND control = CreateWindowExW(
        type.ex_style, type.name, plan.text, WS_CHILD | WS_VISIBLE | type.style, 0, 0, 0, 0,
        state.window, reinterpret_cast<HMENU>(static_cast<INT_PTR>(plan.id)), instance, nullptr);
    if (!control) {
      Log(kLogError, L"could not create the tray window (%lu)", GetLastError());
      return false;
    }
    SetupControl(control, plan);
    state.controls.push_back(control);
  }
  return true;
}

// The old fonts go only once no control uses them any more.
void LayOutForDpi(TrayWindowState& state, UINT dpi) {
  UniqueHfont font = MessageFont(dpi, 0);
  UniqueHfont bold_font = MessageFont(dpi, kBoldWeight);
  const auto controls = TrayWindowControls();
  for (size_t i = 0; i < controls.size() && i < state.controls.size(); ++i) {
    const HFONT chosen = controls[i].kind == ControlKind::kHeading ? bold_font.get() : font.get();
    SendMessageW(state.controls[i], WM_SETFONT, reinterpret_cast<WPARAM>(chosen), FALSE);
    const LayoutRect& r = controls[i].rect;
    SetWindowPos(state.controls[i], nullptr, Scaled(r.x, dpi), Scaled(r.y, dpi) - state.scroll,
                 Scaled(r.width, dpi), Scaled(r.height, dpi), SWP_NOZORDER | SWP_NOACTIVATE);
  }
  state.dpi = dpi;
  state.font = std::move(font);
  state.bold_font = std::move(bold_font);
  InvalidateRect(state.window, nullptr, TRUE);
}

void ShowWorkingSettings(const TrayWindowState& state) {
  const Settings& s = state.working;
  for (const SliderField& field : kSliderFields) {
    SendMessageW(Control(state, field.slider), TBM_SETPOS, TRUE, s.*field.value);
    ShowSliderLabel(state, field);
  }
  CheckDlgButton(state.window, kIdSound, s.sound_enabled ? BST_CHECKED : BST_UNCHECKED);
  EnableControl(state.window, kIdVolumeSlider, s.sound_enabled);
  CheckDlgButton(state.window, kIdSpoilers, s.spoilers_ok ? BST_CHECKED : BST_UNCHECKED);
  SendMessageW(Control(state, kIdDirectness), CB_SETCURSEL, static_cast<WPARAM>(s.directness), 0);
  ShowHotkey(state);
}

void ShowHotkey(const TrayWindowState& state) {
  const std::wstring hotkey = HotkeyText(state.working.hotkey_mods, state.working.hotkey_vk);
  SetText(state.window, kIdHotkey, HotkeyButtonText(hotkey, state.capturing_hotkey));
}

void TakeSliderPosition(TrayWindowState& state, HWND slider) {
  const SliderField* field = SliderFieldOf(GetDlgCtrlID(slider));
  if (!field) return;
  state.working.*field->value = static_cast<int32_t>(SendMessageW(slider, TBM_GETPOS, 0, 0));
  ShowSliderLabel(state, *field);
}

void ShowAccountStatus(const TrayWindowState& state, const std::wstring& last_error) {
  const bool signed_in = state.session->IsSignedIn();
  ShowRequestControls(state);
  if (!signed_in) SetText(state.window, kIdPassword, L"");
  const std::wstring email = Utf8ToWide(state.session->CurrentSettings().email);
  if (signed_in) SetText(state.window, kIdEmail, email);
  SetStatus(state, kIdAccountStatus, AccountStatusText(signed_in, email, last_error).c_str());
}

void ShowRequestControls(const TrayWindowState& state) {
  const auto controls =
      RequestControls(state.session->IsSignedIn(), state.awaiting, state.reset_allowed);
  for (const ControlEnabled& control : controls) {
    EnableControl(state.window, control.id, control.enabled);
  }
  ShowDefaultButton(state);
}

void ShowProgressText(TrayWindowState& state, const std::optional<ProgressRead>& read) {
  const ProgressText shown =
      DescribeProgress(Utf8ToWide(state.game_key), state.session->IsSignedIn(), read);
  SetText(state.window, kIdProgress, shown.text);
  state.reset_allowed = shown.reset_enabled;
  ShowRequestControls(state);
}

int DefaultButtonId(const TrayWindowState& state) {
  return DefaultCommand(state.session->IsSignedIn(),
                        IsWindowEnabled(Control(state, kIdSignIn)) != FALSE);
}

void ShowDefaultButton(const TrayWindowState& state) {
  const int chosen = DefaultButtonId(state);
  for (const int id : {kIdSignIn, kIdSave}) {
    SendMessageW(Control(state, id), BM_SETSTYLE, id == chosen ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON,
                 TRUE);
  }
}

void SetStatus(const TrayWindowState& state, int control, const wchar_t* text) {
  SetText(state.window, control, text);
  NotifyWinEvent(EVENT_OBJECT_LIVEREGIONCHANGED, Control(state, control), OBJID_CLIENT,
                 CHILDID_SELF);
}

std::wstring ControlText(HWND window, int id) {
  const HWND control = GetDlgItem(window, id);
  std::wstring text(static_cast<size_t>(GetWindowTextLengthW(control)) + 1, L'\0');
  text.resize(
      static_cast<size_t>(GetWindowTextW(control, text.data(), static_cast<int>(text.size()))));
  return text;
}

bool IsChecked(HWND window, int id) { return IsDlgButtonChecked(window, id) == BST_CHECKED; }

void EnableControl(HWND window, int id, bool enabled) {
  EnableWindow(GetDlgItem(window, id), enabled ? TRUE : FALSE);
}

void OnHotkeyKey(TrayWindowState& state, uint32_t key) {
  const bool ctrl = GetKeyState(VK_CONTROL) < 0;
  const bool shift = GetKeyState(VK_SHIFT) < 0;
  const bool alt = GetKeyState(VK_MENU) < 0;
  switch (CaptureHotkeyKey(state.working, key, ctrl, shift, alt)) {
    case HotkeyKeyUse::kIgnore:
      return;
    case HotkeyKeyUse::kRefuse:
      SetStatus(state, kIdActionStatus, kHotkeyNeedsModifierText);
      return;
    case HotkeyKeyUse::kRefuseBreaksTyping:
      SetStatus(state, kIdActionStatus, kHotkeyBreaksTypingText);
      return;
    case HotkeyKeyUse::kAccept:
      SetStatus(state, kIdActionStatus, kHotkeySetText);
      break;
    case HotkeyKeyUse::kCancel:
      break;
  }
  state.capturing_hotkey = false;
  ShowHotkey(state);
}

void StartHotkeyCapture(TrayWindowState& state) {
  state.capturing_hotkey = true;
  ShowHotkey(state);
  SetFocus(state.window);
}

}  // namespace qn
