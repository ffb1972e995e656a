// Value decoding for C++ callers. Inside the library a value the codec cannot convert is an empty
// optional, never -1: a key whose real reading is -1 (a signed byte 0xff) must stay a reading.
// Only the exported C function SMCConvertValueToNumber folds a failure into -1.
#pragma once

#include <optional>

#include "corvane/platform/sim_dynamics.h"
#include "corvane/smc/smc.h"

namespace corvane::smc {

// The number `value` holds; nullopt when the codec does not know its type and size pair. An
// empty value (size 0) decodes as 0. Pure and allocation-free; any thread.
std::optional<float> decodedValue(const SMCValue& value);

// Writes `number` into `value.bytes` in the value's own type and size, the inverse of
// decodedValue: rounded to the nearest step the type can hold, held at the type's ends. False,
// with the bytes untouched, when the codec does not know the type and size pair or `number` is
// not finite. Pure; any thread.
bool encodeValue(double number, SMCValue& value);

// This codec for a simulated machine's dynamics, which changes values in each key's own type.
platform::SimValueCodec simValueCodec();

}  // namespace corvane::smc
