#include <tuple>

#include <gtest/gtest.h>

#include "corvane/util/data.h"

namespace corvane::data {
namespace {

std::vector<std::uint8_t> fromHex(std::string_view hex) {
  std::vector<std::uint8_t> out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return out;
}

std::string asText(const std::vector<std::uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

// Published single-block DES vectors; one block, so ECB and zero-vector CBC agree.
TEST(DesVectorTest, EncryptsAndDecryptsBothModes) {
  for (const auto& [keyHex, plainHex, cipherHex] :
       std::initializer_list<std::tuple<const char*, const char*, const char*>>{
           {"133457799BBCDFF1", "0123456789ABCDEF", "85E813540F0AB405"},
           {"0101010101010101", "95F8A5E5DD31D900", "8000000000000000"}}) {
    const std::string key = asText(fromHex(keyHex));
    const auto plain = fromHex(plainHex);
    const auto cipher = fromHex(cipherHex);
    for (std::uint32_t options : {0u, static_cast<std::uint32_t>(kCCOptionECBMode)}) {
      std::int32_t status = 1;
      EXPECT_EQ(encryptedData(plain, kCCAlgorithmDES, key, std::nullopt, options, &status), cipher);
      EXPECT_EQ(decryptedData(cipher, kCCAlgorithmDES, key, std::nullopt, options, &status), plain);
      EXPECT_EQ(status, kCCSuccess);
    }
  }
}

TEST(DesTest, CbcChainsBlocksWithTheVector) {
  const std::string key = asText(fromHex("133457799BBCDFF1"));
  const auto two = fromHex("0123456789ABCDEF0123456789ABCDEF");
  std::int32_t status = 0;
  auto ecb = encryptedData(two, kCCAlgorithmDES, key, std::nullopt, kCCOptionECBMode, &status);
  auto cbc = encryptedData(two, kCCAlgorithmDES, key, std::nullopt, 0, &status);
  ASSERT_TRUE(ecb && cbc);
  // Equal plaintext blocks: ECB repeats, CBC does not; the first blocks agree (zero vector).
  EXPECT_TRUE(std::equal(ecb->begin(), ecb->begin() + 8, ecb->begin() + 8));
  EXPECT_TRUE(std::equal(cbc->begin(), cbc->begin() + 8, ecb->begin()));
  EXPECT_FALSE(std::equal(cbc->begin(), cbc->begin() + 8, cbc->begin() + 8));
  // Another vector changes the first block.
  auto other = encryptedData(two, kCCAlgorithmDES, key, "12345678", 0, &status);
  ASSERT_TRUE(other);
  EXPECT_NE(*other, *cbc);
  EXPECT_EQ(decryptedData(*other, kCCAlgorithmDES, key, "12345678", 0, &status), two);
}

TEST(DesTest, PaddedRoundTripForEveryLength) {
  for (std::size_t length = 0; length <= 17; ++length) {
    std::vector<std::uint8_t> plain(length);
    for (std::size_t i = 0; i < length; ++i) plain[i] = static_cast<std::uint8_t>('a' + i);
    auto cipher = encryptedDataWithKey(plain, "s3cret!!");
    ASSERT_TRUE(cipher.has_value());
    EXPECT_EQ(cipher->size(), (length / 8 + 1) * 8) << length;
    EXPECT_EQ(decryptedDataWithKey(*cipher, "s3cret!!"), plain) << length;
  }
}

TEST(DesStatusTest, ReportsThePlatformsStatus) {
  struct Case {
    bool encrypt;
    std::uint32_t algorithm;
    const char* key;
    std::size_t length;
    std::uint32_t options;
    std::int32_t status;
  };
  for (const auto& c : {Case{true, kCCAlgorithmDES, "short", 8, 1, kCCParamError},
                        Case{true, kCCAlgorithmDES, "123456789", 8, 1, kCCParamError},
                        Case{true, kCCAlgorithmAES, "1234567812345678", 16, 1, kCCUnimplemented},
                        Case{true, 99, "12345678", 8, 1, kCCParamError},
                        Case{true, kCCAlgorithmDES, "12345678", 7, 0, kCCAlignmentError},
                        Case{false, kCCAlgorithmDES, "12345678", 9, 1, kCCAlignmentError},
                        Case{false, kCCAlgorithmDES, "12345678", 0, 1, kCCDecodeError}}) {
    const std::vector<std::uint8_t> bytes(c.length, 0x41);
    std::int32_t status = 12345;
    auto result = c.encrypt ? encryptedData(bytes, c.algorithm, c.key, std::nullopt, c.options, &status)
                            : decryptedData(bytes, c.algorithm, c.key, std::nullopt, c.options, &status);
    EXPECT_EQ(status, c.status) << c.key << " " << c.length;
    EXPECT_EQ(result.has_value(), c.status == kCCSuccess);
  }
}

TEST(DesTest, APaddingThatIsNotAPaddingIsRefused) {
  // Blocks encrypted without padding whose last byte (0, or 9 for an 8-byte block) is no valid pad.
  for (std::uint8_t last : {std::uint8_t{0}, std::uint8_t{9}}) {
    std::vector<std::uint8_t> plain(8, 0x41);
    plain.back() = last;
    auto cipher = encryptedData(plain, kCCAlgorithmDES, "rightkey", std::nullopt, 0, nullptr);
    std::int32_t status = 0;
    EXPECT_EQ(decryptedData(*cipher, kCCAlgorithmDES, "rightkey", std::nullopt, kCCOptionPKCS7Padding, &status),
              std::nullopt);
    EXPECT_EQ(status, kCCDecodeError) << int{last};
  }
}

}  // namespace
}  // namespace corvane::data
