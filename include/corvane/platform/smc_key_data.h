/* The record the SMC driver exchanges with its callers: one user-client call carries an 80-byte
 * SMCKeyData in and one out. Plain C, so that the driver interface below the seam and the SMC
 * functions above it share one layout. */
#ifndef CORVANE_PLATFORM_SMC_KEY_DATA_H
#define CORVANE_PLATFORM_SMC_KEY_DATA_H

#include <stdint.h>

#ifdef __APPLE__
#include <mach/kern_return.h>
#else
typedef int kern_return_t;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Driver commands, placed in SMCKeyData.data8. */
enum {
  kSMCCmdReadKey = 5,
  kSMCCmdWriteKey = 6,
  kSMCCmdGetKeyFromIndex = 8,
  kSMCCmdGetKeyInfo = 9,
};

/* The user-client method that carries every command. */
enum { kSMCUserClientSelector = 2 };

typedef struct SMCKeyDataVers {
  uint8_t major;
  uint8_t minor;
  uint8_t build;
  uint8_t reserved;
  uint16_t release;
} SMCKeyDataVers;

typedef struct SMCKeyDataPLimitData {
  uint16_t version;
  uint16_t length;
  uint32_t cpuPLimit;
  uint32_t gpuPLimit;
  uint32_t memPLimit;
} SMCKeyDataPLimitData;

/* Key information: size, packed type and attribute bits of one key. */
typedef struct SMCKeyDataKeyInfo {
  uint32_t dataSize;
  uint32_t dataType;
  uint8_t dataAttributes;
} SMCKeyDataKeyInfo;

/* The 80-byte record exchanged with the driver, the same layout for input and output. */
typedef struct SMCKeyData {
  uint32_t key;
  SMCKeyDataVers vers;
  SMCKeyDataPLimitData pLimitData;
  SMCKeyDataKeyInfo keyInfo;
  uint8_t result;
  uint8_t status;
  uint8_t data8;
  uint32_t data32;
  unsigned char bytes[32];
} SMCKeyData;

#ifdef __cplusplus
}
#endif

#endif
