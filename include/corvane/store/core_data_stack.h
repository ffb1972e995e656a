// The store stack: one SQLite file of sensors, categories, fan sets, fan conditions and graph
// points, the main-queue view context on it, and background contexts whose saves go up through
// the view context to the file.
//
// Nothing is opened until the first use of a context, a fetch or a save: the data manager moves
// store files after the stack exists and before anything reads the store. A save of a context
// that writes to the file is one transaction. A file that is not a database (or is damaged) is
// set aside under a time-stamped name and a fresh store is built; a file written by a newer
// schema version is opened read-only and never written.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/util/error.h"

namespace corvane {

class HWCoreDataStack;
class HWManagedObjectContext;
namespace store_detail {
struct Access;
class StoreFile;
}  // namespace store_detail

// The five stored entities; their names are the table names of the file.
enum class HWEntity { kSensor, kCategory, kFanSet, kFanCondition, kGraphPoint };
// "Sensor", "Category", "FanSet", "FanCondition", "GraphPoint".
std::string_view entityName(HWEntity entity);

// A stored object. Belongs to the context that fetched or inserted it and is used on that
// context's queue only. Setters mark the object changed; the next save of its context writes it.
class HWManagedObject : public std::enable_shared_from_this<HWManagedObject> {
 public:
  virtual ~HWManagedObject();
  HWManagedObject(const HWManagedObject&) = delete;
  HWManagedObject& operator=(const HWManagedObject&) = delete;

  virtual HWEntity entity() const = 0;
  // The row id in the file; 0 until the object is first saved to the file.
  std::int64_t objectID() const { return objectID_; }
  // Whether a save has pending work for this object (inserted, changed or deleted).
  bool hasChanges() const { return changed_ || deleted_; }
  bool isDeleted() const { return deleted_; }
  // The context the object belongs to; null once that context is gone.
  std::shared_ptr<HWManagedObjectContext> managedObjectContext() const { return context_.lock(); }

 protected:
  HWManagedObject() = default;
  // Called by every setter before it stores: marks the object changed in its context.
  void willChange();

 private:
  friend class HWManagedObjectContext;
  friend struct store_detail::Access;
  std::int64_t objectID_ = 0;
  bool changed_ = false;
  bool deleted_ = false;
  std::weak_ptr<HWManagedObjectContext> context_;
};

// A scratch pad of stored objects. The view context belongs to the main queue and writes to the
// file; a context from newContext() belongs to its user's queue and saves into the view context,
// which then writes to the file. Objects with unsaved changes keep their in-memory values when
// fetched again (in-memory changes win); unchanged objects take the file's values at every fetch.
class HWManagedObjectContext : public std::enable_shared_from_this<HWManagedObjectContext> {
 public:
  ~HWManagedObjectContext();
  // The context saves go up to; null for the view context.
  std::shared_ptr<HWManagedObjectContext> parent() const { return parent_; }
  bool hasChanges() const;
  // Registers a new object (made by insertNewObjectOf) for the next save.
  void insertObject(const std::shared_ptr<HWManagedObject>& object);
  // Marks `object` deleted; the next save removes it (with the file's delete rules: a sensor's
  // graph points and a fan set's conditions go with it, a category's sensors lose their
  // category). An object never saved simply drops out.
  void deleteObject(const std::shared_ptr<HWManagedObject>& object);
  // Saves this context one level: into the parent, or, for the view context, to the file in one
  // transaction. False (with `error` filled when given) when the file could not take it; the
  // changes then stay pending.
  bool save(HWError* error = nullptr);
  // Saves this context and then every parent in turn, so the changes reach the file; a failed
  // step logs "Save error: <message>" and stops there. Does nothing without changes here.
  bool saveRecursively();
  // Reloads every unchanged object from the file (values another process wrote); objects whose
  // rows are gone are marked deleted and dropped.
  void refreshAllObjects();

