// The product's resources (JSON lists, string tables), compiled into the library by file name.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/embedded_file.h"

namespace corvane::resources {

namespace embedded {
// The files of resources/, embedded at build time.
using corvane::EmbeddedFile;
extern const EmbeddedFile kEmbeddedFiles[];
extern const std::size_t kEmbeddedFileCount;
}  // namespace embedded

// The bytes of the resource named `fileName` (e.g. "en.strings.json"), or nullopt. The view
// points into static storage and stays valid for the life of the process.
std::optional<std::string_view> find(std::string_view fileName);

}  // namespace corvane::resources
