#pragma once
// What the chat endpoint keeps between requests: the answerer (the built-in one, or the bridge
// to the configured model server) and the answers open now against their limit. How often a
// question came back is the store's, so that every process behind a balancer counts alike.
#include <atomic>
#include <memory>

#include "answers/answerer.h"
#include "answers/builtin.h"
#include "config/config.h"

namespace hintwick {

class ChatDesk {
 public:
  explicit ChatDesk(const Config& config);

  // Held by an answer from its request until its stream ends.
  class Slot {
   public:
    explicit Slot(ChatDesk& desk) : desk_(desk) {}
    ~Slot() { --desk_.open_; }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

   private:
    ChatDesk& desk_;
  };
  // Nothing past the configured number of answers at once.
  std::unique_ptr<Slot> TakeSlot();

  Answerer& answerer() { return *answerer_; }

 private:
  int limit_;
  std::atomic<int> open_{0};
  std::unique_ptr<Answerer> answerer_;
};

}  // namespace hintwick
