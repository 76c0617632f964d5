// Mirroring configuration manager and session processing.
//
// `ConfigSm` follows the mirroring configuration and hardware capability, owns one
// `SessionSm` per configured session (up to the hardware's session limit), hands out global
// hardware session ids, counts the users of GRE tunnel interfaces and follows interface, LAG
// and VRF state. Each `SessionSm` decides the operational status of its sources and
// destinations with the rules below, publishes them in the session's status and, while a
// destination is active, writes the session's hardware copy. Sessions learn of each other only
// through the published statuses: a conflict goes to the session whose status was first.
//
// Everything runs on the agent's one event-loop thread; handlers call each other re-entrantly.
// Every handler of a state machine asserts that the machine ran `handleInitialized`.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Mirroring/ActiveIntfIndex.h"
#include "Mirroring/GreTunnelPool.h"
#include "Mirroring/LagMemberIndex.h"
#include "Mirroring/MirroringModel.h"
#include "Mirroring/SessionIndex.h"
#include "platform/AclTypes.h"
#include "platform/Database.h"
#include "platform/InterfaceTypes.h"
#include "platform/IpTypes.h"
#include "platform/LagTypes.h"
#include "platform/Reactor.h"
#include "platform/Syslog.h"
#include "platform/Trace.h"

namespace Mirroring {

using platform::Ptr;

// The agent's trace facility and syslog messages.
extern const platform::trace::Facility TRACE;
extern const platform::syslog::Message MIRRORING_NOSESSIONGROUPS;
extern const platform::syslog::Message MIRRORING_TIMESTAMP_WITH_TRUNCATE_NOTSUPPORTED;
extern const platform::syslog::Message MIRRORING_TRUNCATION_NOT_SUPPORTED;

// The companion session of a GRE session that mirrors forwarding drops.
inline constexpr const char* kFwdingDropPrefix = "__fwdingDrop_";
inline std::string fwdingDropSessionName(const std::string& session) { return kFwdingDropPrefix + session; }
inline constexpr const char* kCpuIntfName = "Cpu";

class ConfigSm;
class SessionSm;
class MirroringForwardingModelSm;

// --- operational-status rules (pure reads) ---------------------------------------------------

OperStatus getSrcOperStatus(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& src);
OperStatus getDestOperStatus(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& dest);
bool alreadyActiveSource(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& intf);
bool alreadyActiveDest(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& intf);
bool intfStatusCheck(const ConfigSm& configSm, const std::string& intf);
bool destStatusLagCheck(const ConfigSm& configSm, const std::string& intf);
bool isSrcLagConfigured(const ConfigSm& configSm, const std::string& intf);
bool isDestLagConfigured(const ConfigSm& configSm, const std::string& intf);
// The part of a source's status that reads only the interface (its status record, its LAG),
// whichever session asks.
OperStatus srcIntfOperStatus(const ConfigSm& configSm, const std::string& src);
// The status of a GRE tunnel destination whose key lies in `vrf`.
OperStatus greDestOperStatus(const ConfigSm& configSm, const platform::VrfName& vrf);
// Re-evaluate every session that uses the interface as a source (destination).
void reviewSourceIntfs(ConfigSm& configSm, const platform::IntfId& intf);
void reviewDestIntfs(ConfigSm& configSm, const platform::IntfId& intf);

// The timestamp-with-truncation report.
void checkSessionsTruncateAndTimestampMode(const ConfigSm& configSm,
                                           const Ptr<const Interface::EthIntfStatus>& ethIntfStatus,
                                           const platform::IntfId& intf);
void checkIntfTimestampModeAndLog(const ConfigSm& configSm, const Ptr<const Interface::EthIntfStatus>& ethIntfStatus,
                                  const platform::IntfId& intf, const std::string& session);

// --- followers -------------------------------------------------------------------------------

// Copies the configured session defaults into the hardware defaults and the status.
class DefaultSessionConfigSm : public platform::RefCounted {
 public:
  DefaultSessionConfigSm(Ptr<const DefaultSessionConfig> config, Ptr<DefaultSessionConfig> hwConfig,
                         Ptr<Status> status);
  void handleInitialized();
  void handleGrePayloadType();
  void handleGreMetadata(MetadataElementType element);
  void handleGreMetadata();
  void handleGreTimestampingEnabled();
  void handlePortMirroringDisabled();
  void handleTruncationSize();
  bool initialized() const { return initialized_; }

