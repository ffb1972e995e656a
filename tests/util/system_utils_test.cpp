#include "corvane/util/system_utils.h"

#include <gtest/gtest.h>

#include "corvane/platform/kernel_values.h"
#include "platform/kernel_values_backends.h"
#include "support/test_support.h"

namespace corvane {
namespace {

// ---- running commands ----

TEST(ReadDataByPathTest, SucceedsOnlyWithOutputAndASilentStandardError) {
  struct CommandCase {
    const char* label;
    std::string path;
    std::optional<std::vector<std::string>> arguments;
    std::optional<std::string> output;  // nothing: the command must fail
    std::string message;                // the error's message when it fails
  };

  for (const CommandCase& c : std::initializer_list<CommandCase>{
           {"echo", "/bin/echo", std::vector<std::string>{"hello", "world"}, "hello world\n", ""},
           // The exit status does not matter, only what was written.
           {"output_then_failure", "/bin/sh", std::vector<std::string>{"-c", "echo partial; exit 3"}, "partial\n", ""},
           {"no_output", "/bin/true", std::nullopt, std::nullopt, ""},
           {"warning_spoils_good_output", "/bin/sh", std::vector<std::string>{"-c", "echo good; echo careful >&2"},
            std::nullopt, "careful\n"},
           // Output that is not UTF-8 decodes to nothing, and so counts as no output.
           {"output_not_utf8", "/bin/sh", std::vector<std::string>{"-c", "printf 'ok\\377'"}, std::nullopt, ""},
           {"arguments_are_not_a_shell", "/bin/echo", std::vector<std::string>{"$HOME", "a;b", "*"}, "$HOME a;b *\n",
            ""},
           // A program that is not there, or a folder, cannot be started.
           {"missing", "/nonexistent/tool", std::nullopt, std::nullopt,
            "launch path not accessible: /nonexistent/tool"},
           {"folder", "/", std::nullopt, std::nullopt, "launch path not accessible: /"}}) {
    HWError error{"untouched", -5, "untouched"};
    const auto output = HWSystemUtils::readDataByPath(c.path, c.arguments, &error);
    EXPECT_EQ(output, c.output);
    if (c.output) {
      EXPECT_EQ(error.domain, "untouched");
    } else {
      EXPECT_EQ(error.domain, "com.HWKit");
      EXPECT_EQ(error.code, 1);
      EXPECT_EQ(error.message, c.message) << c.label;
    }
  }
}

TEST(ReadDataByPath, DrainsBothLargeOutputsWithoutStalling) {
  // Far more than a pipe holds on either stream: reading one to its end first would wait forever.
  const std::string script =
      "i=0; while [ $i -lt 3000 ]; do echo 'out out out out out out out out out out out out out out'; "
      "echo 'err err err err err err err err err err err err err err' >&2; i=$((i+1)); done";
  HWError error;
  EXPECT_EQ(HWSystemUtils::readDataByPath("/bin/sh", std::vector<std::string>{"-c", script}, &error), std::nullopt);
  EXPECT_EQ(error.message.size(), 3000u * 56u);

  const auto output = HWSystemUtils::readDataByPath(
      "/bin/sh", std::vector<std::string>{"-c", "i=0; while [ $i -lt 3000 ]; do echo 0123456789; i=$((i+1)); done"},
      nullptr);
  ASSERT_TRUE(output.has_value());
  EXPECT_EQ(output->size(), 3000u * 11u);
}

// ---- kernel values ----

class KernelValuesFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::installMachine(testing::profileFromJson(R"({"name": "Sizes", "smc": [], "sysctl": {
        "hw.model": "MacBookPro16,1", "hw.memsize": 17179869184, "hw.ncpu": 16, "kern.negative": -3,
        "hw.pagesize": 16384}})"),
                            dir_.path());
  }
  testing::TempDir dir_;
};

TEST_F(KernelValuesFixture, StringsEndAtTheirNulAndNumbersFollowTheirWidth) {
  EXPECT_EQ(HWSystemUtils::sysctlNSStringForKey("hw.model"), "MacBookPro16,1");
  EXPECT_EQ(HWSystemUtils::sysctlNSStringForKey("no.such.name"), "");
  EXPECT_DOUBLE_EQ(HWSystemUtils::sysctlDoubleForKey("hw.memsize"), 17179869184.0);
  EXPECT_FLOAT_EQ(HWSystemUtils::sysctlFloatForKey("hw.memsize"), 17179869184.0f);
  EXPECT_DOUBLE_EQ(HWSystemUtils::sysctlDoubleForKey("kern.negative"), -3.0);
  EXPECT_DOUBLE_EQ(HWSystemUtils::sysctlDoubleForKey("hw.pagesize"), 16384.0);
}

// Values of widths a profile cannot produce, straight from a provided service.
class FixedKernelValues final : public platform::KernelValues {
 public:
  std::optional<std::string> valueByName(std::string_view name) const override {
    if (name == "two") return std::string("\x01\x02", 2);
    if (name == "zero") return std::string();
    if (name == "unterminated") return std::string("abc");
    if (name == "float_bits") return platform::kernel_bytes::fromInt32(0x3f800000);  // 1.0f as bits
    return std::nullopt;
  }
};

TEST_F(KernelValuesFixture, OtherWidthsGiveZeroAndBytesAreNeverFloats) {
  platform::current().provide<platform::KernelValues>(std::make_shared<FixedKernelValues>());
  for (const char* name : {"two", "zero", "unterminated"}) {
    EXPECT_DOUBLE_EQ(HWSystemUtils::sysctlDoubleForKey(name), 0.0) << name;
    EXPECT_FLOAT_EQ(HWSystemUtils::sysctlFloatForKey(name), 0.0f) << name;
  }
  EXPECT_DOUBLE_EQ(HWSystemUtils::sysctlDoubleForKey("float_bits"), 1065353216.0);
  EXPECT_EQ(HWSystemUtils::sysctlNSStringForKey("zero"), "");
  EXPECT_EQ(HWSystemUtils::sysctlNSStringForKey("unterminated"), "abc");
}

}  // namespace
}  // namespace corvane
