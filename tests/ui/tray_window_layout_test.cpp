#include "ui/tray_window_layout.h"

#include <gtest/gtest.h>

#include <set>
#include <string_view>
#include <utility>

namespace qn {
namespace {

// A drop-down list's plan gives its open height; closed it takes one row like an edit box.
LayoutRect OnScreen(const ControlPlan& plan) {
  LayoutRect rect = plan.rect;
  if (plan.kind == ControlKind::kComboBox) rect.height = 24;
  return rect;
}

bool Below(const LayoutRect& later, const LayoutRect& earlier) {
  return later.y >= earlier.y + earlier.height;
}
bool Overlap(const LayoutRect& a, const LayoutRect& b) {
  return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
}
bool RightOfInSameRow(const LayoutRect& later, const LayoutRect& earlier) {
  return later.x >= earlier.x + earlier.width && later.y < earlier.y + earlier.height &&
         earlier.y < later.y + later.height;
}

// Creation order is Tab order and what a screen reader reads: each control must come after
// the one before it as the eye goes, right along a row or down to the next, never overlap
// anything, and stay inside the margin.
TEST(TrayWindowLayout, ControlsFollowTheEyeWithoutOverlapInsideTheMargin) {
  const auto controls = TrayWindowControls();
  const LayoutRect client = TrayWindowClient();
  for (size_t i = 0; i < controls.size(); ++i) {
    const LayoutRect rect = OnScreen(controls[i]);
    SCOPED_TRACE(testing::Message() << "control " << i << " id " << controls[i].id);
    EXPECT_GE(rect.x, kMargin);
    EXPECT_GE(rect.y, kMargin);
    EXPECT_LE(rect.x + rect.width, client.width - kMargin);
    EXPECT_LE(rect.y + rect.height, client.height - kMargin);
    for (size_t j = 0; j < i; ++j) {
      const LayoutRect earlier = OnScreen(controls[j]);
      EXPECT_FALSE(Overlap(rect, earlier)) << "overlaps control " << j;
      EXPECT_FALSE(Below(earlier, rect)) << "comes before control " << j;
    }
    if (i > 0) {
      const LayoutRect previous = OnScreen(controls[i - 1]);
      EXPECT_TRUE(Below(rect, previous) || RightOfInSameRow(rect, previous));
    }
  }
}

TEST(TrayWindowLayout, EveryFieldIsNamedByTheLabelBeforeItAndIdsAreUnique) {
  const auto controls = TrayWindowControls();
  std::set<int> ids;
  for (size_t i = 0; i < controls.size(); ++i) {
    const ControlPlan& plan = controls[i];
    if (plan.id != kIdStaticText) {
      EXPECT_TRUE(ids.insert(plan.id).second) << plan.id;
    }
    const bool field = plan.kind == ControlKind::kEdit || plan.kind == ControlKind::kPasswordEdit ||
                       plan.kind == ControlKind::kSlider || plan.kind == ControlKind::kComboBox;
    if (field) {
      ASSERT_GT(i, 0u);
      EXPECT_EQ(controls[i - 1].kind, ControlKind::kLabel) << plan.id;
    }
  }
}

// Alt and a letter reaches every fixed control: a field through the label before it, a button
// or box itself; no letter is used twice, or Alt would stop at the first.
TEST(TrayWindowLayout, EachFixedControlHasItsOwnAccessKey) {
  const auto controls = TrayWindowControls();
  std::set<wchar_t> keys;
  for (size_t i = 0; i < controls.size(); ++i) {
    const ControlPlan& plan = controls[i];
    const bool named_by_label = plan.kind == ControlKind::kEdit ||
                                plan.kind == ControlKind::kPasswordEdit ||
                                plan.kind == ControlKind::kComboBox;
    const bool clicked =
        (plan.kind == ControlKind::kButton || plan.kind == ControlKind::kCheckBox) &&
        *plan.text != L'\0';
    const wchar_t key = AccessKeyOf(plan.text);
    EXPECT_TRUE(key == 0 || keys.insert(key).second) << static_cast<int>(key);
    EXPECT_TRUE(!named_by_label || AccessKeyOf(controls[i - 1].text) != 0) << plan.id;
    EXPECT_TRUE(!clicked || key != 0) << plan.id;
  }
  const std::pair<std::wstring_view, wchar_t> texts[] = {
      {L"C&lose", L'l'}, {L"&Save", L's'}, {L"Tom && Jerry", 0}, {L"a&&&b", L'b'}, {L"end&", 0}};
  for (const auto& [text, key] : texts) EXPECT_EQ(AccessKeyOf(text), key) << static_cast<int>(key);
}

TEST(TrayWindowLayout, ScrollingKeepsTheContentFilledAndTheFocusInView) {
  EXPECT_EQ(ClampScroll(100, 800, 700), 0);        // everything fits: never scrolled
  EXPECT_EQ(ScrollToShow(100, 300, 40, 70), 40);   // above: its top at the view's top
  EXPECT_EQ(ScrollToShow(0, 300, 100, 900), 100);  // taller than the view: its top wins
}

}  // namespace
}  // namespace qn
