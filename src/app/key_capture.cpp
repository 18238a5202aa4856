#include "app/key_capture.h"

#include <cstdlib>

#include "core/settings.h"

namespace qn {
namespace {

constexpr uint32_t kTab = 9, kShift = 16, kControl = 17, kAlt = 18, kEscape = 27;
constexpr uint32_t kPrintScreen = 44, kLeftWin = 91, kRightWin = 92, kF4 = 115;
constexpr uint32_t kFirstMediaKey = 173, kLastMediaKey = 183;  // volume, media, launch
constexpr uint32_t kLeftShift = 160, kRightAlt = 165;
constexpr uint32_t kCapsLock = 20, kNumLock = 144, kScrollLock = 145;

// What the system must keep seeing while the drawer has the keyboard: window switching, the
// Start menu, screenshots and the volume.
bool IsSystemKey(uint32_t key, Modifiers held) {
  if (key == kTab || key == kF4) return held.alt;
  if (key == kEscape) return held.ctrl;
  return key == kLeftWin || key == kRightWin || key == kPrintScreen ||
         (key >= kFirstMediaKey && key <= kLastMediaKey);
}

// Passed so that the system's and the game's idea of the modifier and lock states stays
// right: Caps Lock swallowed would type capitals in the drawer but not in the game.
bool IsModifierKey(uint32_t key) {
  return key == kShift || key == kControl || key == kAlt || key == kLeftWin || key == kRightWin ||
         (key >= kLeftShift && key <= kRightAlt) || key == kCapsLock || key == kNumLock ||
         key == kScrollLock;
}

}  // namespace

bool MatchesHotkey(uint32_t key, Modifiers held, const HotkeyMirror& hotkey) {
  return key == hotkey.key && held.ctrl == ((hotkey.modifiers & kModCtrl) != 0) &&
         held.shift == ((hotkey.modifiers & kModShift) != 0) &&
         held.alt == ((hotkey.modifiers & kModAlt) != 0);
}

bool HotkeyWatch::Fires(const KeyStroke& stroke, const HotkeyMirror& hotkey) {
  if (stroke.key != hotkey.key || stroke.action == KeyAction::kOther) return false;
  const bool repeat = key_down_;
  key_down_ = stroke.action == KeyAction::kDown;
  return key_down_ && !repeat && MatchesHotkey(stroke.key, stroke.held, hotkey);
}

bool HotkeyPresses::Accept(HotkeySource source, uint32_t input_ms) {
  // Either may be stamped first, and the clock wraps after 49.7 days.
  const auto apart = [&] { return std::abs(static_cast<int32_t>(input_ms - unpaired_->at_ms)); };
  if (unpaired_ && unpaired_->source != source && apart() <= kPairMs) {
    unpaired_.reset();
    return false;
  }
  unpaired_ = Signal{source, input_ms};
  return true;
}

// The hotkey passes so that the system hotkey fires and closes the drawer.
CaptureDecision DecideCapturedKey(const KeyStroke& stroke, const HotkeyMirror& hotkey,
                                  bool was_held) {
  if (stroke.key >= kKeyCodeCount || stroke.action == KeyAction::kOther) {
    return CaptureDecision::kPass;
  }
  // Win+anything is the system's: Win+R, Win+D, Win+Shift+S.
  if (MatchesHotkey(stroke.key, stroke.held, hotkey) || IsSystemKey(stroke.key, stroke.held) ||
      IsModifierKey(stroke.key) || stroke.held.win) {
    return CaptureDecision::kPass;
  }
  if (stroke.action == KeyAction::kUp) {
    return was_held ? CaptureDecision::kPassHeldRelease : CaptureDecision::kSwallow;
  }
  return CaptureDecision::kSwallowAndForward;
}

KeyRecordUse UseOfKeyRecord(const KeyEventRecord& record, bool drawer_open, bool view_ready) {
  if (!drawer_open) return KeyRecordUse::kIgnore;
  if (record.key == kEscape) return KeyRecordUse::kCloseDrawer;
  return view_ready ? KeyRecordUse::kType : KeyRecordUse::kIgnore;
}

std::wstring KeyTyping::Type(const KeyEventRecord& key, const TranslateKey& translate) {
  const ProducedText produced = translate(dead_ ? &*dead_ : nullptr, key);
  const bool was_pending = dead_.has_value();
  dead_.reset();
  if (produced.dead && !was_pending) {
    dead_ = key;
    return {};
  }
  return PrintableText(produced.text);
}

std::wstring PrintableText(std::wstring_view produced) {
  std::wstring text;
  for (const wchar_t c : produced) {
    if (c >= 32 && c != 127) text.push_back(c);
  }
  return text;
}

}  // namespace qn
