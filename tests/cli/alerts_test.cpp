// The daemon's alert loop end to end: a simulated machine read by the sensor monitor on the
// virtual clock, and the desktop notifications received by a notification server of the test's
// own on a private session bus.
#include "daemon_alerts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <mutex>

#include <sdbus-c++/sdbus-c++.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/sensors/value_formatter.h"
#include "corvane/sysinfo/system_device.h"
#include "platform/desktop_notifications_backends.h"
#include "support/process_support.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using std::chrono::seconds;

// Owns the desktop's notification service on `address` and keeps every Notify it answers.
class NotificationServer {
 public:
  explicit NotificationServer(const std::string& address)
      : connection_(sdbus::createSessionBusConnectionWithAddress(address)) {
    connection_->requestName("org.freedesktop.Notifications");
    object_ = sdbus::createObject(*connection_, "/org/freedesktop/Notifications");
    object_->registerMethod("Notify")
        .onInterface("org.freedesktop.Notifications")
        .implementedAs([this](const std::string&, std::uint32_t, const std::string&, const std::string& summary,
                              const std::string& body, const std::vector<std::string>&,
                              const std::map<std::string, sdbus::Variant>&, std::int32_t) {
          std::lock_guard guard(lock_);
          received_.emplace_back(summary, body);
          return static_cast<std::uint32_t>(received_.size());
        });
    object_->finishRegistration();
    connection_->enterEventLoopAsync();
  }
  ~NotificationServer() { connection_->leaveEventLoop(); }
  std::vector<std::pair<std::string, std::string>> received() {
    std::lock_guard guard(lock_);
    return received_;
  }

 private:
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> object_;
  std::mutex lock_;
  std::vector<std::pair<std::string, std::string>> received_;
};

class SensorAlertsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(bus.running()) << "dbus-daemon did not start";
    testing::installMachine(testing::builtinMachine(), dir.path());
    HWSystemDevice::reset();
    HWDataManager::setAppMode(1);
    manager = HWDataManager::create(dir.path() / "group" / "Database.sqlite");
    ASSERT_TRUE(manager->buildDataSetNow());
    monitor = HWSensorMonitor::create(manager);
    alerts = std::make_shared<cli::SensorAlerts>(manager, platform::busDesktopNotifications(bus.address()), "corvane");
    monitor->addDelegate(alerts);
    monitor->setup();
    clock->runUntilIdle();
  }
  void TearDown() override { HWDataManager::setAppMode(0); }
  // Replaces the rules with one on `key`, then starts reading (one reading at once).
  std::shared_ptr<HWNotification> watch(const std::string& key, double threshold, std::uint64_t repeatMode) {
    auto rule = std::make_shared<HWNotification>(key, key, 0, repeatMode, true, std::nullopt, threshold);
    manager->notificationDataStore()->setNotifications({rule});
    monitor->start();
    clock->runUntilIdle();
    return rule;
  }
  double valueOf(const std::string& key) { return manager->sensorDataStore()->getSensorByKey(key)->convertedValue(); }

  testing::PrivateBus bus;
  testing::TempDir dir;
  std::shared_ptr<dispatch::VirtualTime> clock = dispatch::installVirtualTime(1'700'000'000);
  std::shared_ptr<HWDataManager> manager;
  std::shared_ptr<HWSensorMonitor> monitor;
  std::shared_ptr<cli::SensorAlerts> alerts;
};

TEST_F(SensorAlertsTest, ARuleFiresAgainOnlyAfterItsRepeatDelayAndSavesWhenItFired) {
  NotificationServer server(bus.address());
  const int span = 130;  // seconds of readings after the first, every 2 s
  for (const std::uint64_t mode : {0u, 1u, 3u}) {
    const long before = alerts->fired();
    const double start = clock->now();
    const auto rule = watch("TC0P", std::floor(valueOf("TC0P")), mode);
    clock->advance(seconds(span));
    const std::int64_t delay = rule->repeatDelays();
    const long expected = delay == 0 ? 1 : span / delay + 1;
    EXPECT_EQ(alerts->fired() - before, expected) << "mode " << mode;
    const auto stored = manager->prefData()->objectForKey("HWNotificationsKey");
    ASSERT_TRUE(stored);
    EXPECT_DOUBLE_EQ((*stored)[0]["lastTimeFired"].get<double>(),
                     start + static_cast<double>(delay == 0 ? 0 : (span / delay) * delay))
        << "mode " << mode;
  }
  EXPECT_EQ(static_cast<long>(server.received().size()), alerts->fired());
}

TEST_F(SensorAlertsTest, NeverRepeatRearmsOnceTheValueFellBelowAndTheMessageNamesSensorAndThreshold) {
  NotificationServer server(bus.address());
  const double threshold = std::floor(valueOf("TC0P"));
  const auto rule = watch("TC0P", threshold, 0);
  const auto& store = manager->notificationDataStore();
  for (const double moved : {threshold + 50, threshold}) {  // above the value, then back
    clock->advance(seconds(10));
    rule->threshold = moved;
    store->updateNotification(rule);
  }
  clock->advance(seconds(4));
  const auto received = server.received();
  ASSERT_EQ(received.size(), 2u);
  const auto reading = manager->sensorDataStore()->getSensorByKey("TC0P");
  EXPECT_NE(received[1].first.find(reading->name()), std::string::npos) << received[1].first;
  EXPECT_NE(received[1].first.find(HWSensorFormatter::tidyStringValueFromSensor(*reading)), std::string::npos)
      << received[1].first;
  EXPECT_NE(received[1].second.find(HWValueConverter::fullStringFromValue(threshold, SensorType::kTemperature, true)),
            std::string::npos)
      << received[1].second;

  // Every temperature: the hottest one that reached the threshold is named.
  const auto temps = manager->sensorDataStore()->tempSensors();
  const auto hottest = *std::max_element(temps.begin(), temps.end(), [](const auto& a, const auto& b) {
    return a->convertedValue() < b->convertedValue();
  });
  watch("any-sensor", std::floor(hottest->convertedValue()) - 1, 0);
  ASSERT_EQ(server.received().size(), 3u);
  EXPECT_EQ(server.received()[2].first.rfind(hottest->name() + " is at", 0), 0u) << server.received()[2].first;
}

TEST_F(SensorAlertsTest, WithoutANotificationServerItSaysSoOnceAndGoesOn) {
  ::testing::internal::CaptureStderr();
  watch("TC0P", std::floor(valueOf("TC0P")), 1);
  clock->advance(seconds(40));
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(alerts->fired(), 5);
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}

}  // namespace
}  // namespace corvane
