// The forwarding model of mirror destinations.
//
// A port that is an active destination of a monitor session only transmits mirrored copies;
// it must not behave as an ordinary data port. `MirroringForwardingModelSm` publishes that to
// the rest of the switch: it follows every session's destination oper status in
// mirroring/status and, for each interface that is an active destination of at least one
// session, writes `intfForwardingModelQuietDataLink` into the mirroring forwarding-model input
// (interface/input/forwardingmodel/mirroring). When the last session lets go of an interface,
// its entry is removed. This is the only writer of that directory. The CPU ("Cpu") is never
// given a forwarding model.
//
// Sessions sharing a destination are counted per interface in an
// `ActiveIntfMirroringSessionList`, so the entry stays while any one of them is active.
//
// Start-up is a mark and sweep: every entry an earlier instance left in the directory is
// marked stale, the sessions re-activate what they still use (rewriting it, which the
// database suppresses when the value is unchanged), and what is still stale is swept.
//
// Tear-down does NOT withdraw: destroying the state machine drops its bookkeeping and its
// session reactors without running their prepare-to-die, and leaves the directory as it is.
// An agent restart must not flap the forwarding model of ports that stay mirror destinations
// across it; the next instance's start-up sweep removes whatever is no longer wanted. Sessions
// that go away while the state machine lives are withdrawn at once (their reactor's
// `doPrepareToDie`).
//
// Runs on the agent's event-loop thread only. Preconditions a caller could get wrong:
// - A session status is filed under its own name (`SessionStatus::name` equals its key in
//   `Status::sessionStatus`), as the platform's collections and codec build it.
// - The owner must not drop the state machine from inside one of its handlers.
#pragma once

#include <map>
#include <ostream>
#include <set>
#include <string>

#include "Mirroring/MirroringModel.h"
#include "platform/IntfId.h"
#include "platform/InterfaceTypes.h"
#include "platform/Ptr.h"
#include "platform/Reactor.h"

namespace Mirroring {

// The sessions that currently use one interface as an active destination. A plain counted
// object rather than an entity: it is the state machine's private bookkeeping, never mounted,
// written out or followed by anyone, so it needs neither reflection nor change notification.
class ActiveIntfMirroringSessionList : public platform::RefCounted {
 public:
  explicit ActiveIntfMirroringSessionList(const platform::IntfId& intfId) : intfId_(intfId) {}

  const platform::IntfId& intfId() const { return intfId_; }
  // Session name to true, while the interface is an active destination of that session.
  const std::map<std::string, bool>& sessionList() const { return sessionList_; }
  bool sessionListHas(const std::string& sessionName) const { return sessionList_.count(sessionName) != 0; }

  void sessionListIs(const std::string& sessionName, bool active) { sessionList_[sessionName] = active; }
  void sessionListDel(const std::string& sessionName) { sessionList_.erase(sessionName); }
  void sessionListDelAll() { sessionList_.clear(); }

 private:
  platform::IntfId intfId_;
  std::map<std::string, bool> sessionList_;
};

class MirroringForwardingModelSm : public platform::RefCounted {
 public:
  // Follows one session status: each change of one of its destinations' oper status updates
  // the forwarding model of that destination. Owned by the state machine, one per entry of
  // `Status::sessionStatus`.
  class SessionStatusReactor : public platform::RefCounted {
   public:
    SessionStatusReactor(platform::Ptr<const SessionStatus> sessionStatus, MirroringForwardingModelSm* sm);

    const std::string& sessionName() const { return sessionName_; }
    const platform::Ptr<const SessionStatus>& sessionStatus() const { return sessionStatus_; }
    bool initialized() const { return initialized_; }

    void handleTargetOperStatus(const std::string& target);
    void handleTargetOperStatus();
    void handleInitialized();
    // Withdraws the session from every destination it lists; runs before the reactor goes.
    void doPrepareToDie();
    // Stops following and forgets the state machine: used when the state machine is torn
    // down, after which a change that is still being dispatched is ignored.
    void detach();

