// Pieces of the simulated platform that the native platform of a host without an SMC reuses.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "corvane/platform/machine_profile.h"
#include "corvane/platform/platform.h"
#include "platform/posix/owned_files.h"

namespace corvane::platform::sim {

// Folder of the simulated machines' shared state inside the app-group container.
std::filesystem::path stateFolder(const FileLocations& files);

// The state file of one machine; `source` is what loads the machine (a name or a file path).
std::filesystem::path stateFile(const FileLocations& files, const MachineProfile& profile, const std::string& source);

// Records `source` as the machine the helper tool writes to. Failures are ignored: without the
// record the helper writes to the default machine.
void announceMachine(const FileLocations& files, const std::string& source);

// The machine another process announced, or empty when none was; with `owned`, read only as
// that tree allows.
std::string announcedMachine(const FileLocations& files, const posix::OwnedTree* owned = nullptr);

// The product's files under `root`, for tests and simulations that must not touch the user's.
std::shared_ptr<FileLocations> rootedFileLocations(std::filesystem::path root);

// A platform whose SMC simulates `profile` (null: a Mac without an SMC), with writes shared
// through the machine's state file among `files`. `announce`: record `source` at once for the
// helper tool (else only Platform::announceMachine does). `simulated` false: the other services
// come from the host. `owned`: the state file is reached only as that tree allows.
std::shared_ptr<Platform> makePlatform(std::shared_ptr<const MachineProfile> profile,
                                       std::shared_ptr<FileLocations> files, const std::string& source,
                                       bool announce, bool simulated,
                                       std::shared_ptr<const posix::OwnedTree> owned = nullptr);

}  // namespace corvane::platform::sim
