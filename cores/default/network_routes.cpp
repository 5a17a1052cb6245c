#include "cores/default/network_routes.h"

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace vantamo::core {
namespace {

using Attributes = std::array<const nlattr*, RTA_MAX + 1>;

std::span<const std::byte> payloadOf(const nlattr* attribute) {
  if (attribute == nullptr) return {};
  return {static_cast<const std::byte*>(mnl_attr_get_payload(attribute)),
          mnl_attr_get_payload_len(attribute)};
}

int keepAttribute(const nlattr* attribute, void* attributes) {
  const unsigned type = mnl_attr_get_type(attribute);
  if (type <= RTA_MAX) (*static_cast<Attributes*>(attributes))[type] = attribute;
  return MNL_CB_OK;
}

// Link-local and multicast destinations exist on every interface that is up; they lead nowhere.
bool leadsAway(const rtmsg& route, const nlattr* destination) {
  if (destination == nullptr) return true;
  const std::span bytes = payloadOf(destination);
  const bool isIpv6 = route.rtm_family == AF_INET6;
  if (bytes.size() < (isIpv6 ? 16U : 4U)) return false;
  const auto first = std::to_integer<unsigned>(bytes[0]);
  const auto second = std::to_integer<unsigned>(bytes[1]);
  if (isIpv6) return first != 0xffU && !(first == 0xfeU && (second & 0xc0U) == 0x80U);
  return !(first == 169U && second == 254U) && (first & 0xf0U) != 0xe0U;
}

using OnInterface = std::function<void(unsigned)>;

void forEachHop(std::span<const std::byte> hops, const OnInterface& onInterface) {
  rtnexthop hop{};
  while (hops.size() >= sizeof hop) {
    std::memcpy(&hop, hops.data(), sizeof hop);
    if (hop.rtnh_len < sizeof hop || hop.rtnh_len > hops.size()) return;
    onInterface(static_cast<unsigned>(hop.rtnh_ifindex));
    hops = hops.subspan(std::min<std::size_t>(RTNH_ALIGN(hop.rtnh_len), hops.size()));
  }
}

int considerRoute(const nlmsghdr* message, void* context) {
  constexpr std::size_t headSize = MNL_ALIGN(sizeof(rtmsg));
  const std::size_t size = mnl_nlmsg_get_payload_len(message);
  if (message->nlmsg_type != RTM_NEWROUTE || size < headSize) return MNL_CB_OK;
  const auto& route = *static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
  if (route.rtm_type != RTN_UNICAST || route.rtm_table == RT_TABLE_LOCAL) return MNL_CB_OK;
  Attributes attributes{};
  // Not mnl_attr_parse, which rounds the message's length up.
  mnl_attr_parse_payload(mnl_nlmsg_get_payload_offset(message, headSize), size - headSize,
                         &keepAttribute, &attributes);
  if (!leadsAway(route, attributes[RTA_DST])) return MNL_CB_OK;
  const auto& onInterface = *static_cast<const OnInterface*>(context);
  const nlattr* interface = attributes[RTA_OIF];
  if (interface != nullptr && mnl_attr_validate(interface, MNL_TYPE_U32) == 0) {
    onInterface(mnl_attr_get_u32(interface));
  }
  forEachHop(payloadOf(attributes[RTA_MULTIPATH]), onInterface);
  return MNL_CB_OK;
}

}  // namespace

DumpProgress forEachRouteInterface(std::span<const std::byte> messages, unsigned sequence,
                                   const OnInterface& onInterface) {
  constexpr unsigned anyPort = 0;  // only the kernel answers the request's number
  // The library hands the context on as it is; considerRoute does not change it.
  auto* context = const_cast<OnInterface*>(&onInterface);
  // One message at a time, because the library takes a length beyond INT_MAX for a small one.
  while (!messages.empty()) {
    nlmsghdr header{};
    if (messages.size() < sizeof header) return DumpProgress::failed;
    std::memcpy(&header, messages.data(), sizeof header);
    const std::size_t length = header.nlmsg_len;
    if (length < sizeof header || length > messages.size()) return DumpProgress::failed;
    const int result =
        mnl_cb_run(messages.data(), length, sequence, anyPort, &considerRoute, context);
    if (result == MNL_CB_STOP) return DumpProgress::complete;
    if (result < MNL_CB_STOP) return DumpProgress::failed;
    messages = messages.subspan(std::min<std::size_t>(MNL_ALIGN(length), messages.size()));
  }
  return DumpProgress::more;
}

}  // namespace vantamo::core
