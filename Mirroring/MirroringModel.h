// The mirroring state model: configuration, capability, hardware status, hardware
// configuration and status of monitor sessions.
//
// `Mirroring::Config` is both the operator's configuration (mirroring/config, read only) and
// the configuration handed to the hardware layer (mirroring/hwconfig, written by the agent):
// the agent copies each session from the first into the second, adjusted to what the hardware
// supports. `Mirroring::Status` (mirroring/status) carries the operational status of every
// source and destination of every session; the sessions learn of each other only through it.
//
// Numeric values matter to the rules: OperState 0 not computed, 1 active, 2 inactive;
// Direction 0 both, 1 rx, 2 tx.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/AclTypes.h"
#include "platform/Entity.h"
#include "platform/IntfId.h"
#include "platform/IpGenAddr.h"
#include "platform/VrfName.h"

namespace Mirroring {

using platform::EnumEntry;
using platform::IntfId;

enum class Direction : uint8_t { both = 0, rx = 1, tx = 2 };
constexpr auto enumEntries(Direction) {
  return std::array{EnumEntry<Direction>{Direction::both, "both"}, EnumEntry<Direction>{Direction::rx, "rx"},
                    EnumEntry<Direction>{Direction::tx, "tx"}};
}

enum class OperState : uint8_t { unknown = 0, active = 1, inactive = 2 };
constexpr auto enumEntries(OperState) {
  return std::array{EnumEntry<OperState>{OperState::unknown, "unknown"},
                    EnumEntry<OperState>{OperState::active, "active"},
                    EnumEntry<OperState>{OperState::inactive, "inactive"}};
}

// Truncation sizes in bytes; 0 leaves the size to the hardware's default.
enum class TruncationSize : uint16_t {
  truncationSizeDefault = 0,
  truncationSize128 = 128,
  truncationSize160 = 160,
  truncationSize192 = 192,
  truncationSize256 = 256,
};
constexpr auto enumEntries(TruncationSize) {
  using E = EnumEntry<TruncationSize>;
  return std::array{E{TruncationSize::truncationSizeDefault, "truncationSizeDefault"},
                    E{TruncationSize::truncationSize128, "truncationSize128"},
                    E{TruncationSize::truncationSize160, "truncationSize160"},
                    E{TruncationSize::truncationSize192, "truncationSize192"},
                    E{TruncationSize::truncationSize256, "truncationSize256"}};
}

// Bytes removed from the front of mirrored packets; 0 removes nothing.
enum class HeaderRemovalSize : uint8_t {
  headerRemovalNone = 0,
  headerRemoval4 = 4,
  headerRemoval8 = 8,
  headerRemoval12 = 12,
  headerRemoval16 = 16,
};
constexpr auto enumEntries(HeaderRemovalSize) {
  using E = EnumEntry<HeaderRemovalSize>;
  return std::array{E{HeaderRemovalSize::headerRemovalNone, "headerRemovalNone"},
                    E{HeaderRemovalSize::headerRemoval4, "headerRemoval4"},
                    E{HeaderRemovalSize::headerRemoval8, "headerRemoval8"},
                    E{HeaderRemovalSize::headerRemoval12, "headerRemoval12"},
                    E{HeaderRemovalSize::headerRemoval16, "headerRemoval16"}};
}

// What a GRE tunnel carries; unset means "the default session configuration decides".
enum class GrePayloadType : uint8_t { payloadTypeUnset = 0, payloadTypeFullPacket = 1, payloadTypeInnerPacket = 2 };
constexpr auto enumEntries(GrePayloadType) {
  using E = EnumEntry<GrePayloadType>;
  return std::array{E{GrePayloadType::payloadTypeUnset, "payloadTypeUnset"},
                    E{GrePayloadType::payloadTypeFullPacket, "payloadTypeFullPacket"},
                    E{GrePayloadType::payloadTypeInnerPacket, "payloadTypeInnerPacket"}};
}

// Who made a session: the operator, or another feature of the switch.
enum class Owner : uint8_t { ownerOperator = 0, ownerPolicy = 1, ownerDiagnostics = 2 };
constexpr auto enumEntries(Owner) {
  using E = EnumEntry<Owner>;
  return std::array{E{Owner::ownerOperator, "ownerOperator"}, E{Owner::ownerPolicy, "ownerPolicy"},
                    E{Owner::ownerDiagnostics, "ownerDiagnostics"}};
}

// GRE metadata elements that may be inserted into mirrored packets.
enum class MetadataElementType : uint8_t {
  ingressInterface = 0,
  egressInterface = 1,
  switchId = 2,
  timestamp = 3,
  vlan = 4,
};
constexpr auto enumEntries(MetadataElementType) {
  using E = EnumEntry<MetadataElementType>;
  return std::array{E{MetadataElementType::ingressInterface, "ingressInterface"},
                    E{MetadataElementType::egressInterface, "egressInterface"},
                    E{MetadataElementType::switchId, "switchId"}, E{MetadataElementType::timestamp, "timestamp"},
                    E{MetadataElementType::vlan, "vlan"}};
}

// The operational status of one source, destination or option, with the operator's reason.
struct OperStatus {
  OperState state = OperState::unknown;
  std::string reason;

