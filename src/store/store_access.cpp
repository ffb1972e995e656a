// Row I/O of the five entities and the typed fetch over a context.
#include <algorithm>
#include <set>
#include <stdexcept>

#include "store/store_access.h"

namespace corvane::store_detail {
namespace {

std::string textOrEmpty(SQLite::Statement& row, int column) {
  const SQLite::Column value = row.getColumn(column);
  return value.isNull() ? std::string() : value.getString();
}

// Empty text is stored as NULL, the store's "no value" for a string.
void bindText(SQLite::Statement& statement, int index, const std::string& text) {
  if (text.empty()) {
    statement.bind(index);
  } else {
    statement.bind(index, text);
  }
}

void bindID(SQLite::Statement& statement, int index, std::int64_t id) {
  if (id == 0) {
    statement.bind(index);
  } else {
    statement.bind(index, static_cast<int64_t>(id));
  }
}

std::int16_t int16(SQLite::Statement& row, int column) {
  return static_cast<std::int16_t>(row.getColumn(column).getInt());
}

// Runs an insert (id 0) or update (id bound last) and gives a new object its row id.
void finish(HWManagedObject& object, SQLite::Statement& statement, StoreFile& file, int idIndex) {
  if (Access::objectID(object) != 0) statement.bind(idIndex, static_cast<int64_t>(Access::objectID(object)));
  statement.exec();
  if (Access::objectID(object) == 0) Access::objectID(object) = file.db().getLastInsertRowid();
}

}  // namespace

StoreFile* Access::file(HWManagedObjectContext& context) {
  auto stack = context.stack_.lock();
  if (!stack) return nullptr;
  StoreFile* store = stack->file();
  return store->ok() ? store : nullptr;
}

std::shared_ptr<HWManagedObject> Access::make(HWEntity entity) {
  switch (entity) {
    case HWEntity::kSensor: return std::make_shared<HWSensorEntity>();
    case HWEntity::kCategory: return std::make_shared<HWSensorCategoryEntity>();
    case HWEntity::kFanSet: return std::make_shared<HWFanSetEntity>();
    case HWEntity::kFanCondition: return std::make_shared<HWFanConditionEntity>();
    case HWEntity::kGraphPoint: return std::make_shared<HWGraphPointEntity>();
  }
  return nullptr;
}

std::string Access::columns(HWEntity entity) {
  const auto& names = expectedColumns().at(std::string(entityName(entity)));
  std::string list;
  for (const auto& name : names) list += (list.empty() ? "\"" : ", \"") + name + "\"";
  return list;
}

void Access::read(HWManagedObject& object, SQLite::Statement& row) {
  object.objectID_ = row.getColumn(0).getInt64();
  switch (object.entity()) {
    case HWEntity::kSensor: {
      auto& s = static_cast<HWSensorEntity&>(object);
      s.average_ = row.getColumn(1).getInt() != 0;
      s.fullName_ = textOrEmpty(row, 2);
      s.group_ = int16(row, 3);
      s.isCustom_ = row.getColumn(4).getInt() != 0;
      s.key_ = textOrEmpty(row, 5);
      s.maxValue_ = row.getColumn(6).getDouble();
      s.minValue_ = row.getColumn(7).getDouble();
      s.name_ = textOrEmpty(row, 8);
      s.platform_ = int16(row, 9);
      s.recordedMaxValue_ = row.getColumn(10).getDouble();
      s.recordedMinValue_ = row.getColumn(11).getDouble();
      s.sourceType_ = int16(row, 12);
      s.value_ = row.getColumn(13).getDouble();
      const std::int64_t category = row.getColumn(14).getInt64();
      if (!s.category_ || s.category_->objectID() != category) s.category_.reset();
      s.categoryID_ = category;
      s.categoryOrder_ = row.getColumn(15).isNull() ? -1 : row.getColumn(15).getInt64();
      break;
    }
    case HWEntity::kCategory: {
      auto& c = static_cast<HWSensorCategoryEntity&>(object);
      c.name_ = textOrEmpty(row, 1);
      c.type_ = int16(row, 2);
      break;
    }
    case HWEntity::kFanSet: {
      auto& f = static_cast<HWFanSetEntity&>(object);
      f.created_ = row.getColumn(1).getDouble();
      f.identifier_ = textOrEmpty(row, 2);
      f.name_ = textOrEmpty(row, 3);
      const SQLite::Column blob = row.getColumn(4);
      const auto* bytes = static_cast<const std::uint8_t*>(blob.getBlob());
      f.value_.assign(bytes, bytes + (bytes ? blob.getBytes() : 0));
      break;
    }
    case HWEntity::kFanCondition: {
      auto& c = static_cast<HWFanConditionEntity&>(object);
      c.active_ = row.getColumn(1).getInt() != 0;
      c.batteryState_ = int16(row, 2);
      c.created_ = row.getColumn(3).getDouble();
      c.externalDisplayConnected_ = row.getColumn(4).getInt() != 0;
      c.sensorKey_ = textOrEmpty(row, 5);
      c.threshold_ = row.getColumn(6).getDouble();
      const std::int64_t fanSet = row.getColumn(7).getInt64();
      if (!c.fanSet_ || c.fanSet_->objectID() != fanSet) c.fanSet_.reset();
      c.fanSetID_ = fanSet;
      break;
    }
    case HWEntity::kGraphPoint: {
      auto& p = static_cast<HWGraphPointEntity&>(object);
      p.pointX_ = row.getColumn(1).getDouble();
      p.pointY_ = row.getColumn(2).getDouble();
      p.timeRange_ = int16(row, 3);
      const std::int64_t sensor = row.getColumn(4).getInt64();
      if (!p.sensor_ || p.sensor_->objectID() != sensor) p.sensor_.reset();
      p.sensorID_ = sensor;
      break;
    }
  }
}

void Access::write(HWManagedObject& object, StoreFile& file) {
  const bool isNew = object.objectID_ == 0;
  switch (object.entity()) {
    case HWEntity::kSensor: {
      auto& s = static_cast<HWSensorEntity&>(object);
      const std::int64_t category = s.category_ ? s.category_->objectID() : s.categoryID_;
      if (category == 0) {
        s.categoryOrder_ = -1;
      } else if (s.categoryOrder_ < 0) {
        auto& last = file.statement(R"(SELECT IFNULL(MAX("categoryOrder"), -1) FROM "Sensor" WHERE "category" = ?)");
        last.bind(1, static_cast<int64_t>(category));
        s.categoryOrder_ = last.executeStep() ? last.getColumn(0).getInt64() + 1 : 0;
        last.reset();
      }
      s.categoryID_ = category;
      auto& st = file.statement(
          isNew ? R"(INSERT INTO "Sensor" ("average", "fullName", "group", "isCustom", "key", "maxValue", "minValue",
                     "name", "platform", "recordedMaxValue", "recordedMinValue", "sourceType", "value", "category",
                     "categoryOrder") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?))"
                : R"(UPDATE "Sensor" SET "average" = ?, "fullName" = ?, "group" = ?, "isCustom" = ?, "key" = ?,
                     "maxValue" = ?, "minValue" = ?, "name" = ?, "platform" = ?, "recordedMaxValue" = ?,
                     "recordedMinValue" = ?, "sourceType" = ?, "value" = ?, "category" = ?, "categoryOrder" = ?
                     WHERE "id" = ?)");
      st.bind(1, s.average_ ? 1 : 0);
      bindText(st, 2, s.fullName_);
      st.bind(3, s.group_);
      st.bind(4, s.isCustom_ ? 1 : 0);
      bindText(st, 5, s.key_);
      st.bind(6, s.maxValue_);
      st.bind(7, s.minValue_);
      bindText(st, 8, s.name_);
      st.bind(9, s.platform_);
      st.bind(10, s.recordedMaxValue_);
      st.bind(11, s.recordedMinValue_);
      st.bind(12, s.sourceType_);
      st.bind(13, s.value_);
      bindID(st, 14, category);
      if (category == 0) {
        st.bind(15);
      } else {
        st.bind(15, static_cast<int64_t>(s.categoryOrder_));
      }
      finish(object, st, file, 16);
      break;
    }
    case HWEntity::kCategory: {
      auto& c = static_cast<HWSensorCategoryEntity&>(object);
      auto& st = file.statement(isNew ? R"(INSERT INTO "Category" ("name", "type") VALUES (?, ?))"
                                      : R"(UPDATE "Category" SET "name" = ?, "type" = ? WHERE "id" = ?)");
      bindText(st, 1, c.name_);
      st.bind(2, c.type_);
      finish(object, st, file, 3);
      break;
    }
    case HWEntity::kFanSet: {
      auto& f = static_cast<HWFanSetEntity&>(object);
      auto& st = file.statement(
          isNew ? R"(INSERT INTO "FanSet" ("created", "identifier", "name", "value") VALUES (?, ?, ?, ?))"
                : R"(UPDATE "FanSet" SET "created" = ?, "identifier" = ?, "name" = ?, "value" = ? WHERE "id" = ?)");
      st.bind(1, f.created_);
      bindText(st, 2, f.identifier_);
      bindText(st, 3, f.name_);
      if (f.value_.empty()) {
        st.bind(4);
      } else {
        st.bind(4, f.value_.data(), static_cast<int>(f.value_.size()));
      }
      finish(object, st, file, 5);
      break;
    }
    case HWEntity::kFanCondition: {
      auto& c = static_cast<HWFanConditionEntity&>(object);
      const std::int64_t fanSet = c.fanSet_ ? c.fanSet_->objectID() : c.fanSetID_;
      c.fanSetID_ = fanSet;
      auto& st = file.statement(
          isNew ? R"(INSERT INTO "FanCondition" ("active", "batteryState", "created", "externalDisplayConnected",
                     "sensorKey", "threshold", "fanSet") VALUES (?, ?, ?, ?, ?, ?, ?))"
                : R"(UPDATE "FanCondition" SET "active" = ?, "batteryState" = ?, "created" = ?,
                     "externalDisplayConnected" = ?, "sensorKey" = ?, "threshold" = ?, "fanSet" = ? WHERE "id" = ?)");
      st.bind(1, c.active_ ? 1 : 0);
      st.bind(2, c.batteryState_);
      st.bind(3, c.created_);
      st.bind(4, c.externalDisplayConnected_ ? 1 : 0);
      bindText(st, 5, c.sensorKey_);
      st.bind(6, c.threshold_);
      bindID(st, 7, fanSet);
      finish(object, st, file, 8);
      break;
    }
    case HWEntity::kGraphPoint: writePoint(static_cast<HWGraphPointEntity&>(object), file); break;
  }
}