   private:
    platform::Ptr<const SessionStatus> sessionStatus_;
    std::string sessionName_;
    MirroringForwardingModelSm* sm_;  // the owner; null once detached
    platform::Reactor reactor_;
    bool initialized_ = false;
  };

  // Creates the state machine and runs its start-up reconciliation at once.
  MirroringForwardingModelSm(platform::Ptr<const Status> mirroringStatus,
                             platform::Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir);
  // Leaves the forwarding-model directory as it is (see the header comment).
  ~MirroringForwardingModelSm() override;

  const platform::Ptr<const Status>& mirroringStatus() const { return mirroringStatus_; }
  const platform::Ptr<Interface::IntfForwardingModelInputDir>& forwardingModelInputDir() const {
    return forwardingModelInputDir_;
  }
  bool initialized() const { return initialized_; }

  // The single writer of the forwarding-model directory.
  void doSetForwardingModel(const std::string& intfName, bool active, const std::string& sessionName);

  // Per-interface session lists.
  platform::Ptr<ActiveIntfMirroringSessionList> activeIntfMirroringSessionListIs(const platform::IntfId& intf);
  void activeIntfMirroringSessionListDel(const platform::IntfId& intf);
  void activeIntfMirroringSessionListDelAll();
  // Null when the interface has no list.
  platform::Ptr<const ActiveIntfMirroringSessionList> activeIntfMirroringSessionList(
      const platform::IntfId& intf) const;
  const std::map<platform::IntfId, platform::Ptr<ActiveIntfMirroringSessionList>>& activeIntfMirroringSessionLists()
      const {
    return activeIntfMirroringSessionList_;
  }

  // Entries found at start-up that no session has claimed yet.
  void staleForwardingModelInputIs(const platform::IntfId& intf) { staleForwardingModelInput_.insert(intf); }
  void staleForwardingModelInputDel(const platform::IntfId& intf) { staleForwardingModelInput_.erase(intf); }
  bool staleForwardingModelInputHas(const platform::IntfId& intf) const {
    return staleForwardingModelInput_.count(intf) != 0;
  }
  void staleForwardingModelInputDelAll() { staleForwardingModelInput_.clear(); }

  // Per-session reactors. `sessionStatusIs` returns the existing reactor when it follows the
  // same status entity, and replaces it (after its prepare-to-die) when the entry was
  // replaced by another entity. `sessionStatusDel` withdraws the session first.
  // `sessionStatusDelAll` is the tear-down path: it drops every reactor WITHOUT withdrawing.
  platform::Ptr<SessionStatusReactor> sessionStatusIs(platform::Ptr<const SessionStatus> sessionStatus);
  void sessionStatusDel(const std::string& sessionName);
  void sessionStatusDelAll();
  platform::Ptr<SessionStatusReactor> sessionStatus(const std::string& sessionName) const;
  const std::map<std::string, platform::Ptr<SessionStatusReactor>>& sessionStatuses() const { return sessionStatus_; }

  // The start-up reconciliation (mark, initialise every session, sweep).
  void handleInitialized();

 private:
  void handleSessionStatus(const std::string& sessionName);

  platform::Ptr<const Status> mirroringStatus_;
  platform::Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir_;
  std::map<std::string, platform::Ptr<SessionStatusReactor>> sessionStatus_;
  std::map<platform::IntfId, platform::Ptr<ActiveIntfMirroringSessionList>> activeIntfMirroringSessionList_;
  std::set<platform::IntfId> staleForwardingModelInput_;
  bool initialized_ = false;
  bool waking_ = false;  // the sessions found at start-up are being walked
  platform::Reactor statusReactor_;
};

std::ostream& operator<<(std::ostream& os, const MirroringForwardingModelSm& sm);
std::ostream& operator<<(std::ostream& os, const MirroringForwardingModelSm::SessionStatusReactor& reactor);

platform::Ptr<MirroringForwardingModelSm> mirroringForwardingModelSmFactory(
    platform::Ptr<const Status> mirroringStatus,
    platform::Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir);

}  // namespace Mirroring
