// The SMC of a Mac running Linux, through the attribute files of the kernel's applesmc driver.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "corvane/platform/smc_driver.h"

namespace corvane::platform {

// The driver's attribute files by name ("key_count", "fan1_output"), relative to its folder.
// A seam of its own because one attribute is stateful: writing "key_at_index" changes what the
// "key_at_index_*" attributes read, which no plain folder of files can do.
class ApplesmcFiles {
 public:
  virtual ~ApplesmcFiles() = default;
  // Reads attribute `name` whole into `out`; 0, or the errno of the failure.
  virtual int read(std::string_view name, std::string& out) = 0;
  // Writes `text` to the existing attribute `name`; 0, or the errno of the failure.
  virtual int write(std::string_view name, std::string_view text) = 0;
};

// The attributes in the folder `root`; none is ever created, nor reached through a symbolic link.
std::shared_ptr<ApplesmcFiles> applesmcFolder(std::filesystem::path root);

// True when `root` holds the driver's attributes (its key count).
bool applesmcPresent(const std::filesystem::path& root);

// Keys are found by walking the driver's index once, at the first open. The driver writes only
// fans, so a write reaches the fan attribute that stands for the key (target, minimum, manual
// switch) as decimal text; every other write is refused with kIOReturnNotWritable. Keys the index
// does not list answer as missing, as on a Mac. Thread-safe: one selection at a time in this
// process; a selection by another process between selecting and reading is noticed by the
// name read afterwards, and the read is tried once more.
class ApplesmcDriver final : public SmcDriver {
 public:
  explicit ApplesmcDriver(std::shared_ptr<ApplesmcFiles> files);

  OpenResult open() override;
  kern_return_t close() override;
  kern_return_t call(uint32_t selector, const SMCKeyData& input, SMCKeyData& output) override;

 private:
  struct Key {
    uint32_t key = 0;  // 0 for an index that could not be described
    uint32_t type = 0;
    uint32_t size = 0;
    uint32_t index = 0;
  };

  // Fills keys_ from the index; 0, or the status that makes the open fail.
  kern_return_t walk();
  // Describes the key at `index` into `key`; 0, or the status of the failure.
  kern_return_t describe(uint32_t index, Key& key);
  const Key* find(uint32_t key) const;
  kern_return_t readData(const Key& key, uint8_t* bytes);
  kern_return_t write(const Key& key, const SMCKeyData& input);
  // Writes `text` to `name`; 0, or the status of the failure.
  kern_return_t put(const std::string& name, const std::string& text);

  std::shared_ptr<ApplesmcFiles> files_;
  std::mutex lock_;  // guards the selection, opening and the walk
  bool walked_ = false;
  std::atomic<int> users_{0};
  // Written by the first successful open only, before users_ counts it; read-only after.
  std::vector<Key> keys_;
  std::unordered_map<uint32_t, std::size_t> byKey_;
  Key keyCount_;  // "#KEY" when the index does not list it
};

}  // namespace corvane::platform
