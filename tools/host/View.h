// The readable view: what an operator wants to see of the agent's state, as plain text.
//
// The view works on plain values: each mount's content as a Value (what the reflection makes
// of it, the same JSON shape a dump writes), keyed by mount path. It reads them by mount path
// and field name, never through the agent's C++ types: the host does not link the agent, and
// the view keeps working while those types grow. `viewContents` takes those values from a
// database; a test can as well write them as JSON. Each section has its own small renderer
// and is left out when none of the mounts it reads is present. A field that is missing or has
// an unexpected shape shows as "-" rather than failing the view.
//
// Sections and what they read:
//   Monitor sessions        mirroring/config (session: srcIntf/direction, targetIntf and the
//                           options truncationSize, rxSampleRate, mirrorRateLimitInBps,
//                           mirrorRateLimitChip, headerRemovalSize, grePayloadType,
//                           greMetadata, greTimestampingEnabled, txGreMetadataEnabled),
//                           mirroring/status (sessionStatus: srcOperStatus, targetOperStatus,
//                           truncateOperStatus, mirrorDeviceName; grePayloadType, the default
//                           in force; greTunnelKey: tunnel interface to {srcIpAddr, dstIpAddr,
//                           vrf, ttl, tos, greProto, greKey}),
//                           mirroring/hwconfig (session: sessionId, srcIntf with direction,
//                           srcAcl and aclType, targetIntf and the same options as programmed).
//                           A configured session without a status is one the agent refused
//                           for lack of hardware sessions: "not programmed: no room". An option
//                           line appears only for options the session's entities carry.
//   Tap aggregation         tapagg/cliconfig (mode), tapagg/hwconfig (slice, and tapPort and
//                           toolPort: whether a port is handed to the hardware), tapagg/status
//                           (group: tapPort, toolPort, each {active, reason})
//   Errdisabled interfaces  interface/errdisable/cause/<cause> (intfStatus: interface to the
//                           clock time it was disabled), causes in path order
#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "platform/Database.h"
#include "platform/Value.h"

namespace host {

// Columns padded to their widest cell, two blanks apart, no trailing blanks.
class Table {
 public:
  explicit Table(std::vector<std::string> headers) : headers_(std::move(headers)) {}
  void addRow(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  bool empty() const { return rows_.empty(); }
  void print(std::ostream& out, const std::string& indent = "") const;

 private:
  std::vector<std::string> headers_;
  std::vector<std::vector<std::string>> rows_;
};

// Each mount's content, keyed by mount path.
using MountContents = std::map<std::string, platform::Value>;

// The content of every mount of the database.
MountContents viewContents(const platform::Database& db);

// One renderer per section; each answers false (and writes nothing) when its mounts are absent.
bool renderMonitorSessions(const MountContents& mounts, std::ostream& out);
bool renderTapAggregation(const MountContents& mounts, std::ostream& out);
bool renderErrdisabledInterfaces(const MountContents& mounts, std::ostream& out);

// Every section that has something to read, separated by blank lines.
std::string renderView(const MountContents& mounts);
// The same for the database's current content.
std::string renderView(const platform::Database& db);

}  // namespace host
