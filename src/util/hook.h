// A value owned by a higher layer, handed down as a function that layer installs (the settings
// install the language, dark mode, units and locale this way), so lower layers never include it.
#pragma once

#include <functional>
#include <mutex>
#include <utility>

namespace corvane {

template <class T>
class Hook {
 public:
  void set(std::function<T()> provider) {
    std::lock_guard guard(lock_);
    provider_ = std::move(provider);
  }
  // The installed function's value, or `fallback` with none. The function runs outside the lock:
  // it may read other hooks, or be replaced meanwhile.
  T get(T fallback = T{}) const {
    std::function<T()> provider;
    {
      std::lock_guard guard(lock_);
      provider = provider_;
    }
    return provider ? provider() : fallback;
  }

 private:
  mutable std::mutex lock_;
  std::function<T()> provider_;
};

}  // namespace corvane
