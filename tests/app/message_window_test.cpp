#include "app/message_window_win.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace qn {
namespace {

// Counts its destructions, so that a payload freed twice or never shows.
int g_freed = 0;
struct Counted {
  ~Counted() { ++g_freed; }
  int value = 0;
};
constexpr PostedMessage<Counted> kCounted{WM_APP + 40};

// A payload is handed to its handler while the handlers stand, and only freed once they are
// gone, when the window is destroyed, or when the post is refused.
TEST(MessageWindow, EveryPostedPayloadIsFreedExactlyOnce) {
  g_freed = 0;
  MessageWindow window;
  ASSERT_TRUE(window.Create(GetModuleHandleW(nullptr)));
  std::vector<int> handled;
  window.OnPosted<Counted>(kCounted, [&](std::unique_ptr<Counted> payload, LPARAM tag) {
    handled.push_back(payload->value + static_cast<int>(tag));
  });
  int commands = 0;
  window.OnCommand(100, [&] { ++commands; });
  const HWND target = window.get();  // still posted to once the window is gone
  const auto post = [&](int value) {
    auto payload = std::make_unique<Counted>();
    payload->value = value;
    return PostOwned(target, kCounted, std::move(payload), 10);
  };
  ASSERT_TRUE(post(1));
  PostMessageW(window.get(), WM_COMMAND, 100, 0);
  PostMessageW(window.get(), WM_COMMAND, 101, 0);
  MSG message;
  while (PeekMessageW(&message, window.get(), 0, 0, PM_REMOVE)) DispatchMessageW(&message);
  EXPECT_EQ(handled, std::vector<int>{11});
  EXPECT_EQ(commands, 1);

  ASSERT_TRUE(post(2));
  window.StopHandling();
  ASSERT_TRUE(post(3));
  ASSERT_TRUE(PeekMessageW(&message, window.get(), kCounted.id, kCounted.id, PM_REMOVE));
  DispatchMessageW(&message);
  window.Destroy();
  EXPECT_FALSE(post(4));
  EXPECT_EQ(handled, std::vector<int>{11});
  EXPECT_EQ(g_freed, 4);
}

}  // namespace
}  // namespace qn
