#pragma once
// The account and settings window's controls, top to bottom, with their places at 96 DPI. The
// window creates them in this order, so that Tab follows the eye and a screen reader names
// each edit box, slider and combo box by the label just before it. No Windows headers: the
// layout's rules (order, no overlap, inside the content) are checked natively.
#include <cstdint>
#include <span>
#include <string_view>

namespace qn {

inline constexpr int kIdStaticText = -1;  // labels nobody addresses
inline constexpr int kIdEmail = 1001;
inline constexpr int kIdPassword = 1002;
inline constexpr int kIdSignIn = 1003;
inline constexpr int kIdCreateAccount = 1004;
inline constexpr int kIdSignOut = 1005;
inline constexpr int kIdAccountStatus = 1006;
inline constexpr int kIdHotkey = 1101;
inline constexpr int kIdDrawerSlider = 1102;
inline constexpr int kIdDrawerLabel = 1103;
inline constexpr int kIdBlurSlider = 1104;
inline constexpr int kIdBlurLabel = 1105;
inline constexpr int kIdSound = 1106;
inline constexpr int kIdVolumeSlider = 1107;
inline constexpr int kIdVolumeLabel = 1108;
inline constexpr int kIdDirectness = 1109;
inline constexpr int kIdSpoilers = 1110;
inline constexpr int kIdProgress = 1201;
inline constexpr int kIdResetProgress = 1202;
inline constexpr int kIdSave = 1203;
inline constexpr int kIdClose = 1204;
inline constexpr int kIdCheckUpdates = 1205;
inline constexpr int kIdVersion = 1206;
// The outcome of Save, of a reset and of the hotkey capture, beside the buttons that start them.
inline constexpr int kIdActionStatus = 1207;

enum class ControlKind : uint8_t {
  kHeading,  // a label in the bold font
  kLabel,
  kSeparator,
  kEdit,
  kPasswordEdit,
  kButton,
  kCheckBox,
  kSlider,
  kComboBox,
};

// Client-area pixels at 96 DPI; the window scales each length by its own DPI.
struct LayoutRect {
  int x = 0, y = 0, width = 0, height = 0;

  bool operator==(const LayoutRect&) const = default;
};

struct ControlPlan {
  int id = kIdStaticText;
  ControlKind kind = ControlKind::kLabel;
  const wchar_t* text = L"";  // fixed texts; the window fills in the ones that change
  LayoutRect rect;
  int rows = 1;  // lines of text the control has room for
};

inline constexpr int kMargin = 14;
inline constexpr int kContentWidth = 452;

inline constexpr int kRowHeight = 24;  // also the scroll step

// The letter after a single '&' in a control's text, lower-case; 0 when it has none.
wchar_t AccessKeyOf(std::wstring_view text);
std::span<const ControlPlan> TrayWindowControls();
// The client area that holds them with the margin all round.
LayoutRect TrayWindowClient();

// A screen too short for the window (a laptop at 150 %) gets a window as tall as it has room
// for, whose content scrolls. These give the content's top at the view's top, in pixels.
int ClampScroll(int top, int view_height, int content_height);
// The least scroll that brings [top, bottom) of the content into view, for the focused control.
int ScrollToShow(int current, int view_height, int top, int bottom);

}  // namespace qn
