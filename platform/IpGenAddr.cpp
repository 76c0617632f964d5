#include "platform/IpGenAddr.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <ostream>

namespace platform {

std::optional<IpGenAddr> IpGenAddr::parse(std::string_view text) {
  if (text.empty()) {
    return IpGenAddr();
  }
  // inet_pton reads a C string: copy into a bounded buffer, and refuse an embedded NUL,
  // which would otherwise hide trailing junk ("1.2.3.4\0x").
  char buf[INET6_ADDRSTRLEN];
  if (text.size() >= sizeof(buf) || text.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  std::copy(text.begin(), text.end(), buf);
  buf[text.size()] = '\0';

  IpGenAddr addr;
  const bool v6 = text.find(':') != std::string_view::npos;
  if (inet_pton(v6 ? AF_INET6 : AF_INET, buf, addr.bytes_.data()) != 1) {
    return std::nullopt;
  }
  addr.af_ = v6 ? AddrFamily::ipv6 : AddrFamily::ipv4;
  return addr;
}

IpGenAddr IpGenAddr::v4(uint32_t hostOrder) {
  return v4(std::array<uint8_t, 4>{
      static_cast<uint8_t>(hostOrder >> 24), static_cast<uint8_t>(hostOrder >> 16),
      static_cast<uint8_t>(hostOrder >> 8), static_cast<uint8_t>(hostOrder)});
}

IpGenAddr IpGenAddr::v4(const std::array<uint8_t, 4>& networkOrder) {
  IpGenAddr addr;
  addr.af_ = AddrFamily::ipv4;
  std::copy(networkOrder.begin(), networkOrder.end(), addr.bytes_.begin());
  return addr;
}

IpGenAddr IpGenAddr::v6(const std::array<uint8_t, 16>& networkOrder) {
  IpGenAddr addr;
  addr.af_ = AddrFamily::ipv6;
  addr.bytes_ = networkOrder;
  return addr;
}

bool IpGenAddr::isZero() const {
  return std::all_of(bytes_.begin(), bytes_.end(), [](uint8_t b) { return b == 0; });
}

uint32_t IpGenAddr::v4Addr() const {
  if (!isV4()) {
    return 0;
  }
  return uint32_t{bytes_[0]} << 24 | uint32_t{bytes_[1]} << 16 | uint32_t{bytes_[2]} << 8 |
         uint32_t{bytes_[3]};
}

std::span<const uint8_t> IpGenAddr::bytes() const {
  switch (af_) {
    case AddrFamily::ipv4: return {bytes_.data(), 4};
    case AddrFamily::ipv6: return {bytes_.data(), 16};
    case AddrFamily::none: break;
  }
  return {};
}

std::string IpGenAddr::str() const {
  if (af_ == AddrFamily::none) {
    return {};
  }
  char buf[INET6_ADDRSTRLEN];
  // Cannot fail: the family is valid and the buffer fits the longest text.
  inet_ntop(isV6() ? AF_INET6 : AF_INET, bytes_.data(), buf, sizeof(buf));
  return buf;
}

uint32_t IpGenAddr::hash() const {
  // FNV-1a: cheap, and every byte affects the result.
  uint32_t h = 2166136261u;
  auto mix = [&h](uint8_t b) {
    h ^= b;
    h *= 16777619u;
  };
  mix(static_cast<uint8_t>(af_));
  for (uint8_t b : bytes()) {
    mix(b);
  }
  return h;
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr) { return os << addr.str(); }

}  // namespace platform
