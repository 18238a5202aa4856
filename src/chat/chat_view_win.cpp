#include "chat/chat_view.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "core/log.h"

namespace qn {
namespace {

// Light text on the drawer's dark tint.
constexpr D2D1_COLOR_F kAnswerText = {0.92f, 0.93f, 0.95f, 1.0f};
constexpr D2D1_COLOR_F kAccent = {0.63f, 0.78f, 1.0f, 1.0f};
constexpr D2D1_COLOR_F kNoticeText = {0.65f, 0.66f, 0.70f, 1.0f};
constexpr D2D1_COLOR_F kPlayerText = {0.95f, 0.96f, 0.98f, 1.0f};
constexpr D2D1_COLOR_F kWash = {1.0f, 1.0f, 1.0f, 0.1f};
constexpr D2D1_COLOR_F kMuted = {0.6f, 0.62f, 0.66f, 1.0f};

constexpr wchar_t kPlaceholder[] = L"Ask a question";
constexpr float kFontSize = 15.0f;
constexpr float kSmallFontSize = 13.0f;

// Geometry in 96-DPI pixels.
constexpr float kSideMargin = 18.0f;
constexpr float kColumnMaxWidth = 820.0f;  // a readable line length on wide drawers
constexpr float kStatusTop = 10.0f;
constexpr float kRuleTop = 36.0f;
constexpr float kInputHeight = 40.0f;
constexpr float kInputBottomMargin = 14.0f;
constexpr float kInputGap = 10.0f;
constexpr float kInputPadding = 14.0f;
constexpr float kInputRadius = 10.0f;
constexpr float kListPadding = 10.0f;
constexpr float kMessageGap = 12.0f;
constexpr float kTurnGap = 22.0f;     // before a question, so each exchange reads as a group
constexpr float kLineHeight = 21.0f;  // airy enough to read over a busy game
constexpr float kBaseline = 16.0f;
constexpr float kSmallLineHeight = 18.0f;
constexpr float kSmallBaseline = 14.0f;
constexpr float kBubblePadX = 12.0f;
constexpr float kBubblePadY = 8.0f;
constexpr float kBubbleRadius = 12.0f;
constexpr float kBubbleShare = 0.78f;  // of the column a question may take
constexpr float kAnswerIndent = 16.0f;
constexpr float kAnswerDotRadius = 3.0f;
constexpr float kCaretWidth = 2.0f;
constexpr float kScrollbarWidth = 3.0f;
constexpr float kUnbounded = 1.0e6f;
constexpr float kGlyphSlack = 4.0f;

D2D1_RECT_F Rect(float left, float top, float right, float bottom) {
  return {left, top, right, bottom};
}

bool Overlap(const D2D1_RECT_F& a, const D2D1_RECT_F& b) {
  return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

D2D1_RECT_F Union(const D2D1_RECT_F& a, const D2D1_RECT_F& b) {
  if (a.right <= a.left || a.bottom <= a.top) return b;
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
          std::max(a.bottom, b.bottom)};
}

D2D1_RECT_F Scaled(const D2D1_RECT_F& r, float scale) {
  return {r.left * scale, r.top * scale, r.right * scale, r.bottom * scale};
}

}  // namespace

struct ChatView::Frame {
  ID2D1DeviceContext* context = nullptr;
  ID2D1SolidColorBrush* brush = nullptr;
  float width = 0;
  float height = 0;
  D2D1_RECT_F column = {};  // status line, messages and input share it
  D2D1_RECT_F list = {};
  D2D1_RECT_F input = {};
  // While a layer is drawn in part: the area redrawn; what lies outside keeps its drawing.
  std::optional<D2D1_RECT_F> redraw;
};

bool ChatView::Init(IDWriteFactory* factory) {
  layouts_.clear();
  settled_ = {};
  layer_ = {};
  input_line_ = {};
  status_line_ = {};
  placeholder_line_ = {};
  caret_line_ = {};
  if (!factory || FAILED(factory->QueryInterface(IID_PPV_ARGS(factory_.put())))) return false;
  body_family_ = InstalledFamily(factory, L"Segoe UI", false, L"Segoe UI");
  code_family_ = InstalledFamily(factory, L"Consolas", true, body_family_);
  if (!CreateFormat(body_format_) || !CreateFormat(line_format_)) return false;
  line_format_->SetWordWrapping(DWRITE_WORD_WRAPPING_NO_WRAP);
  body_format_->SetLineSpacing(DWRITE_LINE_SPACING_METHOD_UNIFORM, kLineHeight, kBaseline);
  model_.AddHintIfEmpty();
  return true;
}

// The user's locale steers DirectWrite's fallback for scripts the family lacks.
bool ChatView::CreateFormat(ComPtr<IDWriteTextFormat>& format) {
  wchar_t locale[LOCALE_NAME_MAX_LENGTH] = L"en-us";
  GetUserDefaultLocaleName(locale, LOCALE_NAME_MAX_LENGTH);
  const HRESULT hr = factory_->CreateTextFormat(
      body_family_.c_str(), nullptr, DWRITE_FONT_WEIGHT_NORMAL, DWRITE_FONT_STYLE_NORMAL,
      DWRITE_FONT_STRETCH_NORMAL, kFontSize, locale, format.put());
  return CheckHr(hr, L"CreateTextFormat", kLogError);
}

void ChatView::SetSize(uint32_t width, uint32_t height, float scale) {
  width_ = width;
  height_ = height;
  scale_ = scale > 0 ? scale : 1.0f;
}

void ChatView::Draw(ID2D1DeviceContext* context, float opacity) {
  DrawParts(context, opacity, false, true);
}

void ChatView::DrawLayer(ID2D1DeviceContext* context, bool whole) {
  DrawParts(context, 1.0f, true, whole);
}

void ChatView::DrawParts(ID2D1DeviceContext* context, float opacity, bool layer, bool whole) {
  if (!context || !body_format_ || width_ == 0 || height_ == 0) return;
  ComPtr<ID2D1SolidColorBrush> brush;
  const HRESULT hr = context->CreateSolidColorBrush(kAnswerText, brush.put());
  if (!failures_.Check(hr, L"CreateSolidColorBrush")) return;
  brush->SetOpacity(std::clamp(opacity, 0.0f, 1.0f));
  Frame frame = MakeFrame(context, brush.get());
  const float content = MeasureContent(frame.column.right - frame.column.left);
  model_.SetExtent(content, frame.list.bottom - frame.list.top);
  const LayerShows shows = Shows(content);
  if (layer && !whole) frame.redraw = Damage(frame, shows);
  if (layer) layer_ = shows;
  const std::optional<D2D1_RECT_F>& redraw = frame.redraw;
  if (redraw && (redraw->right <= redraw->left || redraw->bottom <= redraw->top)) return;

  D2D1_MATRIX_3X2_F caller;
  context->GetTransform(&caller);
  const D2D1_TEXT_ANTIALIAS_MODE caller_antialias = context->GetTextAntialiasMode();
  context->SetTransform(D2D1::Matrix3x2F::Scale(scale_, scale_) * caller);
  // The target carries alpha for composition, where ClearType cannot blend.
  context->SetTextAntialiasMode(D2D1_TEXT_ANTIALIAS_MODE_GRAYSCALE);
  context->PushAxisAlignedClip(redraw.value_or(Rect(0, 0, frame.width, frame.height)),
                               D2D1_ANTIALIAS_MODE_ALIASED);
  if (layer) context->Clear(D2D1::ColorF(0, 0.0f));
  if (!redraw) DrawStatus(frame);
  DrawMessages(frame, content);
  if (!redraw || Overlap(*redraw, frame.input)) DrawInput(frame);
  context->PopAxisAlignedClip();
  context->SetTextAntialiasMode(caller_antialias);
  context->SetTransform(caller);
}

ChatView::LayerShows ChatView::Shows(float content) const {
  const std::vector<ChatMessage>& messages = model_.Messages();
  return {true,
          width_,
          height_,
          scale_,
          model_.ScrollOffset(),
          content,
          messages.size(),
          messages.empty() ? 0 : messages.back().stamp,
          model_.StatusLine(),
          model_.Input(),
          model_.Caret(),
          caret_shown_};
}

// Empty when nothing changed; none at all when everything may have moved. Only the newest
// message changes in place, so while the content keeps its height and scroll, nothing else
// in the list moves.
std::optional<D2D1_RECT_F> ChatView::Damage(const Frame& frame, const LayerShows& now) const {
  const LayerShows& was = layer_;
  if (!was.valid || was.width != now.width || was.height != now.height || was.scale != now.scale ||
      was.offset != now.offset || was.content != now.content || was.count != now.count ||
      was.status != now.status) {
    return std::nullopt;
  }
  D2D1_RECT_F area = {};
  const D2D1_RECT_F newest = drawn_.empty() ? D2D1_RECT_F{} : drawn_.back();
  if (now.newest != was.newest && newest.bottom > newest.top) {
    // Glyphs may reach a little past their layout; the gaps around a message are wider.
    area = Rect(frame.column.left - kGlyphSlack, newest.top / scale_ - kGlyphSlack,
                frame.column.right + kGlyphSlack, newest.bottom / scale_ + kGlyphSlack);
  }
  if (now.input != was.input || now.caret != was.caret || now.caret_shown != was.caret_shown) {
    area = Union(area, frame.input);
  }
  return area;
}

ChatView::Frame ChatView::MakeFrame(ID2D1DeviceContext* context,
                                    ID2D1SolidColorBrush* brush) const {
  Frame f;
  f.context = context;
  f.brush = brush;
  f.width = static_cast<float>(width_) / scale_;
  f.height = static_cast<float>(height_) / scale_;
  const float column_width = std::clamp(f.width - 2 * kSideMargin, 1.0f, kColumnMaxWidth);
  const float left = (f.width - column_width) / 2;
  f.column = Rect(left, 0, left + column_width, f.height);
  const float input_bottom = f.height - kInputBottomMargin;
  f.input = Rect(left, input_bottom - kInputHeight, f.column.right, input_bottom);
  f.list =
      Rect(left, kRuleTop + 1, f.column.right, std::max(f.input.top - kInputGap, kRuleTop + 1));
  return f;
}

void ChatView::Fill(const Frame& frame, const D2D1_ROUNDED_RECT& shape, const D2D1_COLOR_F& color) {
  frame.brush->SetColor(color);
  frame.context->FillRoundedRectangle(shape, frame.brush);
}

// Pixel-aligned in the target, so thin lines stay sharp at any scale.
float ChatView::Snap(float dip) const { return std::round(dip * scale_) / scale_; }

void ChatView::PaintText(const Frame& frame, IDWriteTextLayout* layout, float x, float y,
                         const D2D1_COLOR_F& color) {
  frame.brush->SetColor(color);
  frame.context->DrawTextLayout(D2D1::Point2F(x, y), layout, frame.brush,
                                D2D1_DRAW_TEXT_OPTIONS_ENABLE_COLOR_FONT);
}

void ChatView::DrawStatus(const Frame& frame) {
  const float rule = Snap(kRuleTop);
  Fill(frame, {Rect(frame.column.left, rule, frame.column.right, rule + 1 / scale_), 0, 0}, kWash);
  if (model_.StatusLine().empty()) return;
  const float width = frame.column.right - frame.column.left;
  if (IDWriteTextLayout* line = LineFor(status_line_, model_.StatusLine(), width, true)) {
    PaintText(frame, line, frame.column.left, kStatusTop, kMuted);
  }
}

IDWriteTextLayout* ChatView::LineFor(LineLayout& line, std::wstring_view text, float max_width,
                                     bool secondary) {
  if (line.layout && line.text == text && line.max_width == max_width) return line.layout.get();
  line.text = text;
  line.max_width = max_width;
  const HRESULT hr =
      factory_->CreateTextLayout(text.data(), static_cast<UINT32>(text.size()), line_format_.get(),
                                 max_width, kUnbounded, line.layout.put());
  if (!failures_.Check(hr, L"CreateTextLayout")) return nullptr;
  if (secondary) MakeSecondary(line.layout.get(), static_cast<uint32_t>(text.size()));
  return line.layout.get();
}

// The status line is secondary: smaller, and cut with an ellipsis rather than wrapped.
void ChatView::MakeSecondary(IDWriteTextLayout* layout, uint32_t length) {
  layout->SetFontSize(kSmallFontSize, {0, length});
  ComPtr<IDWriteInlineObject> ellipsis;
  const HRESULT hr = factory_->CreateEllipsisTrimmingSign(layout, ellipsis.put());
  if (!failures_.Check(hr, L"CreateEllipsisTrimmingSign")) return;
  const DWRITE_TRIMMING trimming = {DWRITE_TRIMMING_GRANULARITY_CHARACTER, 0, 0};
  layout->SetTrimming(&trimming, ellipsis.get());
}

ChatView::CachedLayout* ChatView::LayoutFor(size_t index, float column_width) {
  const ChatMessage& message = model_.Messages()[index];
  CachedLayout& cache = layouts_[index];
  if (cache.layout && cache.stamp == message.stamp && cache.column_width == column_width) {
    return &cache;
  }
  return BuildLayout(message, column_width, cache) ? &cache : nullptr;
}

bool ChatView::BuildLayout(const ChatMessage& message, float column_width, CachedLayout& cache) {
  float text_width = column_width;
  if (message.role == kRoleQuestion) text_width = column_width * kBubbleShare - 2 * kBubblePadX;
  if (message.role == kRoleAnswer) text_width = column_width - kAnswerIndent;
  const HRESULT hr = factory_->CreateTextLayout(
      message.display.c_str(), static_cast<UINT32>(message.display.size()), body_format_.get(),
      std::max(text_width, 1.0f), kUnbounded, cache.layout.put());
  if (!failures_.Check(hr, L"CreateTextLayout")) return false;
  ++layouts_built_;
  StyleLayout(message, cache.layout.get());
  if (!Measure(cache.layout.get(), cache.metrics)) {
    cache.layout.reset();
    return false;
  }
  cache.code_boxes = CodeBoxes(message, cache.layout.get());
  cache.stamp = message.stamp;
  cache.column_width = column_width;
  cache.box = {column_width, cache.metrics.height};
  if (message.role == kRoleQuestion) {
    cache.box = {cache.metrics.width + 2 * kBubblePadX, cache.metrics.height + 2 * kBubblePadY};
  }
  return true;
}

void ChatView::StyleLayout(const ChatMessage& message, IDWriteTextLayout* layout) const {
  if (message.role == kRoleNotice) {
    layout->SetFontSize(kSmallFontSize, {0, static_cast<UINT32>(message.display.size())});
    layout->SetTextAlignment(DWRITE_TEXT_ALIGNMENT_CENTER);
    layout->SetLineSpacing(DWRITE_LINE_SPACING_METHOD_UNIFORM, kSmallLineHeight, kSmallBaseline);
  }
  for (const StyleSpan& span : message.spans) {
    const DWRITE_TEXT_RANGE range = {span.start, span.length};
    if (span.kind == kSpanBold) layout->SetFontWeight(DWRITE_FONT_WEIGHT_SEMI_BOLD, range);
    if (span.kind == kSpanItalic) layout->SetFontStyle(DWRITE_FONT_STYLE_ITALIC, range);
    if (span.kind == kSpanCode) layout->SetFontFamilyName(code_family_.c_str(), range);
  }
}

// Code reads as a chip: a faint rounded box behind each line piece of the span.
std::vector<D2D1_RECT_F> ChatView::CodeBoxes(const ChatMessage& message,
                                             IDWriteTextLayout* layout) {
  std::vector<D2D1_RECT_F> boxes;
  std::vector<DWRITE_HIT_TEST_METRICS> hits;
  for (const StyleSpan& span : message.spans) {
    if (span.kind != kSpanCode) continue;
    UINT32 count = 0;
    layout->HitTestTextRange(span.start, span.length, 0, 0, nullptr, 0, &count);
    hits.resize(count);
    const HRESULT hr =
        layout->HitTestTextRange(span.start, span.length, 0, 0, hits.data(), count, &count);
    if (!failures_.Check(hr, L"HitTestTextRange")) break;
    for (const DWRITE_HIT_TEST_METRICS& hit : hits) {
      boxes.push_back(
          Rect(hit.left - 3, hit.top + 1, hit.left + hit.width + 3, hit.top + hit.height - 1));
    }
  }
  return boxes;
}

// Only the newest message changes in place (the answer being streamed), so a token costs
// the layout of that one message rather than a walk over the conversation.
float ChatView::MeasureContent(float column_width) {
  const size_t count = model_.Messages().size();
  layouts_.resize(count);
  if (count == 0) return 2 * kListPadding;
  SettleBefore(count - 1, column_width);
  const CachedLayout* newest = LayoutFor(count - 1, column_width);
  return 2 * kListPadding + settled_.height + GapBefore(count - 1) +
         (newest ? newest->box.height : 0);
}

// The total is kept while the messages it covers are the same ones: the model only ever
// appends, changes or removes its newest, or clears them all, and stamps are never reused.
void ChatView::SettleBefore(size_t count, float column_width) {
  const std::vector<ChatMessage>& messages = model_.Messages();
  const bool intact =
      settled_.column_width == column_width && settled_.count <= count &&
      (settled_.count == 0 || messages[settled_.count - 1].stamp == settled_.last_stamp);
  if (!intact) settled_ = {0, 0, column_width, 0};
  for (size_t i = settled_.count; i < count; ++i) {
    const CachedLayout* cache = LayoutFor(i, column_width);
    settled_.height += GapBefore(i) + (cache ? cache->box.height : 0);
  }
  settled_.count = count;
  settled_.last_stamp = count > 0 ? messages[count - 1].stamp : 0;
}

float ChatView::GapBefore(size_t index) const {
  if (index == 0) return 0;
  return model_.Messages()[index].role == kRoleQuestion ? kTurnGap : kMessageGap;
}

void ChatView::DrawMessages(const Frame& frame, float content) {
  const float viewport = frame.list.bottom - frame.list.top;
  // A layer drawn in part keeps the rest of its drawing, and where it lies.
  if (!frame.redraw) drawn_.assign(layouts_.size(), D2D1_RECT_F{});
  frame.context->PushAxisAlignedClip(frame.list, D2D1_ANTIALIAS_MODE_ALIASED);
  // From the newest upwards, as far as the top of the list: what lies above is not walked.
  float bottom = frame.list.bottom + model_.ScrollOffset() - kListPadding;
  for (size_t i = layouts_.size(); i-- > 0 && bottom > frame.list.top;) {
    const CachedLayout& cache = layouts_[i];
    const float top = bottom - (cache.layout ? cache.box.height : 0);
    const bool redrawn = !frame.redraw || Overlap(*frame.redraw, Rect(frame.column.left, top,
                                                                      frame.column.right, bottom));
    if (cache.layout && top < frame.list.bottom && redrawn) {
      drawn_[i] = Scaled(DrawMessage(frame, cache, model_.Messages()[i].role, top), scale_);
    }
    bottom = top - GapBefore(i);
  }
  frame.context->PopAxisAlignedClip();
  if (!frame.redraw) DrawScrollbar(frame, content, viewport);
}

// Questions sit in bubbles on the right, answers run as plain text after an accent dot,
// and notices are small, dim and centred, so each kind reads at a glance.
D2D1_RECT_F ChatView::DrawMessage(const Frame& frame, const CachedLayout& cache, uint32_t role,
                                  float top) {
  const D2D1_RECT_F& column = frame.column;
  if (role == kRoleQuestion) {
    const D2D1_RECT_F box =
        Rect(column.right - cache.box.width, top, column.right, top + cache.box.height);
    Fill(frame, {box, kBubbleRadius, kBubbleRadius}, kWash);
    PaintText(frame, cache.layout.get(), box.left + kBubblePadX, top + kBubblePadY, kPlayerText);
    return box;
  }
  if (role != kRoleAnswer) {
    PaintText(frame, cache.layout.get(), column.left, top, kNoticeText);
    return Rect(column.left, top, column.right, top + cache.box.height);
  }
  const float text_left = column.left + kAnswerIndent;
  const float first_line = cache.metrics.height / std::max(cache.metrics.lineCount, 1u);
  const D2D1_ELLIPSE dot = {{column.left + kAnswerDotRadius + 1, top + first_line / 2},
                            kAnswerDotRadius,
                            kAnswerDotRadius};
  frame.brush->SetColor(kAccent);
  frame.context->FillEllipse(dot, frame.brush);
  for (const D2D1_RECT_F& code : cache.code_boxes) {
    const D2D1_RECT_F box =
        Rect(text_left + code.left, top + code.top, text_left + code.right, top + code.bottom);
    Fill(frame, {box, 4, 4}, kWash);
  }
  PaintText(frame, cache.layout.get(), text_left, top, kAnswerText);
  return Rect(column.left, top, column.right, top + cache.box.height);
}

void ChatView::DrawScrollbar(const Frame& frame, float content, float viewport) {
  if (content <= viewport || viewport <= 0) return;
  const float thumb = std::max(viewport * viewport / content, 24.0f);
  const float travel = viewport - thumb;
  const float from_top = (content - viewport - model_.ScrollOffset()) / (content - viewport);
  const float top = frame.list.top + travel * from_top;
  const float left = std::min(frame.column.right + 7, frame.width - kScrollbarWidth - 2);
  const float radius = kScrollbarWidth / 2;
  Fill(frame, {Rect(left, top, left + kScrollbarWidth, top + thumb), radius, radius}, kWash);
}

void ChatView::DrawInput(const Frame& frame) {
  Fill(frame, {frame.input, kInputRadius, kInputRadius}, kWash);
  const float text_left = frame.input.left + kInputPadding;
  const float text_width = std::max(frame.input.right - kInputPadding - text_left, 1.0f);
  const bool empty = model_.Input().empty();
  IDWriteTextLayout* line = empty ? LineFor(placeholder_line_, kPlaceholder, kUnbounded, false)
                                  : LineFor(input_line_, model_.Input(), kUnbounded, false);
  if (!line) return;
  DWRITE_TEXT_METRICS metrics;
  if (!Measure(line, metrics)) return;
  const float top = frame.input.top + (kInputHeight - metrics.height) / 2;
  const float caret_x = CaretOffset();
  // A line longer than the box slides left so that the caret stays in sight.
  const float shift = std::max(caret_x - text_width, 0.0f);
  frame.context->PushAxisAlignedClip(Rect(text_left - 1, frame.input.top,
                                          text_left + text_width + kCaretWidth, frame.input.bottom),
                                     D2D1_ANTIALIAS_MODE_ALIASED);
  PaintText(frame, line, text_left - shift, top, empty ? kMuted : kPlayerText);
  // Centred on the gap between characters, so it never covers a stem.
  const float caret = Snap(text_left + caret_x - shift - kCaretWidth / 2);
  if (caret_shown_) {
    Fill(frame, {Rect(caret, top, caret + Snap(kCaretWidth), top + metrics.height), 0, 0}, kAccent);
  }
  frame.context->PopAxisAlignedClip();
}

// The width of the text before the caret: the same on every DirectWrite, hit testing or not.
float ChatView::CaretOffset() {
  if (model_.Caret() == 0) return 0;
  const std::wstring_view before = std::wstring_view(model_.Input()).substr(0, model_.Caret());
  IDWriteTextLayout* line = LineFor(caret_line_, before, kUnbounded, false);
  DWRITE_TEXT_METRICS metrics;
  return line && Measure(line, metrics) ? metrics.widthIncludingTrailingWhitespace : 0;
}

bool ChatView::Measure(IDWriteTextLayout* layout, DWRITE_TEXT_METRICS& metrics) {
  return failures_.Check(layout->GetMetrics(&metrics), L"GetMetrics");
}

}  // namespace qn
