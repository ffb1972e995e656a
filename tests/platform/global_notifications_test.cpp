#include "corvane/platform/global_notifications.h"

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "platform/global_notifications_backends.h"
#include "support/process_support.h"

namespace corvane::platform {
namespace {

using nlohmann::json;
using Received = std::vector<std::pair<std::string, json>>;

GlobalNotifications::Observer recordInto(Received& received) {
  return [&received](const std::string& name, const json& info) { received.emplace_back(name, info); };
}

// For centres that deliver on a thread of their own: records on the main queue.
GlobalNotifications::Observer recordOnMainQueue(Received& received) {
  return [&received](const std::string& name, const json& info) {
    dispatch::mainQueue()->async([&received, name, info] { received.emplace_back(name, info); });
  };
}

TEST(InProcessNotifications, ObserversHearTheirNameOrEverythingUntilTheirTokenGoesWhichMayOutliveTheCentre) {
  auto centre = GlobalNotifications::inProcess();
  Received named, all;
  auto byName = centre->addObserver("A", recordInto(named));
  auto everything = centre->addObserver(std::nullopt, recordInto(all));
  centre->post("A", {{"k", 1}});
  centre->post("B", json::array({1, 2}));  // not an object: travels as an empty one
  byName.reset();
  centre->post("A", {});
  EXPECT_EQ(named, (Received{{"A", {{"k", 1}}}}));
  EXPECT_EQ(all, (Received{{"A", {{"k", 1}}}, {"B", json::object()}, {"A", json::object()}}));
  EXPECT_FALSE(centre->crossesProcesses());
  centre.reset();
  everything.reset();
}

TEST(BusNotifications, NoAddressOrNoBusFallsBackToThisProcessAndSaysSoOnce) {
  ::testing::internal::CaptureStderr();
  auto none = busOrInProcessNotifications(nullptr);
  auto unreachable = busOrInProcessNotifications("unix:path=/nonexistent/corvane-bus");
  const std::string err = ::testing::internal::GetCapturedStderr();
  ASSERT_NE(none, nullptr);
  ASSERT_NE(unreachable, nullptr);
  EXPECT_FALSE(none->crossesProcesses());
  EXPECT_FALSE(unreachable->crossesProcesses());
  // Once per process: an earlier test may already have said it, so at most one line here.
  EXPECT_LE(std::count(err.begin(), err.end(), '\n'), 1) << err;

  Received received;
  auto token = unreachable->addObserver("X", recordInto(received));
  unreachable->post("X", {{"appMode", 1}});
  EXPECT_EQ(received, (Received{{"X", {{"appMode", 1}}}}));
}

TEST(BusAddresses, NameTheirUnixSocketsAndABadOneGivesNoCentreAndAReason) {
  for (const auto& [address, entries] :
       std::initializer_list<std::pair<const char*, std::vector<std::optional<BusSocket>>>>{
           {"unix:path=/tmp/dbus-yw9TdeN33D,guid=3f077ed552b6024a", {BusSocket{"/tmp/dbus-yw9TdeN33D", false}}},
           {"unix:guid=1,abstract=/tmp/dbus-x", {BusSocket{"/tmp/dbus-x", true}}},
           {"unix:path=/tmp/a%20b%2c", {BusSocket{"/tmp/a b,", false}}},
           {"tcp:host=localhost,port=1;unix:path=/x", {std::nullopt, BusSocket{"/x", false}}},
           {"unix:tmpdir=/tmp", {std::nullopt}},
           {";;", {}}}) {
    EXPECT_EQ(parseBusAddress(address), entries) << address;
  }
  std::string error;
  EXPECT_EQ(busNotifications("unix:path=/nonexistent/corvane-bus", &error), nullptr);
  EXPECT_FALSE(error.empty());
}

TEST(BusNotifications, PostsReachEveryConnectionOfTheBusWhole) {
  testing::PrivateBus bus;
  ASSERT_TRUE(bus.running());
  std::string error;
  auto sender = busNotifications(bus.address(), &error);
  auto receiver = busNotifications(bus.address(), &error);
  ASSERT_NE(sender, nullptr) << error;
  ASSERT_NE(receiver, nullptr) << error;
  EXPECT_TRUE(sender->crossesProcesses());

  Received atReceiver, atSender, unrelated;
  auto a = receiver->addObserver("HWUpdateFrequencyDidChangeNotification", recordOnMainQueue(atReceiver));
  auto b = sender->addObserver(std::nullopt, recordOnMainQueue(atSender));
  auto c = receiver->addObserver("Other", recordOnMainQueue(unrelated));

  const json info = {
      {"HWFileLoggingSensorsKey", {"TC0P", "ünïcode"}}, {"nested", {{"x", 1.5}, {"y", json::array()}}}, {"appMode", 1}};
  sender->post("HWUpdateFrequencyDidChangeNotification", info);
  ASSERT_TRUE(
      testing::runMainQueueUntil([&] { return !atReceiver.empty() && !atSender.empty(); }, std::chrono::seconds(10)));
  EXPECT_EQ(atReceiver, (Received{{"HWUpdateFrequencyDidChangeNotification", info}}));
  // The poster's own process hears its post, as with the distributed centre.
  EXPECT_EQ(atSender, (Received{{"HWUpdateFrequencyDidChangeNotification", info}}));
  EXPECT_TRUE(unrelated.empty());
}

}  // namespace
}  // namespace corvane::platform
