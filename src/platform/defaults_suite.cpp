#include "corvane/platform/defaults_suite.h"

#include <cmath>

#include "corvane/platform/platform.h"
#include "corvane/platform/text.h"
#include "platform/defaults_suite_backends.h"

namespace corvane::platform {

std::shared_ptr<DefaultsSuite> DefaultsSuite::create(const Platform& platform) {
  if (platform.simulated()) return sqliteFile(platform.files().appGroupContainer() / kDefaultsFileName);
  return nativeDefaultsSuite(platform);
}

bool isPropertyListValue(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::null:
    case nlohmann::json::value_t::binary:
    case nlohmann::json::value_t::discarded:
      return false;
    case nlohmann::json::value_t::number_float:
      return std::isfinite(value.get<double>());
    case nlohmann::json::value_t::string:
      return text::isUtf8(value.get_ref<const std::string&>());
    case nlohmann::json::value_t::array:
      for (const auto& element : value) {
        if (!isPropertyListValue(element)) return false;
      }
      return true;
    case nlohmann::json::value_t::object:
      for (const auto& [key, element] : value.items()) {
        if (!text::isUtf8(key) || !isPropertyListValue(element)) return false;
      }
      return true;
    default:
      return true;
  }
}

}  // namespace corvane::platform
