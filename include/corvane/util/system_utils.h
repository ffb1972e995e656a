// Running a command with its output captured, and reading kernel values by name.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/util/error.h"

namespace corvane {

// Stateless; every method is thread-safe.
class HWSystemUtils {
 public:
  // Runs the executable at `path` (no shell) with `arguments` and returns its standard output.
  // Succeeds only when the output is not empty and nothing was written to standard error; else
  // nothing, with `error` (when given) set to code 1 in the "com.HWKit" domain carrying the
  // standard-error text (empty when the output was merely empty) or why it could not start.
  // Blocks the calling thread until the command ends.
  static std::optional<std::string> readDataByPath(const std::string& path,
                                                   const std::optional<std::vector<std::string>>& arguments,
                                                   HWError* error);

  // The kernel value `name` as text; "" when it is missing or empty.
  static std::string sysctlNSStringForKey(std::string_view name);

  // The kernel integer `name` (4 or 8 bytes) as a float; 0 when missing or of another size.
  static float sysctlFloatForKey(std::string_view name);

  // The kernel integer `name` (4 or 8 bytes) as a double; 0 when missing or of another size.
  static double sysctlDoubleForKey(std::string_view name);
};

}  // namespace corvane
