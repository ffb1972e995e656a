// The defaults suite as an SQLite key-value file: the Linux suite, and the simulated platforms'
// (under their root, so the processes of one test share it).
//
// Several processes write the file at once: WAL journal, a busy timeout, and every write its own
// committed statement. Nothing is cached, so every read sees the latest commit of any process.
// Values are JSON text, which keeps their type (unsigned, signed, floating, bool, string, array,
// dictionary).
#include <sqlite3.h>
#include <sys/stat.h>

#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <ctime>
#include <mutex>
#include <thread>

#include "platform/defaults_suite_backends.h"
#include "corvane/platform/text.h"
#include "platform/log.h"

namespace corvane::platform {
namespace {

constexpr int kBusyTimeoutMs = 5000;
constexpr int kBusyTries = 100;  // ten milliseconds apart

// The file's identity, so that a file replaced under us (set aside by another process, or
// removed) is noticed and opened afresh.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  bool exists = false;
  bool operator==(const FileIdentity&) const = default;
};

FileIdentity identityOf(const std::filesystem::path& file) {
  struct stat info {};
  if (::stat(file.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino, true};
}

bool isDamage(int code) { return code == SQLITE_NOTADB || code == SQLITE_CORRUPT; }

// Thrown (and caught inside this file) when the file is a database whose table has another shape.
struct WrongShape {};

std::string timestampSuffix() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

class SqliteDefaultsSuite final : public DefaultsSuite {
 public:
  // A file already there is opened (and, if damaged, set aside) at once; a missing one is
  // created by the first write.
  explicit SqliteDefaultsSuite(std::filesystem::path file) : file_(std::move(file)) { opened(false); }

  std::optional<nlohmann::json> get(const std::string& key) const override {
    if (!opened(false)) return std::nullopt;
    if (auto memory = fallback()) return memory->get(key);
    std::optional<std::string> text;
    run([&](Connection& c) {
      c.select.reset();
      c.select.bind(1, key);
      text = c.select.executeStep() ? std::optional(c.select.getColumn(0).getString()) : std::nullopt;
      c.select.reset();
    });
    if (!text) return std::nullopt;
    // A row that is not JSON was written by something else; it reads as absent. Any other
    // process may write the file, so its strings are cleaned before anyone shows them.
    nlohmann::json value = text::parsedJson(*text);
    if (value.is_discarded() || value.is_null()) return std::nullopt;
    return text::cleanedStrings(value);
  }

  bool set(const std::string& key, const nlohmann::json& value) override {
    if (value.is_null()) return remove(key);
    if (!isPropertyListValue(value)) return false;
    opened(true);
    if (auto memory = fallback()) return memory->set(key, value);
    const std::string text = value.dump();
    return run([&](Connection& c) {
      c.upsert.reset();
      c.upsert.bind(1, key);
      c.upsert.bind(2, text);
      c.upsert.exec();
      c.upsert.reset();
    });
  }

  bool remove(const std::string& key) override {
    if (!opened(false)) return true;  // nothing stored, nothing to remove
    if (auto memory = fallback()) return memory->remove(key);
    return run([&](Connection& c) {
      c.erase.reset();
      c.erase.bind(1, key);
      c.erase.exec();
      c.erase.reset();
    });
  }

  std::vector<std::string> keys() const override {
    if (!opened(false)) return {};
    if (auto memory = fallback()) return memory->keys();
    std::vector<std::string> result;
    run([&](Connection& c) {
      result.clear();
      c.list.reset();
      while (c.list.executeStep()) result.push_back(text::cleaned(c.list.getColumn(0).getString()));
      c.list.reset();
    });
    return result;
  }

  bool synchronize() override { return true; }

 private:
  // The file, set up before any statement is prepared: the journal, then the table, then a
  // check that the table is ours.
  struct OpenFile {
    explicit OpenFile(const std::filesystem::path& file)
        : db(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyTimeoutMs) {
      db.exec("PRAGMA journal_mode = WAL");
      db.exec("PRAGMA synchronous = NORMAL");
      db.exec("CREATE TABLE IF NOT EXISTS defaults (key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)");
      SQLite::Statement columns(db, "SELECT name FROM pragma_table_info('defaults') ORDER BY cid");
      std::vector<std::string> names;
      while (columns.executeStep()) names.push_back(columns.getColumn(0).getString());
      if (names != std::vector<std::string>{"key", "value"}) throw WrongShape{};
    }
    SQLite::Database db;
  };

  // One open file with its statements, prepared once so that a read costs one step.
  struct Connection : OpenFile {
    explicit Connection(const std::filesystem::path& file)
        : OpenFile(file),
          select(db, "SELECT value FROM defaults WHERE key = ?"),
          upsert(db, "INSERT INTO defaults (key, value) VALUES (?, ?) "
                     "ON CONFLICT (key) DO UPDATE SET value = excluded.value"),
          erase(db, "DELETE FROM defaults WHERE key = ?"),
          list(db, "SELECT key FROM defaults ORDER BY key") {}

    SQLite::Statement select;
    SQLite::Statement upsert;
    SQLite::Statement erase;
    SQLite::Statement list;
  };

  // Runs `work` on the open file, reopening it when it was replaced and setting it aside when
  // it turns out damaged (then once more on the fresh file). False when the work failed.
  template <class Work>
  bool run(Work&& work) const {
    std::lock_guard guard(lock_);
    for (int attempt = 0; attempt < 2; ++attempt) {
      if (connection_ && identityOf(file_) != identity_) openLocked();
      if (!connection_) return false;
      try {
        work(*connection_);
        return true;
      } catch (const SQLite::Exception& e) {
        if (!isDamage(e.getErrorCode())) return false;
        setAsideLocked();
        openLocked();
      } catch (const std::exception&) {
        return false;
      }
    }
    return false;
  }

  // Opens the file on first use. Until something is written there is no file: a read finds
  // nothing and creates nothing (false), the first write creates it.
  bool opened(bool forWriting) const {
    std::lock_guard guard(lock_);
    if (connection_ || memory_) return true;
    std::error_code ec;
    if (!forWriting && !std::filesystem::exists(file_, ec)) return false;
    openLocked();
    return true;
  }

  void openLocked() const {
    connection_.reset();
    std::error_code ec;
    std::filesystem::create_directories(file_.parent_path(), ec);
    // Processes opening a new file together race to switch it to its journal, and SQLite
    // answers that switch "busy" at once rather than waiting: such a refusal is tried again.
    int busyTries = 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
      try {
        connection_ = std::make_unique<Connection>(file_);
        identity_ = identityOf(file_);
        return;
      } catch (const WrongShape&) {
        setAsideLocked();
      } catch (const SQLite::Exception& e) {
        const int primary = e.getErrorCode() & 0xFF;
        if ((primary == SQLITE_BUSY || primary == SQLITE_LOCKED) && ++busyTries < kBusyTries) {
          std::this_thread::sleep_for(std::chrono::milliseconds(10));
          --attempt;
          continue;
        }
        if (!isDamage(e.getErrorCode())) break;
        setAsideLocked();
      } catch (const std::exception&) {
        break;
      }
    }
    // Settings still work for this process, only they are neither shared nor kept.
    memory_ = DefaultsSuite::inMemory();
    log("Settings file " + file_.string() + " cannot be opened; settings are kept in memory only");
  }

  std::shared_ptr<DefaultsSuite> fallback() const {
    std::lock_guard guard(lock_);
    return memory_;
  }

  // Renames the damaged file (and its journal files) aside, keeping it for inspection.
  void setAsideLocked() const {
    connection_.reset();
    std::string aside = file_.string() + ".corrupt-" + timestampSuffix();
    std::error_code ec;
    for (int n = 2; std::filesystem::exists(aside, ec); ++n) {
      aside = file_.string() + ".corrupt-" + timestampSuffix() + "-" + std::to_string(n);
    }
    std::filesystem::rename(file_, aside, ec);
    if (ec) std::filesystem::remove(file_, ec);
    for (const char* journal : {"-wal", "-shm"}) {
      std::error_code ignored;
      const std::filesystem::path from = file_.string() + journal;
      if (!std::filesystem::exists(from, ignored)) continue;
      std::filesystem::rename(from, aside + journal, ignored);
      if (ignored) std::filesystem::remove(from, ignored);
    }
    log("Settings file " + file_.string() + " is damaged; set aside as " + aside + " and started afresh");
  }

  std::filesystem::path file_;
  mutable std::mutex lock_;
  mutable std::unique_ptr<Connection> connection_;
  mutable FileIdentity identity_;
  mutable std::shared_ptr<DefaultsSuite> memory_;  // set once the file proved unusable
};

}  // namespace

std::shared_ptr<DefaultsSuite> DefaultsSuite::sqliteFile(const std::filesystem::path& file) {
  return std::make_shared<SqliteDefaultsSuite>(file);
}

}  // namespace corvane::platform
