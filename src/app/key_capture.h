#pragma once
// What the keyboard hooks and the message window decide for one key, without the platform:
// the hooks only read key states, ask these functions and carry out the answer. Key codes are
// Windows virtual-key codes.
#include <cstdint>
#include <string>
#include <string_view>

namespace qn {

inline constexpr uint32_t kKeyCodeCount = 256;  // codes from here up are passed untouched

// The hotkey as the hooks see it, copied from the settings at each registration so that the
// hooks need nothing of the application.
struct HotkeyMirror {
  uint32_t modifiers = 0;  // kModAlt, kModCtrl, kModShift, kModWin bits
  uint32_t key = 0;
};

struct Modifiers {
  bool ctrl = false;
  bool shift = false;
  bool alt = false;
};

// The hook's message: WM_KEYDOWN or WM_SYSKEYDOWN, WM_KEYUP or WM_SYSKEYUP, anything else.
enum class KeyAction { kDown, kUp, kOther };

struct KeyStroke {
  uint32_t key = 0;
  KeyAction action = KeyAction::kDown;
  Modifiers held;
};

// One captured key as the hook posts it to the message window, which frees it.
struct KeyEventRecord {
  uint32_t key = 0;
  uint32_t scan_code = 0;
  uint8_t ctrl = 0;
  uint8_t shift = 0;
  uint8_t alt = 0;
  uint8_t reserved[5] = {};
};
static_assert(sizeof(KeyEventRecord) == 16);

enum class CaptureDecision {
  kPass,               // the system and the game see the key
  kPassHeldRelease,    // passes, and the key stops counting as held
  kSwallow,            // nobody sees it
  kSwallowAndForward,  // the drawer gets it as a KeyEventRecord
};

// Ctrl, Shift and Alt exactly as the hotkey has them. Win is not compared: a hotkey typed
// with Win held still opens the drawer.
bool MatchesHotkey(uint32_t key, Modifiers held, const HotkeyMirror& hotkey);

// The fallback hook, which stands in for a hotkey the system would not register.
bool FiresFallbackHotkey(const KeyStroke& stroke, const HotkeyMirror& hotkey);

// The capture hook while capture is on. `was_held`: the key was down when capture started,
// so the game saw it pressed and must see it released.
CaptureDecision DecideCapturedKey(const KeyStroke& stroke, const HotkeyMirror& hotkey,
                                  bool was_held);

// What the message window does with a captured key.
enum class KeyRecordUse { kIgnore, kCloseDrawer, kType };

KeyRecordUse UseOfKeyRecord(const KeyEventRecord& record, bool drawer_open, bool view_ready);

// The characters a key produced, without control characters (below 32, and 127): Enter,
// Tab and Escape have their own meanings and never become text.
std::wstring PrintableText(std::wstring_view produced);

}  // namespace qn
