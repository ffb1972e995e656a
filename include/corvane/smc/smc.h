// The SMC protocol: four-character codes, value decoding, and the key operations of the
// process-wide connection to the System Management Controller.
//
// This header is plain C so that the privileged helper tool and any application can link the
// same functions. Every function returns the driver's status (0 = success) unless it says
// otherwise. Any thread may call them; the key-information cache is the only shared state.
#ifndef CORVANE_SMC_SMC_H
#define CORVANE_SMC_SMC_H

#include <stdint.h>

#include "corvane/platform/smc_key_data.h"

#ifdef __cplusplus
extern "C" {
#endif

/* kIOReturnError: what SMCReadKeyByIndex and SMCWriteKey return for their own refusals. */
#define kSMCReturnError ((kern_return_t)0xE00002BC)
/* kIOReturnNotFound: what the driver returns for a key the SMC does not have. */
#define kSMCReturnNotFound ((kern_return_t)0xE00002F0)

/* One key's value as handed to callers. */
typedef struct SMCValue {
  char key[5];            /* four-character key, NUL-terminated */
  uint32_t dataSize;      /* meaningful bytes in `bytes` (0-32) */
  char dataType[5];       /* four-character type code, blank-padded, NUL-terminated */
  unsigned char bytes[32]; /* raw value as the SMC returns it */
} SMCValue;

/* Codec: pure functions, no I/O. */

/* Packs `size` bytes big-endian; with base 16 each byte is sign-extended first. */
uint32_t SMCConvertStringToNumber(const char *str, int size, int base);
/* Writes the four characters of `n` and a NUL into `dst` (5 bytes); returns the count printed. */
int SMCConvertNumberToString(char *dst, uint32_t n);
/* Fixed-point decoder with `e` fraction bits over `size` big-endian bytes (fpe2-style only). */
float _strtof(const unsigned char *str, int size, int e);
/* Decodes a value record to a number; -1.0 when the type and size pair is unknown. */
float SMCConvertValueToNumber(SMCValue value);

/* Connection and key access. */

/* Opens the process-wide connection: 0 on success, 1 on any failure (with a message on stdout). */
kern_return_t SMCOpen(void);
/* Closes the process-wide connection. */
kern_return_t SMCClose(void);
/* Sends one 80-byte record to the driver method `selector`; `output` receives 80 bytes. */
kern_return_t SMCCall(int selector, SMCKeyData *input, SMCKeyData *output);
/* Size, type and attributes of a packed key, through the 100-entry cache. */
kern_return_t SMCGetKeyInfo(uint32_t key, SMCKeyDataKeyInfo *info);
/* Reads a key by its four-character name. */
kern_return_t SMCReadKey(const char *key, SMCValue *value);
/* Reads the index-th key of the SMC's key table (0-based). */
kern_return_t SMCReadKeyByIndex(uint32_t index, SMCValue *value);
/* Writes value.bytes to value.key; refuses (kSMCReturnError) a size that is not the key's. */
kern_return_t SMCWriteKey(SMCValue value);

#ifdef __cplusplus
}
#endif

#endif
