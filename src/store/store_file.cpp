// Opening the store file: forward migrations kept in PRAGMA user_version, a newer file opened
// read-only, a file that is not a store of ours set aside (never deleted) and started afresh.
#include <sqlite3.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <string>
#include <thread>

#include "platform/log.h"
#include "store/store_access.h"

namespace corvane::store_detail {
namespace {

constexpr int kBusyTimeoutMs = 5000;
constexpr int kBusyTries = 200;  // ten milliseconds apart
constexpr int kIncrementalVacuum = 2;  // PRAGMA auto_vacuum's value for INCREMENTAL

// The file is not ours or not sound: set it aside and build a fresh one.
struct NotOurStore {
  std::string reason;
};

bool isDamage(int code) { return code == SQLITE_NOTADB || code == SQLITE_CORRUPT; }

// SQLite answers some steps of opening (the switch to the WAL journal while another process has
// the new file open, a snapshot gone stale) "busy" at once, without its busy handler.
bool isBusy(int code) { return (code & 0xff) == SQLITE_BUSY || (code & 0xff) == SQLITE_LOCKED; }

struct StillBusy {};

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
  }, {
      // Version 3: points clustered by their id (see point_ids) instead of a second index, which
      // every prune had to follow row by row. Every point is kept, in its sensor's order; a point
      // that came out of time order within its range goes to the sensor's slot for such points.
      R"(CREATE TABLE "GraphPoint_clustered" ("id" INTEGER PRIMARY KEY, "pointX" REAL NOT NULL DEFAULT 0,
           "pointY" REAL NOT NULL DEFAULT 0, "timeRange" INTEGER NOT NULL DEFAULT 0,
           "sensor" INTEGER REFERENCES "Sensor"("id") ON DELETE CASCADE, "sensorOrder" INTEGER))",
      R"(INSERT INTO "GraphPoint_clustered" ("id", "pointX", "pointY", "timeRange", "sensor", "sensorOrder")
           SELECT (IFNULL("sensor", 0) << 40)
                    | ((CASE WHEN "timeRange" BETWEEN 0 AND 2 AND ("latest" IS NULL OR "pointX" >= "latest")
                             THEN "timeRange" ELSE 3 END) << 38)
                    | "seq",
                  "pointX", "pointY", "timeRange", "sensor", "seq"
           FROM (SELECT *, ROW_NUMBER() OVER (PARTITION BY "sensor" ORDER BY "sensorOrder", "id") AS "seq",
                        MAX("pointX") OVER (PARTITION BY "sensor", "timeRange" ORDER BY "sensorOrder", "id"
                                            ROWS BETWEEN UNBOUNDED PRECEDING AND 1 PRECEDING) AS "latest"
                 FROM "GraphPoint"
                 WHERE "sensor" IS NULL OR "sensor" IN (SELECT "id" FROM "Sensor")))",
      R"(DROP TABLE "GraphPoint")",
      R"(ALTER TABLE "GraphPoint_clustered" RENAME TO "GraphPoint")",
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
  int busyTries = 0;
  for (int attempt = 0; attempt < 2;) {
    try {
      if (openOnce(file)) return;
      ++attempt;
    } catch (const StillBusy&) {
      // Another process is opening or building the same file (a reader and the daemon after the
      // file was deleted, say): wait for it rather than giving up on the store.
      if (++busyTries >= kBusyTries) {
        platform::log("Store " + file.string() + " cannot be opened: another process keeps it busy");
        db_.reset();
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  db_.reset();
}

bool StoreFile::openOnce(const std::filesystem::path& file) {
  statements_.clear();
  tails_.clear();
  dataVersion_ = -1;
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
    if (version == 0) {
      // Pages that pruning frees go back to the file system, so a store that keeps a window of
      // history stays the size of that window. A file takes this only before its first table
      // (and before the journal mode, which writes its first page).
      db_->exec("PRAGMA auto_vacuum = INCREMENTAL");
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
          if (isDamage(e.getErrorCode()) || isBusy(e.getExtendedErrorCode())) throw;
          throw NotOurStore{e.what()};
        }
        db_->exec("PRAGMA user_version = " + std::to_string(current));
      }
      transaction.commit();
    }
    if (db_->execAndGet("PRAGMA auto_vacuum").getInt() != kIncrementalVacuum) {
      // A store made by an older version learns to give pages back by being rewritten once (which
      // also returns what its migration left behind). Should that fail, the store works as
      // before and only keeps the size it once had.
      try {
        db_->exec("PRAGMA auto_vacuum = INCREMENTAL");
        db_->exec("VACUUM");
      } catch (const SQLite::Exception& e) {
        if (isDamage(e.getErrorCode())) throw;
        platform::log("Store " + file.string() + " keeps its size: " + e.what());
      }
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
    if (isBusy(e.getExtendedErrorCode())) {
      statements_.clear();
      db_.reset();
      throw StillBusy{};
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

StoreFile::PointTail& StoreFile::pointTail(std::int64_t sensor) {
  auto [found, added] = tails_.try_emplace(sensor);
  PointTail& tail = found->second;
  if (!added) return tail;
  auto& lastOfSlot = statement(R"(SELECT "id", "pointX" FROM "GraphPoint" WHERE "id" BETWEEN ? AND ? ORDER BY "id" DESC LIMIT 1)");
  for (int slot = 0; slot <= point_ids::kOtherSlot; ++slot) {
    lastOfSlot.reset();
    lastOfSlot.bind(1, static_cast<int64_t>(point_ids::first(sensor, slot)));
    lastOfSlot.bind(2, static_cast<int64_t>(point_ids::last(sensor, slot)));
    const bool any = lastOfSlot.executeStep();
    if (any) tail.nextSeq = std::max(tail.nextSeq, point_ids::seqOf(lastOfSlot.getColumn(0).getInt64()) + 1);
    if (slot < point_ids::kOtherSlot) {
      tail.lastX[slot] = any ? lastOfSlot.getColumn(1).getDouble() : -std::numeric_limits<double>::infinity();
    }
  }
  lastOfSlot.reset();
  return tail;
}

void StoreFile::noticeOtherWriters() {
  auto& query = statement("PRAGMA data_version");
  const std::int64_t version = query.executeStep() ? query.getColumn(0).getInt64() : -1;
  query.reset();
  if (version != dataVersion_) tails_.clear();
  dataVersion_ = version;
}

SQLite::Statement& StoreFile::statement(const std::string& sql) {
  auto& slot = statements_[sql];
  if (!slot) slot = std::make_unique<SQLite::Statement>(*db_, sql);
  slot->reset();
  slot->clearBindings();
  return *slot;
}

}  // namespace corvane::store_detail