 private:
  Ptr<const DefaultSessionConfig> config_;
  Ptr<DefaultSessionConfig> hwConfig_;
  Ptr<Status> status_;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// Follows one Ethernet interface status: activity re-evaluates sessions, the timestamp mode
// is checked against truncating sessions.
class EthIntfStatusSm : public platform::RefCounted {
 public:
  EthIntfStatusSm(Ptr<const Interface::EthIntfStatus> status, Ptr<const Interface::EthPhyIntfStatus> phyStatus,
                  ConfigSm* configSm);
  void handleInitialized();
  void handleActiveStatus();
  void handleTimestampMode();
  void doPrepareToDie();
  const platform::IntfId& intfId() const { return intfId_; }
  bool initialized() const { return initialized_; }

 private:
  Ptr<const Interface::EthIntfStatus> status_;
  Ptr<const Interface::EthPhyIntfStatus> phyStatus_;
  platform::IntfId intfId_;
  ConfigSm* configSm_;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// Follows the LAG membership of one physical interface.
class EthLagIntfSm : public platform::RefCounted {
 public:
  EthLagIntfSm(Ptr<const Lag::EthPhyIntfLagConfig> config, ConfigSm* configSm);
  void handleInitialized();
  void handleLagPhyIntfLag();
  const platform::IntfId& intfId() const { return intfId_; }
  bool initialized() const { return initialized_; }

 private:
  Ptr<const Lag::EthPhyIntfLagConfig> config_;
  platform::IntfId intfId_;
  ConfigSm* configSm_;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// Follows one source entry of one session.
class SourceIntfSm : public platform::RefCounted {
 public:
  SourceIntfSm(Ptr<const SrcIntf> srcIntf, Ptr<const Config> config, Ptr<const Acl::AclTypeConfig> aclConfig,
               Ptr<const Acl::AclTypeConfig> ip6AclConfig, Ptr<const Acl::AclTypeConfig> macAclConfig,
               SessionSm* sessionSm);
  void handleInitialized();
  void handleDirection();
  void handleSrcAcl();
  void handlePriority();
  // One ACL of one type changed; only the ACL this source filters with concerns it.
  void handleAclConfig(Acl::AclType type, const std::string& aclName);
  void handleAclConfig(const std::string& aclName) { handleAclConfig(srcIntf_->aclType(), aclName); }
  const std::string& name() const { return srcIntf_->name(); }
  const Ptr<const SrcIntf>& srcIntf() const { return srcIntf_; }
  bool initialized() const { return initialized_; }

 private:
  Ptr<const SrcIntf> srcIntf_;
  Ptr<const Config> config_;
  Ptr<const Acl::AclTypeConfig> aclConfig_, ip6AclConfig_, macAclConfig_;
  SessionSm* sessionSm_;
  void entryChanged();
  // The direction the other sessions were last told of.
  Direction direction_ = Direction::both;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// --- one session -----------------------------------------------------------------------------

class SessionSm : public platform::RefCounted {
 public:
  SessionSm(const std::string& name, Ptr<const Session> session, Ptr<SessionStatus> sessionStatus,
            Ptr<const DefaultSessionConfig> defaultSessionConfig, Ptr<const Acl::AclTypeConfig> aclConfig,
            Ptr<const Acl::AclTypeConfig> ip6AclConfig, Ptr<const Acl::AclTypeConfig> macAclConfig,
            bool forwardingDrop, ConfigSm* configSm);
  ~SessionSm() override;

  const std::string& name() const { return name_; }
  const Ptr<const Session>& session() const { return session_; }
  const Ptr<SessionStatus>& sessionStatus() const { return sessionStatus_; }
  bool forwardingDrop() const { return forwardingDrop_; }
  uint8_t sessionId() const { return sessionId_; }
  const std::set<std::string>& activeDest() const { return activeDest_; }
  bool initialized() const { return initialized_; }
  // Told to die: no longer part of anyone's decisions.
  bool dying() const { return dying_; }
  // Takes another hardware id (the limit shrank below the one it had).
  void renumber(uint8_t id);
  ConfigSm* configSm() const { return configSm_; }

