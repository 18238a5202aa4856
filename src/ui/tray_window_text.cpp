#include "ui/tray_window_text.h"

#include "core/settings.h"

namespace qn {
namespace {

constexpr uint32_t kVkShift = 16, kVkAlt = 18, kVkEscape = 27, kVkLeftWin = 91, kVkRightWin = 92,
                   kVkF4 = 115;

bool IsLetter(uint32_t key) { return key >= 'A' && key <= 'Z'; }
bool IsLetterOrDigit(uint32_t key) { return IsLetter(key) || (key >= '0' && key <= '9'); }

bool BreaksTyping(uint32_t key, uint32_t modifiers) {
  switch (modifiers) {
    case kModShift:
      return IsLetterOrDigit(key);
    case kModCtrl | kModAlt:
      return IsLetter(key);
    case kModCtrl:
      return key == 'C' || key == 'V' || key == 'X';
    case kModAlt:
      return key == kVkF4;
    default:
      return false;
  }
}

std::wstring Percent(std::wstring_view label, int percent) {
  return std::wstring(label) + std::to_wstring(percent) + L"%";
}

}  // namespace

HotkeyKey UseOfHotkeyKey(uint32_t virtual_key, bool ctrl, bool shift, bool alt) {
  if ((virtual_key >= kVkShift && virtual_key <= kVkAlt) || virtual_key == kVkLeftWin ||
      virtual_key == kVkRightWin) {
    return {HotkeyKeyUse::kIgnore, 0};
  }
  if (virtual_key == kVkEscape) return {HotkeyKeyUse::kCancel, 0};
  const uint32_t modifiers = (ctrl ? kModCtrl : 0) | (shift ? kModShift : 0) | (alt ? kModAlt : 0);
  if (modifiers == 0) return {HotkeyKeyUse::kRefuse, 0};
  if (BreaksTyping(virtual_key, modifiers)) return {HotkeyKeyUse::kRefuseBreaksTyping, 0};
  return {HotkeyKeyUse::kAccept, modifiers};
}

HotkeyKeyUse CaptureHotkeyKey(Settings& settings, uint32_t virtual_key, bool ctrl, bool shift,
                              bool alt) {
  const HotkeyKey key = UseOfHotkeyKey(virtual_key, ctrl, shift, alt);
  if (key.use == HotkeyKeyUse::kAccept) {
    settings.hotkey_mods = key.modifiers;
    settings.hotkey_vk = virtual_key;
  }
  return key.use;
}

std::wstring HotkeyButtonText(std::wstring_view hotkey_text, bool capturing) {
  if (capturing) return kCapturingHotkeyText;
  return L"Hotkey: " + std::wstring(hotkey_text) + L"  (click to change)";
}

std::wstring DrawerHeightLabel(int percent) {
  return Percent(L"Drawer height: ", percent) + L" of the screen";
}

std::wstring BlurLabel(int percent) {
  if (percent == 0) return L"Background blur: off (dimmed only)";
  return Percent(L"Background blur: ", percent);
}

std::wstring VolumeLabel(int percent) { return Percent(L"Volume: ", percent); }

std::wstring AccountStatusText(bool signed_in, std::wstring_view email,
                               std::wstring_view last_error) {
  if (signed_in) {
    return L"Signed in as " + std::wstring(email) + L". Press the hotkey over a game to start.";
  }
  if (last_error.empty()) return L"Not signed in.";
  return L"Not signed in - " + std::wstring(last_error);
}

ProgressText DescribeProgress(std::wstring_view game, bool signed_in,
                              const std::optional<ProgressRead>& read) {
  if (game.empty()) {
    return {
        L"No game seen yet. Open the drawer over a game and this will show what the "
        L"assistant has recorded about your progress.",
        false};
  }
  if (!signed_in) return {L"Sign in to see your recorded progress.", false};
  const std::wstring name = std::wstring(game) + L": ";
  if (!read || !read->reached) return {name + L"could not reach the service.", false};
  if (read->stage.empty()) {
    return {name +
                L"nothing recorded yet, so answers are gated to the very beginning of the "
                L"game. Tell the assistant where you are and it will update.",
            true};
  }
  return {name + read->stage + L"  (gate level " + std::to_wstring(read->stage_ordinal) + L")",
          true};
}

std::wstring WithoutControlCharacters(std::wstring_view text) {
  std::wstring kept;
  kept.reserve(text.size());
  for (const wchar_t c : text) {
    if (c >= 0x20 && c != 0x7F) kept.push_back(c);
  }
  return kept;
}

int DefaultCommand(bool signed_in, bool sign_in_enabled) {
  return !signed_in && sign_in_enabled ? kIdSignIn : kIdSave;
}

RequestStatus StatusOf(TrayRequestKind kind) {
  switch (kind) {
    case TrayRequestKind::kSignIn:
      return {kIdAccountStatus, L"Signing in..."};
    case TrayRequestKind::kRegister:
      return {kIdAccountStatus, L"Creating account..."};
    case TrayRequestKind::kSignOut:
      return {kIdAccountStatus, L"Signing out..."};
    case TrayRequestKind::kSave:
      return {kIdActionStatus, L"Saving..."};
    case TrayRequestKind::kReset:
      return {kIdActionStatus, L"Resetting..."};
    case TrayRequestKind::kReadProgress:
      break;
  }
  return {kIdProgress, L"Checking..."};
}

std::array<ControlEnabled, 7> RequestControls(bool signed_in, bool busy, bool reset_allowed) {
  const bool signing_in = !signed_in && !busy;
  return {{{kIdEmail, signing_in},
           {kIdPassword, signing_in},
           {kIdSignIn, signing_in},
           {kIdCreateAccount, signing_in},
           {kIdSignOut, signed_in && !busy},
           {kIdSave, !busy},
           {kIdResetProgress, reset_allowed && !busy}}};
}

}  // namespace qn
