// The SMC driver service: one user-client call carrying the 80-byte record.
#pragma once

#include <atomic>
#include <cstdint>

#include "corvane/platform/smc_key_data.h"

namespace corvane::platform {

class SmcDriver {
 public:
  // How an open went; the stages are the ones SMCOpen reports with its messages.
  struct OpenResult {
    enum class Stage { ok, matchingFailed, noDevice, openFailed };
    Stage stage = Stage::ok;
    kern_return_t status = 0;
  };

  SmcDriver() : instance_(nextInstance()) {}
  virtual ~SmcDriver() = default;
  SmcDriver(const SmcDriver&) = delete;
  SmcDriver& operator=(const SmcDriver&) = delete;

  // A number no other driver of this process has had: a driver made after another was released
  // may sit at the same address, so the address cannot tell two machines apart.
  std::uint64_t instance() const { return instance_; }

  // Opens the connection; a second open of an open driver succeeds and changes nothing.
  virtual OpenResult open() = 0;
  // Closes the connection; later calls fail until the next open.
  virtual kern_return_t close() = 0;
  // One call of user-client method `selector`; both records are 80 bytes. Thread-safe.
  virtual kern_return_t call(uint32_t selector, const SMCKeyData& input, SMCKeyData& output) = 0;

 private:
  static std::uint64_t nextInstance() {
    static std::atomic<std::uint64_t> counter{0};
    return ++counter;
  }
  const std::uint64_t instance_;
};

}  // namespace corvane::platform
