// A data file compiled into the library (machine profiles, resources): the generated tables of
// corvane-embed are arrays of these.
#pragma once

#include <cstddef>

namespace corvane {

struct EmbeddedFile {
  const char* name;            // the file's stem (profiles) or whole name (resources)
  const unsigned char* data;   // the bytes, followed by a NUL that `size` does not count
  std::size_t size;
};

}  // namespace corvane
