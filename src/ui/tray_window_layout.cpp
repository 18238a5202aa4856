#include "ui/tray_window_layout.h"

#include <algorithm>
#include <array>

namespace qn {
namespace {

// The account block's labels sit left of their boxes; the settings' labels left of their
// sliders and the combo box, which start 216 in, as the combo box's row does.
constexpr int kAccountLabelWidth = 70;
constexpr int kFieldX = kMargin + kAccountLabelWidth + 4;
constexpr int kFieldWidth = kMargin + kContentWidth - kFieldX;
constexpr int kSettingX = kMargin + 216;
constexpr int kSettingWidth = kContentWidth - 216;
constexpr int kIndent = 20;
constexpr int kRight = kMargin + kContentWidth;
constexpr int kTextHeight = 20;
constexpr int kLineHeight = 16;  // the message font's line at 96 DPI, with room to spare
constexpr int kBottomRow = 680;

constexpr LayoutRect Row(int x, int y, int width, int height = kTextHeight) {
  return {x, y, width, height};
}
// A label beside a control of `height`, centred on it.
constexpr LayoutRect Beside(int x, int y, int width, int height) {
  return {x, y + (height - kTextHeight) / 2, width, kTextHeight};
}

using K = ControlKind;
constexpr std::array kControls = {
    ControlPlan{kIdStaticText, K::kHeading, L"Account", Row(kMargin, 14, kContentWidth)},
    ControlPlan{kIdStaticText, K::kLabel,
                L"Sign in here, on the desktop - never over a running game.",
                Row(kMargin, 38, kContentWidth)},
    ControlPlan{kIdStaticText, K::kLabel, L"&Email", Beside(kMargin, 64, kAccountLabelWidth, 24)},
    ControlPlan{kIdEmail, K::kEdit, L"", Row(kFieldX, 64, kFieldWidth, 24)},
    ControlPlan{kIdStaticText, K::kLabel, L"&Password",
                Beside(kMargin, 94, kAccountLabelWidth, 24)},
    ControlPlan{kIdPassword, K::kPasswordEdit, L"", Row(kFieldX, 94, kFieldWidth, 24)},
    ControlPlan{kIdSignIn, K::kButton, L"Sign &in", Row(kFieldX, 128, 96, 28)},
    ControlPlan{kIdCreateAccount, K::kButton, L"Create &account", Row(kFieldX + 104, 128, 120, 28)},
    ControlPlan{kIdSignOut, K::kButton, L"Sign &out", Row(kFieldX + 232, 128, 96, 28)},
    ControlPlan{kIdAccountStatus, K::kLabel, L"",
                Row(kMargin, 164, kContentWidth, 2 * kLineHeight + 4), 2},
    ControlPlan{kIdStaticText, K::kSeparator, L"", Row(kMargin, 210, kContentWidth, 2)},

    ControlPlan{kIdStaticText, K::kHeading, L"Settings", Row(kMargin, 220, kContentWidth)},
    ControlPlan{kIdHotkey, K::kButton, L"", Row(kMargin, 244, kContentWidth, 28)},
    ControlPlan{kIdDrawerLabel, K::kLabel, L"", Beside(kMargin, 280, 210, 28)},
    ControlPlan{kIdDrawerSlider, K::kSlider, L"", Row(kSettingX, 280, kSettingWidth, 28)},
    ControlPlan{kIdBlurLabel, K::kLabel, L"", Beside(kMargin, 310, 210, 28)},
    ControlPlan{kIdBlurSlider, K::kSlider, L"", Row(kSettingX, 310, kSettingWidth, 28)},
    ControlPlan{kIdSound, K::kCheckBox,
                L"Play a so&und when an answer finishes while the drawer is closed",
                Row(kMargin, 342, kContentWidth, 24)},
    ControlPlan{kIdVolumeLabel, K::kLabel, L"", Beside(kMargin + kIndent, 368, 210 - kIndent, 28)},
    ControlPlan{kIdVolumeSlider, K::kSlider, L"",
                Row(kSettingX + kIndent, 368, kSettingWidth - kIndent, 28)},
    ControlPlan{kIdStaticText, K::kLabel, L"How much the assistant gives a&way",
                Beside(kMargin, 400, 210, 24)},
    // A drop-down list's height is that of its open list; closed it is one row.
    ControlPlan{kIdDirectness, K::kComboBox, L"", Row(kSettingX, 400, kSettingWidth, 200)},
    ControlPlan{kIdSpoilers, K::kCheckBox, L"I &don't mind spoilers - stop withholding anything",
                Row(kMargin, 430, kContentWidth, 24)},
    ControlPlan{kIdStaticText, K::kSeparator, L"", Row(kMargin, 464, kContentWidth, 2)},

    ControlPlan{kIdStaticText, K::kHeading, L"Recorded progress", Row(kMargin, 474, kContentWidth)},
    ControlPlan{kIdStaticText, K::kLabel,
                L"This is what spoiler gating uses. If it is wrong, say so in the drawer or "
                L"reset it.",
                Row(kMargin, 498, kContentWidth, 2 * kLineHeight + 4), 2},
    ControlPlan{kIdProgress, K::kLabel, L"Checking...",
                Row(kMargin, 536, kContentWidth, 3 * kLineHeight + 4), 3},
    ControlPlan{kIdResetProgress, K::kButton, L"Starting a new playthrough - &reset my progress",
                Row(kMargin, 592, 300, 28)},
    ControlPlan{kIdStaticText, K::kSeparator, L"", Row(kMargin, 630, kContentWidth, 2)},

    ControlPlan{kIdActionStatus, K::kLabel, L"",
                Row(kMargin, 638, kContentWidth, 2 * kLineHeight + 4), 2},
    ControlPlan{kIdVersion, K::kLabel, L"", Beside(kMargin, kBottomRow, 104, 30)},
    ControlPlan{kIdCheckUpdates, K::kButton, L"&Check for updates",
                Row(kMargin + 110, kBottomRow + 1, 130, 28)},
    ControlPlan{kIdSave, K::kButton, L"&Save", Row(kRight - 188, kBottomRow, 90, 30)},
    ControlPlan{kIdClose, K::kButton, L"C&lose", Row(kRight - 90, kBottomRow, 90, 30)},
};

}  // namespace

std::span<const ControlPlan> TrayWindowControls() { return kControls; }

// "&&" is a literal ampersand, as the system reads it.
wchar_t AccessKeyOf(std::wstring_view text) {
  for (size_t at = text.find(L'&'); at != std::wstring_view::npos && at + 1 < text.size();
       at = text.find(L'&', at + 2)) {
    const wchar_t key = text[at + 1];
    if (key == L'&') continue;
    return key >= L'A' && key <= L'Z' ? static_cast<wchar_t>(key - L'A' + L'a') : key;
  }
  return 0;
}

LayoutRect TrayWindowClient() {
  return {0, 0, kContentWidth + 2 * kMargin, kBottomRow + 30 + kMargin};
}

int ClampScroll(int top, int view_height, int content_height) {
  return std::clamp(top, 0, std::max(0, content_height - view_height));
}

int ScrollToShow(int current, int view_height, int top, int bottom) {
  if (top < current) return top;
  if (bottom > current + view_height) return std::min(top, bottom - view_height);
  return current;
}

}  // namespace qn
