#include "chat/chat_model.h"

#include <algorithm>
#include <utility>

namespace qn {
namespace {

constexpr std::wstring_view kMarkers = L"*`";

struct Marker {
  std::wstring_view text;
  uint32_t kind;
};

Marker MarkerAt(std::wstring_view raw, size_t at) {
  if (raw.substr(at, 2) == L"**") return {L"**", kSpanBold};
  if (raw[at] == L'*') return {L"*", kSpanItalic};
  return {L"`", kSpanCode};
}

// Handles the marker at `at` and returns where scanning goes on.
size_t EmphasizeAt(std::wstring_view raw, size_t at, std::wstring& display,
                   std::vector<StyleSpan>& spans) {
  const Marker marker = MarkerAt(raw, at);
  const size_t inner = at + marker.text.size();
  const size_t close = raw.find(marker.text, inner);
  if (close == std::wstring_view::npos) {
    display.append(marker.text);
    return inner;
  }
  if (close > inner) {
    spans.push_back(
        {static_cast<uint32_t>(display.size()), static_cast<uint32_t>(close - inner), marker.kind});
    display.append(raw.substr(inner, close - inner));
  }
  return close + marker.text.size();
}

bool IsHighSurrogate(wchar_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(wchar_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Caret steps go over a surrogate pair as one character, so editing never splits one.
size_t PreviousBoundary(const std::wstring& text, size_t at) {
  if (at == 0) return 0;
  --at;
  if (at > 0 && IsLowSurrogate(text[at]) && IsHighSurrogate(text[at - 1])) --at;
  return at;
}

size_t NextBoundary(const std::wstring& text, size_t at) {
  if (at >= text.size()) return text.size();
  ++at;
  if (at < text.size() && IsLowSurrogate(text[at]) && IsHighSurrogate(text[at - 1])) ++at;
  return at;
}

}  // namespace

void ParseEmphasis(std::wstring_view raw, std::wstring& display, std::vector<StyleSpan>& spans) {
  display.clear();
  spans.clear();
  display.reserve(raw.size());
  size_t at = 0;
  while (at < raw.size()) {
    const size_t marker = raw.find_first_of(kMarkers, at);
    display.append(raw.substr(at, marker - at));
    if (marker == std::wstring_view::npos) break;
    at = EmphasizeAt(raw, marker, display, spans);
  }
}

ChatModel::ChatModel(ClipboardReader clipboard) : clipboard_(std::move(clipboard)) {}

void ChatModel::AddHintIfEmpty() {
  if (messages_.empty()) SetText(kRoleNotice, kHintText);
}

void ChatModel::SetText(uint32_t role, std::wstring_view text) {
  ChatMessage& message = messages_.emplace_back();
  message.role = role;
  message.raw = text;
  Reparse(message);
  offset_ = 0.0f;
}

// Only answers carry emphasis: the player's own asterisks and the notices stay as written.
void ChatModel::Reparse(ChatMessage& message) {
  if (message.role == kRoleAnswer) {
    ParseEmphasis(message.raw, message.display, message.spans);
  } else {
    message.display = message.raw;
    message.spans.clear();
  }
  message.stamp = next_stamp_++;
  Changed();
}

void ChatModel::BeginAnswer() {
  SetText(kRoleAnswer, kWaitingMark);
  waiting_ = true;
  first_piece_ = true;
}

// Deliberately blind to the last message's role: a notice that lands mid-answer takes the
// rest of the stream rather than dropping it.
void ChatModel::AppendAnswer(std::wstring_view text) {
  if (!waiting_ || messages_.empty()) return;
  ChatMessage& message = messages_.back();
  if (std::exchange(first_piece_, false)) {
    message.raw = text;
  } else {
    message.raw.append(text);
  }
  Reparse(message);
}

void ChatModel::ClearAnswer() {
  if (!waiting_) return;
  waiting_ = false;
  if (!messages_.empty() && messages_.back().role == kRoleAnswer) messages_.pop_back();
  offset_ = 0.0f;
  Changed();
}

void ChatModel::FinishAnswer() {
  waiting_ = false;
  first_piece_ = false;
  if (messages_.empty()) return;
  ChatMessage& message = messages_.back();
  if (message.role != kRoleAnswer || message.raw != kWaitingMark) return;
  message.raw = kNoAnswerText;
  Reparse(message);
}

std::wstring ChatModel::AnswerText() const {
  const auto answer = std::find_if(messages_.rbegin(), messages_.rend(),
                                   [](const ChatMessage& m) { return m.role == kRoleAnswer; });
  return answer == messages_.rend() ? std::wstring() : answer->raw;
}

void ChatModel::SetStatusLine(std::wstring_view text) {
  if (status_ == text) return;
  status_ = text;
  Changed();
}

void ChatModel::Clear() {
  messages_.clear();
  input_.clear();
  caret_ = 0;
  waiting_ = false;
  first_piece_ = false;
  offset_ = 0.0f;
  InputChanged();
}

bool ChatModel::HandleKey(uint32_t virtual_key, bool ctrl) {
  const size_t caret = caret_;
  const bool handled = EditKey(virtual_key, ctrl);
  if (caret_ != caret) InputChanged();
  return handled;
}

bool ChatModel::EditKey(uint32_t virtual_key, bool ctrl) {
  switch (virtual_key) {
    case kKeyBackspace:
      if (caret_ > 0) EraseCharAt(PreviousBoundary(input_, caret_));
      return true;
    case kKeyEnter:
      Submit();
      return true;
    case kKeyPageUp:
      ScrollBy(kPageStep);
      return true;
    case kKeyPageDown:
      ScrollBy(-kPageStep);
      return true;
    case kKeyEnd:
      caret_ = input_.size();
      return true;
    case kKeyHome:
      caret_ = 0;
      return true;
    case kKeyLeft:
      caret_ = PreviousBoundary(input_, caret_);
      return true;
    case kKeyRight:
      caret_ = NextBoundary(input_, caret_);
      return true;
    case kKeyDelete:
      EraseCharAt(caret_);
      return true;
    case kKeyV:
      if (ctrl) Paste();
      return ctrl;
    default:
      return false;
  }
}

void ChatModel::EraseCharAt(size_t at) {
  if (at >= input_.size()) return;
  input_.erase(at, NextBoundary(input_, at) - at);
  caret_ = at;
  InputChanged();
}

// The question shows in the conversation at once; the turn picks it up with TakeSubmitted.
void ChatModel::Submit() {
  if (input_.empty()) return;
  submitted_ = std::exchange(input_, {});
  has_submitted_ = true;
  caret_ = 0;
  InputChanged();
  SetText(kRoleQuestion, submitted_);
}

void ChatModel::Paste() {
  if (!clipboard_) return;
  std::wstring text = clipboard_();
  std::replace_if(
      text.begin(), text.end(), [](wchar_t c) { return c == L'\r' || c == L'\n'; }, L' ');
  InsertText(text);
}

void ChatModel::InsertChar(wchar_t character) {
  if (static_cast<uint32_t>(character) >= 32) InsertText(std::wstring_view(&character, 1));
}

void ChatModel::InsertText(std::wstring_view text) {
  if (text.empty()) return;
  input_.insert(caret_, text);
  caret_ += text.size();
  InputChanged();
}

bool ChatModel::TakeSubmitted(std::wstring& text) {
  if (!std::exchange(has_submitted_, false)) return false;
  text = std::move(submitted_);
  submitted_.clear();
  return true;
}

void ChatModel::ScrollBy(float delta) {
  const float before = offset_;
  offset_ += delta;
  ClampOffset();
  if (offset_ != before) Changed();
}

void ChatModel::SetExtent(float content_height, float viewport_height) {
  if (offset_ > 0.0f) offset_ += content_height - content_height_;
  content_height_ = content_height;
  viewport_height_ = viewport_height;
  ClampOffset();
}

void ChatModel::ClampOffset() {
  offset_ = std::clamp(offset_, 0.0f, std::max(content_height_ - viewport_height_, 0.0f));
}

}  // namespace qn
