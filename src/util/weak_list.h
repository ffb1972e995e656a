// A list of listeners that does not keep them alive.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

namespace corvane {

// Listeners held by std::weak_ptr in registration order; gone ones are skipped and pruned.
// Not locked: lists are filled at start-up and read on the main thread. Adding while forEach
// runs is safe (the walk uses a snapshot, so a listener added during it is called next time).
template <class T>
class WeakList {
 public:
  // Registers `listener` unless it is null or already among the live entries (by identity).
  // Returns true when added.
  bool add(const std::shared_ptr<T>& listener) {
    if (!listener) return false;
    prune();
    for (const auto& entry : entries_) {
      if (entry.lock() == listener) return false;
    }
    entries_.push_back(listener);
    return true;
  }

  // Removes `listener` if present. Returns true when removed.
  bool remove(const std::shared_ptr<T>& listener) {
    if (!listener) return false;
    bool removed = false;
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                  [&](const std::weak_ptr<T>& entry) {
                                    auto live = entry.lock();
                                    if (live == listener) removed = true;
                                    return !live || live == listener;
                                  }),
                   entries_.end());
    return removed;
  }

  // Calls fn(T&) for each live entry, in registration order. Each entry is kept alive while
  // it is being called.
  template <class Fn>
  void forEach(Fn&& fn) const {
    auto snapshot = entries_;
    for (const auto& entry : snapshot) {
      if (auto live = entry.lock()) fn(*live);
    }
  }

  // The live entries, in registration order (strong references).
  std::vector<std::shared_ptr<T>> live() const {
    std::vector<std::shared_ptr<T>> result;
    result.reserve(entries_.size());
    for (const auto& entry : entries_) {
      if (auto item = entry.lock()) result.push_back(std::move(item));
    }
    return result;
  }

  // The number of live entries.
  std::size_t size() const {
    return static_cast<std::size_t>(std::count_if(
        entries_.begin(), entries_.end(), [](const std::weak_ptr<T>& entry) { return !entry.expired(); }));
  }
  bool empty() const { return size() == 0; }

  // Forgets every entry.
  void clear() { entries_.clear(); }

 private:
  void prune() {
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                  [](const std::weak_ptr<T>& entry) { return entry.expired(); }),
                   entries_.end());
  }

  std::vector<std::weak_ptr<T>> entries_;
};

}  // namespace corvane
