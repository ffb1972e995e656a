#include "corvane/settings/pref_data.h"

#include <gtest/gtest.h>

#include "settings/announcement_fixture.h"

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using nlohmann::json;

class Broadcasts : public testing::AnnouncementTest {
 protected:
  void TearDown() override {
    HWNotificationUtils::setAppModeProvider(nullptr);
    AnnouncementTest::TearDown();
  }
};

TEST_F(Broadcasts, PostedUserInfoIsCopiedAndAppModeOverridesAStaleOne) {
  json info = {{"k", "v"}, {"appMode", 99}};
  HWNotificationUtils::setAppModeProvider([] { return std::uint64_t{3}; });
  HWNotificationUtils::postGlobalNotification("N", info);
  info["k"] = "changed after posting";
  HWNotificationUtils::postGlobalNotification("M", json::array({1}));
  HWNotificationUtils::postGlobalNotification("O");
  clock_->runUntilIdle();
  ASSERT_EQ(received_.size(), 3u);
  EXPECT_EQ(received_[0].second, (json{{"k", "v"}, {"appMode", 3}}));
  EXPECT_EQ(received_[1].second, (json{{"appMode", 3}}));
  EXPECT_EQ(received_[2].second, (json{{"appMode", 3}}));
}

}  // namespace
}  // namespace corvane
