#include "corvane/util/error.h"

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
}  // namespace

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
