#pragma once
// What the keyboard hooks and the message window decide for one key, without the platform:
// the hooks only read key states, ask these functions and carry out the answer. Key codes are
// Windows virtual-key codes.
#include <cstdint>
#include <functional>
#include <optional>
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
  bool win = false;
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
  uint8_t caps_lock = 0;  // on when the key was pressed
  uint8_t reserved[4] = {};
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

// The hook's watch for the hotkey, beside the system's: a game that registers raw input with
// RIDEV_NOHOTKEYS never lets the system hotkey through. A held key repeats its key-down, so
// the hotkey fires once a press, when its key goes down.
class HotkeyWatch {
 public:
  bool Fires(const KeyStroke& stroke, const HotkeyMirror& hotkey);
  // The hook was set anew and may have missed a release.
  void Forget() { key_down_ = false; }

 private:
  bool key_down_ = false;
};

// One press of the hotkey may arrive twice, from the system and from the hook; it toggles the
// drawer once. The other source's signal within `kPairMs` of an unpaired one is the same press.
// Times are the input's own (the system's 32-bit millisecond clock), not when the interface
// thread got to the message: an opening can keep it busy for longer than that.
enum class HotkeySource { kSystem, kHook };
class HotkeyPresses {
 public:
  static constexpr int32_t kPairMs = 400;
  // True when this signal is a new press.
  bool Accept(HotkeySource source, uint32_t input_ms);

 private:
  struct Signal {
    HotkeySource source;
    uint32_t at_ms;
  };
  std::optional<Signal> unpaired_;
};

// The capture hook while capture is on. `was_held`: the key was down when capture started,
// so the game saw it pressed and must see it released.
CaptureDecision DecideCapturedKey(const KeyStroke& stroke, const HotkeyMirror& hotkey,
                                  bool was_held);

// What a key produces under the player's layout: text, or a dead key waiting for the next one.
struct ProducedText {
  std::wstring text;
  bool dead = false;
};
// Asks the layout about `key`, typed after the dead key `dead` when there is one.
using TranslateKey =
    std::function<ProducedText(const KeyEventRecord* dead, const KeyEventRecord& key)>;

// Dead keys compose with the key after them (´ then a is á) as the layout says: the dead key
// is held back until then, and the layout is asked about both together.
class KeyTyping {
 public:
  std::wstring Type(const KeyEventRecord& key, const TranslateKey& translate);
  // An editing key came between: what was pending is dropped.
  void Forget() { dead_.reset(); }

 private:
  std::optional<KeyEventRecord> dead_;
};

// What the message window does with a captured key.
enum class KeyRecordUse { kIgnore, kCloseDrawer, kType };

KeyRecordUse UseOfKeyRecord(const KeyEventRecord& record, bool drawer_open, bool view_ready);

// The characters a key produced, without control characters (below 32, and 127): Enter,
// Tab and Escape have their own meanings and never become text.
std::wstring PrintableText(std::wstring_view produced);

}  // namespace qn
