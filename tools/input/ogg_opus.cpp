// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/ogg_opus.h"

#include <ogg/ogg.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr long kBlockBytes = 65536;
constexpr uint32_t kFrame20Ms = 960;
constexpr long kMaxHeaderBytes = 125829120;  // comments with pictures (RFC 7845, section 5.2)

// Pages of an Ogg file. Keeps the byte offset of the first invalid page, for error messages.
class PageReader {
  public:
    explicit PageReader(InputFile &input) : m_input(input) {
        ogg_sync_init(&m_sync);
        m_input.Rewind();
    }
    ~PageReader() { ogg_sync_clear(&m_sync); }
    PageReader(const PageReader &) = delete;
    PageReader &operator=(const PageReader &) = delete;

    // False at the end of the file. Throws Failure on bytes that are no page.
    bool Next(ogg_page *page) {
        for (;;) {
            const long size = ogg_sync_pageseek(&m_sync, page);
            if (size > 0) {
                m_offset += static_cast<uint64_t>(size);
                return true;
            }
            if (size < 0) {
                throw Failure(m_input.Name(), "damaged at byte " + std::to_string(m_offset) +
                                                  ": no Ogg page with a right checksum there; "
                                                  "give an intact Ogg Opus file");
            }
            if (!Fill()) return false;
        }
    }

  private:
    bool Fill() {
        char *buffer = ogg_sync_buffer(&m_sync, kBlockBytes);
        if (buffer == nullptr) throw Failure(m_input.Name(), "not enough memory");
        // libogg's buffer is char, bytes are what it holds.
        auto *bytes = reinterpret_cast<uint8_t *>(buffer);
        const size_t got = m_input.Read({bytes, static_cast<size_t>(kBlockBytes)});
        ogg_sync_wrote(&m_sync, static_cast<long>(got));
        m_read += got;
        if (got == 0 && m_read > m_offset) {
            throw Failure(m_input.Name(), "truncated in the Ogg page at byte " +
                                              std::to_string(m_offset) + "; give the whole file");
        }
        return got > 0;
    }

    InputFile &m_input;
    ogg_sync_state m_sync{};
    uint64_t m_read = 0;
    uint64_t m_offset = 0;
};

// The first logical stream of the file that is Opus.
//
// State: needHead -> needTags -> audio; packets of each kind are taken in that order.
class OpusStream {
  public:
    explicit OpusStream(const InputFile &input) : m_file(input.Name()) {}
    ~OpusStream() {
        if (m_open) ogg_stream_clear(&m_stream);
    }
    OpusStream(const OpusStream &) = delete;
    OpusStream &operator=(const OpusStream &) = delete;

    void Take(ogg_page *page) {
        if (!m_open) {
            if (ogg_page_bos(page) == 0) return;
            ogg_stream_init(&m_stream, ogg_page_serialno(page));
            m_open = true;
        }
        if (m_ended || ogg_page_serialno(page) != m_stream.serialno) return;
        if (ogg_stream_pagein(&m_stream, page) != 0) return;
        if (m_stream.body_fill > kMaxHeaderBytes) {
            throw Failure(m_file, "a packet of more than 120 MiB; give an Ogg Opus file");
        }
        const bool firstAudioPage = m_state == State::audio && m_call.packets.empty();
        ogg_packet packet;
        int result = 0;
        while ((result = ogg_stream_packetout(&m_stream, &packet)) != 0) {
            if (result < 0)
                throw Failure(m_file, "a page is missing; give an intact Ogg Opus file");
            TakePacket(packet);
        }
        if (ogg_page_granulepos(page) >= 0 && !m_call.packets.empty()) {
            m_lastGranule = ogg_page_granulepos(page);
            if (firstAudioPage) m_firstGranule = m_lastGranule - m_call.span;
        }
        if (ogg_page_eos(page) != 0) m_ended = true;
    }

    OpusCall Finish() {
        if (m_state != State::audio || !m_anySound) {
            throw Failure(m_file, "holds no Opus audio; give a file with at least one packet");
        }
        int64_t samples = m_call.span;
        // Only the last page of a finished stream may end before its packets do (RFC 7845, 4.4).
        if (m_ended && m_lastGranule >= 0) {
            samples = std::min(samples, m_lastGranule - std::max<int64_t>(m_firstGranule, 0));
        }
        m_call.samples = samples - m_call.delaySamples;
        if (m_call.samples <= 0) {
            throw Failure(m_file, "holds no audio behind its pre-skip of " +
                                      std::to_string(m_call.delaySamples) + " samples");
        }
        return std::move(m_call);
    }

  private:
    enum class State { needHead, needTags, audio };

    void TakePacket(const ogg_packet &packet) {
        const std::span<const uint8_t> bytes(packet.packet, static_cast<size_t>(packet.bytes));
        switch (m_state) {
            case State::needHead:
                TakeHead(bytes);
                m_state = State::needTags;
                break;
            case State::needTags:
                if (bytes.size() < 8 || std::memcmp(bytes.data(), "OpusTags", 8) != 0) {
                    throw Failure(m_file, "the second packet is no OpusTags header");
                }
                m_state = State::audio;
                break;
            case State::audio:
                TakeAudio(bytes);
                break;
        }
    }

    // RFC 7845, section 5.1.
    void TakeHead(std::span<const uint8_t> head) {
        if (head.size() < 19 || std::memcmp(head.data(), "OpusHead", 8) != 0) {
            throw Failure(m_file, "the first packet is no OpusHead header of 19 bytes or more");
        }
        if ((head[8] & 0xF0) != 0) {
            throw Failure(m_file, "OpusHead version " + std::to_string(head[8]) +
                                      " is not known; versions 0 to 15 are");
        }
        if (head[9] < 1 || head[9] > 2 || head[18] > 1) {
            throw Failure(m_file, "has " + std::to_string(head[9]) +
                                      " channels in mapping family " + std::to_string(head[18]) +
                                      "; a call is one Opus stream, mono or stereo");
        }
        m_call.delaySamples = head[10] | (head[11] << 8);
        m_call.outputGainQ8 =
            static_cast<int16_t>(static_cast<uint16_t>(head[16] | (head[17] << 8)));
    }

    void TakeAudio(std::span<const uint8_t> payload) {
        if (!payload.empty()) {
            m_packetSamples = OpusPacketSamples(payload);
            if (m_packetSamples == 0) {
                throw Failure(m_file, "packet " + std::to_string(m_call.packets.size() + 1) +
                                          " is no Opus packet; give an intact Ogg Opus file");
            }
            m_anySound = true;
        }
        AppendPacket(m_call, payload, m_packetSamples, m_file);
    }

    std::string m_file;
    ogg_stream_state m_stream{};
    bool m_open = false;
    bool m_ended = false;
    State m_state = State::needHead;
    OpusCall m_call;
    uint32_t m_packetSamples = kFrame20Ms;
    bool m_anySound = false;
    int64_t m_firstGranule = 0;
    int64_t m_lastGranule = -1;
};

}  // namespace

OpusCall ReadOggOpus(InputFile &input) {
    PageReader pages(input);
    OpusStream stream(input);
    ogg_page page;
    while (pages.Next(&page))
        stream.Take(&page);
    return stream.Finish();
}

}  // namespace aiplc::tools
