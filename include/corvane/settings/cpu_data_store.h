// How many of the busiest processes the CPU views list, shared by every process of the product.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "corvane/platform/global_notifications.h"
#include "corvane/settings/pref_data.h"
#include "corvane/store/data_store.h"

namespace corvane {

// Told, on the main queue, that some process changed the number of top processes.
class HWCPUDataStoreDelegate : public virtual HWDataStoreDelegate {
 public:
  // `number` is the count as it reads now.
  virtual void cpuDataStoreNumOfTopProcessesDidChange(std::int64_t number) { (void)number; }
};

// The CPU settings over the shared suite. Made once per process (by the data manager) and held
// by std::shared_ptr. Reads and writes are thread-safe; delegates are called on the main queue.
class HWCPUDataStore : public HWDataStore, public std::enable_shared_from_this<HWCPUDataStore> {
  struct Passkey {};

 public:
  // The count used while nothing usable is stored.
  static constexpr std::int64_t kDefaultNumOfTopProcesses = 12;

  // A store over `prefData` (null: a wrapper of its own) that listens for other processes'
  // changes of the count.
  static std::shared_ptr<HWCPUDataStore> create(std::shared_ptr<HWPrefData> prefData);
  HWCPUDataStore(Passkey, std::shared_ptr<HWPrefData> prefData);
  ~HWCPUDataStore() override;

  const std::shared_ptr<HWPrefData>& prefData() const { return prefData_; }
  // The stored count when it is a whole number of at least 0, else kDefaultNumOfTopProcesses.
  std::int64_t numOfTopProcesses() const;
  // Stores `number` (nothing: removes it, so the default applies) and announces it to every
  // process, this one included.
  void setNumOfTopProcesses(std::optional<std::int64_t> number);
  // The counts offered to choose from: 5, 10, 12, 15, 20.
  const std::vector<std::int64_t>& numOfTopProcessValues() const { return numOfTopProcessValues_; }
  // Removes the stored count (announced like any change).
  void clearData() override;

 private:
  void registerNotifications();
  void numOfTopProcessesDidChangeNotification();

  std::shared_ptr<HWPrefData> prefData_;
  std::vector<std::int64_t> numOfTopProcessValues_{5, 10, 12, 15, 20};
  std::unique_ptr<platform::GlobalNotifications::Token> observation_;
};

}  // namespace corvane