  void handleInitialized();
  void handleSource(const std::string& name);
  void handleSource();
  void handleDest(const std::string& name);
  void handleDest();
  void handleActiveDest();
  void doUpdateSrcStatus(const std::string& name, const OperStatus& status);
  void doUpdateDestStatus(const std::string& name, const OperStatus& status);
  // Another session's claim on `name` changed: the decision is taken again, and written only
  // when it comes out different.
  void reviewSource(const std::string& name);
  void reviewDest(const std::string& name);
  // Which sources a rewrite of the hardware copy must look at: all of them; none (a setting
  // changed); or one. Sources marked stale are looked at too, and so is everything else.
  enum class HwScope { all, settings, oneSource };
  void doMaybeUpdateHwConfig(HwScope scope = HwScope::all, const std::string& source = std::string());
  // The source's entry waits for the next rewrite: it is no longer what the configuration or
  // the status says (its filter, on hardware that does not filter sources yet; an entry added
  // or removed, before this machine hears of it).
  void hwSourceStale(const std::string& src);
  void updateHwConfigTargetIntf(const platform::IntfId& intf, bool drop);
  void handleGreTunnelKey();
  void handleDropGreTunnelKey();
  platform::IntfId handleGreTunnelKeyToIntfId(const platform::IntfId& prev, const GreTunnelKey& key);
  std::string resolveGreTargetIntf(const std::string& name) const;
  bool hasActiveSource() const;
  bool hasActiveDestination() const;
  // Options: each rewrites the hardware session.
  void handleTruncate();
  void handleTruncationSize();
  void handleHeaderRemoval();
  void handleRxSampleRate();
  void handleGrePayloadType();
  void handleGreMetadata();
  void handleGreTimestampingEnabled();
  void handlePortMirroringDisabled();
  void handleMirrorRateLimit();
  void handleTxGreMetadataEnabled();
  void handleSecureMonitor();
  void handleIsInternalOrOwner();
  // Reports destinations whose timestamps this session's truncation would destroy.
  void checkTimestampMode();
  // The ACL a source filters with changed: the source's hardware entry is written afresh, so
  // that the hardware reprograms the filter even though the entry names the same ACL.
  void doRefreshSrcAcl(const std::string& src);
  // Whether an IPv6 ACL on `src` is refused because an earlier source of the session (in
  // interface order) holds the session's one IPv6 mirroring ACL.
  bool ipv6AclTaken(const std::string& src) const;
  void mark();
  void sweep();
  void doPrepareToDie();
  // Stops reacting (the configuration manager is going away).
  void detach();
  // Whether this state machine was built from these very arguments.
  bool sameArguments(const Ptr<const Session>& session, const Ptr<SessionStatus>& status,
                     const Ptr<const DefaultSessionConfig>& defaultSessionConfig,
                     const Ptr<const Acl::AclTypeConfig>& aclConfig, const Ptr<const Acl::AclTypeConfig>& ip6AclConfig,
                     const Ptr<const Acl::AclTypeConfig>& macAclConfig, bool forwardingDrop) const;

