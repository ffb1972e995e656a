// The one way the product writes to the console log: the fixed lines the design names, and
// nothing else. Stderr on Linux (linux/log_linux.cpp); the unified log on macOS (darwin/).
#pragma once

#include <string>

namespace corvane::platform {

// Writes `line` (without a trailing newline) as one entry of the console log. Thread-safe: lines
// from several threads never interleave.
void log(const std::string& line);

}  // namespace corvane::platform
