// The pieces of HWUtils that tests reach without the compiled-in resources or a real bundle.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace corvane::hw_utils {

// The JSON of resource `name` given its bytes (nothing: the resource is missing), logging the
// fixed line for a missing or malformed resource.
std::optional<nlohmann::json> jsonFromResource(const std::string& name, std::optional<std::string_view> contents);

// The integer value of text as the platform's strings give it: leading white space, an
// optional sign, then digits up to the first other character; 0 without digits.
long integerValue(std::string_view text);

// The bundle whose executables lie in `executableDirectory` ("<bundle>/Contents/MacOS"); empty
// when it is no bundle's.
std::filesystem::path bundleOfExecutableDirectory(const std::filesystem::path& executableDirectory);

}  // namespace corvane::hw_utils
