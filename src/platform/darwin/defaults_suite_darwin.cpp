// macOS keeps the suite in CFPreferences under the app group's name, where the applications'
// NSUserDefaults suite reads it too.
#include <algorithm>

#include "platform/darwin/cf_property_list.h"
#include "platform/defaults_suite_backends.h"

namespace corvane::platform {
namespace {

// The app group shared by the application, its menu-bar helper and this library.
constexpr const char* kAppGroupSuite = "group.com.corvane.shared";

class CFPreferencesSuite final : public DefaultsSuite {
 public:
  CFPreferencesSuite() : suite_(darwin::makeString(kAppGroupSuite)) {}

  std::optional<nlohmann::json> get(const std::string& key) const override {
    return read(key, static_cast<CFStringRef>(suite_.get()));
  }

  bool set(const std::string& key, const nlohmann::json& value) override {
    if (value.is_null()) return remove(key);
    if (!isPropertyListValue(value)) return false;
    darwin::CFOwned plist = darwin::toPropertyList(value);
    if (!plist) return false;
    darwin::CFOwned name = darwin::makeString(key);
    CFPreferencesSetAppValue(static_cast<CFStringRef>(name.get()), plist.get(), suite());
    return true;
  }

  bool remove(const std::string& key) override {
    darwin::CFOwned name = darwin::makeString(key);
    CFPreferencesSetAppValue(static_cast<CFStringRef>(name.get()), nullptr, suite());
    return true;
  }

  std::vector<std::string> keys() const override {
    std::vector<std::string> result;
    darwin::CFOwned list(CFPreferencesCopyKeyList(suite(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
    if (!list) return result;
    auto array = static_cast<CFArrayRef>(list.get());
    for (CFIndex i = 0, count = CFArrayGetCount(array); i < count; ++i) {
      result.push_back(darwin::toUtf8(static_cast<CFStringRef>(CFArrayGetValueAtIndex(array, i))));
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  bool synchronize() override { return CFPreferencesAppSynchronize(suite()) != 0; }

  std::optional<nlohmann::json> globalValue(const std::string& key) const override {
    return read(key, kCFPreferencesAnyApplication);
  }

 private:
  CFStringRef suite() const { return static_cast<CFStringRef>(suite_.get()); }

  static std::optional<nlohmann::json> read(const std::string& key, CFStringRef domain) {
    darwin::CFOwned name = darwin::makeString(key);
    darwin::CFOwned value(CFPreferencesCopyAppValue(static_cast<CFStringRef>(name.get()), domain));
    if (!value) return std::nullopt;
    nlohmann::json json = darwin::toJson(value.get());
    if (json.is_null()) return std::nullopt;
    return json;
  }

  darwin::CFOwned suite_;
};

}  // namespace

std::shared_ptr<DefaultsSuite> nativeDefaultsSuite(const Platform&) { return std::make_shared<CFPreferencesSuite>(); }

}  // namespace corvane::platform
