// The real SMC: the AppleSMC kernel service through its IOKit user client.
#pragma once

#include <IOKit/IOKitLib.h>

#include <mutex>

#include "corvane/platform/smc_driver.h"

namespace corvane::platform {

// One connection per process, shared by every user: it is opened by the first open and closed by
// the last close.
class IOKitSmcDriver final : public SmcDriver {
 public:
  ~IOKitSmcDriver() override;
  OpenResult open() override;
  kern_return_t close() override;
  kern_return_t call(uint32_t selector, const SMCKeyData& input, SMCKeyData& output) override;

 private:
  std::mutex lock_;  // guards opening and closing only; calls use the connection as it stands
  io_connect_t connection_ = 0;
  int users_ = 0;
};

}  // namespace corvane::platform
