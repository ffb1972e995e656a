#include "platform/sim/sim_smc_driver.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <nlohmann/json.hpp>

#include "corvane/platform/text.h"
#include "platform/sim/sim_dynamics.h"

namespace corvane::platform {
namespace {

using text::bytesFromHex;
using text::hexFromBytes;
using text::packFourCc;
using text::unpackFourCc;

constexpr uint32_t kKeyCountKey = packFourCc("#KEY");

bool isSharedKey(uint32_t key) { return (key >> 24) == 'F'; }

// The fan keys recorded in a state file; an unreadable or malformed file holds none, so a damaged
// file never stops the machine from answering with its recorded values.
nlohmann::json readState(const std::filesystem::path& path, const posix::OwnedTree* owned) {
  auto text = owned != nullptr ? owned->read(path) : posix::readWholeFile(path);
  if (!text) return nlohmann::json::object();
  nlohmann::json state = nlohmann::json::parse(*text, nullptr, false);
  if (!state.is_object() || !state.contains("keys") || !state["keys"].is_object()) {
    return nlohmann::json::object();
  }
  return state["keys"];
}

}  // namespace

SimSmcDriver::SimSmcDriver(std::shared_ptr<const MachineProfile> profile, std::filesystem::path stateFile,
                           std::shared_ptr<const posix::OwnedTree> owned)
    : profile_(std::move(profile)), stateFile_(std::move(stateFile)), owned_(std::move(owned)) {
  if (!profile_) return;
  for (std::size_t i = 0; i < profile_->smc.size(); ++i) {
    const SmcEntry& entry = profile_->smc[i];
    byKey_.emplace(entry.key, i);
    if (!entry.hidden) enumerated_.push_back(i);
  }
  synthesizedKeyCount_.key = kKeyCountKey;
  synthesizedKeyCount_.type = 0x75693332;  // "ui32"
  synthesizedKeyCount_.size = 4;
  synthesizedKeyCount_.attributes = 0x80;
  const auto count = static_cast<uint32_t>(enumerated_.size());
  synthesizedKeyCount_.bytes = {static_cast<uint8_t>(count >> 24), static_cast<uint8_t>(count >> 16),
                                static_cast<uint8_t>(count >> 8), static_cast<uint8_t>(count)};
}

SmcDriver::OpenResult SimSmcDriver::open() {
  if (!profile_) return {OpenResult::Stage::noDevice, 0};
  openCount_.fetch_add(1);
  return {};
}

kern_return_t SimSmcDriver::close() {
  // Several users may share the connection: it stays open while any of them has it open.
  int count = openCount_.load();
  while (count > 0 && !openCount_.compare_exchange_weak(count, count - 1)) {
  }
  return count > 0 ? 0 : kIOReturnNotOpen;
}

kern_return_t SimSmcDriver::call(uint32_t selector, const SMCKeyData& input, SMCKeyData& output) {
  std::memset(&output, 0, sizeof output);
  if (openCount_.load(std::memory_order_relaxed) <= 0) {
    ++otherCalls_;
    return kIOReturnNotOpen;
  }
  if (selector != kSMCUserClientSelector) {
    ++otherCalls_;
    return kIOReturnUnsupported;
  }
  switch (input.data8) {
    case kSMCCmdGetKeyInfo:
      ++keyInfoCalls_;
      return keyInfo(input, output);
    case kSMCCmdReadKey:
      ++readCalls_;
      return read(input, output);
    case kSMCCmdWriteKey:
      ++writeCalls_;
      return write(input, output);
    case kSMCCmdGetKeyFromIndex:
      ++indexCalls_;
      return keyFromIndex(input, output);
    default:
      ++otherCalls_;
      output.result = kSMCResultBadArgument;
      return 0;
  }
}

const SmcEntry* SimSmcDriver::find(uint32_t key) const {
  const auto it = byKey_.find(key);
  if (it != byKey_.end()) return &profile_->smc[it->second];
  if (key == kKeyCountKey) return &synthesizedKeyCount_;
  return nullptr;
}

kern_return_t SimSmcDriver::keyInfo(const SMCKeyData& input, SMCKeyData& output) const {
  const SmcEntry* entry = find(input.key);
  if (entry == nullptr) {
    output.result = kSMCResultKeyNotFound;
    return kIOReturnNotFound;
  }
  output.key = entry->key;
  output.keyInfo.dataSize = entry->size;
  output.keyInfo.dataType = entry->type;
  output.keyInfo.dataAttributes = entry->attributes;
  return 0;
}

kern_return_t SimSmcDriver::read(const SMCKeyData& input, SMCKeyData& output) {
  const SmcEntry* entry = find(input.key);
  if (entry == nullptr) {
    output.result = kSMCResultKeyNotFound;
    return kIOReturnNotFound;
  }
  if (entry->status != 0) return entry->status;
  // The driver refuses transfers larger than the record can carry.
  if (input.keyInfo.dataSize > sizeof output.bytes) return kIOReturnBadArgument;
  output.key = entry->key;
  output.keyInfo.dataSize = entry->size;
  if (entry->result != 0) {
    output.result = entry->result;
    return 0;
  }
  if (input.keyInfo.dataSize != entry->size) {
    output.result = kSMCResultBadArgument;
    return 0;
  }
  const std::array<uint8_t, 32> bytes = currentBytes(*entry);
  std::memcpy(output.bytes, bytes.data(), entry->size);
  if (sim::SimDynamics* moving = dynamics()) applyDynamics(*moving, *entry, output.bytes);
  return 0;
}

std::array<uint8_t, 32> SimSmcDriver::currentBytes(const SmcEntry& entry) {
  if (isSharedKey(entry.key) || hasLocalWrites_.load(std::memory_order_acquire)) {
    std::lock_guard lock(stateLock_);
    if (isSharedKey(entry.key)) refreshSharedState();
    const auto it = written_.find(entry.key);
    if (it != written_.end()) return it->second;
  }
  return entry.bytes;
}

std::optional<double> SimSmcDriver::currentNumber(sim::SimDynamics& dynamics, uint32_t key) {
  const SmcEntry* entry = find(key);
  if (entry == nullptr || entry->status != 0 || entry->result != 0) return std::nullopt;
  const auto bytes = currentBytes(*entry);
  return dynamics.codec().decode(entry->type, entry->size, bytes.data());
}

void SimSmcDriver::applyDynamics(sim::SimDynamics& dynamics, const SmcEntry& entry, uint8_t* bytes) {
  const char kind = static_cast<char>(entry.key >> 24);
  const char fan = static_cast<char>(entry.key >> 16);
  const uint16_t suffix = static_cast<uint16_t>(entry.key);
  // Temperatures are the "T" keys of the signed fixed-point and float types; other "T" keys
  // (counts, flags) keep their bytes.
  const bool temperatureType = (entry.type >> 16) == packFourCc("sp") || entry.type == packFourCc("flt ");
  const bool temperature = kind == 'T' && temperatureType;
  const bool fanActual = kind == 'F' && suffix == packFourCc("Ac");
  if (!temperature && !fanActual) return;
  const auto value = dynamics.codec().decode(entry.type, entry.size, bytes);
  if (!value) return;
  double moved = *value;
  if (temperature) {
    moved = dynamics.temperature(unpackFourCc(entry.key), *value);
  } else {
    const auto fanKey = [fan](const char* what) { return packFourCc(std::string{'F', fan, what[0], what[1]}); };
    const auto target = currentNumber(dynamics, fanKey("Tg"));
    if (!target) return;
    moved = dynamics.fanSpeed(unpackFourCc(entry.key), *value, *target,
                              currentNumber(dynamics, fanKey("Mn")).value_or(0),
                              currentNumber(dynamics, fanKey("Mx")).value_or(0));
  }
  if (moved != *value) dynamics.codec().encode(entry.type, entry.size, moved, bytes);
}

void SimSmcDriver::setDynamics(std::shared_ptr<sim::SimDynamics> dynamics) {
  std::lock_guard lock(dynamicsLock_);
  dynamics_.store(dynamics.get(), std::memory_order_release);
  keptDynamics_.push_back(std::move(dynamics));  // a reader may still be using an earlier one
}

kern_return_t SimSmcDriver::write(const SMCKeyData& input, SMCKeyData& output) {
  const SmcEntry* entry = find(input.key);
  if (entry == nullptr || entry == &synthesizedKeyCount_) {
    output.result = kSMCResultKeyNotFound;
    return entry == nullptr ? kIOReturnNotFound : 0;
  }
  if (entry->status != 0) return entry->status;
  if (entry->result != 0) {
    output.result = entry->result;
    return 0;
  }
  // Like the real SMC, a write must carry exactly the key's size.
  if (input.keyInfo.dataSize != entry->size) return kIOReturnBadArgument;

  std::array<uint8_t, 32> bytes{};
  std::memcpy(bytes.data(), input.bytes, entry->size);
  std::lock_guard lock(stateLock_);
  if (isSharedKey(entry->key) && !stateFile_.empty()) {
    if (!persist(entry->key, bytes, entry->size)) return kIOReturnNotWritable;
  } else {
    written_[entry->key] = bytes;
    if (!isSharedKey(entry->key)) hasLocalWrites_.store(true, std::memory_order_release);
  }
  return 0;
}

kern_return_t SimSmcDriver::keyFromIndex(const SMCKeyData& input, SMCKeyData& output) const {
  if (input.data32 >= enumerated_.size()) {
    output.result = kSMCResultKeyNotFound;
    return 0;
  }
  output.key = profile_->smc[enumerated_[input.data32]].key;
  return 0;
}

void SimSmcDriver::refreshSharedState() {
  if (stateFile_.empty()) return;
  const posix::FileStamp stamp = owned_ ? owned_->stamp(stateFile_) : posix::stampOf(stateFile_);
  if (stamp == stateStamp_) return;
  stateStamp_ = stamp;
  for (auto it = written_.begin(); it != written_.end();) {
    it = isSharedKey(it->first) ? written_.erase(it) : std::next(it);
  }
  const nlohmann::json keys = readState(stateFile_, owned_.get());
  for (const auto& [name, value] : keys.items()) {
    const SmcEntry* entry = name.size() == 4 ? find(packFourCc(name)) : nullptr;
    if (entry == nullptr || !value.is_string()) continue;
    const auto decoded = bytesFromHex(value.get<std::string>());
    if (decoded && decoded->size() == entry->size) {
      std::array<uint8_t, 32> bytes{};
      std::copy(decoded->begin(), decoded->end(), bytes.begin());
      written_[entry->key] = bytes;
    }
  }
}

bool SimSmcDriver::persist(uint32_t key, const std::array<uint8_t, 32>& bytes, uint32_t size) {
  std::unique_ptr<posix::ExclusiveFileLock> fileLock;
  const std::filesystem::path lockFile = stateFile_.string() + ".lock";
  if (owned_) {
    fileLock = owned_->lock(lockFile);  // the tree makes the folders itself
  } else {
    std::error_code ec;
    std::filesystem::create_directories(stateFile_.parent_path(), ec);
    fileLock = std::make_unique<posix::ExclusiveFileLock>(lockFile);
  }
  if (!fileLock || !fileLock->locked()) return false;
  // Merge with what other processes wrote since this one last looked.
  nlohmann::json keys = readState(stateFile_, owned_.get());
  keys[unpackFourCc(key)] = hexFromBytes(bytes.data(), std::min<std::size_t>(size, bytes.size()));
  nlohmann::json state = {{"machine", profile_->name}, {"keys", keys}};
  const std::string text = state.dump(1) + "\n";
  const bool replaced =
      owned_ ? owned_->replace(stateFile_, text) : posix::replaceFileAtomically(stateFile_, text, nullptr);
  if (!replaced) return false;
  stateStamp_ = {};  // force a reload of the merged content
  refreshSharedState();
  return true;
}

SimSmcDriver::CallCounts SimSmcDriver::counts() const {
  return {keyInfoCalls_.load(), readCalls_.load(), writeCalls_.load(), indexCalls_.load(), otherCalls_.load()};
}

void SimSmcDriver::resetCounts() {
  keyInfoCalls_ = 0;
  readCalls_ = 0;
  writeCalls_ = 0;
  indexCalls_ = 0;
  otherCalls_ = 0;
}

}  // namespace corvane::platform
