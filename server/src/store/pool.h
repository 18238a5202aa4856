#pragma once
// A fixed set of connections shared by the store's pool threads: a caller waits for a free one
// and gives it back when its lease ends, whatever path it leaves by.
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace hintwick {

template <typename T>
class Pool {
 public:
  class Lease {
   public:
    Lease(Pool& pool, std::unique_ptr<T> item) : pool_(&pool), item_(std::move(item)) {}
    Lease(Lease&& other) noexcept = default;
    Lease& operator=(Lease&&) = delete;
    ~Lease() {
      if (item_) pool_->Return(std::move(item_));
    }
    T& operator*() const { return *item_; }
    T* operator->() const { return item_.get(); }

   private:
    Pool* pool_;
    std::unique_ptr<T> item_;
  };

  explicit Pool(std::vector<std::unique_ptr<T>> items) : idle_(std::move(items)) {}

  Lease Acquire() {
    std::unique_lock lock(mutex_);
    freed_.wait(lock, [this] { return !idle_.empty(); });
    std::unique_ptr<T> item = std::move(idle_.back());
    idle_.pop_back();
    return Lease(*this, std::move(item));
  }

 private:
  void Return(std::unique_ptr<T> item) {
    {
      std::lock_guard lock(mutex_);
      idle_.push_back(std::move(item));
    }
    freed_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable freed_;
  std::vector<std::unique_ptr<T>> idle_;
};

}  // namespace hintwick
