#pragma once
// The chat drawn in the drawer: DirectWrite text and Direct2D drawing of a conversation
// model that lives elsewhere, since the conversation outlasts the drawer's graphics. Everything is
// laid out in 96-DPI pixels and drawn through a scale transform, so the same layout serves every
// DPI and the model's heights stay DPI-free.
#include <d2d1_1.h>
#include <dwrite.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "chat/chat_model.h"
#include "core/failure_log.h"
#include "core/handles.h"

namespace qn {

// The clipboard's Unicode text for Ctrl+V, cut at the first null; empty when there is none.
std::wstring ReadClipboardText();

// The player's caret blink time and time-out; the defaults where the system has none.
CaretBlink SystemCaretBlink();

// `wanted` when it is installed, else the first installed family that fits (monospaced when
// asked), else `fallback`.
std::wstring InstalledFamily(IDWriteFactory* factory, const wchar_t* wanted, bool monospaced,
                             const std::wstring& fallback);

class ChatView {
 public:
  // The model must outlive the view. Drawing tells it how tall the content came out, which
  // is what its scrolling is clamped to.
  explicit ChatView(ChatModel& model) : model_(model) {}

  // Called again whenever the drawer's graphics are recreated; the conversation stays, and
  // an empty one is greeted.
  bool Init(IDWriteFactory* factory);
  void SetSize(uint32_t width, uint32_t height, float scale);
  // The caret's blink phase for the next Draw.
  void SetCaretShown(bool shown) { caret_shown_ = shown; }
  // Draws into (0, 0)-(width, height) under the context's current transform, touching
  // nothing outside it.
  void Draw(ID2D1DeviceContext* context, float opacity);
  // Draws into a transparent layer of its own that still holds what the last DrawLayer drew:
  // only what changed since (the answer being streamed, the input line) is cleared and drawn
  // again, unless `whole` says the layer is new.
  void DrawLayer(ID2D1DeviceContext* context, bool whole);

  // Where each message landed in the last Draw, in target pixels before the caller's
  // transform; empty for messages scrolled out of sight.
  const std::vector<D2D1_RECT_F>& DrawnMessages() const { return drawn_; }
  // How many message layouts have been built, to show that a token lays out one message.
  uint64_t LayoutsBuilt() const { return layouts_built_; }

 private:
  struct CachedLayout {
    uint64_t stamp = 0;
    float column_width = 0;
    ComPtr<IDWriteTextLayout> layout;
    DWRITE_TEXT_METRICS metrics = {};
    D2D1_SIZE_F box = {};                 // what the message takes, bubble included
    std::vector<D2D1_RECT_F> code_boxes;  // behind code spans, relative to the layout
  };
  struct LineLayout {
    std::wstring text;
    float max_width = 0;
    ComPtr<IDWriteTextLayout> layout;
  };
  struct Frame;
  // What a layer drawn by DrawLayer shows, to tell what the next one has to redraw.
  struct LayerShows {
    bool valid = false;
    uint32_t width = 0, height = 0;
    float scale = 0, offset = 0, content = 0;
    size_t count = 0;
    uint64_t newest = 0;
    std::wstring status, input;
    size_t caret = 0;
    bool caret_shown = true;
  };

  void DrawParts(ID2D1DeviceContext* context, float opacity, bool layer, bool whole);
  LayerShows Shows(float content) const;
  std::optional<D2D1_RECT_F> Damage(const Frame& frame, const LayerShows& now) const;

  bool CreateFormat(ComPtr<IDWriteTextFormat>& format);
  Frame MakeFrame(ID2D1DeviceContext* context, ID2D1SolidColorBrush* brush) const;
  float Snap(float dip) const;

  CachedLayout* LayoutFor(size_t index, float column_width);
  bool BuildLayout(const ChatMessage& message, float column_width, CachedLayout& cache);
  void StyleLayout(const ChatMessage& message, IDWriteTextLayout* layout) const;
  std::vector<D2D1_RECT_F> CodeBoxes(const ChatMessage& message, IDWriteTextLayout* layout);
  IDWriteTextLayout* LineFor(LineLayout& line, std::wstring_view text, float max_width,
                             bool secondary);
  void MakeSecondary(IDWriteTextLayout* layout, uint32_t length);
  float MeasureContent(float column_width);
  void SettleBefore(size_t count, float column_width);
  float GapBefore(size_t index) const;

  static void Fill(const Frame& frame, const D2D1_ROUNDED_RECT& shape, const D2D1_COLOR_F& color);
  static void PaintText(const Frame& frame, IDWriteTextLayout* layout, float x, float y,
                        const D2D1_COLOR_F& color);
  void DrawStatus(const Frame& frame);
  void DrawMessages(const Frame& frame, float content);
  static D2D1_RECT_F DrawMessage(const Frame& frame, const CachedLayout& cache, uint32_t role,
                                 float top);
  void DrawScrollbar(const Frame& frame, float content, float viewport);
  void DrawInput(const Frame& frame);
  float CaretOffset();
  bool Measure(IDWriteTextLayout* layout, DWRITE_TEXT_METRICS& metrics);

  ChatModel& model_;
  ComPtr<IDWriteFactory> factory_;
  std::wstring body_family_;
  std::wstring code_family_;
  ComPtr<IDWriteTextFormat> body_format_;
  ComPtr<IDWriteTextFormat> line_format_;
  std::vector<CachedLayout> layouts_;
  // The height of the messages before the newest, which no longer change in place.
  struct Settled {
    size_t count = 0;
    uint64_t last_stamp = 0;
    float column_width = 0;
    float height = 0;
  } settled_;
  LineLayout input_line_;
  LineLayout status_line_;
  LineLayout placeholder_line_;
  LineLayout caret_line_;  // the input up to the caret, to place the caret
  std::vector<D2D1_RECT_F> drawn_;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  float scale_ = 1.0f;
  bool caret_shown_ = true;
  LayerShows layer_;
  uint64_t layouts_built_ = 0;
  RepeatedFailures failures_;  // drawing runs every frame, so a failing call is logged once
};

}  // namespace qn
