#include "corvane/platform/displays.h"

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
  EXPECT_TRUE(displays[0].builtIn && displays[0].identifier == 1u && displays[0].name == "Color LCD");
  EXPECT_TRUE(!displays[1].builtIn && displays[1].identifier == 69733382u);
  EXPECT_EQ(displays[2].identifier, 4u) << "position counts the skipped entry";

  EXPECT_TRUE(sim::displaysOfMachine(nlohmann::json::array(), "MacBookPro16,1").empty());
  const auto laptop = sim::displaysOfMachine(nullptr, "MacBookAir10,1");
  EXPECT_TRUE(laptop.size() == 1u && laptop[0].builtIn);
  EXPECT_TRUE(sim::displaysOfMachine(nullptr, "Mac14,3").empty());
}

#ifdef __linux__
TEST(ConnectorTest, ConnectedConnectorsAreDisplays) {
  struct Case {
    const char* entry;
    const char* status;
    std::optional<bool> builtIn;  // nothing: not a display
  };
  for (const auto& c : {Case{"card0-eDP-1", "connected\n", true}, Case{"card0-DSI-1", "connected", true},
                        Case{"card12-HDMI-A-1", "connected\n", false}, Case{"card0-eDP-1", "disconnected\n", {}},
                        Case{"renderD128", "connected\n", {}}, Case{"cardX-DP-1", "connected\n", {}},
                        Case{"card0-eDP", "connected\n", {}}}) {
    const auto display = drm::displayOnConnector(c.entry, c.status);
    ASSERT_EQ(display.has_value(), c.builtIn.has_value()) << c.entry;
    if (display) {
      EXPECT_EQ(display->builtIn, *c.builtIn) << c.entry;
    }
  }
  EXPECT_EQ(drm::displayOnConnector("card12-HDMI-A-1", "connected")->name, "HDMI-A-1");
}

TEST(DrmTree, ScansConnectorsInNameOrder) {
  testing::TempDir dir;
  const auto drm = dir.path() / "sys/class/drm";
  testing::writeFile(drm / "card1-HDMI-A-1/status", "connected\n");
  testing::writeFile(drm / "card0-eDP-1/status", "connected\n");
  testing::writeFile(drm / "card0-eDP-1/connector_id", "77\n");
  testing::writeFile(drm / "card0-DP-2/status", "disconnected\n");
  testing::writeFile(drm / "card0/dev", "226:0\n");
  testing::writeFile(drm / "version", "drm 1.1.0 20060810\n");
  testing::writeFile(drm / "card1-DP-1/status", "connected\n");
  testing::writeFile(drm / "card1-DP-1/connector_id", "garbage\n");

  const auto service = drm::makeDisplays(dir.path() / "sys");
  const auto displays = service->activeDisplays(32);
  ASSERT_EQ(displays.size(), 3u);
  EXPECT_TRUE(displays[0].name == "eDP-1" && displays[0].builtIn && displays[0].identifier == 77u);
  EXPECT_TRUE(displays[1].name == "DP-1" && displays[1].identifier == 2u);
  EXPECT_TRUE(displays[2].name == "HDMI-A-1" && !displays[2].builtIn);
  EXPECT_EQ(service->activeDisplays(1).size(), 1u);
  EXPECT_TRUE(drm::makeDisplays(dir.path() / "nowhere")->activeDisplays(32).empty());
}
#endif

}  // namespace
}  // namespace corvane::platform
