// Inside the store: the open file with its schema, and the row I/O and typed fetch that the
// stack, the entities and the sensor data store share. Not part of the public interface.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <string>
#include <vector>

#include "corvane/store/core_data_stack.h"
#include "corvane/store/entities.h"

namespace corvane {

struct HWManagedObjectContext::Objects {
  // Objects of saved rows, by entity and row id: one object per row in a context while anyone
  // holds it (held weakly, so a week of graph points does not stay in memory).
  std::map<std::pair<HWEntity, std::int64_t>, std::weak_ptr<HWManagedObject>> registered;
  std::size_t sweepAt = 1024;

  std::shared_ptr<HWManagedObject> lookup(HWEntity entity, std::int64_t id) const {
    auto found = registered.find({entity, id});
    return found == registered.end() ? nullptr : found->second.lock();
  }
  void enroll(const std::shared_ptr<HWManagedObject>& object, HWEntity entity, std::int64_t id) {
    registered[{entity, id}] = object;
    if (registered.size() < sweepAt) return;
    std::erase_if(registered, [](const auto& entry) { return entry.second.expired(); });
    sweepAt = std::max<std::size_t>(1024, registered.size() * 2);
  }
  // Objects with work for the next save, in the order they changed (and the same as a set, so
  // that marking is constant time however many objects a save carries).
  std::vector<std::shared_ptr<HWManagedObject>> pending;
  std::unordered_set<const HWManagedObject*> pendingSet;
};

}  // namespace corvane

namespace corvane::store_detail {

// Graph point row ids cluster the table by sensor and range: id = sensor << 40 | slot << 38 | seq.
// One sensor's points of one range are then one run of neighbouring rows, so pruning a range is a
// single range delete on the table itself and no second index has to follow. Slots 0 to 2 hold
// the hour, day and week points appended in time order; slot 3 holds every other point of the
// sensor (one appended out of time order, one moved, one of an unknown range), which queries and
// pruning filter row by row. `seq` numbers the sensor's points in the order they were added, all
// ranges together: it is also the point's place in the sensor's ordered points ("sensorOrder").
namespace point_ids {
inline constexpr int kSensorShift = 40;
inline constexpr int kSlotShift = 38;
inline constexpr std::int64_t kSeqMask = (std::int64_t{1} << kSlotShift) - 1;
inline constexpr int kOtherSlot = 3;
// Sensor row ids beyond this do not fit in a point id.
inline constexpr std::int64_t kMaxSensor = (std::int64_t{1} << (63 - kSensorShift)) - 1;

inline int slotOf(int timeRange) { return timeRange >= 0 && timeRange < kOtherSlot ? timeRange : kOtherSlot; }
inline std::int64_t first(std::int64_t sensor, int slot) {
  return (sensor << kSensorShift) | (static_cast<std::int64_t>(slot) << kSlotShift);
}
inline std::int64_t last(std::int64_t sensor, int slot) { return first(sensor, slot) | kSeqMask; }
inline std::int64_t sensorOf(std::int64_t id) { return id >> kSensorShift; }
inline int slotOfID(std::int64_t id) { return static_cast<int>((id >> kSlotShift) & 3); }
inline std::int64_t seqOf(std::int64_t id) { return id & kSeqMask; }
}  // namespace point_ids

// The store file, opened once: schema created or migrated forward, WAL journal, foreign keys on.
// All statements run under `mutex()`; prepared statements are kept, so a hot query prepares once.
class StoreFile {
 public:
  explicit StoreFile(const std::filesystem::path& file);
  // Whether a database is open (false: every fetch is empty, every save fails).
  bool ok() const { return db_ != nullptr; }
  bool readOnly() const { return readOnly_; }
  SQLite::Database& db() { return *db_; }
  std::recursive_mutex& mutex() { return mutex_; }
  // The prepared statement for `sql`, reset and with its bindings cleared.
  SQLite::Statement& statement(const std::string& sql);

