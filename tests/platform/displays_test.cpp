#include "corvane/platform/displays.h"

#include <fstream>

#include <gtest/gtest.h>

#include "platform/displays_backends.h"
#include "support/test_support.h"

#ifdef __linux__
#include "platform/linux/displays_linux.h"
#endif

namespace corvane::platform {
namespace {

TEST(RecordedDisplays, FromTheProfileOrTheKindOfMac) {
  const auto recorded = nlohmann::json::parse(
      R"([{"builtIn": true, "name": "Color LCD"}, {"name": "Studio Display", "id": 69733382}, 7, {}])");
  const auto displays = sim::displaysOfMachine(recorded, "Mac16,10");
  ASSERT_EQ(displays.size(), 3u);
  EXPECT_TRUE(displays[0].builtIn);
  EXPECT_EQ(displays[0].identifier, 1u);
  EXPECT_EQ(displays[0].name, "Color LCD");
  EXPECT_FALSE(displays[1].builtIn);
  EXPECT_EQ(displays[1].identifier, 69733382u);
  EXPECT_EQ(displays[2].identifier, 4u) << "position counts the skipped entry";

  EXPECT_TRUE(sim::displaysOfMachine(nlohmann::json::array(), "MacBookPro16,1").empty());
  const auto laptop = sim::displaysOfMachine(nullptr, "MacBookAir10,1");
  ASSERT_EQ(laptop.size(), 1u);
  EXPECT_TRUE(laptop[0].builtIn);
  EXPECT_TRUE(sim::displaysOfMachine(nullptr, "Mac14,3").empty());
  EXPECT_TRUE(sim::displaysOfMachine(nullptr, "").empty());
}

TEST(RecordedDisplays, CapacityLimitsTheList) {
  auto service = sim::fixedDisplays({{1, true, {}}, {2, false, {}}, {3, false, {}}});
  EXPECT_EQ(service->activeDisplays(32).size(), 3u);
  EXPECT_EQ(service->activeDisplays(2).size(), 2u);
  EXPECT_TRUE(service->activeDisplays(0).empty());
}

#ifdef __linux__
struct ConnectorCase {
  const char* entry;
  const char* status;
  bool display;
  bool builtIn;
  const char* name;
};

class ConnectorTest : public ::testing::TestWithParam<ConnectorCase> {};

TEST_P(ConnectorTest, ConnectedConnectorsAreDisplays) {
  const ConnectorCase& c = GetParam();
  const auto display = drm::displayOnConnector(c.entry, c.status);
  ASSERT_EQ(display.has_value(), c.display) << c.entry;
  if (!display) return;
  EXPECT_EQ(display->builtIn, c.builtIn) << c.entry;
  EXPECT_EQ(display->name, c.name);
}

INSTANTIATE_TEST_SUITE_P(Entries, ConnectorTest,
                         ::testing::Values(ConnectorCase{"card0-eDP-1", "connected\n", true, true, "eDP-1"},
                                           ConnectorCase{"card1-LVDS-1", "connected\n", true, true, "LVDS-1"},
                                           ConnectorCase{"card0-DSI-1", "connected", true, true, "DSI-1"},
                                           ConnectorCase{"card0-HDMI-A-1", "connected\n", true, false, "HDMI-A-1"},
                                           ConnectorCase{"card12-DP-3", "connected\n", true, false, "DP-3"},
                                           ConnectorCase{"card0-eDP-1", "disconnected\n", false, false, ""},
                                           ConnectorCase{"card0-DP-1", "unknown\n", false, false, ""},
                                           ConnectorCase{"card0", "connected\n", false, false, ""},
                                           ConnectorCase{"renderD128", "connected\n", false, false, ""},
                                           ConnectorCase{"cardX-DP-1", "connected\n", false, false, ""},
                                           ConnectorCase{"card0-eDP", "connected\n", false, false, ""}));

void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

TEST(DrmTree, ScansConnectorsInNameOrder) {
  testing::TempDir dir;
  const auto drm = dir.path() / "sys/class/drm";
  writeFile(drm / "card1-HDMI-A-1/status", "connected\n");
  writeFile(drm / "card0-eDP-1/status", "connected\n");
  writeFile(drm / "card0-eDP-1/connector_id", "77\n");
  writeFile(drm / "card0-DP-2/status", "disconnected\n");
  writeFile(drm / "card0/dev", "226:0\n");
  writeFile(drm / "version", "drm 1.1.0 20060810\n");
  writeFile(drm / "card1-DP-1/status", "connected\n");
  writeFile(drm / "card1-DP-1/connector_id", "garbage\n");

  const auto service = drm::makeDisplays(dir.path() / "sys");
  const auto displays = service->activeDisplays(32);
  ASSERT_EQ(displays.size(), 3u);
  EXPECT_EQ(displays[0].name, "eDP-1");
  EXPECT_TRUE(displays[0].builtIn);
  EXPECT_EQ(displays[0].identifier, 77u);
  EXPECT_EQ(displays[1].name, "DP-1");
  EXPECT_EQ(displays[1].identifier, 2u);
  EXPECT_EQ(displays[2].name, "HDMI-A-1");
  EXPECT_FALSE(displays[2].builtIn);
  EXPECT_EQ(service->activeDisplays(1).size(), 1u);
  EXPECT_TRUE(drm::makeDisplays(dir.path() / "nowhere")->activeDisplays(32).empty());
}
#endif

}  // namespace
}  // namespace corvane::platform
