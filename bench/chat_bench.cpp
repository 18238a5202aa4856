// Timing of the chat view, run by hand (not a test). The model's half measures what a
// streamed answer costs per token, emphasis pass included; on Windows the drawing half
// measures a frame of a long conversation drawn offscreen the way the drawer draws it.
// Build it optimised and without sanitizers for figures that mean anything.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "chat/chat_model.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kTokenChars = 5;
constexpr size_t kTokens = 4000;
constexpr size_t kWindow = 200;  // tokens timed at each end of the answer
constexpr int kRuns = 7;

// Answer-like text: prose with bold and code spans, and one stray asterisk early on, which
// leaves a marker open for the rest of the answer.
std::wstring AnswerText(size_t length) {
  std::wstring text = L"Try 2 * 3 first. ";
  const std::wstring sentences[] = {
      L"Head **north** past the mill, then take the `rope` from the well. ",
      L"The *second* door only opens at night, so wait by the fire. ",
      L"If the guard stops you, show him the **signet** and say nothing. ",
  };
  for (size_t i = 0; text.size() < length; ++i) text += sentences[i % 3];
  text.resize(length);
  return text;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Microseconds per token over the tokens [first, first + kWindow) of one streamed answer.
void TimeAnswer(const std::wstring& text, double& start_us, double& end_us) {
  qn::ChatModel model;
  model.SetText(qn::kRoleQuestion, L"How do I get into the castle?");
  model.BeginAnswer();
  Clock::time_point mark;
  for (size_t token = 0; token < kTokens; ++token) {
    if (token == 0 || token == kTokens - kWindow) mark = Clock::now();
    model.AppendAnswer(std::wstring_view(text).substr(token * kTokenChars, kTokenChars));
    if (token == kWindow - 1 || token == kTokens - 1) {
      const double us = std::chrono::duration<double, std::micro>(Clock::now() - mark).count();
      (token == kWindow - 1 ? start_us : end_us) = us / kWindow;
    }
  }
  model.FinishAnswer();
}

void BenchModel() {
  const std::wstring text = AnswerText(kTokens * kTokenChars);
  std::vector<double> starts, ends;
  for (int run = 0; run < kRuns; ++run) {
    double start_us = 0, end_us = 0;
    TimeAnswer(text, start_us, end_us);
    starts.push_back(start_us);
    ends.push_back(end_us);
  }
  std::printf(
      "model: %zu tokens of %zu characters; per token %.2f us at the start, %.2f us at "
      "the end (median of %d answers)\n",
      kTokens, kTokenChars, Median(starts), Median(ends), kRuns);
}

}  // namespace

#ifdef _WIN32
#include "chat/chat_view.h"
#include "chat/offscreen_target_win.h"

namespace {

constexpr uint32_t kDrawWidth = 1280;
constexpr uint32_t kDrawHeight = 420;
constexpr int kFrames = 60;

// Fifty messages, the last an answer still streaming in.
void FillConversation(qn::ChatModel& chat) {
  for (int i = 0; i < 25; ++i) {
    chat.SetText(qn::kRoleQuestion, L"And after the bridge, step " + std::to_wstring(i) + L"?");
    if (i < 24) chat.SetText(qn::kRoleAnswer, AnswerText(320));
  }
  chat.BeginAnswer();
}

// Returns once the device has carried out everything submitted so far.
void Finish(qn::test::OffscreenTarget& target) {
  const D3D11_QUERY_DESC desc = {D3D11_QUERY_EVENT, 0};
  qn::ComPtr<ID3D11Query> query;
  if (FAILED(target.device()->CreateQuery(&desc, query.put()))) return;
  target.immediate()->End(query.get());
  BOOL done = FALSE;
  while (target.immediate()->GetData(query.get(), &done, sizeof(done), 0) == S_FALSE) Sleep(0);
}

// Milliseconds for one frame: layout, drawing, and the device finishing the work. The drawer
// used to draw the whole view on every tick; it now keeps it in a layer and redraws in part.
double TimeFrame(qn::test::OffscreenTarget& target, qn::ChatView& view, bool in_part = false) {
  const Clock::time_point start = Clock::now();
  target.context()->BeginDraw();
  if (in_part) {
    view.DrawLayer(target.context(), false);
  } else {
    target.context()->Clear({0.05f, 0.06f, 0.08f, 0.8f});
    view.Draw(target.context(), 1.0f);
  }
  target.context()->EndDraw();
  Finish(target);
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void BenchDrawing() {
  qn::test::OffscreenTarget target;
  qn::ChatModel chat;
  qn::ChatView view(chat);
  FillConversation(chat);  // before Init, which greets only an empty conversation
  if (!target.Create(kDrawWidth, kDrawHeight) || !view.Init(target.dwrite())) {
    std::printf("drawing: no Direct2D target on a Direct3D 11 texture\n");
    return;
  }
  view.SetSize(kDrawWidth, kDrawHeight, 1.0f);
  const double cold = TimeFrame(target, view);
  std::vector<double> warm, streaming, layered, resized;
  for (int i = 0; i < kFrames; ++i) warm.push_back(TimeFrame(target, view));
  const std::wstring tokens = AnswerText(kFrames * kTokenChars);
  for (int i = 0; i < kFrames; ++i) {
    chat.AppendAnswer(std::wstring_view(tokens).substr(i * kTokenChars, kTokenChars));
    streaming.push_back(TimeFrame(target, view));
  }
  TimeFrame(target, view, true);
  for (int i = 0; i < kFrames; ++i) {
    chat.AppendAnswer(std::wstring_view(tokens).substr(i * kTokenChars, kTokenChars));
    layered.push_back(TimeFrame(target, view, true));
  }
  for (int i = 0; i < kFrames; ++i) {
    view.SetSize(kDrawWidth - 1 - i % 2, kDrawHeight, 1.0f);
    resized.push_back(TimeFrame(target, view));
  }
  std::printf(
      "drawing %zu messages at %ux%u, in ms per frame: first %.2f; then %.2f; with a "
      "token arriving %.2f; after a width change (every layout rebuilt) %.2f "
      "(medians of %d)\n"
      "with a token arriving, the drawer's layer redrawn in part: %.2f ms, against %.2f drawn "
      "whole as before (%.1fx); with nothing new the drawer draws nothing at all\n",
      chat.Messages().size(), kDrawWidth, kDrawHeight, cold, Median(warm), Median(streaming),
      Median(resized), kFrames, Median(layered), Median(streaming),
      Median(streaming) / Median(layered));
}

}  // namespace
#endif

int main() {
  BenchModel();
#ifdef _WIN32
  BenchDrawing();
#endif
  return 0;
}
