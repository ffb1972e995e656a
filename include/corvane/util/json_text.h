// JSON text for output. Every JSON document the programs print goes through here.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace corvane::json_text {

// `value` as JSON text, `indent` spaces per level (-1: one line). Never throws: bytes in a
// string that are not UTF-8 come out as U+FFFD instead of failing the whole document.
std::string dump(const nlohmann::json& value, int indent = -1);
std::string dump(const nlohmann::ordered_json& value, int indent = -1);

}  // namespace corvane::json_text
