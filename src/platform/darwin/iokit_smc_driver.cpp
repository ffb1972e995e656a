#include "platform/darwin/iokit_smc_driver.h"

#include <mach/mach.h>

namespace corvane::platform {

IOKitSmcDriver::~IOKitSmcDriver() {
  if (connection_ != 0) IOServiceClose(connection_);
}

SmcDriver::OpenResult IOKitSmcDriver::open() {
  std::lock_guard guard(lock_);
  if (users_ > 0) {
    ++users_;
    return {};
  }
  // MACH_PORT_NULL asks for the default main port.
  io_iterator_t iterator = 0;
  kern_return_t result = IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("AppleSMC"), &iterator);
  if (result != KERN_SUCCESS) return {OpenResult::Stage::matchingFailed, result};
  io_object_t device = IOIteratorNext(iterator);
  IOObjectRelease(iterator);
  if (device == 0) return {OpenResult::Stage::noDevice, 0};
  result = IOServiceOpen(device, mach_task_self(), 0, &connection_);
  IOObjectRelease(device);
  if (result != KERN_SUCCESS) {
    connection_ = 0;
    return {OpenResult::Stage::openFailed, result};
  }
  users_ = 1;
  return {};
}

kern_return_t IOKitSmcDriver::close() {
  std::lock_guard guard(lock_);
  if (users_ == 0) return kIOReturnNotOpen;
  if (--users_ > 0) return KERN_SUCCESS;
  const kern_return_t result = IOServiceClose(connection_);
  connection_ = 0;
  return result;
}

kern_return_t IOKitSmcDriver::call(uint32_t selector, const SMCKeyData& input, SMCKeyData& output) {
  size_t outputSize = sizeof(SMCKeyData);
  return IOConnectCallStructMethod(connection_, selector, &input, sizeof(SMCKeyData), &output, &outputSize);
}

}  // namespace corvane::platform
