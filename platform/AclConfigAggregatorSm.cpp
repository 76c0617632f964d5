#include "platform/AclConfigAggregatorSm.h"

namespace Acl {

using platform::Ptr;

namespace {

// Equal apart from the key: a copy is made under the collection's key, whatever name the
// source entity carries.
bool sameContent(const AclConfig& a, const AclConfig& b) {
  for (const auto& f : a.typeInfo().fields()) {
    if (f.key) continue;
    if (!platform::TypeInfo::field(a, f).equals(platform::TypeInfo::field(b, f))) return false;
  }
  return true;
}

}  // namespace

AclConfigAggregatorSm::AclConfigAggregatorSm(Ptr<const platform::Dir> inputDir, Ptr<const Input::Config> cliInput,
                                             Ptr<Config> aggregate)
    : inputDir_(std::move(inputDir)), cliInput_(std::move(cliInput)), aggregate_(std::move(aggregate)) {
  PLATFORM_ASSERT(aggregate_ && "the ACL aggregator needs an aggregate to write");
  for (AclType type : allAclTypes) aggregate_->configIs(type);

  // Follow everything first, then write: writes may call back into the handlers.
  std::set<AclKey> affected;
  if (cliInput_) {
    cli_ = follow(std::nullopt, cliInput_);
    collect(*cli_, affected);
  }
  if (inputDir_) {
    dirReactor_.on(inputDir_->entry, [this](const std::string& name) { syncDirEntry(name); });
    for (const auto& [name, entry] : inputDir_->entry) {
      Ptr<const Input::Config> config(dynamic_cast<const Input::Config*>(entry.get()));
      if (!config) continue;
      auto& s = dirSources_[name] = follow(name, config);
      collect(*s, affected);
    }
  }
  // What an earlier run left in the aggregate is checked too, so stale ACLs go.
  for (const auto& [type, typeConfig] : aggregate_->config) {
    for (const auto& name : typeConfig->acl.keys()) affected.emplace(type, name);
  }
  recompute(affected);
}

AclConfigAggregatorSm::~AclConfigAggregatorSm() = default;

AclConfigAggregatorSm::Source* AclConfigAggregatorSm::source(const SourceKey& key) {
  if (!key) return cli_.get();
  auto it = dirSources_.find(*key);
  return it == dirSources_.end() ? nullptr : it->second.get();
}

void AclConfigAggregatorSm::syncDirEntry(const std::string& name) {
  Ptr<const Input::Config> now = inputDir_->entry.get<Input::Config>(name);
  std::set<AclKey> affected;
  auto it = dirSources_.find(name);
  if (it != dirSources_.end()) {
    if (it->second->config == now) return;
    collect(*it->second, affected);
    dirSources_.erase(it);
  }
  if (now) {
    auto& s = dirSources_[name] = follow(name, now);
    collect(*s, affected);
  }
  recompute(affected);
}

void AclConfigAggregatorSm::syncType(const SourceKey& key, AclType type) {
  Source* s = source(key);
  if (!s) return;
  Ptr<const AclTypeConfig> now = s->config->config.get(type);
  std::set<AclKey> affected;
  auto it = s->types.find(type);
  if (it != s->types.end()) {
    if (it->second->typeConfig == now) return;
    collect(type, *it->second, affected);
    s->types.erase(it);
  }
  if (now) {
    auto& t = s->types[type] = followType(key, type, now);
    collect(type, *t, affected);
  }
  recompute(affected);
}

void AclConfigAggregatorSm::syncAcl(const SourceKey& key, AclType type, const std::string& name) {
  Source* s = source(key);
  if (!s) return;
  auto t = s->types.find(type);
  if (t == s->types.end()) return;
  TypeFollower& tf = *t->second;
  Ptr<const AclConfig> now = tf.typeConfig->acl.get(name);
  auto it = tf.acls.find(name);
  Ptr<const AclConfig> before = it == tf.acls.end() ? Ptr<const AclConfig>() : it->second->acl;
  if (before != now) {
    if (it != tf.acls.end()) tf.acls.erase(it);
    if (now) tf.acls[name] = followAcl(type, name, now);
  }
  recompute(type, name);
}

std::unique_ptr<AclConfigAggregatorSm::Source> AclConfigAggregatorSm::follow(const SourceKey& key,
                                                                             Ptr<const Input::Config> config) {
  auto s = std::make_unique<Source>();
  s->config = config;
  s->reactor.on(config->config, [this, key](const AclType& type) { syncType(key, type); });
  for (const auto& [type, typeConfig] : config->config) s->types[type] = followType(key, type, typeConfig);
  return s;
}

std::unique_ptr<AclConfigAggregatorSm::TypeFollower> AclConfigAggregatorSm::followType(
    const SourceKey& key, AclType type, Ptr<const AclTypeConfig> typeConfig) {
  auto t = std::make_unique<TypeFollower>();
  t->typeConfig = typeConfig;
  t->reactor.on(typeConfig->acl, [this, key, type](const std::string& name) { syncAcl(key, type, name); });
  for (const auto& [name, acl] : typeConfig->acl) t->acls[name] = followAcl(type, name, acl);
  return t;
}

std::unique_ptr<AclConfigAggregatorSm::AclFollower> AclConfigAggregatorSm::followAcl(AclType type,
                                                                                    const std::string& name,
                                                                                    Ptr<const AclConfig> acl) {
  auto a = std::make_unique<AclFollower>();
  a->acl = acl;
  a->reactor.on(acl->rule, [this, type, name](const uint32_t&) { recompute(type, name); });
  a->reactor.on(acl->remark, [this, type, name] { recompute(type, name); });
  return a;
}

void AclConfigAggregatorSm::collect(const Source& s, std::set<AclKey>& out) {
  for (const auto& [type, t] : s.types) collect(type, *t, out);
}

void AclConfigAggregatorSm::collect(AclType type, const TypeFollower& t, std::set<AclKey>& out) {
  for (const auto& [name, a] : t.acls) out.emplace(type, name);
}

Ptr<const AclConfig> AclConfigAggregatorSm::winner(AclType type, const std::string& name) const {
  if (cliInput_) {
    if (auto typeConfig = cliInput_->config.get(type)) {
      if (auto acl = typeConfig->acl.get(name)) return acl;
    }
  }
  if (inputDir_) {
    for (const auto& [entryName, entry] : inputDir_->entry) {
      const auto* config = dynamic_cast<const Input::Config*>(entry.get());
      if (!config) continue;
      if (auto typeConfig = config->config.get(type)) {
        if (auto acl = typeConfig->acl.get(name)) return acl;
      }
    }
  }
  return Ptr<const AclConfig>();
}

void AclConfigAggregatorSm::recompute(AclType type, const std::string& name) {
  Ptr<AclTypeConfig> typeConfig = aggregate_->config.get(type);
  if (!typeConfig) {
    if (!winner(type, name)) return;
    typeConfig = aggregate_->configIs(type);
  }
  // Read the winner only now: creating the type entry above may have run other handlers.
  Ptr<const AclConfig> w = winner(type, name);
  Ptr<AclConfig> current = typeConfig->acl.get(name);
  if (!w) {
    if (current) typeConfig->aclDel(name);
    return;
  }
  if (current && sameContent(*current, *w)) return;
  // A fresh entity, filled while detached (so nobody sees it half-built), replaces the old.
  Ptr<AclConfig> fresh = platform::make<AclConfig>(name);
  platform::assignEntity(*fresh, *w);
  typeConfig->acl.insert(name, fresh);
}

void AclConfigAggregatorSm::recompute(const std::set<AclKey>& keys) {
  // `keys` is the caller's own set: nested handlers cannot change it under this loop.
  for (const auto& [type, name] : keys) recompute(type, name);
}

}  // namespace Acl
