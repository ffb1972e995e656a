// Opening the store file: forward migrations kept in PRAGMA user_version, a newer file opened
// read-only, a file that is not a store of ours set aside (never deleted) and started afresh.
#include <sqlite3.h>

#include <chrono>
#include <ctime>
#include <string>

#include "platform/log.h"
#include "store/store_access.h"

namespace corvane::store_detail {
namespace {

constexpr int kBusyTimeoutMs = 5000;

// The file is not ours or not sound: set it aside and build a fresh one.
struct NotOurStore {
  std::string reason;
};

bool isDamage(int code) { return code == SQLITE_NOTADB || code == SQLITE_CORRUPT; }

std::string timestampSuffix() {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

}  // namespace

const std::vector<std::vector<std::string>>& migrations() {
  // Column and table names are the entities' attribute names; relations are foreign keys, the
  // ordered to-many relations keep their order in a column of their own. Version 1:
  static const std::vector<std::vector<std::string>> steps = {{
      R"(CREATE TABLE "Category" ("id" INTEGER PRIMARY KEY, "name" TEXT, "type" INTEGER NOT NULL DEFAULT 0))",
      R"(CREATE TABLE "Sensor" ("id" INTEGER PRIMARY KEY, "average" INTEGER NOT NULL DEFAULT 0, "fullName" TEXT,
           "group" INTEGER NOT NULL DEFAULT 0, "isCustom" INTEGER NOT NULL DEFAULT 0, "key" TEXT,
           "maxValue" REAL NOT NULL DEFAULT 0, "minValue" REAL NOT NULL DEFAULT 0, "name" TEXT,
           "platform" INTEGER NOT NULL DEFAULT 0, "recordedMaxValue" REAL NOT NULL DEFAULT -1,
           "recordedMinValue" REAL NOT NULL DEFAULT 1.7976931348623157e308, "sourceType" INTEGER NOT NULL DEFAULT 0,
           "value" REAL NOT NULL DEFAULT 0,
           "category" INTEGER REFERENCES "Category"("id") ON DELETE SET NULL, "categoryOrder" INTEGER))",
      R"(CREATE INDEX "Sensor_key" ON "Sensor"("key"))",
      R"(CREATE INDEX "Sensor_category" ON "Sensor"("category", "categoryOrder"))",
      R"(CREATE TABLE "FanSet" ("id" INTEGER PRIMARY KEY, "created" REAL NOT NULL DEFAULT 0, "identifier" TEXT,
           "name" TEXT, "value" BLOB))",
      R"(CREATE TABLE "FanCondition" ("id" INTEGER PRIMARY KEY, "active" INTEGER NOT NULL DEFAULT 0,
           "batteryState" INTEGER NOT NULL DEFAULT 0, "created" REAL NOT NULL DEFAULT 0,
           "externalDisplayConnected" INTEGER NOT NULL DEFAULT 0, "sensorKey" TEXT, "threshold" REAL NOT NULL DEFAULT 0,
           "fanSet" INTEGER REFERENCES "FanSet"("id") ON DELETE CASCADE))",
      R"(CREATE INDEX "FanCondition_fanSet" ON "FanCondition"("fanSet"))",
      R"(CREATE TABLE "GraphPoint" ("id" INTEGER PRIMARY KEY, "pointX" REAL NOT NULL DEFAULT 0,
           "pointY" REAL NOT NULL DEFAULT 0, "timeRange" INTEGER NOT NULL DEFAULT 0,
           "sensor" INTEGER REFERENCES "Sensor"("id") ON DELETE CASCADE, "sensorOrder" INTEGER))",
      // Sampling and pruning touch one sensor's range by time: they cost what they change.
      R"(CREATE INDEX "GraphPoint_sampling" ON "GraphPoint"("sensor", "timeRange", "pointX"))",
  }, {
      // Version 2: the value joins the index, so a sensor's extremes and its graph are read from
      // the index alone, never from the rows.
      R"(DROP INDEX "GraphPoint_sampling")",
      R"(CREATE INDEX "GraphPoint_sampling" ON "GraphPoint"("sensor", "timeRange", "pointX", "pointY"))",
  }};
  return steps;
}

