#include "ui/tray_window_win.h"

#include <commctrl.h>
#include <oleacc.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>

#include "core/handles.h"
#include "core/log.h"
#include "core/os.h"
#include "core/settings.h"
#include "core/utf.h"
#include "core/version.h"
#include "net/session.h"
#include "ui/tray_window_layout.h"
#include "ui/tray_window_state_win.h"
#include "ui/tray_window_text.h"

namespace qn {

// Reaches the owner's private members for the window procedure.
struct TrayWindowAccess {
  static void Forget(TrayWindow& owner) { owner.window_ = nullptr; }
  static const TrayWindowCallbacks& Callbacks(const TrayWindow& owner) { return owner.callbacks_; }
};

namespace {

constexpr DWORD kWindowStyle = WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
constexpr wchar_t kWindowTitle[] = L"Hintwick - account and settings";
constexpr wchar_t kResetQuestion[] =
    L"Reset recorded progress for this game?\n\nYour preferences are kept. Answers go back to "
    L"being gated at the very beginning, so a fresh save is not spoiled by your last one.";

HWND StatusControl(const TrayWindowState& state) {
  return GetDlgItem(state.window, kIdAccountStatus);
}
// A screen reader announces the status line when it changes, as it would a web page's live
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

void SetStatus(const TrayWindowState& state, const wchar_t* text) {
  SetWindowTextW(StatusControl(state), text);
  NotifyWinEvent(EVENT_OBJECT_LIVEREGIONCHANGED, StatusControl(state), OBJID_CLIENT, CHILDID_SELF);
}

// "Not signed in" is what the status says already; only a reason adds anything.
std::wstring FailureText(ServiceFailure failure) {
  if (failure == ServiceFailure::kNone || failure == ServiceFailure::kNotSignedIn) return {};
  return Utf8ToWide(ServiceFailureText(failure));
}

void FocusFirstControl(HWND window) {
  if (const HWND first = GetNextDlgTabItem(window, nullptr, FALSE)) SetFocus(first);
}

void SignInOrRegister(TrayWindowState& state, bool create) {
  const std::string email = WideToUtf8(ControlText(state.window, kIdEmail));
  ShowStatus(StatusControl(state), create ? L"Creating account..." : L"Signing in...");
  ServiceFailure failure = ServiceFailure::kNone;
  TakePassword(GetDlgItem(state.window, kIdPassword), [&](const std::string& password) {
    failure =
        create ? state.session->Register(email, password) : state.session->SignIn(email, password);
  });
  ShowAccountStatus(state, FailureText(failure));
  if (failure != ServiceFailure::kNone) {
    SetFocus(GetDlgItem(state.window, kIdPassword));
    return;
  }
  state.working.email = email;
  FocusFirstControl(state.window);
  ShowProgress(state);
}

void SignOut(TrayWindowState& state) {
  ShowStatus(StatusControl(state), L"Signing out...");
  state.session->SignOut();
  ShowAccountStatus(state, {});
  FocusFirstControl(state.window);
  ShowProgress(state);
}

void OnHotkeyKey(TrayWindowState& state, uint32_t key) {
  const bool ctrl = GetKeyState(VK_CONTROL) < 0;
  const bool shift = GetKeyState(VK_SHIFT) < 0;
  const bool alt = GetKeyState(VK_MENU) < 0;
  switch (CaptureHotkeyKey(state.working, key, ctrl, shift, alt)) {
    case HotkeyKeyUse::kIgnore:
      return;
    case HotkeyKeyUse::kRefuse:
      SetStatus(state, kHotkeyNeedsModifierText);
      return;
    case HotkeyKeyUse::kRefuseBreaksTyping:
      SetStatus(state, kHotkeyBreaksTypingText);
      return;
    case HotkeyKeyUse::kAccept:
      SetStatus(state, kHotkeySetText);
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

// The file first: the service is told of the answer style only once the settings are safe.
void Save(TrayWindowState& state, const TrayWindowCallbacks& callbacks) {
  state.working.email = WideToUtf8(ControlText(state.window, kIdEmail));
  state.session->ApplySettings(state.working);
  if (!SaveSettings(state.session->CurrentSettings())) {
    SetStatus(state, kSaveFailedText);
    return;
  }
  const wchar_t* outcome = kSavedText;
  if (state.session->IsSignedIn() && !state.game_key.empty()) {
    ShowStatus(StatusControl(state), L"Saving...");
    MemoryPatch style;
    style.directness = DirectnessName(state.working.directness);
    style.spoilers_ok = state.working.spoilers_ok;
    if (!state.session->PatchMemory(state.game_key, style)) outcome = kStyleUnconfirmedText;
  }
  SetStatus(state, outcome);
  if (callbacks.settings_applied) callbacks.settings_applied();
}

void ResetProgress(TrayWindowState& state) {
  if (MessageBoxW(state.window, kResetQuestion, L"Hintwick", MB_YESNO | MB_ICONQUESTION) != IDYES) {
    return;
  }
  ShowStatus(StatusControl(state), L"Resetting...");
  const bool reset = state.session->NewPlaythrough(state.game_key);
  SetStatus(state, reset ? L"Progress reset." : L"Could not reach the service to reset progress.");
  ShowProgress(state);
}

void OnSettingChanged(TrayWindowState& state, int id) {
  switch (id) {
    case kIdSound:
      state.working.sound_enabled = IsChecked(state.window, kIdSound);
      EnableControl(state.window, kIdVolumeSlider, state.working.sound_enabled);
      break;
    case kIdSpoilers:
      state.working.spoilers_ok = IsChecked(state.window, kIdSpoilers);
      break;
    case kIdDirectness:
      state.working.directness = static_cast<int32_t>(
          SendDlgItemMessageW(state.window, kIdDirectness, CB_GETCURSEL, 0, 0));
      break;
    default:
      break;
  }
}

void OnCommand(TrayWindowState& state, int id, int code) {
  const TrayWindowCallbacks& callbacks = TrayWindowAccess::Callbacks(*state.owner);
  if (id == kIdDirectness) {
    if (code == CBN_SELCHANGE) OnSettingChanged(state, id);
    return;
  }
  if (code != BN_CLICKED) return;
  switch (id == IDOK ? DefaultButtonId(state) : id) {
    case kIdSignIn:
      SignInOrRegister(state, false);
      break;
    case kIdCreateAccount:
      SignInOrRegister(state, true);
      break;
    case kIdSignOut:
      SignOut(state);
      break;
    case kIdHotkey:
      StartHotkeyCapture(state);
      break;
    case kIdSound:
    case kIdSpoilers:
      OnSettingChanged(state, id);
      break;
    case kIdSave:
      Save(state, callbacks);
      break;
    case kIdResetProgress:
      ResetProgress(state);
      break;
    case kIdCheckUpdates:
      if (callbacks.check_for_updates) callbacks.check_for_updates();
      break;
    case kIdClose:
    case IDCANCEL:
      DestroyWindow(state.window);
      break;
    default:
      break;
  }
}

RECT WorkAreaOf(HMONITOR monitor) {
  MONITORINFO info = {};
  info.cbSize = sizeof(info);
  GetMonitorInfoW(monitor, &info);
  return info.rcWork;
}

// Laid out afresh from the top, at the place the system suggests on the new monitor.
void OnDpiChanged(TrayWindowState& state, UINT dpi, const RECT& suggested) {
  ScrollTrayWindow(state, 0);
  LayOutForDpi(state, dpi);
  PlaceTrayWindow(state, WorkAreaOf(MonitorFromRect(&suggested, MONITOR_DEFAULTTONEAREST)),
                  POINT{suggested.left, suggested.top});
}

// The focus goes back where the player left it when the window is activated again.
bool OnActivate(TrayWindowState& state, WORD activation) {
  if (activation == WA_INACTIVE) {
    state.focus = GetFocus();
    return false;
  }
  if (!state.focus || !IsChild(state.window, state.focus) || !IsWindowEnabled(state.focus)) {
    return false;
  }
  SetFocus(state.focus);
  return true;
}

std::optional<LRESULT> Handle(TrayWindowState& state, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_COMMAND:
      OnCommand(state, LOWORD(wparam), HIWORD(wparam));
      return 0;
    case WM_HSCROLL:
      TakeSliderPosition(state, reinterpret_cast<HWND>(lparam));
      return 0;
    case WM_CTLCOLORSTATIC:
      // The theme's own text colour: a dark high-contrast theme puts light text on black, and
      // the DC's default black would vanish there.
      SetTextColor(reinterpret_cast<HDC>(wparam), GetSysColor(COLOR_WINDOWTEXT));
      SetBkMode(reinterpret_cast<HDC>(wparam), TRANSPARENT);
      return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_WINDOW));
    case DM_GETDEFID:
      return MAKELRESULT(DefaultButtonId(state), DC_HASDEFID);
    case WM_GETDLGCODE:
      if (state.capturing_hotkey) return DLGC_WANTALLKEYS;
      break;
    case WM_KEYDOWN:
    case WM_SYSKEYDOWN:
      if (!state.capturing_hotkey) break;
      OnHotkeyKey(state, static_cast<uint32_t>(wparam));
      return 0;
    case WM_CHAR:
    case WM_SYSCHAR:
      // The combination was taken on its key-down; its character would only beep.
      if (state.capturing_hotkey) return 0;
      break;
    case WM_KILLFOCUS:
      if (state.capturing_hotkey) OnHotkeyKey(state, VK_ESCAPE);
      break;
    case WM_ACTIVATE:
      if (OnActivate(state, LOWORD(wparam))) return 0;
      break;
    case WM_DPICHANGED:
      OnDpiChanged(state, HIWORD(wparam), *reinterpret_cast<const RECT*>(lparam));
      return 0;
    case kMsgRefreshProgress:
      ShowProgress(state);
      return 0;
    case WM_VSCROLL:
      OnTrayWindowScroll(state, LOWORD(wparam));
      return 0;
    case WM_MOUSEWHEEL:
      OnTrayWindowWheel(state, GET_WHEEL_DELTA_WPARAM(wparam));
      return 0;
    case kMsgControlFocused:
      ShowFocusedControl(state, reinterpret_cast<HWND>(wparam));
      return 0;
    default:
      break;
  }
  return std::nullopt;
}

// The state is handed over as the window is made, so exactly one of the two frees it.
void Adopt(HWND window, LPARAM lparam) {
  auto* holder = static_cast<std::unique_ptr<TrayWindowState>*>(
      reinterpret_cast<const CREATESTRUCTW*>(lparam)->lpCreateParams);
  (*holder)->window = window;
  SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(holder->release()));
}

