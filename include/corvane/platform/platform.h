// The platform seam: the operating-system services the core uses, chosen once per process.
//
// A process installs its platform before the first service is used: `native()` for the host,
// or `simulated(profile)` for a recorded machine. Installing replaces the previous platform;
// do it only while no other thread uses the services (at start, or between tests).
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include "corvane/platform/machine_profile.h"
#include "corvane/platform/smc_driver.h"

namespace corvane::platform {

// Where the product keeps its files, and the system folders and accounts it installs against.
// Nothing is created here. Thread-safe.
class FileLocations {
 public:
  virtual ~FileLocations() = default;
  // The app-group container shared by every process of the product (not created here).
  virtual std::filesystem::path appGroupContainer() const = 0;
  // The container an earlier system version used for the same group, when the system has moved
  // it (the store files are carried over from there once); nothing where it never moved.
  virtual std::optional<std::filesystem::path> legacyAppGroupContainer() const { return std::nullopt; }
  // The user's Documents folder.
  virtual std::filesystem::path documentsDirectory() const = 0;
  // The user's Application Support folder (the product adds its own folder inside), or nothing
  // when the system names none.
  virtual std::optional<std::filesystem::path> applicationSupportDirectory() const = 0;
  // The user's own Applications folders, most preferred first (may be empty).
  virtual std::vector<std::filesystem::path> userApplicationsDirectories() const = 0;
  // The machine-wide Applications folders, in the system's order (may be empty).
  virtual std::vector<std::filesystem::path> localApplicationsDirectories() const = 0;
  // The folder holding the running program's executable; the companions ship beside it.
  virtual std::filesystem::path mainExecutableDirectory() const = 0;
  // The account that owns privileged files ("root").
  virtual std::string rootAccountName() const = 0;
  // The group of the machine's administrators ("admin" on a Mac).
  virtual std::string adminGroupName() const = 0;
};

// The services of one platform. The SMC driver and the file locations are made with it; every
// other service is made on first use by its own factory, so that each service lives in its own
// files:
//
//   class KernelValues {
//    public:
//     // Makes the service for `platform`: from its machine when simulated, else from the host.
//     static std::shared_ptr<KernelValues> create(const Platform& platform);
//     ...
//   };
//   auto& values = platform::current().service<KernelValues>();
//
// Tests replace a service with `provide`. Thread-safe.
class Platform {
 public:
  // `machineSource` is what loads `machine` again (a built-in name or a profile file's absolute
  // path); empty when there is nothing the helper tool could follow.
  Platform(std::shared_ptr<SmcDriver> smc, std::shared_ptr<FileLocations> files,
           std::shared_ptr<const MachineProfile> machine, bool simulated, std::string machineSource = {});

  SmcDriver& smc() const { return *smc_; }
  const FileLocations& files() const { return *files_; }
  const std::shared_ptr<FileLocations>& filesShared() const { return files_; }
  // The recorded machine behind the SMC (and, when simulated, every other service), or null.
  const std::shared_ptr<const MachineProfile>& machine() const { return machine_; }
  // True when every service answers from the recorded machine rather than from the host. On a
  // Linux host, native() simulates only the SMC and HID and reads the rest from Linux.
  bool simulated() const { return simulated_; }
  // Records the simulated machine as the one the helper tool writes to, in the app-group
  // container; only a process about to write through the helper calls it, so that reading
  // creates no files. Does nothing for a host SMC. Failures are ignored (the helper then writes
  // to the default machine).
  void announceMachine() const;

  template <class Service>
  Service& service() const {
    std::lock_guard lock(servicesLock_);
    auto& slot = services_[std::type_index(typeid(Service))];
    if (!slot) slot = Service::create(*this);
    return *static_cast<Service*>(slot.get());
  }

  template <class Service>
  void provide(std::shared_ptr<Service> instance) {
    std::lock_guard lock(servicesLock_);
    services_[std::type_index(typeid(Service))] = std::move(instance);
  }

 private:
  std::shared_ptr<SmcDriver> smc_;
  std::shared_ptr<FileLocations> files_;
  std::shared_ptr<const MachineProfile> machine_;
  bool simulated_;
  std::string machineSource_;
  mutable std::mutex servicesLock_;
  mutable std::unordered_map<std::type_index, std::shared_ptr<void>> services_;
};

struct NativeOptions {
  // For the helper tool: simulate the machine that the calling processes announced, rather than
  // announcing one. Matters only where the host has no SMC of its own.
  bool followAnnouncedMachine = false;
  // For a program started with raised rights by someone it must not trust: the product's files
  // are found from the real user's account entry, never from the environment, and opened only
  // where neither a symbolic link nor a file of anyone else's is on the way.
  bool untrustedCaller = false;
  // On Linux, the folder of the applesmc driver's files; empty means the driver's own place,
  // kApplesmcRoot. Ignored for an untrusted caller.
  std::filesystem::path applesmcRoot;
};

// Where Linux's applesmc driver shows the SMC of a Mac running Linux.
inline constexpr const char* kApplesmcRoot = "/sys/devices/platform/applesmc.768";

// True where the operating system offers a real SMC (macOS, or Linux with the applesmc driver at
// its own place); elsewhere native() simulates one.
bool hostHasSmc();

// The host's own services. On Linux the SMC is the applesmc driver's when its folder is there;
// where the host has no SMC (Linux on a non-Mac), the SMC is the embedded default machine, or the
// machine another process of the product announced.
std::shared_ptr<Platform> native(const NativeOptions& options = {});

struct SimulatedOptions {
  // Root under which the product's files live; empty means the user's real locations.
  std::filesystem::path root;
  // Record this machine at once as the one the helper tool should write to (otherwise it is
  // recorded by announceMachine(), before the first write through the helper).
  bool announce = true;
  // What loads this machine again (a built-in name or a profile file's absolute path), for the
  // announcement; empty means the profile's name, a built-in.
  std::string source;
};

// A recorded machine. SMC writes are kept in a state file in the app-group container so that
// every process simulating the same machine sees them.
std::shared_ptr<Platform> simulated(std::shared_ptr<const MachineProfile> profile,
                                    const SimulatedOptions& options = {});

// Makes `platform` the process's platform.
void install(std::shared_ptr<Platform> platform);

// The installed platform; installs `native()` on first use when none was installed.
Platform& current();

}  // namespace corvane::platform
