// Interface state and configuration that other agents publish and the mirroring agent reads.
//
// Each kind of interface has a status entity per interface, filed by interface in a directory
// entity (the directories are mount roots). The forwarding-model input directory tells, per
// interface, how the switch forwards its traffic; the mirroring agent cares whether an
// interface was made a quiet data link (a mirror destination) or a LAG member.
//
// Enumerations are written in JSON by their enumerator names ("linkUp"); numbers are accepted
// on input.
//
// Precondition a caller could get wrong: an entry's key (`intfId`) is fixed at construction;
// entries are created through the directory's `...Is` operation, never re-keyed.
#pragma once

#include <array>
#include <cstdint>

#include "platform/Entity.h"

namespace Interface {

enum LinkStatus : uint8_t { linkUnknown = 0, linkDown = 1, linkUp = 2, linkNotPresent = 3 };
constexpr auto enumEntries(LinkStatus) {
  using E = platform::EnumEntry<LinkStatus>;
  return std::array{E{linkUnknown, "linkUnknown"}, E{linkDown, "linkDown"}, E{linkUp, "linkUp"},
                    E{linkNotPresent, "linkNotPresent"}};
}

// Where the hardware writes a time stamp into mirrored frames; any value but
// timestampModeDisabled means timestamping is on.
enum TimestampMode : uint8_t {
  timestampModeDisabled = 0,
  timestampModeBeforeFcs = 1,
  timestampModeReplaceFcs = 2,
  timestampModeHeader = 3,
};
constexpr auto enumEntries(TimestampMode) {
  using E = platform::EnumEntry<TimestampMode>;
  return std::array{E{timestampModeDisabled, "timestampModeDisabled"},
                    E{timestampModeBeforeFcs, "timestampModeBeforeFcs"},
                    E{timestampModeReplaceFcs, "timestampModeReplaceFcs"},
                    E{timestampModeHeader, "timestampModeHeader"}};
}

enum IntfForwardingModel : uint8_t {
  intfForwardingModelBridged = 0,
  intfForwardingModelQuietDataLink = 1,  // a mirror destination: the switch sends nothing else on it
  intfForwardingModelRouted = 2,
  intfForwardingModelLagMember = 3,
  intfForwardingModelDisabled = 4,
};
constexpr auto enumEntries(IntfForwardingModel) {
  using E = platform::EnumEntry<IntfForwardingModel>;
  return std::array{E{intfForwardingModelBridged, "intfForwardingModelBridged"},
                    E{intfForwardingModelQuietDataLink, "intfForwardingModelQuietDataLink"},
                    E{intfForwardingModelRouted, "intfForwardingModelRouted"},
                    E{intfForwardingModelLagMember, "intfForwardingModelLagMember"},
                    E{intfForwardingModelDisabled, "intfForwardingModelDisabled"}};
}

// --- Ethernet interfaces (any kind that carries Ethernet frames) ---------------------------

struct EthIntfStatus : platform::EntityOf<EthIntfStatus> {
  static constexpr const char* typeName = "Interface::EthIntfStatus";
  EthIntfStatus() = default;
  explicit EthIntfStatus(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  platform::Attr<bool> hwActive{this};
  platform::Attr<LinkStatus> linkStatus{this};
  platform::Attr<TimestampMode> timestampMode{this};

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("hwActive", hwActive);
    d("linkStatus", linkStatus);
    d("timestampMode", timestampMode);
  }
};

struct EthIntfStatusDir : platform::EntityOf<EthIntfStatusDir> {
  static constexpr const char* typeName = "Interface::EthIntfStatusDir";
  EthIntfStatusDir() = default;

  platform::Coll<platform::IntfId, platform::Ptr<EthIntfStatus>> intfStatus{this};

  platform::Ptr<EthIntfStatus> intfStatusIs(const platform::IntfId& id);
  void intfStatusDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("intfStatus", intfStatus);
  }
};

// --- physical Ethernet ports ---------------------------------------------------------------

struct EthPhyIntfStatus : platform::EntityOf<EthPhyIntfStatus> {
  static constexpr const char* typeName = "Interface::EthPhyIntfStatus";
  EthPhyIntfStatus() = default;
  explicit EthPhyIntfStatus(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  platform::Attr<LinkStatus> linkStatus{this};
  platform::Attr<TimestampMode> timestampMode{this};

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("linkStatus", linkStatus);
    d("timestampMode", timestampMode);
  }
};

