// The chat view drawn offscreen over a dark stand-in for the blurred game, checked by its
// pixels. The pictures are left next to this program for a look by eye.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "chat/chat_view.h"
#include "chat/offscreen_target_win.h"

namespace qn {
namespace {

constexpr uint32_t kMargin = 24;  // target pixels around the view that must stay untouched
constexpr float kViewWidth = 900, kViewHeight = 440;

// Text is light grey to white; the tint and the washes stay far darker.
bool IsText(uint32_t p) { return std::min({p >> 16 & 255, p >> 8 & 255, p & 255}) > 128; }
bool IsAccent(uint32_t p) { return (p & 255) > 191 && (p & 255) > (p >> 16 & 255) + 51; }

struct Picture {
  uint32_t width = 0, height = 0;
  std::vector<uint32_t> pixels;
  // Pixels passing `test` in [left, right) x [top, bottom), in target pixels.
  template <typename Test>
  int Count(float left, float top, float right, float bottom, Test test) const {
    int count = 0;
    for (float y = std::max(top, 0.0f); y < std::min<float>(bottom, height); ++y) {
      for (float x = std::max(left, 0.0f); x < std::min<float>(right, width); ++x) {
        count += test(pixels[size_t(y) * width + size_t(x)]) ? 1 : 0;
      }
    }
    return count;
  }
};

// The view (or, without one, only the backdrop) with its corner at (kMargin, kMargin).
Picture Render(ChatView* view, float scale, float opacity, const wchar_t* png) {
  const auto width = static_cast<uint32_t>(std::lround(kViewWidth * scale));
  const auto height = static_cast<uint32_t>(std::lround(kViewHeight * scale));
  test::OffscreenTarget target;
  if (!target.Create(width + 2 * kMargin, height + 2 * kMargin)) return {};
  ID2D1DeviceContext* context = target.context();
  ComPtr<ID2D1SolidColorBrush> tint;
  context->CreateSolidColorBrush({0.12f, 0.1f, 0.08f, 1}, tint.put());
  context->BeginDraw();
  context->Clear({0.2f, 0.9f, 0.3f, 1});
  context->FillRectangle({kMargin, kMargin, kMargin + width * 1.0f, kMargin + height * 1.0f},
                         tint.get());
  if (view) {
    EXPECT_TRUE(view->Init(target.dwrite()));
    view->SetSize(width, height, scale);
    context->SetTransform(D2D1::Matrix3x2F::Translation(kMargin, kMargin));
    view->Draw(context, opacity);
  }
  EXPECT_HRESULT_SUCCEEDED(context->EndDraw());
  Picture p{target.width(), target.height(), target.ReadPixels()};
  if (png && !test::WritePng(test::NextToProgram(png), p.width, p.height, p.pixels)) ADD_FAILURE();
  return p;
}

TEST(ChatViewDraw, ConversationReadsOverTheTintAndStaysInsideTheView) {
  const ComApartment com(COINIT_MULTITHREADED);
  const Picture backdrop = Render(nullptr, 1, 1, nullptr);
  float answer_height[2] = {};
  for (const float scale : {1.0f, 1.5f}) {
    SCOPED_TRACE(scale);
    ChatModel chat;
    ChatView view(chat);
    chat.AddHintIfEmpty();
    chat.SetStatusLine(L"Lanternfall \u2014 Chapter 3, the Sunken Archive");
    chat.SetText(kRoleQuestion, L"How do I get past the flooded gate in the archive?");
    chat.SetText(kRoleAnswer,
                 L"You need the **tide key** first. It sits in the *reading room* upstairs, "
                 L"behind the bookcase that slides when you pull the `lever` twice.");
    chat.SetText(kRoleNotice, L"Noted \u2014 reached the Sunken Archive");
    for (const wchar_t c : std::wstring(L"And a boss")) chat.InsertChar(c);
    if (scale == 1) {
      EXPECT_TRUE(Render(&view, 1, 0, nullptr).pixels == backdrop.pixels) << "drawn at opacity 0";
    }
    const Picture p =
        Render(&view, scale, 1, scale == 1 ? L"chat_view_96dpi.png" : L"chat_view_144dpi.png");
    ASSERT_FALSE(p.pixels.empty()) << "no Direct2D target on a Direct3D 11 texture";
    const float right = p.width - kMargin, bottom = p.height - kMargin;
    const auto drawn_on = [&](uint32_t pixel) { return pixel != p.pixels[0]; };
    EXPECT_EQ(p.Count(0, 0, p.width, p.height, drawn_on),
              p.Count(kMargin, kMargin, right, bottom, drawn_on))
        << "pixels drawn outside the view";

    const std::vector<D2D1_RECT_F>& drawn = view.DrawnMessages();
    ASSERT_EQ(drawn.size(), chat.Messages().size());
    for (size_t i = 0; i < drawn.size(); ++i) {
      const D2D1_RECT_F r = {kMargin + drawn[i].left, kMargin + drawn[i].top,
                             kMargin + drawn[i].right, kMargin + drawn[i].bottom};
      EXPECT_GT(p.Count(r.left, r.top, r.right, r.bottom, IsText), 20) << i;
      if (chat.Messages()[i].role != kRoleQuestion) continue;
      EXPECT_GT(drawn[i].left, kViewWidth * scale / 4) << "questions sit on the right";
      EXPECT_EQ(p.Count(kMargin, r.top, r.left, r.bottom, IsText), 0) << i;
    }
    // One caret, as wide as it should be, right after the typed text.
    const float band_top = kMargin + (kViewHeight - 60) * scale, band_bottom = bottom;
    std::vector<uint32_t> caret;
    for (uint32_t x = kMargin; x < right; ++x) {
      if (p.Count(x, band_top, x + 1, band_bottom, IsAccent) >= 12 * scale) caret.push_back(x);
    }
    ASSERT_EQ(caret.size(), static_cast<size_t>(std::lround(2 * scale)));
    EXPECT_GT(p.Count(kMargin, band_top, caret[0], band_bottom, IsText), 30 * scale);
    EXPECT_EQ(p.Count(caret.back() + 2, band_top, right, band_bottom, IsText), 0);
    answer_height[scale == 1 ? 0 : 1] = drawn[2].bottom - drawn[2].top;
  }
  EXPECT_NEAR(answer_height[1] / answer_height[0], 1.5f, 0.15f) << "text grows with the DPI";
}

// A streamed token lays out the answer again and nothing else; only a new width or scale
// lays out the whole conversation. A layer redrawn in part shows what one drawn whole does.
TEST(ChatViewDraw, ATokenLaysOutAndRedrawsOnlyTheAnswer) {
  const ComApartment com(COINIT_MULTITHREADED);
  ChatModel chat;
  ChatView view(chat);
  for (int i = 0; i < 20; ++i) chat.SetText(i % 2 ? kRoleAnswer : kRoleQuestion, L"A **lift**.");
  chat.BeginAnswer();
  test::OffscreenTarget in_part, whole;
  ASSERT_TRUE(in_part.Create(900, 440) && whole.Create(900, 440));
  ASSERT_TRUE(view.Init(in_part.dwrite()));
  view.SetSize(900, 440, 1);
  const std::pair<std::function<void()>, uint64_t> steps[] = {
      {[] {}, 21},
      {[] {}, 0},  // the first drawing, then nothing new
      {[&] { chat.AppendAnswer(L"Take"); }, 1},
      {[&] { chat.AppendAnswer(L" the **lift** down to the flooded hall, then wade east"); }, 1},
      {[&] { chat.InsertChar(L'x'); }, 0},
      {[&] { view.SetCaretShown(false); }, 0},
      {[&] { chat.ScrollBy(200); }, 0},
      {[&] { chat.SetStatusLine(L"Chapter 2"); }, 0},
      {[&] { view.SetSize(800, 440, 1); }, 21},
      {[&] { view.SetSize(800, 440, 1.25f); }, 21},
  };
  const auto draw = [&](test::OffscreenTarget& target, bool all) {
    target.context()->BeginDraw();
    view.DrawLayer(target.context(), all);
    EXPECT_HRESULT_SUCCEEDED(target.context()->EndDraw());
    return target.ReadPixels();
  };
  for (size_t step = 0; step < std::size(steps); ++step) {
    steps[step].first();
    const uint64_t before = view.LayoutsBuilt();
    const std::vector<uint32_t> redrawn = draw(in_part, false);
    EXPECT_EQ(view.LayoutsBuilt() - before, steps[step].second) << step;
    EXPECT_TRUE(redrawn == draw(whole, true)) << step;
  }
}

}  // namespace
}  // namespace qn
