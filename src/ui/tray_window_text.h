#pragma once
// What the account and settings window says and decides, apart from its controls: the
// labels, the account and progress texts, the hotkey capture's use of a key and the dialog's
// default action. No Windows headers, so that the rules are checked natively.
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ui/tray_window_layout.h"

namespace qn {

struct Settings;

inline constexpr wchar_t kCapturingHotkeyText[] = L"Press the new key combination...";
inline constexpr wchar_t kHotkeySetText[] = L"Hotkey set. Press Save to keep it.";
inline constexpr wchar_t kHotkeyNeedsModifierText[] =
    L"A hotkey needs at least one of Ctrl, Shift or Alt, or it would fire while you are typing "
    L"in the game.";
inline constexpr wchar_t kHotkeyBreaksTypingText[] =
    L"That combination types, copies, pastes or closes in every program, and the hotkey works "
    L"everywhere. Choose another, such as Shift+Alt+X.";
inline constexpr wchar_t kSavedText[] = L"Saved.";
inline constexpr wchar_t kResetDoneText[] = L"Progress reset.";
inline constexpr wchar_t kResetFailedText[] = L"Could not reach the service to reset progress.";
inline constexpr wchar_t kSaveFailedText[] = L"Could not save settings to disk.";
inline constexpr wchar_t kStyleUnconfirmedText[] =
    L"Settings saved, but the service did not confirm the answer-style change. It will retry on "
    L"your next question.";

enum class HotkeyKeyUse : uint8_t {
  kIgnore,  // a modifier on its own: the combination is still being pressed
  kCancel,  // Escape: the old hotkey stays
  kAccept,
  kRefuse,  // no modifier: it would fire while the player types in the game
  // A system-wide hotkey takes the keys from every program: Shift+letter (a capital), Ctrl+Alt+
  // letter (AltGr on many European layouts: AltGr+V is '@' in Hungarian and Czech), Ctrl+C, V
  // or X, and Alt+F4.
  kRefuseBreaksTyping,
};
struct HotkeyKey {
  HotkeyKeyUse use = HotkeyKeyUse::kIgnore;
  uint32_t modifiers = 0;  // RegisterHotKey's values, when accepted
};
HotkeyKey UseOfHotkeyKey(uint32_t virtual_key, bool ctrl, bool shift, bool alt);
// The same, with an accepted combination written into the settings' hotkey.
HotkeyKeyUse CaptureHotkeyKey(Settings& settings, uint32_t virtual_key, bool ctrl, bool shift,
                              bool alt);

std::wstring HotkeyButtonText(std::wstring_view hotkey_text, bool capturing);
std::wstring DrawerHeightLabel(int percent);
std::wstring BlurLabel(int percent);
std::wstring VolumeLabel(int percent);

// The e-mail, password, sign-in and create-account controls are enabled exactly when signed
// out; sign-out the other way round.
std::wstring AccountStatusText(bool signed_in, std::wstring_view email,
                               std::wstring_view last_error);

// What the service's progress record said for the game, when it could be read.
struct ProgressRead {
  bool reached = false;
  std::wstring stage;
  int32_t stage_ordinal = 0;
};
struct ProgressText {
  std::wstring text;
  bool reset_enabled = false;
};
ProgressText DescribeProgress(std::wstring_view game, bool signed_in,
                              const std::optional<ProgressRead>& read);

// A pasted password loses its line breaks, tabs and other control characters: they cannot be
// typed into the box, and a copied password often drags a line break along.
std::wstring WithoutControlCharacters(std::wstring_view text);

// Enter signs in while that is what the window offers, and saves otherwise.
int DefaultCommand(bool signed_in, bool sign_in_enabled);

// What the window asks of the service, one at a time.
enum class TrayRequestKind : uint8_t { kSignIn, kRegister, kSignOut, kSave, kReset, kReadProgress };

// Where a request says what it waits for and then how it went: the line beside the buttons
// that start it, which the player is looking at (the progress text for a read).
struct RequestStatus {
  int control;
  const wchar_t* waiting;
};
RequestStatus StatusOf(TrayRequestKind kind);

// The controls that start a request or feed one, and whether each takes input: the account's
// while signed out, sign-out while signed in, reset once a record was read, and none of them
// while a request runs.
struct ControlEnabled {
  int id;
  bool enabled;
};
std::array<ControlEnabled, 7> RequestControls(bool signed_in, bool busy, bool reset_allowed);

}  // namespace qn