  // Where a sensor's next point goes: its next sequence number and, per time-ordered slot, the
  // time of the slot's last point (-infinity when empty). Read from the file on first use and
  // kept up to date by the writes of this connection.
  struct PointTail {
    std::int64_t nextSeq = 1;
    double lastX[point_ids::kOtherSlot];
  };
  PointTail& pointTail(std::int64_t sensor);
  // Forgets every tail when another connection has written since this one last looked (call
  // inside the write transaction), or unconditionally.
  void noticeOtherWriters();
  void forgetPointTails() { tails_.clear(); }

 private:
  bool openOnce(const std::filesystem::path& file);
  void setAside(const std::filesystem::path& file);

  std::unique_ptr<SQLite::Database> db_;
  bool readOnly_ = false;
  std::recursive_mutex mutex_;
  std::map<std::string, std::unique_ptr<SQLite::Statement>> statements_;
  std::unordered_map<std::int64_t, PointTail> tails_;
  std::int64_t dataVersion_ = -1;
};

// The statements that build schema version `version` from the one before; index 0 builds 1.
const std::vector<std::vector<std::string>>& migrations();
// The columns every table must have after migration, by table name.
const std::map<std::string, std::vector<std::string>>& expectedColumns();

struct Access {
  using Binder = std::function<void(SQLite::Statement&)>;

  static StoreFile* file(HWManagedObjectContext& context);
  static std::shared_ptr<HWManagedObject> make(HWEntity entity);
  // The select list of an entity, row id first.
  static std::string columns(HWEntity entity);
  // Reads the attributes from a row selected with columns() (row id in column 0).
  static void read(HWManagedObject& object, SQLite::Statement& row);
  // Inserts or updates the object's row; gives a new object its row id. A graph point whose
  // sensor, range or time changed moves to a new row id (see point_ids).
  static void write(HWManagedObject& object, StoreFile& file);
  static void writePoint(HWGraphPointEntity& point, StoreFile& file);
  static void copyAttributes(HWManagedObject& to, const HWManagedObject& from);
  static std::int64_t& objectID(HWManagedObject& object) { return object.objectID_; }
  // A sensor's place in its category (-1: at the end, once saved).
  static std::int64_t& sensorOrder(HWSensorEntity& sensor) { return sensor.categoryOrder_; }
  static std::int64_t sensorOrder(const HWSensorEntity& sensor) { return sensor.categoryOrder_; }

  // Objects of `T` in `context`: the rows matching `where` (SQL, bound by `bind`) in `order`,
  // each mapped to the context's object for that row. An object with unsaved changes counts by
  // its in-memory values (`matches`), and unsaved objects of the context that match come last.
  template <class T>
  static std::vector<std::shared_ptr<T>> fetch(HWManagedObjectContext& context, HWEntity entity,
                                               const std::string& where, const Binder& bind,
                                               const std::string& order, const std::function<bool(const T&)>& matches) {
    std::vector<std::shared_ptr<T>> out;
    for (auto& object : fetchObjects(context, entity, where, bind, order, [&](const HWManagedObject& o) {
           return matches(static_cast<const T&>(o));
         })) {
      out.push_back(std::static_pointer_cast<T>(object));
    }
    return out;
  }
  static std::vector<std::shared_ptr<HWManagedObject>> fetchObjects(
      HWManagedObjectContext& context, HWEntity entity, const std::string& where, const Binder& bind,
      const std::string& order, const std::function<bool(const HWManagedObject&)>& matches);
  // The context's object for row `id` of `entity`; null when the row is gone.
  static std::shared_ptr<HWManagedObject> objectWithID(HWManagedObjectContext& context, HWEntity entity,
                                                       std::int64_t id);
  // One number computed in the file (e.g. MAX(pointY)); `fallback` without a store or a row.
  static double scalar(HWManagedObjectContext* context, const std::string& sql, const Binder& bind, double fallback);
};

}  // namespace corvane::store_detail