 private:
  // The device name the hardware published for the session, if any.
  const std::string* publishedDeviceName() const;
  // The hardware's name for the device, else "mirror<id>".
  void writeDeviceName();
  void activeDestIs(const std::string& name);
  void activeDestDel(const std::string& name);
  // Writes one destination's status (and `activeDest` for configured destinations), without
  // the hardware copy.
  void writeDestStatus(const std::string& name, const OperStatus& status);
  // On hardware with one destination per session, every refused destination read how many
  // are active: each is decided again when `changed` takes or lets go of the session's place.
  void redecideRefusedDests(const std::string& changed);
  // The source's status with the session's one-IPv6-ACL rule applied.
  OperStatus srcStatusFor(const std::string& name, OperStatus computed) const;
  // The GRE tunnel interface this session's key (its drop key, for a companion) maps to.
  platform::IntfId resolvedGreIntf() const;
  // What this session publishes for a tunnel interface: the status of the tunnel its key
  // resolves to, or of one it names as a target; nothing for any other.
  OperStatus tunnelStatus(const platform::IntfId& tunnel) const;
  // What the rules decide for a destination of this session (or a tunnel it resolves to).
  OperStatus destStatus(const std::string& name) const;
  void writeTunnelStatus(const platform::IntfId& tunnel);
  const HwCapability* capability() const;
  // Brings the sources' statuses in line with the one-IPv6-ACL rule; true when it wrote one
  // (the nested rewrite then did the rest).
  bool reviewIpv6AclSources();
  // The writes counted so far on every mount the hardware copy is written from: the
  // configuration, the statuses (the GRE tunnels' maps among them), the capabilities, the
  // default session settings and the copies themselves. Empty when one is not mounted.
  std::optional<uint64_t> hwInputs() const;
  // Brings the hardware copy in line with what is pending and the active destinations.
  void writeHwConfig();
  // The only sources the one-IPv6-ACL rule can change, in interface order: those filtering with
  // an IPv6 ACL and those published as refused by the rule. A session has many sources and
  // seldom more than one of these, and the rule is reviewed after every source decision.
  std::vector<std::string> ipv6AclCandidates();
  // Keeps the sources published as refused by the one-IPv6-ACL rule; `status` is what `name`
  // publishes now (unknown: nothing).
  void ipv6RefusedIs(const std::string& name, const OperStatus& status);

  std::string name_;
  Ptr<const Session> session_;
  Ptr<SessionStatus> sessionStatus_;
  Ptr<const DefaultSessionConfig> hwDefaultSessionConfig_;
  Ptr<const Acl::AclTypeConfig> aclConfig_, ip6AclConfig_, macAclConfig_;
  bool forwardingDrop_;
  ConfigSm* configSm_;
  uint8_t sessionId_ = 0;
  platform::IntfId prevGreIntfId_;
  platform::IntfId prevDropGreIntfId_;
  std::set<std::string> activeDest_;
  std::map<std::string, Ptr<SourceIntfSm>> srcIntfSm_;
  std::set<std::string> srcAclRefresh_;
  // Sources filtering with an IPv6 ACL, as the configuration had them when its mount had taken
  // `ipv6SourcesAt_` writes (an input change recounts them); the sources published as refused
  // by the rule, read from the statuses once and then kept where they are written.
  std::vector<std::string> ipv6Sources_;
  std::optional<uint64_t> ipv6SourcesAt_;
  std::optional<std::set<std::string>> ipv6Refused_;
  // What changed since the hardware copy was last written.
  struct HwPending {
    bool all = false;
    std::set<std::string> sources;
  };
  HwPending hwPending_;
  // Whether this machine wrote the hardware copy whole (a copy an earlier run left is not).
  bool hwWhole_ = false;
  // What the copy is written from, as a sum of write counts (hwInputs()), when it was last
  // brought up to date; a rewrite with nothing pending finds nothing to do while it stays.
  std::optional<uint64_t> hwWrittenAt_;
  std::set<std::string> staleSrcOperStatus_, staleTargetOperStatus_, staleSrcIntfInHwConfig_,
      staleTargetIntfInHwConfig_;
  platform::Reactor reactor_;
  bool initialized_ = false;
  bool dying_ = false;
};
std::ostream& operator<<(std::ostream& os, const SessionSm& sm);

// --- the configuration manager ---------------------------------------------------------------

class ConfigSm : public platform::RefCounted {
 public:
  static constexpr uint16_t kGreTunnelNumMax = GreTunnelPool::kTunnelNumMax;

  ConfigSm(Ptr<const Config> mirroringConfig, Ptr<Status> mirroringStatus, Ptr<Config> mirroringHwConfig,
           Ptr<const HwStatus> mirroringHwStatus, Ptr<const HwCapability> mirroringHwCapability,
           Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<const Lag::Config> lagConfig,
           Ptr<const Acl::Config> aclConfig, Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir,
           Ptr<const Ip::AllVrfStatusGlobal> allVrfStatus, Ptr<const Interface::EthLagIntfStatusDir> lagIntfStatusDir,
           Ptr<const Interface::AllEthPhyIntfStatusDir> allEthPhyIntfStatusDir = nullptr);
  ~ConfigSm() override;

