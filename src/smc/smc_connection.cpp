// The process-wide SMC connection and the four key operations, over the platform's SMC driver.
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"
#include "smc/key_info_cache.h"

namespace corvane::smc {
namespace {

constexpr int kKeyInfoCacheCapacity = 100;

struct KeyInfoEntry {
  uint32_t key;
  uint32_t dataSize;
  uint32_t dataType;
  uint32_t dataAttributes;  // 8 bits used
};

// The cache only grows, up to its capacity, and is never cleared while one driver is in use:
// once full, further keys are asked of the driver on every read. The lock is held across the
// driver call on a miss, so at most one key-information query is in flight.
std::mutex g_keyInfoLock;
KeyInfoEntry g_keyInfoCache[kKeyInfoCacheCapacity];
int32_t g_keyInfoCacheCount = 0;
std::uint64_t g_cacheDriver = 0;  // the instance of the driver whose keys the cache describes

kern_return_t driverCall(const SMCKeyData& input, SMCKeyData& output) {
  return platform::current().smc().call(kSMCUserClientSelector, input, output);
}

// A zeroed record carrying `command`; the driver reads every field, so nothing may be left over.
SMCKeyData commandRecord(uint8_t command) {
  SMCKeyData record;
  std::memset(&record, 0, sizeof record);
  record.data8 = command;
  return record;
}

}  // namespace

int keyInfoCacheCount() {
  std::lock_guard lock(g_keyInfoLock);
  return g_keyInfoCacheCount;
}

}  // namespace corvane::smc

using namespace corvane;
using namespace corvane::smc;

extern "C" {

kern_return_t SMCOpen(void) {
  platform::SmcDriver& driver = platform::current().smc();
  {
    // A different machine (a newly installed platform) has different keys.
    std::lock_guard lock(g_keyInfoLock);
    if (g_cacheDriver != driver.instance()) {
      g_keyInfoCacheCount = 0;
      g_cacheDriver = driver.instance();
    }
  }
  const auto opened = driver.open();
  using Stage = platform::SmcDriver::OpenResult::Stage;
  switch (opened.stage) {
    case Stage::ok:
      return 0;
    case Stage::matchingFailed:
      std::printf("Error: IOServiceGetMatchingServices() = %08x\n", static_cast<unsigned>(opened.status));
      return 1;
    case Stage::noDevice:
      std::printf("Error: no SMC found\n");
      return 1;
    case Stage::openFailed:
      std::printf("Error: IOServiceOpen() = %08x\n", static_cast<unsigned>(opened.status));
      return 1;
  }
  return 1;
}

kern_return_t SMCClose(void) {
  return platform::current().smc().close();
}

kern_return_t SMCCall(int selector, SMCKeyData* input, SMCKeyData* output) {
  return platform::current().smc().call(static_cast<uint32_t>(selector), *input, *output);
}

kern_return_t SMCGetKeyInfo(uint32_t key, SMCKeyDataKeyInfo* info) {
  std::lock_guard lock(g_keyInfoLock);
  for (int32_t i = 0; i < g_keyInfoCacheCount; ++i) {
    const KeyInfoEntry& entry = g_keyInfoCache[i];
    if (entry.key == key) {
      info->dataSize = entry.dataSize;
      info->dataType = entry.dataType;
      info->dataAttributes = static_cast<uint8_t>(entry.dataAttributes);
      return 0;
    }
  }

  SMCKeyData input = commandRecord(kSMCCmdGetKeyInfo);
  SMCKeyData output = commandRecord(0);
  input.key = key;
  const kern_return_t result = driverCall(input, output);
  if (result == 0) {
    *info = output.keyInfo;
    if (g_keyInfoCacheCount < kKeyInfoCacheCapacity) {
      g_keyInfoCache[g_keyInfoCacheCount++] = {key, output.keyInfo.dataSize, output.keyInfo.dataType,
                                               output.keyInfo.dataAttributes};
    }
  }
  return result;
}

kern_return_t SMCReadKey(const char* key, SMCValue* value) {
  std::memset(value, 0, sizeof *value);
  const uint32_t packed = SMCConvertStringToNumber(key, 4, 16);
  // At most four characters, stopping at a shorter key's NUL; the record was zeroed above.
  std::memcpy(value->key, key, strnlen(key, sizeof value->key - 1));

  SMCKeyDataKeyInfo info;
  kern_return_t result = SMCGetKeyInfo(packed, &info);
  if (result != 0) {
    return result;
  }
  value->dataSize = info.dataSize;
  SMCConvertNumberToString(value->dataType, info.dataType);

  SMCKeyData input = commandRecord(kSMCCmdReadKey);
  SMCKeyData output = commandRecord(0);
  input.key = packed;
  input.keyInfo.dataSize = info.dataSize;
  result = driverCall(input, output);
  if (result != 0) {
    return result;
  }
  // The result byte is not examined: a key the SMC rejects reads as whatever came back.
  std::memcpy(value->bytes, output.bytes, sizeof value->bytes);
  return 0;
}

kern_return_t SMCReadKeyByIndex(uint32_t index, SMCValue* value) {
  SMCKeyData input = commandRecord(kSMCCmdGetKeyFromIndex);
  SMCKeyData output = commandRecord(0);
  input.data32 = index;
  const kern_return_t result = driverCall(input, output);
  if (result != 0) {
    return result;
  }
  if (output.result != 0) {
    return kSMCReturnError;
  }
  char key[5];
  SMCConvertNumberToString(key, output.key);
  return SMCReadKey(key, value);
}

kern_return_t SMCWriteKey(SMCValue value) {
  SMCValue current;
  const kern_return_t read = SMCReadKey(value.key, &current);
  if (read != 0) {
    return read;
  }
  if (current.dataSize != value.dataSize) {
    return kSMCReturnError;
  }
  SMCKeyData input = commandRecord(kSMCCmdWriteKey);
  SMCKeyData output = commandRecord(0);
  input.key = SMCConvertStringToNumber(value.key, 4, 16);
  input.keyInfo.dataSize = current.dataSize;
  std::memcpy(input.bytes, value.bytes, sizeof input.bytes);
  return driverCall(input, output);
}

}  // extern "C"

static_assert(sizeof(SMCKeyData) == 80);
static_assert(offsetof(SMCKeyData, key) == 0);
static_assert(offsetof(SMCKeyData, vers) == 4);
static_assert(offsetof(SMCKeyData, vers) + offsetof(SMCKeyDataVers, release) == 8);
static_assert(offsetof(SMCKeyData, pLimitData) == 12);
static_assert(offsetof(SMCKeyData, pLimitData) + offsetof(SMCKeyDataPLimitData, cpuPLimit) == 16);
static_assert(offsetof(SMCKeyData, keyInfo) + offsetof(SMCKeyDataKeyInfo, dataSize) == 28);
static_assert(offsetof(SMCKeyData, keyInfo) + offsetof(SMCKeyDataKeyInfo, dataType) == 32);
static_assert(offsetof(SMCKeyData, keyInfo) + offsetof(SMCKeyDataKeyInfo, dataAttributes) == 36);
static_assert(offsetof(SMCKeyData, result) == 40);
static_assert(offsetof(SMCKeyData, status) == 41);
static_assert(offsetof(SMCKeyData, data8) == 42);
static_assert(offsetof(SMCKeyData, data32) == 44);
static_assert(offsetof(SMCKeyData, bytes) == 48);
