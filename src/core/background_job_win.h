#pragma once
// A piece of work that must not hold up the interface thread (a request to the service, a
// download) runs on a thread of its own, and its result comes back to a window as a posted
// message, the one way results reach the interface thread. One piece at a time per job.
#include <windows.h>

#include <atomic>
#include <exception>
#include <memory>
#include <thread>
#include <utility>

#include "core/log.h"
#include "core/posted_message.h"

namespace qn {

class BackgroundJob {
 public:
  BackgroundJob() = default;
  // Waits: the work may use what its owner owns.
  ~BackgroundJob() { Wait(); }
  BackgroundJob(const BackgroundJob&) = delete;
  BackgroundJob& operator=(const BackgroundJob&) = delete;

  // `work` returns std::unique_ptr<T>; its result (null when it threw) is posted to `window`
  // as `message`. False, and nothing runs, while the previous piece is still running or when
  // no thread could be made.
  template <typename T, typename Work>
  bool Start(HWND window, PostedMessage<T> message, Work work) {
    if (Running()) return false;
    Wait();
    running_ = true;
    try {
      thread_ = std::thread([this, window, message, work = std::move(work)]() mutable noexcept {
        std::unique_ptr<T> result = RunCaught<T>(work);
        running_ = false;
        PostOwned(window, message, std::move(result));
      });
    } catch (const std::exception& e) {
      running_ = false;
      Log(kLogError, L"worker thread creation failed: %hs", e.what());
      return false;
    }
    return true;
  }
  bool Running() const { return running_; }
  void Wait() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  template <typename T, typename Work>
  static std::unique_ptr<T> RunCaught(Work& work) noexcept {
    try {
      return work();
    } catch (const std::exception& e) {
      Log(kLogError, L"background work failed: %hs", e.what());
      return nullptr;
    }
  }

  std::thread thread_;
  std::atomic<bool> running_{false};
};

}  // namespace qn
