#include "corvane/platform/platform.h"

#include <atomic>
#include <mutex>

#include "platform/sim/sim_platform.h"

namespace corvane::platform {
namespace {

std::mutex g_installLock;
std::shared_ptr<Platform> g_owner;          // keeps the installed platform alive
std::atomic<Platform*> g_current{nullptr};  // read on every driver call, so no lock there

}  // namespace

Platform::Platform(std::shared_ptr<SmcDriver> smc, std::shared_ptr<FileLocations> files,
                   std::shared_ptr<const MachineProfile> machine, bool simulated, std::string machineSource)
    : smc_(std::move(smc)),
      files_(std::move(files)),
      machine_(std::move(machine)),
      simulated_(simulated),
      machineSource_(std::move(machineSource)) {}

void Platform::announceMachine() const {
  if (machine_ && !machineSource_.empty()) sim::announceMachine(*files_, machineSource_);
}

void install(std::shared_ptr<Platform> platform) {
  std::lock_guard lock(g_installLock);
  g_current.store(platform.get(), std::memory_order_release);
  g_owner = std::move(platform);
}

Platform& current() {
  Platform* platform = g_current.load(std::memory_order_acquire);
  if (platform != nullptr) return *platform;
  std::lock_guard lock(g_installLock);
  if (g_owner == nullptr) {
    g_owner = native();
    g_current.store(g_owner.get(), std::memory_order_release);
  }
  return *g_owner;
}

}  // namespace corvane::platform
