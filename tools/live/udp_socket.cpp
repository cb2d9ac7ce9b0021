// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/udp_socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr int kReceiveBuffer = 1 << 20;
constexpr int kPairAttempts = 100;

int64_t ClockUs(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

sockaddr *Generic(Address &address) {
    return reinterpret_cast<sockaddr *>(&address.storage);
}
const sockaddr *Generic(const Address &address) {
    return reinterpret_cast<const sockaddr *>(&address.storage);
}

bool Set(int descriptor, int level, int option, int value) {
    return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

// The system's stamp is of the wall clock; the time that has passed since is the same on both.
int64_t ArrivalUs(msghdr &message) {
    const int64_t now = SteadyUs();
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_TIMESTAMPNS) continue;
        timespec stamp{};
        std::memcpy(&stamp, CMSG_DATA(part), sizeof stamp);
        const int64_t ago =
            ClockUs(CLOCK_REALTIME) - int64_t{stamp.tv_sec} * 1'000'000 - stamp.tv_nsec / 1000;
        // Unless the wall clock was set meanwhile.
        if (ago >= 0 && ago < 1'000'000) return now - ago;
    }
    return now;
}

}  // namespace

int64_t SteadyUs() {
    return ClockUs(CLOCK_MONOTONIC);
}

uint16_t Address::Port() const {
    // Both versions have the port in the same place.
    return ntohs(reinterpret_cast<const sockaddr_in *>(&storage)->sin_port);
}

Address Address::WithPort(uint16_t port) const {
    Address other = *this;
    reinterpret_cast<sockaddr_in *>(&other.storage)->sin_port = htons(port);
    return other;
}

bool Address::IsMulticast() const {
    if (IsVersion6())
        return IN6_IS_ADDR_MULTICAST(&reinterpret_cast<const sockaddr_in6 *>(&storage)->sin6_addr);
    return IN_MULTICAST(ntohl(reinterpret_cast<const sockaddr_in *>(&storage)->sin_addr.s_addr));
}

std::string Address::Text() const {
    std::array<char, NI_MAXHOST> host{};
    if (getnameinfo(Generic(*this), length, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST) !=
        0)
        return "an unknown address";
    std::string text = host.data();
    static constexpr const char *kMapped = "::ffff:";  // IPv4 on a socket of both versions
    if (text.starts_with(kMapped) && text.find('.') != std::string::npos) {
        text.erase(0, std::strlen(kMapped));
    } else if (IsVersion6()) {
        text.insert(0, 1, '[').push_back(']');
    }
    return Port() == 0 ? text : text + ":" + std::to_string(Port());
}

std::optional<std::pair<std::string, uint16_t>> ParseHostPort(const std::string &text) {
    const size_t colon = text.rfind(':');
    std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
    const std::string number = colon == std::string::npos ? text : text.substr(colon + 1);
    uint16_t port = 0;
    const char *end = number.data() + number.size();
    const auto [rest, error] = std::from_chars(number.data(), end, port);
    if (error != std::errc{} || rest != end) return std::nullopt;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find_first_of(":/[]") != std::string::npos) {
        return std::nullopt;
    }
    if (colon == 0) return std::nullopt;
    return std::pair{host, port};
}

Address Resolve(const std::string &host, uint16_t port) {
    Address address;
    if (host.empty()) {
        sockaddr_in6 any{};
        any.sin6_family = AF_INET6;
        any.sin6_port = htons(port);
        std::memcpy(&address.storage, &any, sizeof any);
        address.length = sizeof any;
        return address;
    }
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (result != 0 || found == nullptr)
        throw Failure(host, std::string("is no host: ") + gai_strerror(result) +
                                "; give a name or an address");
    std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
    address.length = found->ai_addrlen;
    freeaddrinfo(found);
    return address.WithPort(port);
}

UdpSocket::UdpSocket(const Address &address) {
    Address bound = address;
    m_descriptor = socket(bound.storage.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_descriptor < 0 && bound.IsVersion6() && errno == EAFNOSUPPORT) {
        // A machine without IPv6: any address of IPv4.
        bound = Resolve("0.0.0.0", address.Port());
        m_descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    }
    if (bound.IsVersion6()) (void)Set(m_descriptor, IPPROTO_IPV6, IPV6_V6ONLY, 0);
    (void)Set(m_descriptor, SOL_SOCKET, SO_TIMESTAMPNS, 1);
    (void)Set(m_descriptor, SOL_SOCKET, SO_RCVBUF, kReceiveBuffer);
    if (m_descriptor < 0 || bind(m_descriptor, Generic(bound), bound.length) != 0) {
        const std::string why = strerror(errno);
        if (m_descriptor >= 0) close(m_descriptor);
        throw Failure("UDP port " + std::to_string(address.Port()),
                      "cannot be opened: " + why + "; give another port, or 0 for any free one");
    }
    bound.length = sizeof bound.storage;
    getsockname(m_descriptor, Generic(bound), &bound.length);
    m_port = bound.Port();
}

UdpSocket::~UdpSocket() {
    if (m_descriptor >= 0) close(m_descriptor);
}

void UdpSocket::Join(const Address &group) {
    int result = -1;
    if (group.IsVersion6()) {
        ipv6_mreq request{};
        request.ipv6mr_multiaddr =
            reinterpret_cast<const sockaddr_in6 *>(&group.storage)->sin6_addr;
        result = setsockopt(m_descriptor, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request);
    } else {
        ip_mreq request{};
        request.imr_multiaddr = reinterpret_cast<const sockaddr_in *>(&group.storage)->sin_addr;
        result = setsockopt(m_descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request);
    }
    if (result != 0)
        throw Failure(group.WithPort(0).Text(),
                      std::string("the multicast group cannot be joined: ") + strerror(errno));
}

std::optional<UdpSocket::Datagram> UdpSocket::Receive(std::span<uint8_t> room) {
    Datagram datagram;
    iovec part{room.data(), room.size()};
    std::array<char, 128> control{};
    msghdr message{};
    message.msg_name = &datagram.from.storage;
    message.msg_namelen = sizeof datagram.from.storage;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t bytes = recvmsg(m_descriptor, &message, 0);
    if (bytes < 0) return std::nullopt;
    datagram.from.length = message.msg_namelen;
    datagram.bytes = room.first(static_cast<size_t>(bytes));
    datagram.arrivalUs = ArrivalUs(message);
    return datagram;
}

bool UdpSocket::Send(std::span<const uint8_t> bytes, const Address &to) {
    return sendto(m_descriptor, bytes.data(), bytes.size(), 0, Generic(to), to.length) ==
           static_cast<ssize_t>(bytes.size());
}

SocketPair OpenPair(const Address &address) {
    for (int attempt = 0;; ++attempt) {
        UdpSocket rtp(address);
        const uint16_t port = rtp.Port();
        try {
            if (port < 65535) {
                UdpSocket rtcp(address.WithPort(static_cast<uint16_t>(port + 1)));
                return {std::move(rtp), std::move(rtcp)};
            }
        } catch (const Failure &) {
        }
        if (address.Port() != 0 || attempt >= kPairAttempts) return {std::move(rtp), std::nullopt};
    }
}

}  // namespace aiplc::tools
