// Errors reported by the product: a domain, a code and a readable description.
#pragma once

#include <optional>
#include <string>

namespace corvane {

// One failure: the domain it comes from, its code within that domain, and the text shown to a
// person (already localised where it came from a message key).
struct HWError {
  std::string domain;
  long code = 0;
  std::string message;
};

namespace errors {

// The domain of the product's own errors (codes 1 to 5 name known failures).
extern const char* const HWErrorDomain;

// The domain of low-level failures: running a process, talking to the SMC.
inline constexpr const char* kKitErrorDomain = "com.HWKit";

// A low-level failure in the "com.HWKit" domain with `message` as its description.
HWError kitError(long code, std::string message);

// A product error; with no message, the localised "general-error-alert-message".
HWError errorWithCode(long code, std::optional<std::string> message);

// A product error described by the message key of `code` (1 add fan condition, 2 invalid
// sensor key, 3 duplicated sensor, 4 cannot remove default sensor, 5 invalid input data;
// anything else the general message).
HWError errorWithCode(long code);

// A product error with code 0 and `message` as its description.
HWError errorWithMessage(std::string message);

// The last resort of a program's main, for a fault that should never happen: a line
// "<program>: internal error: <what>" on stderr, and the exit status to end with (1). Call it in
// a catch (...) block, which it reports on.
int reportInternalError(const char* program);

// Makes an exception that escapes any other thread (or anything else that would abort through
// std::terminate) end the process with reportInternalError's line and status 1. `program` must
// outlive the process (a string literal). Call once, first thing in main.
void installLastResortHandler(const char* program);

}  // namespace errors
}  // namespace corvane
