#include "util/resources.h"

namespace corvane::resources {

std::optional<std::string_view> find(std::string_view fileName) {
  for (std::size_t i = 0; i < embedded::kEmbeddedFileCount; ++i) {
    const auto& file = embedded::kEmbeddedFiles[i];
    if (file.name != nullptr && fileName == file.name) {
      return std::string_view(reinterpret_cast<const char*>(file.data), file.size);
    }
  }
  return std::nullopt;
}

}  // namespace corvane::resources