void Free(HWND window, TrayWindowState* state) {
  SetWindowLongPtrW(window, GWLP_USERDATA, 0);
  TrayWindowAccess::Forget(*state->owner);
  delete state;
}

LRESULT CALLBACK TrayWindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) noexcept {
  if (message == WM_NCCREATE) Adopt(window, lparam);
  TrayWindowState* state = TrayWindowState::Of(window);
  if (!state) return DefWindowProcW(window, message, wparam, lparam);
  if (message == WM_NCDESTROY) {
    Free(window, state);
    return DefWindowProcW(window, message, wparam, lparam);
  }
  try {
    if (const std::optional<LRESULT> handled = Handle(*state, message, wparam, lparam)) {
      return *handled;
    }
  } catch (const std::exception& e) {
    Log(kLogError, L"tray window: %hs", e.what());
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

// The common controls first: the window's sliders are theirs. Asked again at every opening,
// which they allow.
bool RegisterTrayWindowClass(HINSTANCE instance) {
  const INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_BAR_CLASSES | ICC_STANDARD_CLASSES};
  if (!InitCommonControlsEx(&controls)) {
    Log(kLogWarn, L"InitCommonControlsEx failed (%lu); sliders may not appear", GetLastError());
  }
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &TrayWindowProc;
  window_class.hInstance = instance;
  window_class.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(1));
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_WINDOW + 1));
  window_class.lpszClassName = kTrayWindowClass;
  if (!EnsureWindowClass(window_class)) {
    Log(kLogError, L"could not register the tray window class (%lu)", GetLastError());
    return false;
  }
  return true;
}