const std::map<std::string, std::vector<std::string>>& expectedColumns() {
  static const std::map<std::string, std::vector<std::string>> columns = {
      {"Category", {"id", "name", "type"}},
      {"Sensor",
       {"id", "average", "fullName", "group", "isCustom", "key", "maxValue", "minValue", "name", "platform",
        "recordedMaxValue", "recordedMinValue", "sourceType", "value", "category", "categoryOrder"}},
      {"FanSet", {"id", "created", "identifier", "name", "value"}},
      {"FanCondition",
       {"id", "active", "batteryState", "created", "externalDisplayConnected", "sensorKey", "threshold", "fanSet"}},
      {"GraphPoint", {"id", "pointX", "pointY", "timeRange", "sensor", "sensorOrder"}},
  };
  return columns;
}

StoreFile::StoreFile(const std::filesystem::path& file) {
  std::error_code ec;
  std::filesystem::create_directories(file.parent_path(), ec);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (openOnce(file)) return;
  }
  db_.reset();
}

bool StoreFile::openOnce(const std::filesystem::path& file) {
  statements_.clear();
  db_.reset();
  try {
    db_ = std::make_unique<SQLite::Database>(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                                             kBusyTimeoutMs);
    const int version = db_->execAndGet("PRAGMA user_version").getInt();
    const int current = static_cast<int>(migrations().size());
    if (version > current) {
      // A later version knows what it wrote; this one must not change it.
      db_ = std::make_unique<SQLite::Database>(file.string(), SQLite::OPEN_READONLY, kBusyTimeoutMs);
      readOnly_ = true;
      platform::log("Store " + file.string() + " has schema version " + std::to_string(version) +
                    ", newer than this version's " + std::to_string(current) + "; opened read-only");
      return true;
    }
    db_->exec("PRAGMA journal_mode = WAL");
    db_->exec("PRAGMA synchronous = NORMAL");
    db_->exec("PRAGMA foreign_keys = ON");
    if (db_->execAndGet("PRAGMA quick_check").getString() != "ok") throw NotOurStore{"it is damaged"};
    if (version < current) {
      // Another process opening the same new file may build the schema first: take the write
      // lock before reading the version again, so that only one of them builds it.
      SQLite::Transaction transaction(*db_, SQLite::TransactionBehavior::IMMEDIATE);
      const int built = db_->execAndGet("PRAGMA user_version").getInt();
      if (built < current) {
        try {
          for (int step = built; step < current; ++step) {
            for (const auto& sql : migrations()[static_cast<std::size_t>(step)]) db_->exec(sql);
          }
        } catch (const SQLite::Exception& e) {
          // Tables of ours where the version says there are none (or not in this shape).
          if (isDamage(e.getErrorCode())) throw;
          throw NotOurStore{e.what()};
        }
        db_->exec("PRAGMA user_version = " + std::to_string(current));
      }
      transaction.commit();
    }
    for (const auto& [table, names] : expectedColumns()) {
      SQLite::Statement info(*db_, "SELECT name FROM pragma_table_info(?) ORDER BY cid");
      info.bind(1, table);
      std::vector<std::string> found;
      while (info.executeStep()) found.push_back(info.getColumn(0).getString());
      if (found != names) throw NotOurStore{"its table " + table + " has another shape"};
    }
    return true;
  } catch (const NotOurStore& e) {
    setAside(file);
    (void)e;
    return false;
  } catch (const SQLite::Exception& e) {
    if (isDamage(e.getErrorCode())) {
      setAside(file);
      return false;
    }
    platform::log("Store " + file.string() + " cannot be opened: " + e.what());
    db_.reset();
    return true;  // not something a fresh file would cure
  }
}

void StoreFile::setAside(const std::filesystem::path& file) {
  statements_.clear();
  db_.reset();
  std::error_code ec;
  std::string aside = file.string() + ".corrupt-" + timestampSuffix();
  for (int n = 2; std::filesystem::exists(aside, ec); ++n) {
    aside = file.string() + ".corrupt-" + timestampSuffix() + "-" + std::to_string(n);
  }
  std::filesystem::rename(file, aside, ec);
  if (ec) {
    platform::log("Store " + file.string() + " is not a usable store and cannot be set aside: " + ec.message());
    return;
  }
  for (const char* journal : {"-wal", "-shm"}) {
    std::error_code ignored;
    const std::filesystem::path from = file.string() + journal;
    if (std::filesystem::exists(from, ignored)) std::filesystem::rename(from, aside + journal, ignored);
  }
  platform::log("Store " + file.string() + " is not a usable store; set aside as " + aside +
                " and a fresh one built");
}

SQLite::Statement& StoreFile::statement(const std::string& sql) {
  auto& slot = statements_[sql];
  if (!slot) slot = std::make_unique<SQLite::Statement>(*db_, sql);
  slot->reset();
  slot->clearBindings();
  return *slot;
}

}  // namespace corvane::store_detail
