// SPDX-License-Identifier: BSD-2-Clause
//
// A file that claims to be a recorded call or a loss trace: it is read, or refused with the file's
// name and a reason.

#include <ogg/ogg.h>

#include <array>
#include <vector>

#include "fuzz/memory_file.h"
#include "tools/input/bit_stream.h"
#include "tools/input/ogg_opus.h"
#include "tools/input/rtp_capture.h"
#include "tools/loss/loss_model.h"
#include "tools/shell/failure.h"

namespace {

using aiplc::fuzz::Require;
using namespace aiplc::tools;

constexpr size_t kPageHeader = 27;

// Only pages with a right checksum lead any further.
void SignPages(std::vector<uint8_t> &file) {
    for (size_t at = 0; at + kPageHeader <= file.size();) {
        const size_t header = kPageHeader + file[at + kPageHeader - 1];
        if (at + header > file.size()) return;
        size_t body = 0;
        for (size_t i = kPageHeader; i < header; ++i)
            body += file[at + i];
        if (at + header + body > file.size()) return;
        ogg_page page{&file[at], static_cast<long>(header), file.data() + at + header,
                      static_cast<long>(body)};
        ogg_page_checksum_set(&page);
        at += header + body;
    }
}

void Check(const OpusCall &call) {
    Require(!call.packets.empty() && call.samples > 0 && call.samples <= call.span);
    Require(call.delaySamples >= 0 && call.span <= kMaxCallSeconds * kOpusClock);
    int64_t arrivalUs = 0;
    for (const CallPacket &packet : call.packets) {
        Require(packet.arrivalUs >= arrivalUs);
        arrivalUs = packet.arrivalUs;
    }
    Require(WidestBandwidth(call) != 0);
}

void ReadAsItLooks(const std::string &path) {
    InputFile input = InputFile::Open(path);
    std::array<uint8_t, 1024> block{};
    const std::span<const uint8_t> head = input.Head(block);
    switch (head.front()) {
        case 'O':
            return Check(ReadOggOpus(input));
        case '#':
        case 0x0A:
        case 0x4D:
        case 0xA1:
        case 0xD4:
            return Check(ReadCapture(input, {}).call);
        case '0':
        case '1':
        case ' ':
            (void)LossTrace::Load(path).NextLost();
            return;
        default:
            if (LooksLikeBitStream(head, input.Size())) Check(ReadBitStream(input));
            return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    std::vector<uint8_t> content(bytes, bytes + size);
    if (!content.empty() && content[0] == 'O') SignPages(content);
    const aiplc::fuzz::MemoryFile file(content);
    try {
        ReadAsItLooks(file.Path());
    } catch (const Failure &failure) {
        Require(std::string(failure.what()).starts_with(file.Path() + ": "));
    }
    return 0;
}
