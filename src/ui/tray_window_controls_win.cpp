// The account and settings window's controls: made from the layout, scaled to the window's
// DPI, and showing the working copy of the settings, the account and the progress.
#include <windows.h>

#include <commctrl.h>

#include <cwchar>
#include <optional>

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
  for (const int id : {kIdEmail, kIdPassword, kIdSignIn, kIdCreateAccount}) {
    EnableControl(state.window, id, !signed_in);
  }
  EnableControl(state.window, kIdSignOut, signed_in);
  if (!signed_in) SetText(state.window, kIdPassword, L"");
  const std::wstring email = Utf8ToWide(state.session->CurrentSettings().email);
  if (signed_in) SetText(state.window, kIdEmail, email);
  SetText(state.window, kIdAccountStatus, AccountStatusText(signed_in, email, last_error));
  ShowDefaultButton(state);
}

void ShowProgress(const TrayWindowState& state) {
  const bool signed_in = state.session->IsSignedIn();
  std::optional<ProgressRead> read;
  if (signed_in && !state.game_key.empty()) {
    ShowStatus(Control(state, kIdProgress), L"Checking...");
    const MemoryRecord record = state.session->GetMemory(state.game_key, 0);
    read = ProgressRead{record.loaded, Utf8ToWide(record.stage), record.stage_ordinal};
  }
  const ProgressText shown = DescribeProgress(Utf8ToWide(state.game_key), signed_in, read);
  SetText(state.window, kIdProgress, shown.text);
  EnableControl(state.window, kIdResetProgress, shown.reset_enabled);
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

void ShowStatus(HWND control, const wchar_t* text) {
  SetWindowTextW(control, text);
  RedrawWindow(GetParent(control), nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN);
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

}  // namespace qn
