// The profile loader on any bytes: a profile or an error, never a crash; what loads writes out
// as text that loads again.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "corvane/platform/machine_profile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace corvane::platform;
  std::string error;
  auto profile = parseProfile(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz", &error);
  if (profile && !parseProfile(serializeProfile(*profile), "written", &error)) std::abort();
  return 0;
}
