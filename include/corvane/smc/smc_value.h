// Value decoding for C++ callers. Inside the library a value the codec cannot convert is an empty
// optional, never -1: a key whose real reading is -1 (a signed byte 0xff) must stay a reading.
// Only the exported C function SMCConvertValueToNumber folds a failure into -1.
#pragma once

#include <optional>

#include "corvane/smc/smc.h"

namespace corvane::smc {

// The number `value` holds; nullopt when the codec does not know its type and size pair. An
// empty value (size 0) decodes as 0. Pure and allocation-free; any thread.
std::optional<float> decodedValue(const SMCValue& value);

}  // namespace corvane::smc