struct AllEthPhyIntfStatusDir : platform::EntityOf<AllEthPhyIntfStatusDir> {
  static constexpr const char* typeName = "Interface::AllEthPhyIntfStatusDir";
  AllEthPhyIntfStatusDir() = default;

  platform::Coll<platform::IntfId, platform::Ptr<EthPhyIntfStatus>> intfStatus{this};

  platform::Ptr<EthPhyIntfStatus> intfStatusIs(const platform::IntfId& id);
  void intfStatusDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("intfStatus", intfStatus);
  }
};

// --- port-channels -------------------------------------------------------------------------

struct EthLagIntfStatus : platform::EntityOf<EthLagIntfStatus> {
  static constexpr const char* typeName = "Interface::EthLagIntfStatus";
  EthLagIntfStatus() = default;
  explicit EthLagIntfStatus(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  platform::Attr<bool> hwActive{this};
  platform::Attr<LinkStatus> linkStatus{this};

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("hwActive", hwActive);
    d("linkStatus", linkStatus);
  }
};

struct EthLagIntfStatusDir : platform::EntityOf<EthLagIntfStatusDir> {
  static constexpr const char* typeName = "Interface::EthLagIntfStatusDir";
  EthLagIntfStatusDir() = default;

  platform::Coll<platform::IntfId, platform::Ptr<EthLagIntfStatus>> intfStatus{this};

  platform::Ptr<EthLagIntfStatus> intfStatusIs(const platform::IntfId& id);
  void intfStatusDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("intfStatus", intfStatus);
  }
};

struct EthLagIntfConfig : platform::EntityOf<EthLagIntfConfig> {
  static constexpr const char* typeName = "Interface::EthLagIntfConfig";
  EthLagIntfConfig() = default;
  explicit EthLagIntfConfig(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  // Members that must be up for the port-channel to be up.
  platform::Attr<uint32_t> minLinks{this};

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("minLinks", minLinks);
  }
};

struct EthLagIntfConfigDir : platform::EntityOf<EthLagIntfConfigDir> {
  static constexpr const char* typeName = "Interface::EthLagIntfConfigDir";
  EthLagIntfConfigDir() = default;

  platform::Coll<platform::IntfId, platform::Ptr<EthLagIntfConfig>> intfConfig{this};

  platform::Ptr<EthLagIntfConfig> intfConfigIs(const platform::IntfId& id);
  void intfConfigDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("intfConfig", intfConfig);
  }
};

// --- VLAN interfaces -----------------------------------------------------------------------

struct VlanIntfStatus : platform::EntityOf<VlanIntfStatus> {
  static constexpr const char* typeName = "Interface::VlanIntfStatus";
  VlanIntfStatus() = default;
  explicit VlanIntfStatus(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  platform::Attr<LinkStatus> linkStatus{this};

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("linkStatus", linkStatus);
  }
};

struct VlanIntfStatusDir : platform::EntityOf<VlanIntfStatusDir> {
  static constexpr const char* typeName = "Interface::VlanIntfStatusDir";
  VlanIntfStatusDir() = default;

  platform::Coll<platform::IntfId, platform::Ptr<VlanIntfStatus>> intfStatus{this};

  platform::Ptr<VlanIntfStatus> intfStatusIs(const platform::IntfId& id);
  void intfStatusDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("intfStatus", intfStatus);
  }
};

// --- forwarding model ----------------------------------------------------------------------

// One agent's request for the forwarding model of interfaces (the mirroring agent publishes
// its destinations here as quiet data links).
struct IntfForwardingModelInputDir : platform::EntityOf<IntfForwardingModelInputDir> {
  static constexpr const char* typeName = "Interface::IntfForwardingModelInputDir";
  IntfForwardingModelInputDir() = default;

  platform::Coll<platform::IntfId, IntfForwardingModel> forwardingModelInput{this};

  void forwardingModelInputIs(const platform::IntfId& id, IntfForwardingModel model);
  void forwardingModelInputDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("forwardingModelInput", forwardingModelInput);
  }
};

}  // namespace Interface
