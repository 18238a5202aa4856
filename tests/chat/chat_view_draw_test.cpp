// The chat view drawn offscreen over a tinted stand-in for a game, checked by its pixels.
// Each conversation is also written as a PNG next to this program for a look by eye.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "chat/chat_view.h"
#include "chat/offscreen_target_win.h"

namespace qn {
namespace {

constexpr uint32_t kMargin = 24;  // target pixels around the view that must stay untouched
constexpr float kViewWidth = 900;
constexpr float kViewHeight = 440;

struct Rgb {
  float r, g, b;
};

struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint32_t> pixels;

  uint32_t Raw(uint32_t x, uint32_t y) const { return pixels[size_t{y} * width + x]; }
  Rgb At(uint32_t x, uint32_t y) const {
    const uint32_t v = Raw(x, y);
    return {((v >> 16) & 0xFF) / 255.0f, ((v >> 8) & 0xFF) / 255.0f, (v & 0xFF) / 255.0f};
  }
};

// Text is light grey to white; the tinted backdrop and the washes stay far darker.
bool IsText(Rgb c) { return std::min({c.r, c.g, c.b}) > 0.5f; }
bool IsTypedText(Rgb c) { return std::min({c.r, c.g, c.b}) > 0.85f; }
bool IsAccent(Rgb c) { return c.b > 0.75f && c.b - c.r > 0.2f; }

template <typename Test>
int Count(const Picture& p, float left, float top, float right, float bottom, Test test) {
  int count = 0;
  for (auto y = static_cast<uint32_t>(std::max(top, 0.0f)); y < std::min<float>(bottom, p.height);
       ++y) {
    for (auto x = static_cast<uint32_t>(std::max(left, 0.0f)); x < std::min<float>(right, p.width);
         ++x) {
      count += test(p.At(x, y)) ? 1 : 0;
    }
  }
  return count;
}

std::wstring NextToProgram(const std::wstring& name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  return folder.substr(0, folder.find_last_of(L"\\/") + 1) + name;
}

class ChatViewDraw : public testing::Test {
 protected:
  void SetUp() override { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
  void TearDown() override { CoUninitialize(); }

  // A warm-to-cool gradient under the drawer's dark tint stands in for the blurred game.
  static void DrawBackdrop(ID2D1DeviceContext* context, const D2D1_RECT_F& area) {
    const D2D1_GRADIENT_STOP stops[] = {{0, {0.95f, 0.55f, 0.2f, 1}}, {1, {0.1f, 0.55f, 0.65f, 1}}};
    ComPtr<ID2D1GradientStopCollection> collection;
    ComPtr<ID2D1LinearGradientBrush> gradient;
    ComPtr<ID2D1SolidColorBrush> tint;
    context->CreateGradientStopCollection(stops, 2, collection.put());
    context->CreateLinearGradientBrush({{area.left, area.top}, {area.right, area.bottom}},
                                       collection.get(), gradient.put());
    context->CreateSolidColorBrush({0.05f, 0.06f, 0.08f, 0.8f}, tint.put());
    context->FillRectangle(area, gradient.get());
    context->FillRectangle(area, tint.get());
  }

  // Renders the view (or only the backdrop) with its corner at (kMargin, kMargin).
  Picture Render(ChatView* view, float scale, float opacity = 1.0f,
                 float view_height = kViewHeight) {
    const auto width = static_cast<uint32_t>(std::lround(kViewWidth * scale));
    const auto height = static_cast<uint32_t>(std::lround(view_height * scale));
    test::OffscreenTarget target;
    if (!target.Create(width + 2 * kMargin, height + 2 * kMargin)) return {};
    ID2D1DeviceContext* context = target.context();
    context->BeginDraw();
    context->Clear({0.2f, 0.9f, 0.3f, 1});
    DrawBackdrop(context, {kMargin, kMargin, kMargin + width * 1.0f, kMargin + height * 1.0f});
    if (view) {
      EXPECT_TRUE(view->Init(target.dwrite()));
      view->SetSize(width, height, scale);
      context->SetTransform(D2D1::Matrix3x2F::Translation(kMargin, kMargin));
      view->Draw(context, opacity);
      context->SetTransform(D2D1::Matrix3x2F::Identity());
    }
    EXPECT_HRESULT_SUCCEEDED(context->EndDraw());
    return {target.width(), target.height(), target.ReadPixels()};
  }

  static void Save(const Picture& p, const std::wstring& name) {
    EXPECT_TRUE(test::WritePng(NextToProgram(name), p.width, p.height, p.pixels));
  }
};

void FillConversation(ChatView& view) {
  view.SetStatusLine(L"Lanternfall \u2014 Chapter 3, the Sunken Archive");
  view.AddHintIfEmpty();
  view.SetText(kRoleQuestion, L"How do I get past the flooded gate in the archive?");
  view.SetText(kRoleAnswer,
               L"You need the **tide key** first. It sits in the *reading room* upstairs, "
               L"behind the bookcase that slides when you pull the `lever` twice. Come back "
               L"down and use it on the gate's left panel; the water drains in a few seconds.");
  view.SetText(kRoleNotice, L"Noted \u2014 reached the Sunken Archive");
  view.SetText(kRoleQuestion, L"Thanks! Is there a save point after that?");
  view.BeginAnswer();
  view.AppendAnswer(L"Yes: the lantern on the stone bridge, right past the gate.");
  for (const wchar_t c : std::wstring(L"And a boss")) view.InsertChar(c);
}

// Columns of the input band holding a caret-high run of accent pixels.
std::vector<uint32_t> CaretColumns(const Picture& p, float scale) {
  const float band_top = kMargin + (kViewHeight - 60) * scale;
  const float band_bottom = kMargin + kViewHeight * scale;
  std::vector<uint32_t> columns;
  for (uint32_t x = kMargin; x < p.width - kMargin; ++x) {
    if (Count(p, x, band_top, x + 1, band_bottom, IsAccent) >= 12 * scale) columns.push_back(x);
  }
  return columns;
}

TEST_F(ChatViewDraw, ConversationReadsOverTheTint) {
  float answer_height[2] = {};
  for (const float scale : {1.0f, 1.5f}) {
    SCOPED_TRACE(scale);
    ChatView view;
    FillConversation(view);
    const Picture p = Render(&view, scale);
    ASSERT_FALSE(p.pixels.empty()) << "no Direct2D target on a Direct3D 11 texture";
    Save(p, scale == 1.0f ? L"chat_view_96dpi.png" : L"chat_view_144dpi.png");

    const uint32_t right = p.width - kMargin, bottom = p.height - kMargin;
    int touched = 0;
    for (uint32_t y = 0; y < p.height; ++y) {
      for (uint32_t x = 0; x < p.width; ++x) {
        const bool inside = x >= kMargin && x < right && y >= kMargin && y < bottom;
        touched += !inside && p.Raw(x, y) != p.Raw(0, 0) ? 1 : 0;
      }
    }
    EXPECT_EQ(touched, 0) << "pixels drawn outside the view";

    const std::vector<D2D1_RECT_F>& drawn = view.DrawnMessages();
    ASSERT_EQ(drawn.size(), view.Messages().size());
    for (size_t i = 0; i < drawn.size(); ++i) {
      SCOPED_TRACE(i);
      const D2D1_RECT_F r = drawn[i];
      ASSERT_GT(r.bottom, r.top) << "every message fits this view";
      EXPECT_GT(Count(p, kMargin + r.left, kMargin + r.top, kMargin + r.right, kMargin + r.bottom,
                      IsText),
                20);
      if (i + 1 < drawn.size()) {
        const float gap = kMargin + (r.bottom + drawn[i + 1].top) / 2;
        EXPECT_EQ(Count(p, kMargin, gap, right, gap + 1, IsText), 0) << "text between messages";
      }
      const float left_of_bubble = kMargin + r.left;
      if (view.Messages()[i].role == kRoleQuestion) {
        EXPECT_GT(r.left, kViewWidth * scale / 4) << "questions sit on the right";
        EXPECT_EQ(Count(p, kMargin, kMargin + r.top, left_of_bubble, kMargin + r.bottom, IsText),
                  0);
      }
    }
    EXPECT_EQ(CaretColumns(p, scale).size(), static_cast<size_t>(std::lround(2 * scale)));
    answer_height[scale == 1.0f ? 0 : 1] = drawn[2].bottom - drawn[2].top;
  }
  // Text grows with the DPI rather than staying at its 96-DPI size.
  EXPECT_NEAR(answer_height[1] / answer_height[0], 1.5f, 0.15f);
}

TEST_F(ChatViewDraw, CaretFollowsTheInputAndThePlaceholderShowsWhenEmpty) {
  ChatView view;
  const float band_top = kMargin + (kViewHeight - 60);
  const float band_bottom = kMargin + kViewHeight;
  Picture p = Render(&view, 1.0f);
  Save(p, L"chat_view_empty.png");
  EXPECT_EQ(Count(p, 0, band_top, p.width, band_bottom, IsTypedText), 0);
  EXPECT_GT(Count(p, 0, band_top, p.width, band_bottom, IsText), 20) << "placeholder";
  const std::vector<uint32_t> at_empty = CaretColumns(p, 1.0f);

  for (const wchar_t c : std::wstring(L"where is it")) view.InsertChar(c);
  p = Render(&view, 1.0f);
  const std::vector<uint32_t> at_end = CaretColumns(p, 1.0f);
  view.HandleKey(kKeyHome, false);
  const Picture home = Render(&view, 1.0f);
  const std::vector<uint32_t> at_home = CaretColumns(home, 1.0f);
  ASSERT_EQ(at_end.size(), 2u);
  ASSERT_EQ(at_home.size(), 2u);
  EXPECT_EQ(at_home, at_empty);
  EXPECT_GT(at_end[0], at_home[1] + 40);
  // Typed text lies between the two caret positions.
  EXPECT_GT(Count(p, at_home[1], band_top, at_end[0], band_bottom, IsTypedText), 30);
  EXPECT_EQ(Count(p, at_end[1] + 2, band_top, p.width, band_bottom, IsTypedText), 0);
  EXPECT_EQ(Count(home, 0, band_top, at_home[0], band_bottom, IsTypedText), 0);
}

TEST_F(ChatViewDraw, LongConversationScrollsByPages) {
  ChatView view;
  for (int i = 0; i < 20; ++i) {
    view.SetText(kRoleQuestion, L"Question " + std::to_wstring(i));
    view.SetText(kRoleAnswer, L"Answer number " + std::to_wstring(i) + L", with a few words.");
  }
  Render(&view, 1.0f, 1.0f, 700);
  const std::vector<D2D1_RECT_F> bottom = view.DrawnMessages();
  EXPECT_EQ(bottom.front().bottom, bottom.front().top) << "the oldest is out of sight";
  ASSERT_GT(bottom.back().bottom, bottom.back().top);
  const auto first_seen = std::find_if(bottom.begin(), bottom.end(),
                                       [](const D2D1_RECT_F& r) { return r.bottom > r.top; });

  view.HandleKey(kKeyPageUp, false);
  Save(Render(&view, 1.0f, 1.0f, 700), L"chat_view_scrolled.png");
  const D2D1_RECT_F& moved = view.DrawnMessages()[first_seen - bottom.begin()];
  EXPECT_NEAR(moved.top - first_seen->top, 360.0f, 0.5f);
  EXPECT_EQ(view.DrawnMessages().back().bottom, view.DrawnMessages().back().top);
  EXPECT_FALSE(view.StickToBottom());
}

TEST_F(ChatViewDraw, ZeroOpacityLeavesTheBackdropAlone) {
  ChatView view;
  FillConversation(view);
  const Picture backdrop = Render(nullptr, 1.0f);
  const Picture faded = Render(&view, 1.0f, 0.0f);
  ASSERT_FALSE(backdrop.pixels.empty());
  EXPECT_TRUE(faded.pixels == backdrop.pixels);
}

}  // namespace
}  // namespace qn
