// The installed memory, as the machine overview shows it.
#pragma once

#include <cstdint>
#include <string>

namespace corvane {

// A copyable value; not synchronised.
struct HWMemoryInfo {
  std::string physicalMemory;  // the installed memory as text, e.g. "16 GB"
};

namespace memory {

// `bytes` as a memory size in binary units: "Zero KB" for nothing, "N bytes" below 1 KB, whole
// KB, MB to one decimal and larger units to two, trailing zeros dropped, thousands grouped by
// commas ("16 GB", "1.5 GB", "1,023 KB").
std::string byteCountText(uint64_t bytes);

// The memory of the current machine ("hw.memsize"; on Linux MemTotal of /proc/meminfo). When
// the size cannot be read, says so on standard error and describes zero bytes.
HWMemoryInfo getMemoryInfo();

}  // namespace memory
}  // namespace corvane