 private:
  friend class HWCoreDataStack;
  friend class HWManagedObject;
  friend struct store_detail::Access;
  struct Objects;
  HWManagedObjectContext(std::weak_ptr<HWCoreDataStack> stack, std::shared_ptr<HWManagedObjectContext> parent);
  bool writeToFile(HWError* error);
  void adopt(const std::shared_ptr<HWManagedObject>& object);

  std::weak_ptr<HWCoreDataStack> stack_;
  std::shared_ptr<HWManagedObjectContext> parent_;
  std::unique_ptr<Objects> objects_;
};

class HWCoreDataStack : public std::enable_shared_from_this<HWCoreDataStack> {
 public:
  // The schema version this build writes, kept in the file's PRAGMA user_version.
  static constexpr int kSchemaVersion = 3;

  // A stack for the store at `storeURL` ("Database.sqlite" in the app-group container in the
  // product). `writeOnly` marks the process that writes sensor data. Opens nothing.
  static std::shared_ptr<HWCoreDataStack> create(std::filesystem::path storeURL, bool writeOnly);
  ~HWCoreDataStack();
  HWCoreDataStack(const HWCoreDataStack&) = delete;
  HWCoreDataStack& operator=(const HWCoreDataStack&) = delete;

  const std::filesystem::path& storeURL() const { return storeURL_; }
  bool writeOnly() const { return writeOnly_; }
  // Seconds that cached values of a reading process may be old; -1 at start. Fetches always read
  // the file, so every value is at most one fetch old whatever the interval.
  double stalenessInterval() const { return stalenessInterval_; }
  void setStalenessInterval(double seconds) { stalenessInterval_ = seconds; }

  // Opens the store if it is not open yet; false when no store could be opened (every fetch is
  // then empty and saves fail).
  bool hasStore();
  // Whether the store was opened read-only because a newer version wrote it.
  bool isReadOnly();
  // The main-queue context; the same one on every call.
  std::shared_ptr<HWManagedObjectContext> viewContext();
  // A new background context whose saves go into the view context. The caller owns it.
  std::shared_ptr<HWManagedObjectContext> newContext();
  // saveRecursively of the view context / of `context` (no-op without a store).
  bool saveViewContext();
  bool saveContext(const std::shared_ptr<HWManagedObjectContext>& context);
  // Schedules on the main queue a refreshAllObjects of the view context.
  void refreshAllObjectsInViewContext();
  // Whether the open file was deleted or replaced under the stack; SQLite would go on saving into
  // the lost file without a word. If so, closes it, removes its journal companions (so the new
  // file cannot share or replay them) and starts over with an empty view context: the next use
  // opens or builds the file at storeURL afresh, and objects of the old context reach no file.
  // Main queue only, with no store work running on other queues.
  bool reopenIfStoreFileMoved();

  // Every object of `entity` in `context` (the view context when null), in row order.
  std::vector<std::shared_ptr<HWManagedObject>> objectsOf(HWEntity entity,
                                                          const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // A new object of `entity`, inserted into `context` (the view context when null).
  std::shared_ptr<HWManagedObject> insertNewObjectOf(HWEntity entity,
                                                     const std::shared_ptr<HWManagedObjectContext>& context = nullptr);
  // Deletes every row of `entity` in the file at once (with the delete rules); objects already
  // loaded in contexts are not told, as with any batch delete.
  void deleteAllObjectsOf(HWEntity entity, const std::shared_ptr<HWManagedObjectContext>& context = nullptr);

  // Called on the saving thread after each save of the view context reached the file (the
  // sensor data store announces the save from here). One observer; replaces the previous one.
  void setViewContextDidSave(std::function<void()> observer);

 private:
  friend class HWManagedObjectContext;
  friend struct store_detail::Access;
  HWCoreDataStack(std::filesystem::path storeURL, bool writeOnly);
  store_detail::StoreFile* file();

  std::filesystem::path storeURL_;
  bool writeOnly_;
  double stalenessInterval_ = -1;
  std::unique_ptr<store_detail::StoreFile> file_;
  std::shared_ptr<HWManagedObjectContext> viewContext_;
  std::function<void()> didSave_;
  struct Lock;
  std::unique_ptr<Lock> lock_;
};

}  // namespace corvane