  OperStatus() = default;
  OperStatus(OperState s, std::string r = {}) : state(s), reason(std::move(r)) {}  // NOLINT
  static OperStatus active() { return OperStatus(OperState::active); }
  static OperStatus inactive(std::string reason) { return OperStatus(OperState::inactive, std::move(reason)); }
  bool isActive() const { return state == OperState::active; }

  bool operator==(const OperStatus&) const = default;
  template <class D>
  void fields(D& d) {
    d("state", state);
    d("reason", reason);
  }
};
std::ostream& operator<<(std::ostream& os, const OperStatus& s);

// The reasons an operator sees.
namespace reason {
inline constexpr const char* notConfigured = "Not Configured";
inline constexpr const char* notSupported = "Not Supported";
inline constexpr const char* portChannelNotSupported = "Port-channel is not supported";
inline constexpr const char* cpuNotSupported = "Cpu is not supported";
inline constexpr const char* loopbackNotSupported = "Loopback is not supported";
inline constexpr const char* sourceConflict = "Source Conflict";
inline constexpr const char* destinationConflict = "Destination Conflict";
inline constexpr const char* interfaceModeConflict = "Interface Mode Conflict";
inline constexpr const char* memberOfSourceLag = "Member of a source LAG";
inline constexpr const char* memberOfDestinationLag = "Member of a destination LAG";
inline constexpr const char* greRxOnly = "GRE supported in RX direction only";
inline constexpr const char* multiplePortsNotSupported = "Multiple ports are not supported";
inline constexpr const char* vrfNotConfigured = "VRF %s is not configured.";
inline constexpr const char* multipleIpv6Acls = "Multiple IPv6 mirroring ACLs";
}  // namespace reason

// A GRE tunnel used as a mirror destination.
struct GreTunnelKey {
  platform::IpGenAddr srcIpAddr;
  platform::IpGenAddr dstIpAddr;
  uint8_t ttl = 128;
  uint8_t tos = 0;
  uint16_t greProto = 0x88BE;
  uint32_t greKey = 0;
  platform::VrfName vrf;

  bool operator==(const GreTunnelKey&) const = default;
  auto operator<=>(const GreTunnelKey&) const = default;
  // A 32-bit hash over every field.
  uint32_t hash() const;
  // Whether the key names a destination a tunnel can be built to.
  bool hasUsableDestination() const;

  template <class D>
  void fields(D& d) {
    d("srcIpAddr", srcIpAddr);
    d("dstIpAddr", dstIpAddr);
    d("ttl", ttl);
    d("tos", tos);
    d("greProto", greProto);
    d("greKey", greKey);
    d("vrf", vrf);
  }
};
std::ostream& operator<<(std::ostream& os, const GreTunnelKey& k);

struct SrcIntf : platform::EntityOf<SrcIntf> {
  static constexpr const char* typeName = "Mirroring::SrcIntf";
  explicit SrcIntf(const std::string& intfName, Direction dir = Direction::both) {
    name.set(intfName);
    direction.set(dir);
  }

  platform::Attr<std::string> name{this};
  platform::Attr<Direction> direction{this};
  platform::Attr<std::string> srcAcl{this};
  platform::Attr<Acl::AclType> aclType{this, Acl::aclTypeIp};
  platform::Attr<uint8_t> aclPriority{this};

  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("direction", direction);
    d("srcAcl", srcAcl);
    d("aclType", aclType);
    d("aclPriority", aclPriority);
  }
};

// Sources and destinations are interface names kept as strings (the rules walk them in string
// order); the codec reads them only as well-formed interface names.
struct Session : platform::EntityOf<Session> {
  static constexpr const char* typeName = "Mirroring::Session";
  explicit Session(const std::string& sessionName) { name.set(sessionName); }

