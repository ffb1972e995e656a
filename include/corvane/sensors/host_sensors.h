// The hardware monitors of the computer running the program as sensor records, so that they
// list, format and fill the live view exactly as the Mac's sensors do.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "corvane/platform/host_sensors.h"
#include "corvane/sensors/hw_sensor.h"

namespace corvane {

// One record per reading, in the given order: key "chip/feature", name the label, source kHost,
// the type of its kind, the group its chip's driver names (fans always the fans' group), and the
// chip's limits (0 where it has none, except a temperature's upper one: 110 °C, as for the SMC's).
std::vector<std::shared_ptr<HWSensor>> hostSensorRecords(const std::vector<platform::HostSensorReading>& readings);

// The installed platform's host monitors as records; false with `error` as
// platform::HostSensors::readings (`configuration` as there: empty for the user's own).
bool readHostSensors(std::vector<std::shared_ptr<HWSensor>>& out, std::string& error,
                     const std::filesystem::path& configuration = {});

}  // namespace corvane