void Access::writePoint(HWGraphPointEntity& p, StoreFile& file) {
  namespace ids = point_ids;
  const std::int64_t sensor = p.sensor_ ? p.sensor_->objectID() : p.sensorID_;
  p.sensorID_ = sensor;
  if (sensor < 0 || sensor > ids::kMaxSensor) throw std::runtime_error("a graph point's sensor id is out of range");
  const std::int64_t old = p.objectID_;
  if (old != 0) {
    // Only the value changed: the row stays where it is.
    auto& stored = file.statement(R"(SELECT "pointX", "timeRange" FROM "GraphPoint" WHERE "id" = ?)");
    stored.bind(1, static_cast<int64_t>(old));
    const bool same = stored.executeStep() && ids::sensorOf(old) == sensor &&
                      stored.getColumn(0).getDouble() == p.pointX_ && stored.getColumn(1).getInt() == p.timeRange_;
    stored.reset();
    if (same) {
      auto& st = file.statement(R"(UPDATE "GraphPoint" SET "pointY" = ? WHERE "id" = ?)");
      st.bind(1, p.pointY_);
      st.bind(2, static_cast<int64_t>(old));
      st.exec();
      return;
    }
    auto& remove = file.statement(R"(DELETE FROM "GraphPoint" WHERE "id" = ?)");
    remove.bind(1, static_cast<int64_t>(old));
    remove.exec();
  }
  std::int64_t seq = 0;
  int slot = ids::kOtherSlot;
  if (old != 0 && ids::sensorOf(old) == sensor) {
    // Same sensor, new time or range: it keeps its place among the sensor's points, which is
    // out of time order for a range's run.
    seq = ids::seqOf(old);
  } else {
    StoreFile::PointTail& tail = file.pointTail(sensor);
    seq = tail.nextSeq++;
    const int wanted = ids::slotOf(p.timeRange_);
    if (wanted != ids::kOtherSlot && p.pointX_ >= tail.lastX[wanted]) {
      slot = wanted;
      tail.lastX[wanted] = p.pointX_;
    }
  }
  if (seq > ids::kSeqMask) throw std::runtime_error("a sensor has used up its graph point numbers");
  const std::int64_t id = ids::first(sensor, slot) | seq;
  auto& st = file.statement(R"(INSERT INTO "GraphPoint" ("id", "pointX", "pointY", "timeRange", "sensor", "sensorOrder")
                               VALUES (?, ?, ?, ?, ?, ?))");
  st.bind(1, static_cast<int64_t>(id));
  st.bind(2, p.pointX_);
  st.bind(3, p.pointY_);
  st.bind(4, p.timeRange_);
  bindID(st, 5, sensor);
  st.bind(6, static_cast<int64_t>(seq));
  st.exec();
  p.objectID_ = id;
}