  platform::Attr<std::string> name{this};
  platform::Coll<std::string, platform::Ptr<SrcIntf>, platform::IntfNameTraits> srcIntf{this};
  platform::Set<std::string, platform::IntfNameTraits> targetIntf{this};
  platform::Attr<std::string, platform::IntfNameTraits> destIntf{this};
  platform::Attr<int32_t> sessionId{this};
  platform::Attr<GreTunnelKey> greTunnelKey{this};
  platform::Attr<GreTunnelKey> dropGreTunnelKey{this};
  platform::Attr<bool> truncate{this};
  platform::Attr<TruncationSize> truncationSize{this};
  platform::Attr<HeaderRemovalSize> headerRemovalSize{this};
  platform::Attr<uint32_t> rxSampleRate{this};
  platform::Attr<uint64_t> mirrorRateLimitInBps{this};
  platform::Attr<std::string> mirrorRateLimitChip{this};
  platform::Coll<MetadataElementType, bool> greMetadata{this};
  platform::Attr<GrePayloadType> grePayloadType{this};
  platform::Attr<bool> greTimestampingEnabled{this};
  platform::Attr<bool> txGreMetadataEnabled{this};
  platform::Attr<bool> secureMonitor{this};
  platform::Attr<bool> portMirroringDisabled{this};
  platform::Attr<bool> isInternal{this};
  platform::Attr<Owner> owner{this};

  platform::Ptr<SrcIntf> srcIntfIs(const std::string& intf, Direction direction) {
    auto s = srcIntf.is(intf, direction);
    s->direction.set(direction);
    return s;
  }
  void srcIntfDel(const std::string& intf) { srcIntf.del(intf); }
  void targetIntfIs(const std::string& intf) { targetIntf.insert(intf); }
  void targetIntfDel(const std::string& intf) { targetIntf.del(intf); }

  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("srcIntf", srcIntf);
    d("targetIntf", targetIntf);
    d("destIntf", destIntf);
    d("sessionId", sessionId);
    d("greTunnelKey", greTunnelKey);
    d("dropGreTunnelKey", dropGreTunnelKey);
    d("truncate", truncate);
    d("truncationSize", truncationSize);
    d("headerRemovalSize", headerRemovalSize);
    d("rxSampleRate", rxSampleRate);
    d("mirrorRateLimitInBps", mirrorRateLimitInBps);
    d("mirrorRateLimitChip", mirrorRateLimitChip);
    d("greMetadata", greMetadata);
    d("grePayloadType", grePayloadType);
    d("greTimestampingEnabled", greTimestampingEnabled);
    d("txGreMetadataEnabled", txGreMetadataEnabled);
    d("secureMonitor", secureMonitor);
    d("portMirroringDisabled", portMirroringDisabled);
    d("isInternal", isInternal);
    d("owner", owner);
  }
};

struct DefaultSessionConfig : platform::EntityOf<DefaultSessionConfig> {
  static constexpr const char* typeName = "Mirroring::DefaultSessionConfig";
  DefaultSessionConfig() = default;

  platform::Attr<TruncationSize> truncationSize{this};
  platform::Coll<MetadataElementType, bool> greMetadata{this};
  platform::Attr<GrePayloadType> grePayloadType{this};
  platform::Attr<bool> greTimestampingEnabled{this};
  platform::Attr<bool> portMirroringDisabled{this};

  template <class D>
  void fields(D& d) {
    d("truncationSize", truncationSize);
    d("greMetadata", greMetadata);
    d("grePayloadType", grePayloadType);
    d("greTimestampingEnabled", greTimestampingEnabled);
    d("portMirroringDisabled", portMirroringDisabled);
  }
};

struct Config : platform::EntityOf<Config> {
  static constexpr const char* typeName = "Mirroring::Config";
  Config() = default;

  platform::Coll<std::string, platform::Ptr<Session>> session{this};
  platform::Child<DefaultSessionConfig> defaultSessionConfig{this};

  platform::Ptr<Session> sessionIs(const std::string& n) { return session.is(n); }
  void sessionDel(const std::string& n) { session.del(n); }

  template <class D>
  void fields(D& d) {
    d("session", session);
    d("defaultSessionConfig", defaultSessionConfig);
  }
};

// The hardware's default truncation size, published with the truncation capability.
struct TruncationDefault : platform::EntityOf<TruncationDefault> {
  static constexpr const char* typeName = "Mirroring::TruncationDefault";
  TruncationDefault() = default;
  platform::Attr<TruncationSize> truncationSize{this};
  template <class D>
  void fields(D& d) {
    d("truncationSize", truncationSize);
  }
};

struct HwCapability : platform::EntityOf<HwCapability> {
  static constexpr const char* typeName = "Mirroring::HwCapability";
  HwCapability() = default;

