#include "corvane/store/core_data_stack.h"

#include <sqlite3.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "corvane/dispatch/dispatch.h"
#include "platform/log.h"
#include "store/store_access.h"

namespace corvane {

using store_detail::Access;
using store_detail::StoreFile;

std::string_view entityName(HWEntity entity) {
  switch (entity) {
    case HWEntity::kSensor: return "Sensor";
    case HWEntity::kCategory: return "Category";
    case HWEntity::kFanSet: return "FanSet";
    case HWEntity::kFanCondition: return "FanCondition";
    case HWEntity::kGraphPoint: return "GraphPoint";
  }
  return "";
}

// ---- objects ----

HWManagedObject::~HWManagedObject() = default;

void HWManagedObject::willChange() {
  if (changed_) return;
  const bool wasPending = deleted_;
  changed_ = true;
  if (wasPending) return;
  if (auto context = context_.lock()) context->adopt(shared_from_this());
}

// ---- contexts ----


HWManagedObjectContext::HWManagedObjectContext(std::weak_ptr<HWCoreDataStack> stack,
                                               std::shared_ptr<HWManagedObjectContext> parent)
    : stack_(std::move(stack)), parent_(std::move(parent)), objects_(std::make_unique<Objects>()) {}

HWManagedObjectContext::~HWManagedObjectContext() = default;

bool HWManagedObjectContext::hasChanges() const { return !objects_->pending.empty(); }

void HWManagedObjectContext::adopt(const std::shared_ptr<HWManagedObject>& object) {
  object->context_ = weak_from_this();
  if (objects_->pendingSet.insert(object.get()).second) objects_->pending.push_back(object);
  if (object->objectID_ != 0) objects_->enroll(object, object->entity(), object->objectID_);
}

void HWManagedObjectContext::insertObject(const std::shared_ptr<HWManagedObject>& object) {
  if (!object) return;
  object->changed_ = true;
  adopt(object);
}

void HWManagedObjectContext::deleteObject(const std::shared_ptr<HWManagedObject>& object) {
  if (!object || object->deleted_) return;
  object->deleted_ = true;
  if (object->objectID_ == 0) {
    // Never saved: nothing to remove from the file.
    std::erase(objects_->pending, object);
    objects_->pendingSet.erase(object.get());
    return;
  }
  adopt(object);
}

bool HWManagedObjectContext::save(HWError* error) {
  if (!parent_) return writeToFile(error);
  // Into the parent: the parent's object for a row takes the values; new objects move up.
  for (const auto& object : objects_->pending) {
    std::shared_ptr<HWManagedObject> target = object;
    if (object->objectID_ != 0) {
      auto found = parent_->objects_->lookup(object->entity(), object->objectID_);
      if (found && found != object) {
        target = found;
        Access::copyAttributes(*target, *object);
        target->changed_ = object->changed_;
        target->deleted_ = object->deleted_;
      }
    }
    parent_->adopt(target);
  }
  objects_->pending.clear();
  objects_->pendingSet.clear();
  return true;
}

bool HWManagedObjectContext::writeToFile(HWError* error) {
  auto fail = [&](std::string message) {
    if (error) *error = errors::errorWithMessage(std::move(message));
    return false;
  };
  auto stack = stack_.lock();
  StoreFile* file = stack ? stack->file() : nullptr;
  if (!file || !file->ok()) return fail("the store is not open");
  if (file->readOnly()) return fail("the store was written by a newer version and is read-only");
  if (objects_->pending.empty()) return true;

  // Parents before children, so that a new child finds its parent's row id.
  static constexpr HWEntity kWriteOrder[] = {HWEntity::kCategory, HWEntity::kFanSet, HWEntity::kSensor,
                                             HWEntity::kFanCondition, HWEntity::kGraphPoint};
  std::vector<HWManagedObject*> inserted;
  // Saved objects given another row id (a graph point that moved), with the id they had.
  std::vector<std::pair<HWManagedObject*, std::int64_t>> moved;
  {
    std::lock_guard guard(file->mutex());
    try {
      // The write lock from the start: a transaction that has read before it writes cannot wait
      // for another process's commit (SQLite refuses it at once), so the save would be lost.
      SQLite::Transaction transaction(file->db(), SQLite::TransactionBehavior::IMMEDIATE);
      file->noticeOtherWriters();
      for (const auto& object : objects_->pending) {
        if (!object->deleted_ || object->objectID_ == 0) continue;
        auto& remove = file->statement("DELETE FROM \"" + std::string(entityName(object->entity())) +
                                       "\" WHERE id = ?");
        remove.bind(1, object->objectID_);
        remove.exec();
      }
      for (HWEntity entity : kWriteOrder) {
        for (const auto& object : objects_->pending) {
          if (object->deleted_ || !object->changed_ || object->entity() != entity) continue;
          const std::int64_t before = object->objectID_;
          if (before == 0) inserted.push_back(object.get());
          Access::write(*object, *file);
          if (before != 0 && object->objectID_ != before) moved.emplace_back(object.get(), before);
        }
      }
      transaction.commit();
    } catch (const std::exception& e) {
      // Rolled back: new objects are new again, moved ones back where they were, and every
      // change stays pending.
      for (auto* object : inserted) object->objectID_ = 0;
      for (auto& [object, before] : moved) object->objectID_ = before;
      return fail(e.what());
    }
  }
  for (auto& [object, before] : moved) objects_->registered.erase({object->entity(), before});
  for (const auto& object : objects_->pending) {
    object->changed_ = false;
    if (object->deleted_) {
      objects_->registered.erase({object->entity(), object->objectID_});
    } else {
      objects_->enroll(object, object->entity(), object->objectID_);
    }
  }
  objects_->pending.clear();
  objects_->pendingSet.clear();
  if (stack->viewContext_.get() == this && stack->didSave_) stack->didSave_();
  return true;
}

bool HWManagedObjectContext::saveRecursively() {
  if (!hasChanges()) return true;
  for (auto* context = this; context; context = context->parent_.get()) {
    HWError error;
    if (!context->save(&error)) {
      platform::log("Save error: " + error.message);
      return false;
    }
  }
  return true;
}

void HWManagedObjectContext::refreshAllObjects() {
  std::vector<std::shared_ptr<HWManagedObject>> live;
  for (auto& [key, weak] : objects_->registered) {
    if (auto object = weak.lock(); object && !object->hasChanges()) live.push_back(object);
  }
  for (auto& object : live) {
    if (Access::objectWithID(*this, object->entity(), object->objectID_)) continue;
    // Its row is gone.
    object->deleted_ = true;
    objects_->registered.erase({object->entity(), object->objectID_});
  }
}

// ---- the stack ----

struct HWCoreDataStack::Lock {
  std::mutex mutex;
};

HWCoreDataStack::HWCoreDataStack(std::filesystem::path storeURL, bool writeOnly)
    : storeURL_(std::move(storeURL)), writeOnly_(writeOnly), lock_(std::make_unique<Lock>()) {}

HWCoreDataStack::~HWCoreDataStack() = default;

std::shared_ptr<HWCoreDataStack> HWCoreDataStack::create(std::filesystem::path storeURL, bool writeOnly) {
  return std::shared_ptr<HWCoreDataStack>(new HWCoreDataStack(std::move(storeURL), writeOnly));
}

StoreFile* HWCoreDataStack::file() {
  std::lock_guard guard(lock_->mutex);
  if (!file_) file_ = std::make_unique<StoreFile>(storeURL_);
  return file_.get();
}

bool HWCoreDataStack::hasStore() { return file()->ok(); }

bool HWCoreDataStack::isReadOnly() { return file()->readOnly(); }

std::shared_ptr<HWManagedObjectContext> HWCoreDataStack::viewContext() {
  std::lock_guard guard(lock_->mutex);
  if (!viewContext_) viewContext_.reset(new HWManagedObjectContext(weak_from_this(), nullptr));
  return viewContext_;
}

std::shared_ptr<HWManagedObjectContext> HWCoreDataStack::newContext() {
  auto parent = viewContext();
  return std::shared_ptr<HWManagedObjectContext>(new HWManagedObjectContext(weak_from_this(), parent));
}

bool HWCoreDataStack::saveViewContext() { return saveContext(viewContext()); }

bool HWCoreDataStack::saveContext(const std::shared_ptr<HWManagedObjectContext>& context) {
  if (!context || !hasStore()) return false;
  return context->saveRecursively();
}

void HWCoreDataStack::refreshAllObjectsInViewContext() {
  std::weak_ptr<HWCoreDataStack> weak = weak_from_this();
  dispatch::mainQueue()->async([weak] {
    if (auto stack = weak.lock()) stack->viewContext()->refreshAllObjects();
  });
}

bool HWCoreDataStack::reopenIfStoreFileMoved() {
  StoreFile* open = nullptr;
  {
    std::lock_guard guard(lock_->mutex);
    open = file_.get();
  }
  if (!open || !open->ok()) return false;
  int moved = 0;
  {
    std::lock_guard guard(open->mutex());
    if (sqlite3_file_control(open->db().getHandle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) != SQLITE_OK) return false;
  }
  if (moved == 0) return false;
  std::shared_ptr<HWManagedObjectContext> old;
  {
    std::lock_guard guard(lock_->mutex);
    file_.reset();
    old = std::move(viewContext_);
  }
  if (old) old->stack_.reset();
  for (const char* companion : {"-wal", "-shm"}) {
    std::error_code ignored;
    std::filesystem::remove(storeURL_.string() + companion, ignored);
  }
  return true;
}

std::vector<std::shared_ptr<HWManagedObject>> HWCoreDataStack::objectsOf(
    HWEntity entity, const std::shared_ptr<HWManagedObjectContext>& context) {
  auto target = context ? context : viewContext();
  return Access::fetchObjects(*target, entity, "", nullptr, "id", [](const HWManagedObject&) { return true; });
}

std::shared_ptr<HWManagedObject> HWCoreDataStack::insertNewObjectOf(
    HWEntity entity, const std::shared_ptr<HWManagedObjectContext>& context) {
  auto target = context ? context : viewContext();
  auto object = Access::make(entity);
  target->insertObject(object);
  return object;
}

void HWCoreDataStack::deleteAllObjectsOf(HWEntity entity, const std::shared_ptr<HWManagedObjectContext>&) {
  StoreFile* store = file();
  if (!store->ok() || store->readOnly()) return;
  std::lock_guard guard(store->mutex());
  try {
    store->db().exec("DELETE FROM \"" + std::string(entityName(entity)) + "\"");
    store->forgetPointTails();
  } catch (const std::exception&) {
    // As with any batch delete, a failure leaves the rows; nobody is told.
  }
}

void HWCoreDataStack::setViewContextDidSave(std::function<void()> observer) { didSave_ = std::move(observer); }

}  // namespace corvane
