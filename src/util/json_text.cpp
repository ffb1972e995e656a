#include "corvane/util/json_text.h"

namespace corvane::json_text {
namespace {

template <class Json>
std::string dumped(const Json& value, int indent) {
  return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string dump(const nlohmann::json& value, int indent) { return dumped(value, indent); }

std::string dump(const nlohmann::ordered_json& value, int indent) { return dumped(value, indent); }

}  // namespace corvane::json_text
