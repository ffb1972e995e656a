// Keyed archives (the platform's binary property-list layout for archived object graphs) and
// the DES cryptor of the product's data extension.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace corvane::data {

// Kinds of object a keyed archive may hold, as a bit set for toObjectOfClasses.
enum ArchiveKind : unsigned {
  kArchiveDictionary = 1u << 0,  // NSDictionary / NSMutableDictionary ↔ JSON object
  kArchiveArray = 1u << 1,       // NSArray / NSMutableArray ↔ JSON array
  kArchiveString = 1u << 2,      // NSString ↔ JSON string
  kArchiveNumber = 1u << 3,      // NSNumber ↔ JSON number or boolean
  kArchiveNull = 1u << 4,        // NSNull ↔ JSON null
};

// `object` as a keyed archive: a binary property list with "$archiver" "NSKeyedArchiver",
// "$version" 100000, "$top" {"root": UID 1} (UID 0, "$null", for a null root) and "$objects",
// in the layout the platform's keyed unarchiver reads. Empty only if the encoder fails.
std::vector<std::uint8_t> archivedDataWithObject(const nlohmann::json& object);

// Decodes a keyed archive. The root must be of one of `allowedKinds`; inside a dictionary or
// array any of the kinds above is accepted, as the platform lets its plain property-list types
// through a collection. Anything else (other classes, a null root, broken references, corrupt
// bytes) gives nullopt.
std::optional<nlohmann::json> toObjectOfClasses(std::span<const std::uint8_t> bytes, unsigned allowedKinds);

// Status codes of the cryptor, as the platform's.
inline constexpr std::int32_t kCCSuccess = 0;
inline constexpr std::int32_t kCCParamError = -4300;
inline constexpr std::int32_t kCCBufferTooSmall = -4301;
inline constexpr std::int32_t kCCAlignmentError = -4303;
inline constexpr std::int32_t kCCDecodeError = -4304;
inline constexpr std::int32_t kCCUnimplemented = -4305;
// Algorithms (only DES is available) and options.
inline constexpr std::uint32_t kCCAlgorithmAES = 0;
inline constexpr std::uint32_t kCCAlgorithmDES = 1;
inline constexpr std::uint32_t kCCAlgorithmBlowfish = 6;
inline constexpr std::uint32_t kCCOptionPKCS7Padding = 1;
inline constexpr std::uint32_t kCCOptionECBMode = 2;

// Encrypts `bytes`. `key` and `iv` are raw bytes (a text is its UTF-8 bytes). DES takes an
// 8-byte key (else kCCParamError); the mode is ECB with kCCOptionECBMode, else CBC with `iv`
// (its first 8 bytes, zero-filled when shorter) or a zero vector when there is none. Without
// kCCOptionPKCS7Padding the input must be whole blocks (else kCCAlignmentError). Algorithms
// other than DES give kCCUnimplemented (unknown numbers kCCParamError). On failure the status
// goes to `status` (when given) and the result is nullopt; on success `status` gets kCCSuccess.
std::optional<std::vector<std::uint8_t>> encryptedData(std::span<const std::uint8_t> bytes, std::uint32_t algorithm,
                                                       std::string_view key, std::optional<std::string_view> iv,
                                                       std::uint32_t options, std::int32_t* status);
// Decrypts `bytes` with the same parameters; a ciphertext that is not whole blocks gives
// kCCAlignmentError, bad padding kCCDecodeError.
std::optional<std::vector<std::uint8_t>> decryptedData(std::span<const std::uint8_t> bytes, std::uint32_t algorithm,
                                                       std::string_view key, std::optional<std::string_view> iv,
                                                       std::uint32_t options, std::int32_t* status);

// DES, PKCS7 padding, CBC with a zero vector, `key` as UTF-8 bytes; nullopt on failure.
std::optional<std::vector<std::uint8_t>> encryptedDataWithKey(std::span<const std::uint8_t> bytes, std::string_view key);
std::optional<std::vector<std::uint8_t>> decryptedDataWithKey(std::span<const std::uint8_t> bytes, std::string_view key);

}  // namespace corvane::data
