#pragma once
// The conversation behind the drawer's chat: messages with their inline emphasis, the
// pending answer, the question being typed, and the scroll position. No platform code, so
// that editing and scrolling are tested natively; drawing lives in ChatView.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qn {

constexpr uint32_t kRoleQuestion = 0;
constexpr uint32_t kRoleAnswer = 1;
constexpr uint32_t kRoleNotice = 2;

constexpr uint32_t kSpanBold = 0;
constexpr uint32_t kSpanItalic = 1;
constexpr uint32_t kSpanCode = 2;

// Windows virtual-key codes of the editing keys, spelled out so that this file needs no
// Windows header.
constexpr uint32_t kKeyBackspace = 0x08;
constexpr uint32_t kKeyEnter = 0x0D;
constexpr uint32_t kKeyPageUp = 0x21;
constexpr uint32_t kKeyPageDown = 0x22;
constexpr uint32_t kKeyEnd = 0x23;
constexpr uint32_t kKeyHome = 0x24;
constexpr uint32_t kKeyLeft = 0x25;
constexpr uint32_t kKeyRight = 0x27;
constexpr uint32_t kKeyDelete = 0x2E;
constexpr uint32_t kKeyV = 0x56;

// Scroll step of Page Up and Page Down, in 96-DPI pixels like every height here.
constexpr float kPageStep = 360.0f;

inline constexpr std::wstring_view kHintText =
    L"Ask about the game you're in. Enter to send, Ctrl+C to copy the answer, Esc to close.";
inline constexpr std::wstring_view kWaitingMark = L"\u2026";
inline constexpr std::wstring_view kNoAnswerText =
    L"(no answer came back \u2014 the model may be busy or loading. Try again.)";

// The caret blinks as the player set it for every program: phases of `phase_ms` (0: it never
// blinks), and lit for good once `rest_after_ms` pass without an edit, as the system's own
// caret does. A drawer that shows nothing else new presents only when the caret flips, so
// at rest over a still game it presents nothing at all.
struct CaretBlink {
  uint64_t phase_ms = 530;
  uint64_t rest_after_ms = 5000;
};

// Lit for the first phase after each edit, so that it never hides while the player types.
constexpr bool CaretShown(uint64_t since_edit_ms, CaretBlink blink) {
  if (blink.phase_ms == 0 || since_edit_ms >= blink.rest_after_ms) return true;
  return since_edit_ms / blink.phase_ms % 2 == 0;
}

struct StyleSpan {
  uint32_t start = 0;  // UTF-16 units into the display text
  uint32_t length = 0;
  uint32_t kind = kSpanBold;

  bool operator==(const StyleSpan&) const = default;
};

struct ChatMessage {
  uint32_t role = kRoleNotice;
  std::wstring raw;
  std::wstring display;
  std::vector<StyleSpan> spans;
  // Unique per display text ever shown, so a drawing cache keyed on it can never confuse
  // an edited or replaced message with the one it cached.
  uint64_t stamp = 0;
};

// Inline emphasis of answers: **bold**, *italic* and `code`, without nesting. A marker
// without its closing partner stays in the text as typed; an empty pair just vanishes.
void ParseEmphasis(std::wstring_view raw, std::wstring& display, std::vector<StyleSpan>& spans);

class ChatModel {
 public:
  // Returns the clipboard's text for Ctrl+V; empty when there is none.
  using ClipboardReader = std::function<std::wstring()>;

  explicit ChatModel(ClipboardReader clipboard = {});

  // The greeting that explains the keys, shown once in a new conversation.
  void AddHintIfEmpty();
  void SetText(uint32_t role, std::wstring_view text);

  void BeginAnswer();
  void AppendAnswer(std::wstring_view text);
  void ClearAnswer();
  void FinishAnswer();
  bool Waiting() const { return waiting_; }
  // The raw text of the newest answer, markers included, for copying.
  std::wstring AnswerText() const;

  void SetStatusLine(std::wstring_view text);
  const std::wstring& StatusLine() const { return status_; }

  void Clear();

  // True when the key is one of the editing keys, which are then not typed as characters.
  bool HandleKey(uint32_t virtual_key, bool ctrl);
  void InsertChar(wchar_t character);
  bool TakeSubmitted(std::wstring& text);
  const std::wstring& Input() const { return input_; }
  size_t Caret() const { return caret_; }

  // Positive moves towards older text. The offset counts from the bottom of the content.
  void ScrollBy(float delta);
  // The drawing reports what it measured; a reader scrolled up keeps their place while
  // content grows below.
  void SetExtent(float content_height, float viewport_height);
  float ScrollOffset() const { return offset_; }
  bool StickToBottom() const { return offset_ <= 0.0f; }

  const std::vector<ChatMessage>& Messages() const { return messages_; }

  // Grows with every change that shows: messages, status line, input, caret, scrolling. What
  // the drawing reports back through SetExtent is not a change, since that drawing showed it.
  uint64_t Revision() const { return revision_; }
  // Grows when the input line or the caret changed, which restarts the caret's blinking.
  uint64_t InputRevision() const { return input_revision_; }

 private:
  void Changed() { ++revision_; }
  void InputChanged() {
    ++revision_;
    ++input_revision_;
  }
  bool EditKey(uint32_t virtual_key, bool ctrl);
  void Reparse(ChatMessage& message);
  void Submit();
  void Paste();
  void InsertText(std::wstring_view text);
  void EraseCharAt(size_t at);
  void ClampOffset();

  ClipboardReader clipboard_;
  std::vector<ChatMessage> messages_;
  uint64_t next_stamp_ = 1;
  bool waiting_ = false;
  bool first_piece_ = false;
  std::wstring status_;
  std::wstring input_;
  size_t caret_ = 0;
  std::wstring submitted_;
  bool has_submitted_ = false;
  float offset_ = 0.0f;
  float content_height_ = 0.0f;
  float viewport_height_ = 0.0f;
  uint64_t revision_ = 0;
  uint64_t input_revision_ = 0;
};

}  // namespace qn
