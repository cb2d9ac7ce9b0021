// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_UDP_SOCKET_H
#define AIPLC_TOOLS_UDP_SOCKET_H

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace aiplc::tools {

// An Internet address of either version with a port.
struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;

    [[nodiscard]] uint16_t Port() const;
    [[nodiscard]] Address WithPort(uint16_t port) const;
    [[nodiscard]] bool IsVersion6() const { return storage.ss_family == AF_INET6; }
    [[nodiscard]] bool IsMulticast() const;
    // "192.0.2.1:5004", "[2001:db8::1]:5004", without the port where it is 0.
    [[nodiscard]] std::string Text() const;
};

// "5004", "HOST:5004" or "[2001:db8::1]:5004" taken apart; nothing for anything else. The host is
// empty in the first.
std::optional<std::pair<std::string, uint16_t>> ParseHostPort(const std::string &text);

// Throws Failure when the host is not known. An empty host: any address of this machine.
Address Resolve(const std::string &host, uint16_t port);

// Microseconds of the steady clock that datagrams are stamped with.
int64_t SteadyUs();

// A UDP socket that never blocks.
class UdpSocket {
  public:
    // A socket at this address; port 0: any free one. Any address of IPv6 takes IPv4 too. Throws
    // Failure.
    explicit UdpSocket(const Address &address);
    ~UdpSocket();
    UdpSocket(UdpSocket &&other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)), m_port(other.m_port) {}
    UdpSocket(const UdpSocket &) = delete;
    UdpSocket &operator=(const UdpSocket &) = delete;

    [[nodiscard]] int Descriptor() const { return m_descriptor; }
    [[nodiscard]] uint16_t Port() const { return m_port; }

    // Takes part in a multicast group. Throws Failure.
    void Join(const Address &group);

    struct Datagram {
        std::span<const uint8_t> bytes;  // in the caller's room; cut off where that is too small
        Address from;
        int64_t arrivalUs = 0;  // SteadyUs when the system took it in
    };
    // Nothing when there is none.
    std::optional<Datagram> Receive(std::span<uint8_t> room);
    // A datagram that cannot be sent is lost, as on the network; the result is false then.
    bool Send(std::span<const uint8_t> bytes, const Address &to);

  private:
    int m_descriptor = -1;
    uint16_t m_port = 0;
};

// The sockets of a stream.
struct SocketPair {
    UdpSocket rtp;
    std::optional<UdpSocket> rtcp;  // on the next port; none where that port is taken
};

// Port 0: any free port with a free one behind it. Throws Failure when the RTP port cannot be had.
SocketPair OpenPair(const Address &address);

}  // namespace aiplc::tools

#endif