  // Inputs and outputs.
  const Ptr<const Config>& mirroringConfig() const { return mirroringConfig_; }
  const Ptr<Status>& mirroringStatus() const { return mirroringStatus_; }
  const Ptr<Config>& mirroringHwConfig() const { return mirroringHwConfig_; }
  const Ptr<const HwStatus>& mirroringHwStatus() const { return mirroringHwStatus_; }
  const Ptr<const HwCapability>& mirroringHwCapability() const { return mirroringHwCapability_; }
  const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const { return ethIntfStatusDir_; }
  const Ptr<const Interface::AllEthPhyIntfStatusDir>& allEthPhyIntfStatusDir() const { return allEthPhyIntfStatusDir_; }
  const Ptr<const Lag::Config>& lagConfig() const { return lagConfig_; }
  const Ptr<const Acl::Config>& aclConfig() const { return aclConfig_; }
  const Ptr<Interface::IntfForwardingModelInputDir>& forwardingModelInputDir() const { return forwardingModelInputDir_; }
  const Ptr<const Ip::AllVrfStatusGlobal>& allVrfStatus() const { return allVrfStatus_; }
  const Ptr<const Interface::EthLagIntfStatusDir>& lagIntfStatusDir() const { return lagIntfStatusDir_; }
  bool initialized() const { return initialized_; }

  // Session lifecycle and global session ids.
  void handleInitialized();
  void handleSession(const std::string& name);
  void handleSession();
  void handleMaxSupportedSessions();
  void mark();
  void sweep();
  uint8_t allocGlobalSessionId(const std::string& name);
  void freeGlobalSessionId(const std::string& name, uint8_t id);
  Ptr<SessionSm> sessionSm(const std::string& name) const;
  // The forwarding-drop companion of the session of that name, if it has one.
  Ptr<SessionSm> companionSm(const std::string& parent) const;
  // The session's (and its companion's) entry for the source changed: see SessionSm::hwSourceStale.
  void hwSourceStale(const std::string& sessionName, const std::string& intfName);
  Ptr<SessionSm> sessionSmIs(const std::string& name, Ptr<const Session> session, Ptr<SessionStatus> status,
                             Ptr<const DefaultSessionConfig> defaultSessionConfig,
                             Ptr<const Acl::AclTypeConfig> aclConfig, Ptr<const Acl::AclTypeConfig> ip6AclConfig,
                             Ptr<const Acl::AclTypeConfig> macAclConfig, bool forwardingDrop);
  void sessionSmDel(const std::string& name);
  const std::map<std::string, Ptr<SessionSm>>& sessionSms() const { return sessionSm_; }
  void staleSessionSmDel(const std::string& name) { staleSessionSm_.erase(name); }
  bool staleSessionSmHas(const std::string& name) const { return staleSessionSm_.count(name) != 0; }
  // Whether a session of this name has (or may take) a status within the hardware's limit.
  bool roomForSession(const std::string& name) const;
  // The id an earlier run gave the session, while the table keeps it for it; else -1.
  int claimedId(const std::string& name) const;
  // Keeps the ids that hardware copies, then statuses, carry for their sessions.
  void claimIds();
  // The highest id the limit admits: the table's last entry.
  uint32_t idBound() const;
  // Gives the running sessions whose ids the limit no longer admits the lowest free ones, in
  // the order a start-up would give them ids.
  void renumberBeyondBound();
  // Room was freed: the sessions and companions that wait for it are tried again.
  void retryWaiting();
  // A session or companion found no room: it says so, and waits for room to be freed.
  void refuseForRoom(const std::string& name);
  void admitWaitingCompanions();
  // Deletes a forwarding-drop companion (told to die first) and its status; its room goes to
  // whoever waits for it.
  void companionDel(const std::string& name);
  // The number of sessions the hardware can hold: its limit, within the 8-bit id space.
  uint32_t sessionLimit() const;
  const std::map<uint8_t, std::string>& globalSessionId() const { return globalSessionId_; }
  uint32_t globalSessionIdCount() const { return globalSessionIdCount_; }

