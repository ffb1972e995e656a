// Inspection of the SMC key-information cache, for tests and benchmarks.
#pragma once

namespace corvane::smc {

// Number of keys whose information is cached (at most 100).
int keyInfoCacheCount();

}  // namespace corvane::smc
