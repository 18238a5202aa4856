#pragma once
// Answers each message box this thread shows as it opens, and keeps its text: a box is modal,
// so the test cannot answer it from outside its loop.
#include <windows.h>

#include <deque>
#include <string>
#include <vector>

namespace qn::test {

class BoxAnswerer {
 public:
  explicit BoxAnswerer(WPARAM answer = IDOK) : answer(answer) {
    current_ = this;
    hook_ = SetWindowsHookExW(WH_CBT, &Activated, nullptr, GetCurrentThreadId());
  }
  ~BoxAnswerer() {
    UnhookWindowsHookEx(hook_);
    current_ = nullptr;
  }
  BoxAnswerer(const BoxAnswerer&) = delete;
  BoxAnswerer& operator=(const BoxAnswerer&) = delete;

  WPARAM answer;              // IDOK, IDYES, IDNO...
  std::deque<WPARAM> script;  // answers for the next boxes, before `answer`
  bool keep_captions = false;  // texts read "caption: text"
  std::vector<std::wstring> texts;

 private:
  // A box may be activated more than once before it goes.
  static LRESULT CALLBACK Activated(int code, WPARAM wparam, LPARAM lparam) {
    const auto box = reinterpret_cast<HWND>(wparam);
    wchar_t kind[16] = {};
    if (code == HCBT_ACTIVATE && current_ && box != current_->last_box_ &&
        GetClassNameW(box, kind, 16) && std::wstring(kind) == L"#32770") {
      current_->Answer(box);
    }
    return CallNextHookEx(nullptr, code, wparam, lparam);
  }

  void Answer(HWND box) {
    last_box_ = box;
    wchar_t caption[128] = {}, text[1024] = {};
    GetWindowTextW(box, caption, 128);
    GetDlgItemTextW(box, 0xFFFF, text, 1024);  // a message box's static text
    texts.push_back(keep_captions ? std::wstring(caption) + L": " + text : text);
    WPARAM chosen = answer;
    if (!script.empty()) {
      chosen = script.front();
      script.pop_front();
    }
    PostMessageW(box, WM_COMMAND, chosen, 0);
  }

  static inline BoxAnswerer* current_ = nullptr;
  HHOOK hook_ = nullptr;
  HWND last_box_ = nullptr;
};

}  // namespace qn::test