  // GRE tunnel interfaces.
  void incGreIntfUserCount(const platform::IntfId& intf) { greTunnels_.inc(intf); }
  void decGreIntfUserCount(const platform::IntfId& intf) { greTunnels_.dec(intf); }
  uint16_t greIntfUserCount(const platform::IntfId& intf) const { return greTunnels_.userCount(intf); }
  // Takes the lowest free tunnel number and answers its interface ("Gre<n>").
  platform::IntfId greTunnelIntfAlloc() { return greTunnels_.alloc(); }
  // Marks the tunnel number of an interface restored from status as taken.
  void greTunnelNumberTake(const platform::IntfId& intf) { greTunnels_.take(intf); }
  bool greTunnelNumberTaken(uint32_t number) const { return greTunnels_.taken(number); }
  // The tunnel interface the status maps `key` to, when the two maps agree on it; else empty.
  platform::IntfId greTunnelOf(const GreTunnelKey& key) const { return greTunnels_.tunnelOf(key); }
  void staleGreTunnelKeyDel(const platform::IntfId& intf) { greTunnels_.claim(intf); }

  // Capability handlers.
  void handleTruncationSupported();
  void handleHeaderRemovalSupported();
  void handleCpuDestSupported();
  void handleLoopbackDestSupported();
  void handleLagDestSupported();
  void handleMultiDestSupported();
  void handleMultiSessionForDestSupported();
  void handleMultiSessionForSourceSupported();
  void handleRxSamplingSupported();
  // Capability attributes beyond the session limit and the table above: each re-evaluates
  // what it changes.
  void handleSameIntfSrcAndDestSupported();
  void handleTimestampWithTruncationSupported();
  void handleSrcAclSupported();
  void handleMirrorDeviceName(const std::string& name);
  void handleMirrorDeviceName();

  // Interface, LAG and VRF tracking.
  void handleEthIntfStatus(const platform::IntfId& intf);
  void handleEthIntfStatus();
  void handleLagPhyIntf(const platform::IntfId& intf);
  void handleLagPhyIntf();
  void handleVrfStatus(const platform::VrfName& vrf);
  void handleSourceDeactivation(const std::string& sessionName, const std::string& intfName);
  void handleDestDeactivation(const std::string& sessionName, const std::string& intfName);
  // Session `sessionName` started or stopped holding `intfName` as a source (as a destination
  // when `dest`), or changed how it holds it: every other decision about the interface read
  // that and is taken again.
  void handleIntfClaimChanged(const std::string& sessionName, const std::string& intfName, bool dest);
  void maybeUpdateSrcLagMemberState(const std::string& intfName);
  bool isMirroringSrcPort(const std::string& intfName) const;
  bool isMirroringDestPort(const std::string& intfName) const;
  // The configured sessions that name an interface as a source (as a target), whether or not
  // they found room.
  const SessionNames& srcSessionsOf(const std::string& intfName) const {
    return sessionIndex_.srcSessionsOf(intfName);
  }
  const SessionNames& targetSessionsOf(const std::string& intfName) const {
    return sessionIndex_.targetSessionsOf(intfName);
  }
  // The session statuses that publish an interface as an active source (destination).
  const SessionNames& activeSrcHolders(const std::string& intfName) const {
    return activeIntfs_.activeSrcHolders(intfName);
  }
  const SessionNames& activeDestHolders(const std::string& intfName) const {
    return activeIntfs_.activeDestHolders(intfName);
  }
  // The Port-Channel an interface is a member of, or the empty id.
  platform::IntfId lagOf(const std::string& intfName) const;
  // A number that changes whenever anything a decision reads may have changed: every write to
  // the database, every change of an index, a session machine made, dying or gone. A rule that
  // found nothing to do at one generation finds nothing at the same generation again. Needs the
  // mounted database.
  uint64_t factGeneration() const;
  void sessionSmChanged() { ++sessionSmChanges_; }
  // srcIntfOperStatus, answered again without reading while nothing changed: every sharer of an
  // interface asks the same question, one after another.
  OperStatus srcIntfStatus(const std::string& intfName) const;

