// The fan keys of the SMC: "F", the fan's character, and two letters ("F0Ac", "FJMx").
#pragma once

#include <string_view>

namespace corvane::smc {

// The characters that stand for fans 0…19 in fan keys, in fan order ("F0Ac" … "FJAc").
inline constexpr std::string_view kFanCharacters = "0123456789ABCDEFGHIJ";

}  // namespace corvane::smc
