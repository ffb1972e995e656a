// The object-level face of the SMC: keys as strings, the key table as raw sensor records, fan
// questions, read failures reported to a delegate, and writes through the privileged helper.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/sensors/hw_sensor.h"
#include "corvane/util/error.h"

namespace corvane {

// Told about every failed read or conversion of an SMCWrapper.
class SMCWrapperDelegate {
 public:
  virtual ~SMCWrapperDelegate() = default;
  // `error` (domain "com.HWKit", code 1) describes the failure; called on the reading thread.
  virtual void smcReadValueFailedWithError(const HWError& error) { (void)error; }
};

// Held by std::shared_ptr. Keeps the process's SMC connection open for its life (the connection
// counts its users, so several wrappers may live at once). No lock of its own: use one wrapper
// from one queue at a time. The library never writes to the SMC itself; writes run the helper.
class SMCWrapper {
 public:
  // Opens the SMC connection (a failure shows later as failed reads).
  SMCWrapper();
  // Closes the connection opened by the constructor.
  ~SMCWrapper();
  SMCWrapper(const SMCWrapper&) = delete;
  SMCWrapper& operator=(const SMCWrapper&) = delete;

  // The receiver of read failures, held weakly; null when none is set or it has gone.
  std::shared_ptr<SMCWrapperDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<SMCWrapperDelegate>& delegate) { delegate_ = delegate; }

  // The keys getAllSensorKeys found; empty until it first finds some.
  const std::vector<std::string>& cachedAllSensorKeys() const { return cachedAllSensorKeys_; }

  // The decoded value of `key` (its first four bytes); nullopt, after telling the delegate,
  // when the read fails or the codec does not know the value's type.
  std::optional<double> rawValueByKey(std::string_view key);

  // The printable ASCII characters (bytes 33 to 126) of `key`'s value; nullopt, after telling
  // the delegate, when the read fails or the value is empty.
  std::optional<std::string> rawStringValueByKey(std::string_view key);

  // Passes `error` to the delegate, if one is set.
  void handleFailedWithErrMsg(const HWError& error);

  // Number of fans ("FNum"); 0 when it cannot be read.
  std::uint64_t numberOfFans();
  // Current speed of fan `index` (0-based) in rpm ("F<i>Ac"); 0 when it cannot be read or the
  // index is beyond the 20 addressable fans.
  double speedOfFan(std::uint64_t index);
  // Safe minimum speed in rpm ("F<i>Mn"); 0 on failure.
  double safeMinimumSpeedOfFan(std::uint64_t index);
  // Safe maximum speed in rpm ("F<i>Mx"); 0 on failure.
  double safeMaximumSpeedOfFan(std::uint64_t index);
  // The fan's own name ("F<i>ID"), or "Fan <index + 1>" when it has none.
  std::string descriptionOfFan(std::uint64_t index);

  // The value of a sensor: for fans `key` is the fan index in decimal and the result is its
  // speed (0 for a key that names no fan); for every other type the decoded value of the key.
  // nullopt when the SMC could not be read.
  std::optional<double> getSensorValueByKey(std::string_view key, SensorType type);

  // The temperature, voltage, power and current keys ("T", "V", "P", "I") of the SMC's key
  // table in index order, leaving out keys that cannot be read or decoded (a key reading -1
  // decodes, and stays). Found once and kept;
  // an SMC that yields none is enumerated again on the next call.
  const std::vector<std::string>& getAllSensorKeys();

  // Raw records, made afresh on each call: the fans first (named, group fans, with their limits),
  // then every readable key of getAllSensorKeys named by itself (group unknown, limits 0 … 110 for
  // temperatures and 0 … 0 otherwise); all for every platform, source SMC.
  std::vector<std::shared_ptr<HWSensor>> getAllSensors();

  // Writes `value` (hexadecimal digits, two per byte, in the SMC's byte order) to `key` by
  // running the helper tool at files::smcExePath() with "-k" key "-w" value through the
  // platform's process service (no shell) and waiting for it. True exactly when the tool exits with status 0; false without running
  // anything when the tool is not installed. Blocks the calling thread.
  bool setExternalValue(const std::string& value, const std::string& key);

 private:
  std::optional<double> fanValue(std::string_view suffix, std::uint64_t index);

  std::weak_ptr<SMCWrapperDelegate> delegate_;
  std::vector<std::string> cachedAllSensorKeys_;
};

}  // namespace corvane
