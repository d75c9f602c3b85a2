#include "VarkPlatform/Linux/Network/NetlinkRoutes.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <span>

namespace vark {
namespace {

/// A name server of the root in each world. Any global address would do: only the table of routes is asked.
constexpr std::array globalAddresses{"198.41.0.4", "2001:503:ba3e::2:30"};

Descriptor openNetlink(unsigned groups) {
    Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return {};
    return socket;
}

struct RouteQuestion {
    nlmsghdr head;
    rtmsg route;
    rtattr destinationHead;
    in6_addr destination;
};

RouteQuestion questionAbout(const NetworkAddress& to) {
    const std::size_t length = to.family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
    RouteQuestion question{};
    question.head.nlmsg_type = RTM_GETROUTE;
    question.head.nlmsg_flags = NLM_F_REQUEST;
    question.route.rtm_family = static_cast<unsigned char>(to.family);
    question.route.rtm_dst_len = static_cast<unsigned char>(length * 8);
    // The route itself and not what was made of it: only that tells of a link that is down.
    question.route.rtm_flags = RTM_F_FIB_MATCH;
    question.destinationHead.rta_type = RTA_DST;
    question.destinationHead.rta_len = static_cast<unsigned short>(RTA_LENGTH(length));
    question.destination = to.bytes;
    question.head.nlmsg_len =
        static_cast<unsigned>(NLMSG_LENGTH(sizeof(rtmsg)) + question.destinationHead.rta_len);
    return question;
}

template <class T>
std::optional<T> take(std::span<const char> bytes) {
    if (bytes.size() < sizeof(T)) return std::nullopt;
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

std::span<const char> behind(std::span<const char> bytes, std::size_t length) {
    return bytes.subspan(std::min<std::size_t>(NLMSG_ALIGN(length), bytes.size()));
}

bool isDown(unsigned flags) {
    return (flags & (RTNH_F_LINKDOWN | RTNH_F_DEAD)) != 0;
}

/// Of several ways it takes one that is up.
bool hasWayThatIsUp(std::span<const char> ways) {
    while (const std::optional<rtnexthop> way = take<rtnexthop>(ways)) {
        if (!isDown(way->rtnh_flags)) return true;
        if (way->rtnh_len < sizeof(rtnexthop)) return false;
        ways = behind(ways, way->rtnh_len);
    }
    return false;
}

bool isUsable(std::span<const char> answer) {
    const std::optional<nlmsghdr> head = take<nlmsghdr>(answer);
    if (!head || head->nlmsg_type != RTM_NEWROUTE) return false;
    answer = behind(answer, sizeof(nlmsghdr));
    const std::optional<rtmsg> route = take<rtmsg>(answer);
    if (!route || (route->rtm_type != RTN_UNICAST && route->rtm_type != RTN_LOCAL)) return false;
    answer = behind(answer, sizeof(rtmsg));
    while (const std::optional<rtattr> attribute = take<rtattr>(answer)) {
        if (attribute->rta_len < sizeof(rtattr)) break;
        if (attribute->rta_type == RTA_MULTIPATH)
            return hasWayThatIsUp(answer.first(std::min<std::size_t>(attribute->rta_len, answer.size()))
                                      .subspan(sizeof(rtattr)));
        answer = behind(answer, attribute->rta_len);
    }
    return !isDown(route->rtm_flags);
}

}  // namespace

std::optional<NetworkAddress> NetworkAddress::parse(const std::string& text) {
    NetworkAddress address;
    for (const sa_family_t family : {sa_family_t{AF_INET}, sa_family_t{AF_INET6}}) {
        address.family = family;
        if (inet_pton(family, text.c_str(), &address.bytes) == 1) return address;
    }
    return std::nullopt;
}

std::vector<NetworkAddress> NetworkAddress::resolve(const std::string& host) {
    if (const std::optional<NetworkAddress> numeric = parse(host)) return {*numeric};
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return {};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, &freeaddrinfo);
    std::vector<NetworkAddress> addresses;
    for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
        NetworkAddress address{static_cast<sa_family_t>(one->ai_family), {}};
        if (one->ai_family == AF_INET) {
            std::memcpy(&address.bytes, &reinterpret_cast<const sockaddr_in*>(one->ai_addr)->sin_addr,
                        sizeof(in_addr));
        } else if (one->ai_family == AF_INET6) {
            address.bytes = reinterpret_cast<const sockaddr_in6*>(one->ai_addr)->sin6_addr;
        } else {
            continue;
        }
        addresses.push_back(address);
    }
    return addresses;
}

bool NetworkAddress::isLoopback() const {
    constexpr std::uint8_t loopbackNet = 127;
    if (family == AF_INET) return bytes.s6_addr[0] == loopbackNet;
    return IN6_IS_ADDR_LOOPBACK(&bytes);
}

Descriptor openRouteChanges() {
    return openNetlink(RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_ROUTE |
                       RTMGRP_IPV6_IFADDR);
}

bool hasRoute(const NetworkAddress& to) {
    const Descriptor socket = openNetlink(0);
    if (!socket) return true;
    const RouteQuestion question = questionAbout(to);
    if (send(socket.get(), &question, question.head.nlmsg_len, 0) < 0) return true;
    std::array<char, 16'384> answer{};
    const ssize_t count = recv(socket.get(), answer.data(), answer.size(), 0);
    if (count < 0) return true;
    return isUsable(std::span(answer).first(static_cast<std::size_t>(count)));
}

bool leadsOut() {
    return std::ranges::any_of(globalAddresses, [](const char* text) {
        const std::optional<NetworkAddress> address = NetworkAddress::parse(text);
        return address && hasRoute(*address);
    });
}

}  // namespace vark
