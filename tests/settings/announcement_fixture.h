// A fresh simulated platform (with its own settings file) on the virtual clock, recording every
// global notification it carries.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/notification_utils.h"
#include "support/test_support.h"

namespace corvane::testing {

class AnnouncementTest : public ::testing::Test {
 protected:
  explicit AnnouncementTest(double startTime = 0) : startTime_(startTime) {}

  void SetUp() override {
    installSimulated(nullptr, dir_.path(), /*announce=*/false);
    clock_ = dispatch::installVirtualTime(startTime_);
    token_ = HWNotificationUtils::addObserver(
        std::nullopt,
        [this](const std::string& name, const nlohmann::json& info) { received_.emplace_back(name, info); });
  }
  void TearDown() override { token_.reset(); }

  std::vector<std::string> receivedNames() const {
    std::vector<std::string> names;
    for (const auto& entry : received_) names.push_back(entry.first);
    return names;
  }

  TempDir dir_;
  std::shared_ptr<dispatch::VirtualTime> clock_;
  std::unique_ptr<platform::GlobalNotifications::Token> token_;
  std::vector<std::pair<std::string, nlohmann::json>> received_;

 private:
  double startTime_;
};

}  // namespace corvane::testing
