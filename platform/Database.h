// The embedded state database.
//
// A tree of mount paths ("mirroring/config") to root entities. Roots are created when an
// agent first mounts or creates them and then stay for the life of the database, so an agent
// that restarts finds everything an earlier run wrote (and reconciles it by mark and sweep).
//
// Agents reach the database through an `EntityManager`: a mount group collects the mounts an
// agent declares (path, type, mode), is closed, and completes with a status; lookups answer
// the root at a path when it has the asked type, else null. Modes are the platform's mount
// strings: 'r' read-only, 'w' writable, plus the flags 'c' (the agent creates the entity
// when nobody has) and 'i' (a mount the agent does not wait for). In this embedded database
// every mount finds or creates its root at once, so the flags are kept and shown but change
// nothing else. Read-only mounts reach the agent as `Ptr<const T>`: asking for a writable
// reference to a read-only mount is a fatal assertion.
//
// Every write to an entity under a mount is counted on that mount and passed to the
// database's write listener (the host's change stream) before any handler runs.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Entity.h"

namespace platform {

class Database;
class EventLoop;
class Clock;

class Mount {
 public:
  const std::string& path() const { return path_; }
  // The mode the last agent declared; empty for entities only the host or a local-entity
  // declaration created.
  const std::string& mode() const { return mode_; }
  bool writableByAgent() const { return mode_.find('w') != std::string::npos || local_; }
  bool readOnlyForAgent() const { return !writableByAgent(); }
  bool local() const { return local_; }
  const Ptr<Entity>& root() const { return root_; }
  uint64_t writes() const { return writes_; }
  const Database& database() const { return *db_; }

  void recordWrite(const FieldBase& field, WriteKind kind, const void* key);

 private:
  friend class Database;
  Mount(Database* db, std::string path, Ptr<Entity> root) : db_(db), path_(std::move(path)), root_(std::move(root)) {}

  Database* db_;
  std::string path_;
  std::string mode_;
  bool local_ = false;
  Ptr<Entity> root_;
  uint64_t writes_ = 0;
};

class Database : public EntityResolver {
 public:
  using WriteListener = std::function<void(const Mount&, const FieldBase&, WriteKind, const void* key)>;

  Database();
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // The root at `path`, created from `create` when absent. Null when a root of another type
  // is there already.
  Mount* rootIs(const std::string& path, const TypeInfo& type, const std::function<Ptr<Entity>()>& create);
  template <class T>
  Mount* rootIs(const std::string& path) {
    Ptr<T> fresh = make<T>();
    return rootIs(path, fresh->typeInfo(), [&] { return Ptr<Entity>(fresh); });
  }
  void modeIs(Mount& m, const std::string& mode) { m.mode_ = mode; }
  void localIs(Mount& m) { m.local_ = true; }

  Mount* find(std::string_view path) const;
  // The mount whose path is the longest prefix of `path` (at a '/' boundary); `rest` gets
  // what follows it, without the leading '/'.
  Mount* findPrefix(std::string_view path, std::string_view& rest) const;
  std::vector<Mount*> mounts() const;  // in path order

  // Every write counted on any mount so far: it changes whenever anything in the database
  // does, so a reader can tell that nothing changed since it last looked.
  uint64_t totalWrites() const { return writes_; }
  void writeListenerIs(WriteListener l) { listener_ = std::move(l); }

  // Any entity by its full path (a root, or a child entity below one).
  Ptr<Entity> resolve(const std::string& path) const override;

 private:
  friend class Mount;
  std::map<std::string, std::unique_ptr<Mount>, std::less<>> mounts_;
  WriteListener listener_;
  uint64_t writes_ = 0;
};

inline void Mount::recordWrite(const FieldBase& field, WriteKind kind, const void* key) {
  ++writes_;
  ++db_->writes_;
  if (db_->listener_) db_->listener_(*this, field, kind, key);
}

enum class MountStatus { success = 0, failure = 1 };

// The mounts one agent declares, completed together.
class MountGroup {
 public:
  struct Declared {
    std::string path;
    std::string typeName;
    std::string mode;
  };

  explicit MountGroup(Database& db) : db_(db) {}

  template <class T>
  void doMount(const std::string& path, const std::string& mode) {
    Ptr<T> fresh = make<T>();
    doMount(path, fresh->typeInfo(), mode, [&] { return Ptr<Entity>(fresh); });
  }
  void doMount(const std::string& path, const TypeInfo& type, const std::string& mode,
               const std::function<Ptr<Entity>()>& create);

  // Closes the group; the host completes it (`complete`) from its event loop.
  void close(bool blocking, const std::string& reason, double wait);
  bool closed() const { return closed_; }
  MountStatus status() const { return status_; }
  const std::vector<Declared>& declared() const { return declared_; }
  // A failure reason for each mount that could not be made (a root of another type).
  const std::vector<std::string>& problems() const { return problems_; }

 private:
  Database& db_;
  std::vector<Declared> declared_;
  std::vector<std::string> problems_;
  bool closed_ = false;
  MountStatus status_ = MountStatus::success;
};

// What an agent is handed: its mount group, lookups, local entities, and the clock.
class EntityManager {
 public:
  EntityManager(Database& db, EventLoop& loop) : db_(db), loop_(loop), group_(db) {}

  MountGroup* mountGroup() { return &group_; }
  Database& database() { return db_; }
  EventLoop& eventLoop() { return loop_; }
  Clock& clock();

  // The root at `path` if it is a T. A non-const T of a read-only mount is a fatal assertion.
  template <class T>
  Ptr<T> lookup(std::string_view path) const {
    Mount* m = db_.find(path);
    if (!m) return Ptr<T>();
    if constexpr (!std::is_const_v<T>) {
      PLATFORM_ASSERT(m->writableByAgent() && "writable lookup of a read-only mount");
    }
    return Ptr<T>(dynamic_cast<T*>(m->root().get()));
  }

  // Creates (or finds) a local entity: the agent's own root, not mounted from elsewhere.
  template <class T>
  Ptr<T> localEntityIs(const std::string& name, const std::string& path) {
    (void)name;
    Mount* m = db_.template rootIs<T>(path);
    PLATFORM_ASSERT(m && "local entity of another type at its path");
    db_.localIs(*m);
    return Ptr<T>(dynamic_cast<T*>(m->root().get()));
  }
  void localEntitiesCreatedIs(bool v) { localEntitiesCreated_ = v; }
  bool localEntitiesCreated() const { return localEntitiesCreated_; }

 private:
  Database& db_;
  EventLoop& loop_;
  MountGroup group_;
  bool localEntitiesCreated_ = false;
};

}  // namespace platform