  platform::Attr<uint16_t> maxSupportedSessions{this};
  platform::Attr<bool> truncationSupported{this};
  platform::Attr<platform::Ptr<TruncationDefault>> truncationDefault{this};
  platform::Set<TruncationSize> truncationSizesSupported{this};
  platform::Attr<bool> headerRemovalSupported{this};
  platform::Attr<bool> cpuDestSupported{this};
  platform::Attr<bool> lagDestSupported{this};
  platform::Attr<bool> multiDestSupported{this};
  platform::Attr<bool> multiSessionForDestSupported{this};
  platform::Attr<bool> multiSessionForSourceSupported{this};
  platform::Attr<bool> rxSamplingSupported{this};
  platform::Attr<bool> loopbackDestSupported{this};
  platform::Attr<bool> sameIntfSrcAndDestSupported{this};
  platform::Attr<bool> timestampWithTruncationSupported{this};
  platform::Attr<bool> srcAclSupported{this};

  template <class D>
  void fields(D& d) {
    d("maxSupportedSessions", maxSupportedSessions);
    d("truncationSupported", truncationSupported);
    d("truncationDefault", truncationDefault);
    d("truncationSizesSupported", truncationSizesSupported);
    d("headerRemovalSupported", headerRemovalSupported);
    d("cpuDestSupported", cpuDestSupported);
    d("lagDestSupported", lagDestSupported);
    d("multiDestSupported", multiDestSupported);
    d("multiSessionForDestSupported", multiSessionForDestSupported);
    d("multiSessionForSourceSupported", multiSessionForSourceSupported);
    d("rxSamplingSupported", rxSamplingSupported);
    d("loopbackDestSupported", loopbackDestSupported);
    d("sameIntfSrcAndDestSupported", sameIntfSrcAndDestSupported);
    d("timestampWithTruncationSupported", timestampWithTruncationSupported);
    d("srcAclSupported", srcAclSupported);
  }
};

struct HwStatus : platform::EntityOf<HwStatus> {
  static constexpr const char* typeName = "Mirroring::HwStatus";
  HwStatus() = default;
  platform::Coll<std::string, std::string> mirrorDeviceName{this};
  template <class D>
  void fields(D& d) {
    d("mirrorDeviceName", mirrorDeviceName);
  }
};

struct SessionStatus : platform::EntityOf<SessionStatus> {
  static constexpr const char* typeName = "Mirroring::SessionStatus";
  explicit SessionStatus(const std::string& sessionName) { name.set(sessionName); }

  platform::Attr<std::string> name{this};
  platform::Coll<std::string, OperStatus> srcOperStatus{this};
  platform::Coll<std::string, OperStatus> targetOperStatus{this};
  platform::Attr<OperStatus> truncateOperStatus{this};
  platform::Attr<std::string> mirrorDeviceName{this};
  platform::Attr<bool> multiDestActive{this};
  // The session's hardware id (-1 before it has one): kept here as well as in the hardware
  // copy, so that a session without a copy keeps its id, and its device name, across a
  // restart.
  platform::Attr<int32_t> sessionId{this, -1};

  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("srcOperStatus", srcOperStatus);
    d("targetOperStatus", targetOperStatus);
    d("truncateOperStatus", truncateOperStatus);
    d("mirrorDeviceName", mirrorDeviceName);
    d("multiDestActive", multiDestActive);
    d("sessionId", sessionId);
  }
};

struct Status : platform::EntityOf<Status> {
  static constexpr const char* typeName = "Mirroring::Status";
  Status() = default;

  platform::Coll<std::string, platform::Ptr<SessionStatus>> sessionStatus{this};
  platform::Coll<IntfId, GreTunnelKey> greTunnelKey{this};
  platform::Coll<GreTunnelKey, IntfId> greTunnelKeyToIntfId{this};
  platform::Attr<bool> multiDestActive{this};
  platform::Coll<MetadataElementType, bool> defaultGreMetadata{this};
  platform::Attr<GrePayloadType> grePayloadType{this};
  platform::Attr<bool> greTimestampingEnabled{this};

  platform::Ptr<SessionStatus> sessionStatusIs(const std::string& n) { return sessionStatus.is(n); }
  void sessionStatusDel(const std::string& n) { sessionStatus.del(n); }

  template <class D>
  void fields(D& d) {
    d("sessionStatus", sessionStatus);
    d("greTunnelKey", greTunnelKey);
    d("greTunnelKeyToIntfId", greTunnelKeyToIntfId);
    d("multiDestActive", multiDestActive);
    d("defaultGreMetadata", defaultGreMetadata);
    d("grePayloadType", grePayloadType);
    d("greTimestampingEnabled", greTimestampingEnabled);
  }
};

// Registers the root types by name (for hosts that create mounts from files).
void registerMirroringTypes();

}  // namespace Mirroring

template <>
struct std::hash<Mirroring::GreTunnelKey> {
  std::size_t operator()(const Mirroring::GreTunnelKey& k) const noexcept { return k.hash(); }
};
