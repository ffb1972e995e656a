// The fan keys of the SMC: "F", the fan's character, and two letters ("F0Ac", "FJMx").
#pragma once

#include <string_view>

namespace corvane::smc {

// The characters that stand for fans 0…19 in fan keys, in fan order ("F0Ac" … "FJAc").
inline constexpr std::string_view kFanCharacters = "0123456789ABCDEFGHIJ";

// True for the keys fan control writes: F<c>Md (mode), F<c>Tg (target), F<c>Mn (minimum) with c
// one of kFanCharacters, and "FS! ", whose bits hand fans back to the system on older models.
constexpr bool isFanControlKey(std::string_view key) {
  if (key == "FS! ") return true;
  if (key.size() != 4 || key[0] != 'F' || kFanCharacters.find(key[1]) == std::string_view::npos) return false;
  const std::string_view suffix = key.substr(2);
  return suffix == "Md" || suffix == "Tg" || suffix == "Mn";
}

// True when the fan control key `key` may hold a value of SMC type `type` (four characters, as
// key information reports it): a mode is one unsigned byte, a speed a float or fpe2 fixed point,
// "FS! " a 16-bit mask.
constexpr bool isFanControlType(std::string_view key, std::string_view type) {
  if (!isFanControlKey(key)) return false;
  if (key == "FS! ") return type == "ui16";
  if (key.substr(2) == "Md") return type == "ui8 ";
  return type == "fpe2" || type == "flt ";
}

}  // namespace corvane::smc
