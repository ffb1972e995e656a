// The user-defaults suite of the product's app group: the settings every process shares.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace corvane::platform {

class Platform;

// A key → property-list value store shared by every process of the product. Values are JSON
// (numbers keep whether they are unsigned, signed or floating); null is never stored. A write
// is visible to every process once it returns, and reads always see the latest write of any
// process. Thread-safe.
//
// Backends: the CFPreferences suite of the app group on macOS; elsewhere, and on simulated
// platforms, an SQLite file "Preferences.sqlite" in the app-group container.
class DefaultsSuite : public std::enable_shared_from_this<DefaultsSuite> {
 public:
  virtual ~DefaultsSuite() = default;

  // Makes the suite for `platform`: the SQLite file in its app-group container when the
  // platform is simulated (so processes sharing a test root share their settings), else the
  // host's own suite.
  static std::shared_ptr<DefaultsSuite> create(const Platform& platform);
  // A suite that lives in this process's memory only, for tests that `provide` it.
  static std::shared_ptr<DefaultsSuite> inMemory();
  // The SQLite suite at `file` (made with its folder when missing). A file that is not a
  // settings database is set aside as "<file>.corrupt-<timestamp>" and a fresh one started;
  // when the file cannot be opened at all, the suite falls back to memory. Never null.
  static std::shared_ptr<DefaultsSuite> sqliteFile(const std::filesystem::path& file);

  // The value stored under `key`, or nothing.
  virtual std::optional<nlohmann::json> get(const std::string& key) const = 0;
  // Stores `value` under `key` (null removes the key). False when the store refused the write.
  virtual bool set(const std::string& key, const nlohmann::json& value) = 0;
  // Removes `key`; true also when it was absent. False when the store refused the write.
  virtual bool remove(const std::string& key) = 0;
  // Every stored key, sorted.
  virtual std::vector<std::string> keys() const = 0;
  // Pushes pending writes to where other processes read them (CFPreferences holds writes back
  // for a moment; the SQLite file commits each write at once, so there it has nothing to do).
  virtual bool synchronize() = 0;

  // A value of the user's global settings, which the system itself keeps ("AppleInterfaceStyle"
  // on macOS). Platforms without such settings answer from this suite.
  virtual std::optional<nlohmann::json> globalValue(const std::string& key) const { return get(key); }
};

}  // namespace corvane::platform
