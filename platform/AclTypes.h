// Access-control lists as configured, filed by type and name.
//
// ACL configuration has several inputs: the CLI writes an `Acl::Input::Config` at
// acl/config/cli, and other agents each publish one as an entry of the generic directory
// acl/config/input. `Acl::AclConfigAggregatorSm` merges them into the `Acl::Config` the
// mirroring agent reads (see AclConfigAggregatorSm.h for the precedence).
//
// An ACL is its rules by sequence number (the rule text as entered) and a remark. ACL types
// are written in JSON by their enumerator names, also as collection keys
// ("acl/config/cli/config/aclTypeIp/acl/web"); numbers are accepted on input.
//
// Precondition a caller could get wrong: entries are keyed by construction (`name`, `type`);
// create them through the owner's `...Is` operation.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "platform/Entity.h"

namespace Acl {

enum AclType : uint8_t { aclTypeMac = 0, aclTypeIpv6 = 1, aclTypeIp = 2 };
constexpr auto enumEntries(AclType) {
  using E = platform::EnumEntry<AclType>;
  return std::array{E{aclTypeMac, "aclTypeMac"}, E{aclTypeIpv6, "aclTypeIpv6"}, E{aclTypeIp, "aclTypeIp"}};
}
// Every type, for code that sets up one entry per type.
inline constexpr std::array<AclType, 3> allAclTypes{aclTypeMac, aclTypeIpv6, aclTypeIp};

struct AclConfig : platform::EntityOf<AclConfig> {
  static constexpr const char* typeName = "Acl::AclConfig";
  AclConfig() = default;
  explicit AclConfig(const std::string& aclName) { name.set(aclName); }

  platform::Attr<std::string> name{this};
  platform::Coll<uint32_t, std::string> rule{this};  // sequence number -> rule text
  platform::Attr<std::string> remark{this};

  void ruleIs(uint32_t sequence, const std::string& text);
  void ruleDel(uint32_t sequence);

  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("rule", rule);
    d("remark", remark);
  }
};

struct AclTypeConfig : platform::EntityOf<AclTypeConfig> {
  static constexpr const char* typeName = "Acl::AclTypeConfig";
  AclTypeConfig() = default;
  explicit AclTypeConfig(AclType t) { type.set(t); }

  platform::Attr<AclType> type{this};
  platform::Coll<std::string, platform::Ptr<AclConfig>> acl{this};

  platform::Ptr<AclConfig> aclIs(const std::string& name);
  void aclDel(const std::string& name);

  template <class D>
  void fields(D& d) {
    d.key("type", type);
    d("acl", acl);
  }
};

// The merged configuration, written by AclConfigAggregatorSm only.
struct Config : platform::EntityOf<Config> {
  static constexpr const char* typeName = "Acl::Config";
  Config() = default;

  platform::Coll<AclType, platform::Ptr<AclTypeConfig>> config{this};

  platform::Ptr<AclTypeConfig> configIs(AclType type);
  void configDel(AclType type);

  template <class D>
  void fields(D& d) {
    d("config", config);
  }
};

namespace Input {

// One source of ACL configuration (the CLI, or an entry of acl/config/input).
struct Config : platform::EntityOf<Config> {
  static constexpr const char* typeName = "Acl::Input::Config";
  Config() = default;

  platform::Coll<AclType, platform::Ptr<AclTypeConfig>> config{this};

  platform::Ptr<AclTypeConfig> configIs(AclType type);
  void configDel(AclType type);

  template <class D>
  void fields(D& d) {
    d("config", config);
  }
};

}  // namespace Input

}  // namespace Acl
