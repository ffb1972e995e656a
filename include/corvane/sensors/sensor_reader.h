// The sensor reader: discovers the machine's sensors, names them from the catalogue, adds the
// computed ones, and refreshes their values on every read.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "corvane/hid/hid_wrapper.h"
#include "corvane/monitors/base_reader.h"
#include "corvane/sensors/hw_sensor.h"
#include "corvane/smc/smc_wrapper.h"

namespace corvane {

// Reads every sensor of the machine. Made with create(); held by std::shared_ptr.
//
// The list is built on first use and kept: later passes mutate the same records in place, so
// the delegate receives the same objects each time. read() runs on the caller's queue and does
// all hardware I/O there; only the delivery moves to the main queue. The result handed to the
// delegate (an HWSensorReader::Delegate) is the whole list. No lock guards the records: use one
// reader from one queue at a time.
class HWSensorReader : public HWBaseReader<std::vector<std::shared_ptr<HWSensor>>>, public SMCWrapperDelegate,
                       public std::enable_shared_from_this<HWSensorReader> {
 public:
  using SensorList = ResultType;

  // A reader with its own SMC wrapper (whose failures it ignores) and, on a machine with HID
  // sensor services (Apple silicon), its own HID wrapper.
  static std::shared_ptr<HWSensorReader> create();

  // The discovered, named, sorted list; nullopt until first built.
  const std::optional<SensorList>& allSensors() const { return allSensors_; }
  // Replaces the list; nullopt makes the next getAllSensors build it afresh.
  void setAllSensors(std::optional<SensorList> sensors) { allSensors_ = std::move(sensors); }

  // Whether read() also refreshes unknown sensors (default false).
  bool showUnknownSensors() const { return showUnknownSensors_; }
  void setShowUnknownSensors(bool v) { showUnknownSensors_ = v; }
  // Whether read() also refreshes HID sensors (default false).
  bool showHIDSensors() const { return showHIDSensors_; }
  void setShowHIDSensors(bool v) { showHIDSensors_ = v; }
  // Whether read() also refreshes computed sensors (default false).
  bool showComputedSensors() const { return showComputedSensors_; }
  void setShowComputedSensors(bool v) { showComputedSensors_ = v; }

  // The reader's SMC wrapper.
  const std::shared_ptr<SMCWrapper>& smc() const { return smc_; }
  // The reader's HID wrapper; null on a machine without HID sensor services.
  HIDWrapper* hid() const { return hid_.get(); }

  // The list, built on the first call (and after setAllSensors(nullopt)).
  const SensorList& getAllSensors();

  // One pass: refreshValues(), then, on the main queue, the whole list to the delegate.
  void read() override;

  // Refreshes the value of every record the switches let through (see shouldRefresh), in list
  // order, noting on each whether its read failed; the others keep their previous values.
  // Builds the list first if needed.
  void refreshValues();

  // Whether a pass refreshes `sensor` under the current switches: HID records only with
  // showHIDSensors, computed ones only with showComputedSensors, unknown ones only with
  // showUnknownSensors.
  bool shouldRefresh(const HWSensor& sensor) const;

  // The computed records for `sensors`: "AverageCPU", "HottestCPU", "AverageGPU", "HottestGPU"
  // and (with two fans or more) "FastestFan", each only when its value is above 0.
  SensorList buildComputedSensorsInSensors(const SensorList& sensors);

  // The current value of one sensor in its base unit: from the SMC or HID with 0 for a failed
  // read, or computed from `sensors`; −1.0 for a CPU or GPU figure without contributors, and 0
  // for a source outside the enumeration.
  double getSensorValueByKey(std::string_view key, SensorType type, SourceType sourceType,
                             const SensorList& sensors);

  // Read failures of the SMC wrapper are not the reader's concern: the value becomes 0.
  void smcReadValueFailedWithError(const HWError& error) override;

 private:
  HWSensorReader();
  SensorList buildList();
  // getSensorValueByKey, with nullopt where the SMC or HID could not be read.
  std::optional<double> readValueByKey(std::string_view key, SensorType type, SourceType sourceType,
                                       const SensorList& sensors);

  std::optional<SensorList> allSensors_;
  bool showUnknownSensors_ = false;
  bool showHIDSensors_ = false;
  bool showComputedSensors_ = false;
  std::shared_ptr<SMCWrapper> smc_;
  std::unique_ptr<HIDWrapper> hid_;
};

}  // namespace corvane