RECT WorkAreaUnderCursor() {
  POINT cursor = {};
  GetCursorPos(&cursor);
  return WorkAreaOf(MonitorFromPoint(cursor, MONITOR_DEFAULTTONEAREST));
}

void FillControls(TrayWindowState& state) {
  SetDlgItemTextW(state.window, kIdEmail, Utf8ToWide(state.working.email).c_str());
  SetDlgItemTextW(state.window, kIdVersion,
                  (std::wstring(L"Version ") + kProductVersionText).c_str());
  ShowWorkingSettings(state);
  ShowAccountStatus(state, FailureText(state.session->LastFailure()));
}

}  // namespace

TrayWindow::TrayWindow(HINSTANCE instance, TrayWindowCallbacks callbacks)
    : instance_(instance), callbacks_(std::move(callbacks)) {}

TrayWindow::~TrayWindow() { Close(); }

void TrayWindow::Close() {
  if (window_) DestroyWindow(window_);
}

// Made hidden on the cursor's monitor, so that it has that monitor's DPI before its layout.
bool TrayWindow::Open(Session& session, const std::string& game_key) {
  if (window_) {
    if (IsIconic(window_)) ShowWindow(window_, SW_RESTORE);
    SetForegroundWindow(window_);
    return true;
  }
  if (!RegisterTrayWindowClass(instance_)) return false;
  auto state = std::make_unique<TrayWindowState>();
  state->owner = this;
  state->session = &session;
  state->game_key = game_key;
  state->working = session.CurrentSettings();
  const RECT area = WorkAreaUnderCursor();
  const HWND window = CreateWindowExW(0, kTrayWindowClass, kWindowTitle, kWindowStyle, area.left,
                                      area.top, 100, 100, nullptr, nullptr, instance_, &state);
  if (!window) {
    Log(kLogError, L"could not create the tray window (%lu)", GetLastError());
    return false;
  }
  window_ = window;
  TrayWindowState& adopted = *TrayWindowState::Of(window);
  if (!CreateTrayWindowControls(adopted, instance_)) {
    DestroyWindow(window);
    return false;
  }
  LayOutForDpi(adopted, GetWindowDpi(window));
  MarkLiveRegion(StatusControl(adopted));
  FillControls(adopted);
  PlaceTrayWindow(adopted, area, std::nullopt);
  ShowWindow(window, SW_SHOW);
  SetForegroundWindow(window);
  FocusFirstControl(window);
  ShowProgress(adopted);
  return true;
}

}  // namespace qn
