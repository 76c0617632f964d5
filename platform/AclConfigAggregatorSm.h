// Merges every source of ACL configuration into the one `Acl::Config` the agents read.
//
// The sources are the CLI input (acl/config/cli) and the entries of the input directory
// (acl/config/input, a `platform::Dir` whose entries are `Acl::Input::Config`). For each ACL
// type and name the aggregate holds a copy of the CLI's ACL if the CLI has one, else of the
// ACL of the first directory entry, in entry-name order, that has it; an ACL that no source
// has is erased. The aggregate always has the entries of the three ACL types, created at
// construction.
//
// The state machine follows every level of every source (directory entries, their per-type
// entries, each type's ACLs, each ACL's rules and remark) and recomputes only the (type, name)
// a change touches. When the merged content of an ACL changes, the aggregate's entry is
// REPLACED by a fresh copy under the same name rather than edited in place: a reactor on the
// aggregate's `acl` collection is then called with that name, which is how readers learn to
// refresh one ACL. A recomputation that finds the aggregate already right writes nothing.
//
// Handlers run synchronously, so a write to the aggregate may re-enter this state machine
// (through a reader that writes a source). Every handler therefore brings its bookkeeping up
// to date before it writes anything, names what it follows by key rather than by pointer, and
// recomputes from the live sources; nested calls leave the aggregate right.
//
// Preconditions a caller could get wrong:
// - `aggregate` is non-null and nobody else writes it; ACLs it holds from an earlier run that
//   no source has any more are erased at construction.
// - Directory entries of any other type than `Acl::Input::Config` are ignored.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "platform/AclTypes.h"
#include "platform/Dir.h"
#include "platform/Reactor.h"

namespace Acl {

class AclConfigAggregatorSm : public platform::RefCounted {
 public:
  // `inputDir` and `cliInput` may be null (no such source).
  AclConfigAggregatorSm(platform::Ptr<const platform::Dir> inputDir, platform::Ptr<const Input::Config> cliInput,
                        platform::Ptr<Config> aggregate);
  AclConfigAggregatorSm(const AclConfigAggregatorSm&) = delete;
  AclConfigAggregatorSm& operator=(const AclConfigAggregatorSm&) = delete;
  ~AclConfigAggregatorSm() override;

  const platform::Ptr<const platform::Dir>& inputDir() const { return inputDir_; }
  const platform::Ptr<const Input::Config>& cliInput() const { return cliInput_; }
  const platform::Ptr<Config>& aggregate() const { return aggregate_; }

 private:
  // A source: the CLI input (nullopt) or the directory entry of that name.
  using SourceKey = std::optional<std::string>;
  using AclKey = std::pair<AclType, std::string>;

  struct AclFollower {
    platform::Ptr<const AclConfig> acl;
    platform::Reactor reactor;  // rule, remark
  };
  struct TypeFollower {
    platform::Ptr<const AclTypeConfig> typeConfig;
    platform::Reactor reactor;  // acl
    std::map<std::string, std::unique_ptr<AclFollower>> acls;
  };
  struct Source {
    platform::Ptr<const Input::Config> config;
    platform::Reactor reactor;  // config
    std::map<AclType, std::unique_ptr<TypeFollower>> types;
  };

  Source* source(const SourceKey& key);
  // Bring the followers of one level in line with the live source, then recompute what the
  // old and the new content name.
  void syncDirEntry(const std::string& name);
  void syncType(const SourceKey& key, AclType type);
  void syncAcl(const SourceKey& key, AclType type, const std::string& name);

  // Build followers; these subscribe only, they never write.
  std::unique_ptr<Source> follow(const SourceKey& key, platform::Ptr<const Input::Config> config);
  std::unique_ptr<TypeFollower> followType(const SourceKey& key, AclType type,
                                           platform::Ptr<const AclTypeConfig> typeConfig);
  std::unique_ptr<AclFollower> followAcl(AclType type, const std::string& name, platform::Ptr<const AclConfig> acl);
  static void collect(const Source& s, std::set<AclKey>& out);
  static void collect(AclType type, const TypeFollower& t, std::set<AclKey>& out);

  platform::Ptr<const AclConfig> winner(AclType type, const std::string& name) const;
  void recompute(AclType type, const std::string& name);
  void recompute(const std::set<AclKey>& keys);

  platform::Ptr<const platform::Dir> inputDir_;
  platform::Ptr<const Input::Config> cliInput_;
  platform::Ptr<Config> aggregate_;
  platform::Reactor dirReactor_;
  std::unique_ptr<Source> cli_;
  std::map<std::string, std::unique_ptr<Source>> dirSources_;
};

}  // namespace Acl