void Access::copyAttributes(HWManagedObject& to, const HWManagedObject& from) {
  const std::int64_t id = to.objectID_;
  switch (from.entity()) {
    case HWEntity::kSensor: {
      auto& t = static_cast<HWSensorEntity&>(to);
      const auto& f = static_cast<const HWSensorEntity&>(from);
      t.average_ = f.average_, t.fullName_ = f.fullName_, t.group_ = f.group_, t.isCustom_ = f.isCustom_;
      t.key_ = f.key_, t.maxValue_ = f.maxValue_, t.minValue_ = f.minValue_, t.name_ = f.name_;
      t.platform_ = f.platform_, t.recordedMaxValue_ = f.recordedMaxValue_, t.recordedMinValue_ = f.recordedMinValue_;
      t.sourceType_ = f.sourceType_, t.value_ = f.value_, t.category_ = f.category_, t.categoryID_ = f.categoryID_;
      t.categoryOrder_ = f.categoryOrder_;
      break;
    }
    case HWEntity::kCategory: {
      auto& t = static_cast<HWSensorCategoryEntity&>(to);
      const auto& f = static_cast<const HWSensorCategoryEntity&>(from);
      t.name_ = f.name_, t.type_ = f.type_;
      break;
    }
    case HWEntity::kFanSet: {
      auto& t = static_cast<HWFanSetEntity&>(to);
      const auto& f = static_cast<const HWFanSetEntity&>(from);
      t.created_ = f.created_, t.identifier_ = f.identifier_, t.name_ = f.name_, t.value_ = f.value_;
      break;
    }
    case HWEntity::kFanCondition: {
      auto& t = static_cast<HWFanConditionEntity&>(to);
      const auto& f = static_cast<const HWFanConditionEntity&>(from);
      t.active_ = f.active_, t.batteryState_ = f.batteryState_, t.created_ = f.created_;
      t.externalDisplayConnected_ = f.externalDisplayConnected_, t.sensorKey_ = f.sensorKey_;
      t.threshold_ = f.threshold_, t.fanSet_ = f.fanSet_, t.fanSetID_ = f.fanSetID_;
      break;
    }
    case HWEntity::kGraphPoint: {
      auto& t = static_cast<HWGraphPointEntity&>(to);
      const auto& f = static_cast<const HWGraphPointEntity&>(from);
      t.pointX_ = f.pointX_, t.pointY_ = f.pointY_, t.timeRange_ = f.timeRange_, t.sensor_ = f.sensor_;
      t.sensorID_ = f.sensorID_;
      break;
    }
  }
  to.objectID_ = id;
}

