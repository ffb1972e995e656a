// The dump importer on any bytes: a profile or an error, never a crash; what imports writes out
// as a profile that loads.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "corvane/platform/dump_import.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace corvane::platform;
  std::string error;
  auto profile = importDump(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz.txt", {}, &error);
  if (profile && !parseProfile(serializeProfile(*profile), "written", &error)) std::abort();
  return 0;
}