  const Ptr<MirroringForwardingModelSm>& forwardingModelSm() const { return forwardingModelSm_; }
  const Ptr<DefaultSessionConfigSm>& defaultSessionConfigSm() const { return defaultSessionConfigSm_; }
  const std::map<platform::IntfId, Ptr<EthIntfStatusSm>>& ethIntfStatusSms() const { return ethIntfStatusSm_; }
  const std::map<platform::IntfId, Ptr<EthLagIntfSm>>& ethLagIntfSms() const { return ethLagIntfSm_; }

 private:
  // Deletes a session's companion and state machine (each told to die first) and its status.
  void deleteSession(const std::string& name);
  // A Port-Channel started or stopped being named as a source or target somewhere: what its
  // members may be as sources changed.
  void reviewLagMembers(const std::string& lag);
  struct PhyIntfReactor;

  Ptr<const Config> mirroringConfig_;
  Ptr<Status> mirroringStatus_;
  Ptr<Config> mirroringHwConfig_;
  Ptr<const HwStatus> mirroringHwStatus_;
  Ptr<const HwCapability> mirroringHwCapability_;
  Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
  Ptr<const Lag::Config> lagConfig_;
  Ptr<const Acl::Config> aclConfig_;
  Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir_;
  Ptr<const Ip::AllVrfStatusGlobal> allVrfStatus_;
  Ptr<const Interface::EthLagIntfStatusDir> lagIntfStatusDir_;
  Ptr<const Interface::AllEthPhyIntfStatusDir> allEthPhyIntfStatusDir_;
  // First to follow the status: up to date before anyone else hears of a change.
  ActiveIntfIndex activeIntfs_;
  LagMemberIndex lagMembers_;

  bool initialized_ = false;
  std::map<std::string, Ptr<SessionSm>> sessionSm_;  // walked in name order
  // The same machines for the look-ups by name that every decision makes.
  std::unordered_map<std::string, SessionSm*> sessionSmByName_;
  mutable std::string companionName_;  // a companion's name, built here without allocating
  std::size_t companions_ = 0;         // how many of the machines are companions
  std::map<uint8_t, std::string> globalSessionId_;
  uint32_t globalSessionIdCount_ = 0;
  std::set<std::string> staleSessionSm_;
  // Sessions and companions refused for lack of room at the last walk; while there are any,
  // every status that goes gives them another chance.
  std::set<std::string> waiting_;
  bool walkingSessions_ = false, walkAgain_ = false;

  GreTunnelPool greTunnels_;
  SessionIndex sessionIndex_;
  const platform::Database* db_ = nullptr;  // null for roots not mounted: nothing is skipped
  uint64_t sessionSmChanges_ = 0;
  // The fact generation at which each Port-Channel's members were last reviewed and nothing
  // changed.
  std::map<std::string, uint64_t> lagReviewedAt_;
  // The last srcIntfStatus answer and the fact generation it was read at.
  struct SrcIntfAnswer {
    std::string intf;
    uint64_t at = 0;
    OperStatus status;
  };
  mutable std::optional<SrcIntfAnswer> srcIntfAnswer_;
  Ptr<DefaultSessionConfigSm> defaultSessionConfigSm_;
  Ptr<MirroringForwardingModelSm> forwardingModelSm_;
  std::map<platform::IntfId, Ptr<EthIntfStatusSm>> ethIntfStatusSm_;
  std::map<platform::IntfId, Ptr<EthLagIntfSm>> ethLagIntfSm_;
  std::map<platform::IntfId, std::unique_ptr<PhyIntfReactor>> phyIntf_;
  platform::Reactor configReactor_, hwStatusReactor_, capabilityReactor_, truncationDefaultReactor_, intfReactor_,
      lagReactor_, vrfReactor_;
};
std::ostream& operator<<(std::ostream& os, const ConfigSm& sm);

}  // namespace Mirroring
