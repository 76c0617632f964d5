#include "platform/AclTypes.h"

namespace Acl {

using platform::Ptr;

void AclConfig::ruleIs(uint32_t sequence, const std::string& text) { rule.set(sequence, text); }
void AclConfig::ruleDel(uint32_t sequence) { rule.del(sequence); }

Ptr<AclConfig> AclTypeConfig::aclIs(const std::string& name) { return acl.is(name); }
void AclTypeConfig::aclDel(const std::string& name) { acl.del(name); }

Ptr<AclTypeConfig> Config::configIs(AclType type) { return config.is(type); }
void Config::configDel(AclType type) { config.del(type); }

namespace Input {

Ptr<AclTypeConfig> Config::configIs(AclType type) { return config.is(type); }
void Config::configDel(AclType type) { config.del(type); }

}  // namespace Input

}  // namespace Acl
