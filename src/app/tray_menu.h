#pragma once
// What the tray icon shows, kept apart from the calls that show it so the texts and the
// order of the menu can be checked without a shell.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qn {

// Menu command ids; the message window acts on them when they come back as WM_COMMAND.
inline constexpr uint32_t kCmdExit = 100;
inline constexpr uint32_t kCmdTitle = 101;  // names the program and its hotkey; does nothing
inline constexpr uint32_t kCmdAccount = 102;
inline constexpr uint32_t kCmdCheckForUpdates = 103;

// Names the default hotkey on purpose and is never rebuilt: the menu's first entry is where
// the current hotkey shows.
inline constexpr wchar_t kTrayTooltip[] = L"Hintwick - Shift+Alt+X";
inline constexpr wchar_t kTrayBalloonTitle[] = L"Hintwick";

// The start and second-start balloons name the hotkey the player set, which is what works.
enum class Balloon { kRunning, kHotkeyTaken, kAlreadyRunning };
std::wstring BalloonText(Balloon balloon, std::wstring_view hotkey_text);
inline constexpr wchar_t kBalloonExclusiveFullscreen[] =
    L"This game is running in exclusive fullscreen. Switch it to Borderless in its video "
    L"settings and the drawer will work.";

// A balloon holds 255 characters; a cut that would split a surrogate pair drops its first half.
std::wstring_view CutForBalloon(std::wstring_view text);

// Command 0 is a separator.
struct TrayMenuEntry {
  uint32_t command = 0;
  std::wstring text;

  bool operator==(const TrayMenuEntry&) const = default;
};

// The menu top to bottom, for the hotkey as the user set it and the session as it is now.
std::vector<TrayMenuEntry> TrayMenuEntries(std::wstring_view hotkey_text, bool signed_in);

}  // namespace qn
