// The displays this computer shows pictures on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// One active display.
struct Display {
  uint32_t identifier = 0;  // stable while the display stays connected
  bool builtIn = false;     // the computer's own panel
  std::string name;         // what the system calls it (connector or model); may be ""
};

// The active display list. Thread-safe.
class Displays {
 public:
  virtual ~Displays() = default;

  // Makes the service for `platform`: from the recorded machine when simulated, else the host's.
  static std::shared_ptr<Displays> create(const Platform& platform);

  // The active displays, at most `capacity` of them, in the system's order.
  virtual std::vector<Display> activeDisplays(std::size_t capacity) const = 0;
};

}  // namespace corvane::platform
