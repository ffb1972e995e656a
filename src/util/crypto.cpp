// The product's cryptor over nettle's DES, with the platform cryptor's modes, padding and
// status codes.
#include <algorithm>
#include <array>
#include <cstring>

#include <nettle/cbc.h>
#include <nettle/des.h>

#include "corvane/util/data.h"

namespace corvane::data {

namespace {

enum class Operation { Encrypt, Decrypt };

constexpr std::uint32_t kLastKnownAlgorithm = kCCAlgorithmBlowfish;

// nettle's block-function type, so that the chaining mode calls DES through a matching type.
void desEncryptBlocks(const void* context, std::size_t length, std::uint8_t* dst, const std::uint8_t* src) {
  des_encrypt(static_cast<const des_ctx*>(context), length, dst, src);
}
void desDecryptBlocks(const void* context, std::size_t length, std::uint8_t* dst, const std::uint8_t* src) {
  des_decrypt(static_cast<const des_ctx*>(context), length, dst, src);
}

std::optional<std::vector<std::uint8_t>> fail(std::int32_t code, std::int32_t* status) {
  if (status) *status = code;
  return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> run(Operation operation, std::span<const std::uint8_t> bytes,
                                             std::uint32_t algorithm, std::string_view key,
                                             std::optional<std::string_view> iv, std::uint32_t options,
                                             std::int32_t* status) {
  if (algorithm != kCCAlgorithmDES) return fail(algorithm > kLastKnownAlgorithm ? kCCParamError : kCCUnimplemented, status);
  if (key.size() != DES_KEY_SIZE) return fail(kCCParamError, status);

  des_ctx context{};
  // Weak keys are accepted, as by the platform's cryptor; the schedule is set up either way.
  des_set_key(&context, reinterpret_cast<const std::uint8_t*>(key.data()));

  const bool padding = (options & kCCOptionPKCS7Padding) != 0;
  const bool ecb = (options & kCCOptionECBMode) != 0;
  std::array<std::uint8_t, DES_BLOCK_SIZE> vector{};
  if (iv) std::memcpy(vector.data(), iv->data(), std::min(iv->size(), vector.size()));

  std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  if (operation == Operation::Encrypt) {
    if (padding) {
      const std::size_t pad = DES_BLOCK_SIZE - input.size() % DES_BLOCK_SIZE;
      input.insert(input.end(), pad, static_cast<std::uint8_t>(pad));
    } else if (input.size() % DES_BLOCK_SIZE != 0) {
      return fail(kCCAlignmentError, status);
    }
  } else {
    if (input.size() % DES_BLOCK_SIZE != 0) return fail(kCCAlignmentError, status);
    if (padding && input.empty()) return fail(kCCDecodeError, status);
  }

  std::vector<std::uint8_t> output(input.size());
  if (!input.empty()) {
    if (ecb) {
      if (operation == Operation::Encrypt) {
        des_encrypt(&context, input.size(), output.data(), input.data());
      } else {
        des_decrypt(&context, input.size(), output.data(), input.data());
      }
    } else if (operation == Operation::Encrypt) {
      cbc_encrypt(&context, &desEncryptBlocks, DES_BLOCK_SIZE, vector.data(),
                  input.size(), output.data(), input.data());
    } else {
      cbc_decrypt(&context, &desDecryptBlocks, DES_BLOCK_SIZE, vector.data(),
                  input.size(), output.data(), input.data());
    }
  }

  if (operation == Operation::Decrypt && padding) {
    const std::size_t pad = output.back();
    if (pad == 0 || pad > DES_BLOCK_SIZE ||
        !std::all_of(output.end() - static_cast<std::ptrdiff_t>(pad), output.end(),
                     [pad](std::uint8_t b) { return b == pad; })) {
      return fail(kCCDecodeError, status);
    }
    output.resize(output.size() - pad);
  }
  if (status) *status = kCCSuccess;
  return output;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> encryptedData(std::span<const std::uint8_t> bytes, std::uint32_t algorithm,
                                                       std::string_view key, std::optional<std::string_view> iv,
                                                       std::uint32_t options, std::int32_t* status) {
  return run(Operation::Encrypt, bytes, algorithm, key, iv, options, status);
}

std::optional<std::vector<std::uint8_t>> decryptedData(std::span<const std::uint8_t> bytes, std::uint32_t algorithm,
                                                       std::string_view key, std::optional<std::string_view> iv,
                                                       std::uint32_t options, std::int32_t* status) {
  return run(Operation::Decrypt, bytes, algorithm, key, iv, options, status);
}

std::optional<std::vector<std::uint8_t>> encryptedDataWithKey(std::span<const std::uint8_t> bytes, std::string_view key) {
  return encryptedData(bytes, kCCAlgorithmDES, key, std::nullopt, kCCOptionPKCS7Padding, nullptr);
}

std::optional<std::vector<std::uint8_t>> decryptedDataWithKey(std::span<const std::uint8_t> bytes, std::string_view key) {
  return decryptedData(bytes, kCCAlgorithmDES, key, std::nullopt, kCCOptionPKCS7Padding, nullptr);
}

}  // namespace corvane::data
