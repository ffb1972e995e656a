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

struct VectorCase {
  const char* key;
  const char* plain;
  const char* cipher;
};

// Published single-block DES vectors; one block, so ECB and zero-vector CBC agree.
class DesVectorTest : public ::testing::TestWithParam<VectorCase> {};
TEST_P(DesVectorTest, EncryptsAndDecryptsBothModes) {
  const std::string key = asText(fromHex(GetParam().key));
  const auto plain = fromHex(GetParam().plain);
  const auto cipher = fromHex(GetParam().cipher);
  for (std::uint32_t options : {0u, static_cast<std::uint32_t>(kCCOptionECBMode)}) {
    std::int32_t status = 1;
    EXPECT_EQ(encryptedData(plain, kCCAlgorithmDES, key, std::nullopt, options, &status), cipher);
    EXPECT_EQ(status, kCCSuccess);
    EXPECT_EQ(decryptedData(cipher, kCCAlgorithmDES, key, std::nullopt, options, &status), plain);
    EXPECT_EQ(status, kCCSuccess);
  }
}
INSTANTIATE_TEST_SUITE_P(Cases, DesVectorTest,
                         ::testing::Values(VectorCase{"133457799BBCDFF1", "0123456789ABCDEF", "85E813540F0AB405"},
                                           VectorCase{"0E329232EA6D0D73", "8787878787878787", "0000000000000000"},
                                           VectorCase{"0101010101010101", "95F8A5E5DD31D900", "8000000000000000"}));

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
  // An explicit zero vector is the missing one; another vector changes the first block.
  EXPECT_EQ(encryptedData(two, kCCAlgorithmDES, key, std::string(8, '\0'), 0, &status), cbc);
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

struct StatusCase {
  const char* name;
  bool encrypt;
  std::uint32_t algorithm;
  const char* key;
  std::size_t length;
  std::uint32_t options;
  std::int32_t status;
};

class DesStatusTest : public ::testing::TestWithParam<StatusCase> {};
TEST_P(DesStatusTest, ReportsThePlatformsStatus) {
  const StatusCase& c = GetParam();
  const std::vector<std::uint8_t> bytes(c.length, 0x41);
  std::int32_t status = 12345;
  auto result = c.encrypt ? encryptedData(bytes, c.algorithm, c.key, std::nullopt, c.options, &status)
                          : decryptedData(bytes, c.algorithm, c.key, std::nullopt, c.options, &status);
  EXPECT_EQ(status, c.status) << c.name;
  EXPECT_EQ(result.has_value(), c.status == kCCSuccess) << c.name;
}
INSTANTIATE_TEST_SUITE_P(
    Cases, DesStatusTest,
    ::testing::Values(StatusCase{"short key", true, kCCAlgorithmDES, "short", 8, 1, kCCParamError},
                      StatusCase{"long key", true, kCCAlgorithmDES, "123456789", 8, 1, kCCParamError},
                      StatusCase{"aes not offered", true, kCCAlgorithmAES, "1234567812345678", 16, 1, kCCUnimplemented},
                      StatusCase{"unknown algorithm", true, 99, "12345678", 8, 1, kCCParamError},
                      StatusCase{"unpadded partial block", true, kCCAlgorithmDES, "12345678", 7, 0, kCCAlignmentError},
                      StatusCase{"unpadded whole blocks", true, kCCAlgorithmDES, "12345678", 16, 0, kCCSuccess},
                      StatusCase{"decrypt partial block", false, kCCAlgorithmDES, "12345678", 9, 1, kCCAlignmentError},
                      StatusCase{"decrypt empty padded", false, kCCAlgorithmDES, "12345678", 0, 1, kCCDecodeError},
                      StatusCase{"decrypt empty unpadded", false, kCCAlgorithmDES, "12345678", 0, 0, kCCSuccess}));

TEST(DesTest, WrongKeyFailsThePaddingCheck) {
  auto cipher = encryptedDataWithKey(std::vector<std::uint8_t>{'F', '0', 'T', 'g'}, "rightkey");
  ASSERT_TRUE(cipher);
  int failures = 0;
  // Some wrong keys still end in a valid-looking pad by chance; most must not.
  for (const char* key : {"wrongkey", "WRONGKEY", "00000000", "abcdefgh", "zyxwvuts"}) {
    std::int32_t status = 0;
    auto plain = decryptedData(*cipher, kCCAlgorithmDES, key, std::nullopt, kCCOptionPKCS7Padding, &status);
    if (!plain) {
      EXPECT_EQ(status, kCCDecodeError);
      ++failures;
    }
  }
  EXPECT_GE(failures, 3);
}

}  // namespace
}  // namespace corvane::data
