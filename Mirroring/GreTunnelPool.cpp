#include "Mirroring/GreTunnelPool.h"

#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

GreTunnelPool::GreTunnelPool(platform::Ptr<Status> status) : status_(std::move(status)), bitMap_(kTunnelNumMax) {
  PLATFORM_ASSERT(status_);
}

void GreTunnelPool::mark() {
  for (const auto& intf : status_->greTunnelKey.keys()) stale_.insert(intf);
  for (const auto& [key, intf] : status_->greTunnelKeyToIntfId) stale_.insert(intf);
  for (const auto& intf : stale_) take(intf);
}

void GreTunnelPool::sweep() {
  for (const auto& intf : std::vector<platform::IntfId>(stale_.begin(), stale_.end())) {
    status_->greTunnelKey.del(intf);
    if (userCount(intf) == 0 && inRange(intf.greTunnelNumber())) bitMap_[intf.greTunnelNumber() - 1] = false;
    stale_.erase(intf);
  }
  for (const auto& key : status_->greTunnelKeyToIntfId.keys()) {
    const platform::IntfId intf = status_->greTunnelKeyToIntfId.get(key);
    const GreTunnelKey* back = status_->greTunnelKey.find(intf);
    if (!back || !(*back == key)) status_->greTunnelKeyToIntfId.del(key);
  }
}

platform::IntfId GreTunnelPool::tunnelOf(const GreTunnelKey& key) const {
  const platform::IntfId* intf = status_->greTunnelKeyToIntfId.find(key);
  if (!intf || !intf->isGreTunnel() || !inRange(intf->greTunnelNumber())) return platform::IntfId();
  const GreTunnelKey* back = status_->greTunnelKey.find(*intf);
  return back && *back == key ? *intf : platform::IntfId();
}

platform::IntfId GreTunnelPool::alloc() {
  for (std::size_t i = 0; i < bitMap_.size(); ++i) {
    if (bitMap_[i]) continue;
    bitMap_[i] = true;
    return platform::IntfId::greTunnel(uint32_t(i + 1));
  }
  TRACE(0, "No free GRE tunnel interface among ", bitMap_.size());
  return platform::IntfId();
}

void GreTunnelPool::take(const platform::IntfId& intf) {
  if (inRange(intf.greTunnelNumber())) bitMap_[intf.greTunnelNumber() - 1] = true;
}

bool GreTunnelPool::taken(uint32_t number) const { return inRange(number) && bitMap_[number - 1]; }

void GreTunnelPool::inc(const platform::IntfId& intf) {
  const uint16_t c = userCount(intf);
  TRACE(2, "Inc ", intf, " user cnt to ", c + 1);
  userCnt_[intf] = uint16_t(c + 1);
}

void GreTunnelPool::dec(const platform::IntfId& intf) {
  auto it = userCnt_.find(intf);
  const uint16_t userCnt = it == userCnt_.end() ? 0 : it->second;
  PLATFORM_ASSERT(userCnt);
  TRACE(2, "Dec ", intf, " user cnt to ", userCnt - 1);
  it->second = uint16_t(userCnt - 1);
  if (it->second != 0) return;
  userCnt_.erase(it);
  TRACE(2, "No more session user for ", intf, ". Deleting");
  // The reverse entry first, then the number and the forward entry.
  status_->greTunnelKeyToIntfId.del(status_->greTunnelKey.get(intf));
  if (inRange(intf.greTunnelNumber())) bitMap_[intf.greTunnelNumber() - 1] = false;
  status_->greTunnelKey.del(intf);
}

uint16_t GreTunnelPool::userCount(const platform::IntfId& intf) const {
  auto it = userCnt_.find(intf);
  return it == userCnt_.end() ? 0 : it->second;
}

}  // namespace Mirroring
