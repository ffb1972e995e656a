#include "corvane/util/error.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "corvane/platform/text.h"
#include "corvane/util/strings.h"

namespace corvane::errors {

const char* const HWErrorDomain = "com.corvane.error";

namespace {
constexpr const char* kGeneralMessageKey = "general-error-alert-message";

const char* messageKeyForCode(long code) {
  switch (code) {
    case 1: return "add-fan-condition-alert-message";
    case 2: return "invalid-sensor-key-alert-message";
    case 3: return "duplicated-sensor-alert-message";
    case 4: return "cannot-remove-default-sensor-alert-message";
    case 5: return "invalid-input-data-alert-message";
    default: return kGeneralMessageKey;
  }
}

const char* gProgram = "corvane";

// The text of the exception in flight, if any, in one clean line.
std::string currentExceptionText() {
  const std::exception_ptr current = std::current_exception();
  if (!current) return "terminated without an exception";
  try {
    std::rethrow_exception(current);
  } catch (const std::exception& e) {
    return text::cleaned(e.what());
  } catch (...) {
    return "an exception of unknown type";
  }
}

[[noreturn]] void onTerminate() {
  reportInternalError(gProgram);
  // Other threads may still run: no static destructors under their feet.
  std::_Exit(1);
}

}  // namespace

int reportInternalError(const char* program) {
  std::fprintf(stderr, "%s: internal error: %s\n", program, currentExceptionText().c_str());
  return 1;
}

void installLastResortHandler(const char* program) {
  gProgram = program;
  std::set_terminate(onTerminate);
}

HWError kitError(long code, std::string message) {
  return HWError{kKitErrorDomain, code, std::move(message)};
}

HWError errorWithCode(long code, std::optional<std::string> message) {
  std::string text = message ? std::move(*message) : strings::localizedStringForKey(kGeneralMessageKey);
  return HWError{HWErrorDomain, code, std::move(text)};
}

HWError errorWithCode(long code) {
  return HWError{HWErrorDomain, code, strings::localizedStringForKey(messageKeyForCode(code))};
}

HWError errorWithMessage(std::string message) { return errorWithCode(0, std::move(message)); }

}  // namespace corvane::errors
