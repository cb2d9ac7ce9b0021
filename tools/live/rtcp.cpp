// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/rtcp.h"

#include <ctime>

namespace aiplc::tools {
namespace {

constexpr uint8_t kSenderReport = 200;
constexpr uint8_t kReceiverReport = 201;
constexpr uint8_t kSourceDescription = 202;
constexpr uint8_t kBye = 203;
constexpr size_t kBlockBytes = 24;
constexpr uint64_t kNtpEpoch = 2'208'988'800;  // seconds from 1900 to 1970

void Put(std::vector<uint8_t> &bytes, uint64_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
}

uint32_t Take(std::span<const uint8_t> bytes, size_t at, int count = 4) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[at + static_cast<size_t>(i)];
    return value;
}

// Writes a part of a compound packet; body is a multiple of four bytes.
void PutPart(std::vector<uint8_t> &bytes, uint8_t type, size_t count,
             const std::vector<uint8_t> &body) {
    bytes.push_back(static_cast<uint8_t>(0x80 | count));
    bytes.push_back(type);
    Put(bytes, body.size() / 4, 2);
    bytes.insert(bytes.end(), body.begin(), body.end());
}

void PutBlock(std::vector<uint8_t> &bytes, const ReceptionReport &block) {
    Put(bytes, block.ssrc, 4);
    Put(bytes, block.fractionLost, 1);
    Put(bytes, static_cast<uint32_t>(block.lost) & 0xFFFFFF, 3);
    Put(bytes, block.highestSequence, 4);
    Put(bytes, block.jitter, 4);
    Put(bytes, block.lastSenderReport, 4);
    Put(bytes, block.sinceSenderReport, 4);
}

ReceptionReport TakeBlock(std::span<const uint8_t> bytes) {
    ReceptionReport block;
    block.ssrc = Take(bytes, 0);
    block.fractionLost = bytes[4];
    block.lost = static_cast<int32_t>(Take(bytes, 5, 3) << 8) >> 8;  // 24 bits with a sign
    block.highestSequence = Take(bytes, 8);
    block.jitter = Take(bytes, 12);
    block.lastSenderReport = Take(bytes, 16);
    block.sinceSenderReport = Take(bytes, 20);
    return block;
}

// body: of a sender or receiver report.
void TakeReport(std::span<const uint8_t> body, bool isSender, size_t count, RtcpReport &report) {
    size_t at = isSender ? 24 : 4;
    if (body.size() < at) return;
    report.ssrc = Take(body, 0);
    if (isSender) {
        report.sender = SenderInformation{uint64_t{Take(body, 4)} << 32 | Take(body, 8),
                                          Take(body, 12), Take(body, 16), Take(body, 20)};
    }
    for (; count > 0 && at + kBlockBytes <= body.size(); --count, at += kBlockBytes)
        report.blocks.push_back(TakeBlock(body.subspan(at)));
}

}  // namespace

std::vector<uint8_t> RtcpBytes(const RtcpReport &report, const std::string &name) {
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> body;
    Put(body, report.ssrc, 4);
    if (report.sender) {
        Put(body, report.sender->ntp, 8);
        Put(body, report.sender->timestamp, 4);
        Put(body, report.sender->packets, 4);
        Put(body, report.sender->bytes, 4);
    }
    for (const ReceptionReport &block : report.blocks)
        PutBlock(body, block);
    PutPart(bytes, report.sender ? kSenderReport : kReceiverReport, report.blocks.size(), body);

    body.clear();
    Put(body, report.ssrc, 4);
    body.push_back(1);  // CNAME
    body.push_back(static_cast<uint8_t>(name.size()));
    body.insert(body.end(), name.begin(), name.end());
    do {
        body.push_back(0);
    } while (body.size() % 4 != 0);
    PutPart(bytes, kSourceDescription, 1, body);

    if (report.bye) {
        body.clear();
        Put(body, report.ssrc, 4);
        PutPart(bytes, kBye, 1, body);
    }
    return bytes;
}

bool IsRtcp(std::span<const uint8_t> datagram) {
    return datagram.size() >= 4 && datagram[0] >> 6 == 2 && datagram[1] >= 192 &&
           datagram[1] <= 223;
}

std::optional<RtcpReport> ParseRtcp(std::span<const uint8_t> datagram) {
    if (!IsRtcp(datagram)) return std::nullopt;
    RtcpReport report;
    while (IsRtcp(datagram)) {
        const size_t length = 4 + size_t{4} * Take(datagram, 2, 2);
        if (length > datagram.size()) break;
        const std::span<const uint8_t> body = datagram.first(length).subspan(4);
        const uint8_t type = datagram[1];
        const size_t count = datagram[0] & 0x1F;
        if (type == kSenderReport || type == kReceiverReport)
            TakeReport(body, type == kSenderReport, count, report);
        if (type == kBye) report.bye = true;
        datagram = datagram.subspan(length);
    }
    return report;
}

uint64_t NtpNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto fraction = (static_cast<uint64_t>(now.tv_nsec) << 32) / 1'000'000'000;
    return (static_cast<uint64_t>(now.tv_sec) + kNtpEpoch) << 32 | fraction;
}

}  // namespace aiplc::tools
