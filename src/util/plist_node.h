// Ownership of a libplist node tree, for the helpers that read property lists.
#pragma once

#include <plist/plist.h>

#include <memory>

namespace corvane {

// Frees a whole node tree with plist_free.
struct PlistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};

// Owns the root of a node tree (null when there is none).
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

}  // namespace corvane