std::vector<std::shared_ptr<HWManagedObject>> Access::fetchObjects(
    HWManagedObjectContext& context, HWEntity entity, const std::string& where, const Binder& bind,
    const std::string& order, const std::function<bool(const HWManagedObject&)>& matches) {
  std::vector<std::shared_ptr<HWManagedObject>> out;
  std::set<const HWManagedObject*> seen;
  if (StoreFile* store = file(context)) {
    std::lock_guard guard(store->mutex());
    try {
      std::string sql = "SELECT " + columns(entity) + " FROM \"" + std::string(entityName(entity)) + "\"";
      if (!where.empty()) sql += " WHERE " + where;
      if (!order.empty()) sql += " ORDER BY " + order;
      auto& statement = store->statement(sql);
      if (bind) bind(statement);
      std::vector<std::shared_ptr<HWManagedObject>> rows;
      while (statement.executeStep()) {
        const std::int64_t id = statement.getColumn(0).getInt64();
        std::shared_ptr<HWManagedObject> object = context.objects_->lookup(entity, id);
        if (object) {
          if (!object->hasChanges()) read(*object, statement);
        } else {
          object = make(entity);
          read(*object, statement);
          object->context_ = context.weak_from_this();
          context.objects_->enroll(object, entity, id);
        }
        rows.push_back(object);
      }
      statement.reset();
      // Matching may fetch in turn, so it runs once the statement is done. Unsaved changes count
      // by their in-memory values.
      for (auto& object : rows) {
        if (object->isDeleted() || (object->hasChanges() && !matches(*object))) continue;
        out.push_back(object);
        seen.insert(object.get());
      }
    } catch (const std::exception&) {
      // A failed fetch yields what it had; the store's errors are not the caller's.
    }
  }
  for (const auto& object : context.objects_->pending) {
    if (object->entity() != entity || object->isDeleted() || seen.count(object.get()) || !matches(*object)) continue;
    out.push_back(object);
  }
  return out;
}

std::shared_ptr<HWManagedObject> Access::objectWithID(HWManagedObjectContext& context, HWEntity entity,
                                                      std::int64_t id) {
  if (id == 0) return nullptr;
  auto found = fetchObjects(
      context, entity, "\"id\" = ?", [id](SQLite::Statement& s) { s.bind(1, static_cast<int64_t>(id)); }, "",
      [id](const HWManagedObject& o) { return o.objectID() == id; });
  return found.empty() ? nullptr : found.front();
}

double Access::scalar(HWManagedObjectContext* context, const std::string& sql, const Binder& bind, double fallback) {
  StoreFile* store = context ? file(*context) : nullptr;
  if (!store) return fallback;
  std::lock_guard guard(store->mutex());
  try {
    auto& statement = store->statement(sql);
    if (bind) bind(statement);
    double result = fallback;
    if (statement.executeStep() && !statement.getColumn(0).isNull()) result = statement.getColumn(0).getDouble();
    statement.reset();
    return result;
  } catch (const std::exception&) {
    return fallback;
  }
}

}  // namespace corvane::store_detail
