#include "corvane/settings/settings_keys.h"

#include <set>

#include <gtest/gtest.h>

#include "corvane/settings/setting_text.h"

namespace corvane::settings {
namespace {

using nlohmann::json;

bool fitsType(const json& value, SettingType type) {
  switch (type) {
    case SettingType::Bool: return value.is_boolean();
    case SettingType::UnsignedInteger: return value.is_number_unsigned();
    case SettingType::Integer: return value.is_number_integer();
    case SettingType::Double: return value.is_number_float();
    case SettingType::String: return value.is_string();
    case SettingType::StringArray:
    case SettingType::ItemList: return value.is_array();
  }
  return false;
}

TEST(SettingKeys, EveryRowIsUniqueWithADefaultOfItsTypeOrANote) {
  std::set<std::string_view> keys;
  for (const auto& row : kSettingKeys) {
    SCOPED_TRACE(std::string(row.key));
    EXPECT_TRUE(keys.insert(row.key).second);
    EXPECT_NE(row.defaultJson.empty(), row.defaultNote.empty()) << "either a fixed default or a note";
    if (!row.defaultJson.empty()) {
      const json value = json::parse(row.defaultJson, nullptr, false);
      EXPECT_TRUE(fitsType(value, row.type)) << row.defaultJson;
      // What `corvane settings set` accepts for the key also takes its default.
      std::string error;
      EXPECT_EQ(parseSettingText(row.type, row.defaultJson, &error), value) << error;
    }
    if (!row.notification.empty()) {
      EXPECT_TRUE(row.notification.ends_with("DidChangeNotification")) << row.notification;
    }
    EXPECT_EQ(findSettingKey(row.prefix ? readerTimerStartKey("cpu") : std::string(row.key)), &row);
  }
}

TEST(SettingKeys, ReaderTimerKeysNeedANameAfterTheirPrefix) {
  EXPECT_EQ(readerTimerStartKey("sensor"), "HWReaderTimerStart_sensor");
  ASSERT_NE(findSettingKey("HWReaderTimerStart_sensor"), nullptr);
  EXPECT_TRUE(findSettingKey("HWReaderTimerStart_sensor")->prefix);
  EXPECT_EQ(findSettingKey("HWReaderTimerStart"), nullptr);
  EXPECT_EQ(findSettingKey("HWReaderTimerStart_"), nullptr);
  EXPECT_EQ(findSettingKey("HWReaderTimerStartX"), nullptr);
  EXPECT_EQ(findSettingKey("NoSuchKey"), nullptr);
}

struct TextCase {
  SettingType type;
  const char* text;
  std::optional<json> value;  // nothing: refused
};

class SettingText : public ::testing::TestWithParam<TextCase> {};

TEST_P(SettingText, ParsesForTheKeysTypeOrRefuses) {
  std::string error;
  const auto value = parseSettingText(GetParam().type, GetParam().text, &error);
  EXPECT_EQ(value, GetParam().value);
  if (value) {
    EXPECT_EQ(value->type(), GetParam().value->type());
  }
  EXPECT_EQ(error.empty(), value.has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Table, SettingText,
    ::testing::Values(
        TextCase{SettingType::UnsignedInteger, "1", json(1u)},
        TextCase{SettingType::UnsignedInteger, "18446744073709551615", json(std::uint64_t{18446744073709551615u})},
        TextCase{SettingType::UnsignedInteger, "18446744073709551616", std::nullopt},
        TextCase{SettingType::UnsignedInteger, "-1", std::nullopt},
        TextCase{SettingType::UnsignedInteger, "+1", std::nullopt},
        TextCase{SettingType::UnsignedInteger, "1.5", std::nullopt},
        TextCase{SettingType::UnsignedInteger, "0x10", std::nullopt},
        TextCase{SettingType::UnsignedInteger, "", std::nullopt},
        TextCase{SettingType::UnsignedInteger, "fast", std::nullopt},
        TextCase{SettingType::Integer, "-1700000000", json(std::int64_t{-1700000000})},
        TextCase{SettingType::Integer, "1e3", std::nullopt},
        TextCase{SettingType::Double, "2", json(2.0)}, TextCase{SettingType::Double, "-0.5", json(-0.5)},
        TextCase{SettingType::Double, "inf", std::nullopt}, TextCase{SettingType::Double, "1,5", std::nullopt},
        TextCase{SettingType::Bool, "true", json(true)}, TextCase{SettingType::Bool, "YES", json(true)},
        TextCase{SettingType::Bool, "1", json(true)}, TextCase{SettingType::Bool, "no", json(false)},
        TextCase{SettingType::Bool, "FALSE", json(false)}, TextCase{SettingType::Bool, "0", json(false)},
        TextCase{SettingType::Bool, "2", std::nullopt}, TextCase{SettingType::Bool, "on", std::nullopt},
        TextCase{SettingType::String, "pt-PT", json("pt-PT")}, TextCase{SettingType::String, "", json("")},
        TextCase{SettingType::String, "\"a \\\"b\\\"\"", json("a \"b\"")},
        TextCase{SettingType::String, "\"unterminated", json("\"unterminated")},
        TextCase{SettingType::StringArray, "[\"TC0P\",\"F0Ac\"]", json::array({"TC0P", "F0Ac"})},
        TextCase{SettingType::StringArray, "[]", json::array()},
        TextCase{SettingType::StringArray, "[\"TC0P\",1]", std::nullopt},
        TextCase{SettingType::StringArray, "TC0P", std::nullopt},
        TextCase{SettingType::ItemList, "[{\"identifier\":\"Fan\",\"enabled\":true}]",
                 json::array({{{"identifier", "Fan"}, {"enabled", true}}})},
        TextCase{SettingType::ItemList, "[{\"identifier\":null}]", std::nullopt},
        TextCase{SettingType::ItemList, "[\"Fan\"]", std::nullopt}));

}  // namespace
}  // namespace corvane::settings
