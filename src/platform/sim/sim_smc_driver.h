// The SMC of a recorded machine: answers the driver commands from the profile's key table.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "corvane/platform/machine_profile.h"
#include "corvane/platform/smc_driver.h"
#include "platform/posix/file_lock.h"
#include "platform/posix/owned_files.h"
#include "platform/smc_statuses.h"

namespace corvane::platform {

namespace sim {
class SimDynamics;
}

// Thread-safe. With no dynamics every read returns exactly the recorded bytes, or the bytes last
// written; with dynamics, temperatures and fans' actual speeds move from there. Writes to fan keys (those beginning with 'F') are kept in `stateFile`, shared by every
// process simulating the same machine; other writes stay in this process.
class SimSmcDriver final : public SmcDriver {
 public:
  // Driver calls by command since construction (or the last reset).
  struct CallCounts {
    uint64_t keyInfo = 0;
    uint64_t read = 0;
    uint64_t write = 0;
    uint64_t keyFromIndex = 0;
    uint64_t other = 0;
    uint64_t total() const { return keyInfo + read + write + keyFromIndex + other; }
  };

  // `profile` null simulates a Mac without an SMC. An empty `stateFile` keeps writes in memory.
  // With `owned`, the state file is reached only as that tree allows (the helper tool's case).
  SimSmcDriver(std::shared_ptr<const MachineProfile> profile, std::filesystem::path stateFile,
               std::shared_ptr<const posix::OwnedTree> owned = nullptr);

  OpenResult open() override;
  kern_return_t close() override;
  kern_return_t call(uint32_t selector, const SMCKeyData& input, SMCKeyData& output) override;

  // Switches dynamics on (see enableSimDynamics); the driver keeps every one it was given.
  void setDynamics(std::shared_ptr<sim::SimDynamics> dynamics);
  // The dynamics in force, or null when they are off.
  sim::SimDynamics* dynamics() const { return dynamics_.load(std::memory_order_acquire); }

  CallCounts counts() const;
  void resetCounts();
  // Number of keys enumerated by index (what "#KEY" says when the profile does not record it).
  uint32_t enumeratedKeyCount() const { return static_cast<uint32_t>(enumerated_.size()); }

 private:
  kern_return_t keyInfo(const SMCKeyData& input, SMCKeyData& output) const;
  kern_return_t read(const SMCKeyData& input, SMCKeyData& output);
  kern_return_t write(const SMCKeyData& input, SMCKeyData& output);
  kern_return_t keyFromIndex(const SMCKeyData& input, SMCKeyData& output) const;
  const SmcEntry* find(uint32_t key) const;
  // Brings written fan values up to date with the state file; called with `stateLock_` held.
  void refreshSharedState();
  bool persist(uint32_t key, const std::array<uint8_t, 32>& bytes, uint32_t size);
  // The bytes `entry` holds now without dynamics: written, else recorded.
  std::array<uint8_t, 32> currentBytes(const SmcEntry& entry);
  // The number key `key` holds now without dynamics; nothing when absent or undecodable.
  std::optional<double> currentNumber(sim::SimDynamics& dynamics, uint32_t key);
  // Moves a temperature or a fan's actual speed in `bytes` as the dynamics say.
  void applyDynamics(sim::SimDynamics& dynamics, const SmcEntry& entry, uint8_t* bytes);

  std::shared_ptr<const MachineProfile> profile_;
  std::filesystem::path stateFile_;
  std::shared_ptr<const posix::OwnedTree> owned_;
  SmcEntry synthesizedKeyCount_;  // "#KEY" when the profile does not record it
  std::unordered_map<uint32_t, std::size_t> byKey_;
  std::vector<std::size_t> enumerated_;

  std::atomic<int> openCount_{0};
  std::atomic<uint64_t> keyInfoCalls_{0}, readCalls_{0}, writeCalls_{0}, indexCalls_{0}, otherCalls_{0};

  std::atomic<bool> hasLocalWrites_{false};
  std::mutex stateLock_;
  std::unordered_map<uint32_t, std::array<uint8_t, 32>> written_;  // guarded by stateLock_
  posix::FileStamp stateStamp_;                                    // guarded by stateLock_

  std::atomic<sim::SimDynamics*> dynamics_{nullptr};
  std::mutex dynamicsLock_;
  std::vector<std::shared_ptr<sim::SimDynamics>> keptDynamics_;  // guarded by dynamicsLock_
};

}  // namespace corvane::platform
