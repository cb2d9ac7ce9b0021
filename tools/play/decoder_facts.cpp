// SPDX-License-Identifier: BSD-2-Clause

#include "tools/play/decoder_facts.h"

#include <opus/opus.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <vector>

namespace aiplc::tools {
namespace {

constexpr int kEnhancingComplexity = 6;  // the lowest that enhances

constexpr int kProbeRate = 16000;
constexpr int kProbeFrame = 320;
constexpr int kProbePackets = 20;     // then one is lost
constexpr int kProbeBitrate = 24000;  // bit/s; the encoder then uses SILK, which is enhanced

using Frame = std::array<opus_int16, kProbeFrame>;

using Packet = std::vector<unsigned char>;

// 20 ms of a voice: 20 harmonics of 120 Hz.
Frame VoiceFrame(int number) {
    Frame frame{};
    for (int i = 0; i < kProbeFrame; ++i) {
        const double seconds = static_cast<double>(number * kProbeFrame + i) / kProbeRate;
        double value = 0.0;
        for (int harmonic = 1; harmonic <= 20; ++harmonic)
            value += std::sin(2.0 * std::numbers::pi * 120.0 * harmonic * seconds) / harmonic;
        frame[static_cast<size_t>(i)] = static_cast<opus_int16>(4000.0 * value);
    }
    return frame;
}

// 400 ms of the voice; nothing when libopus refuses to encode.
std::vector<Packet> EncodeVoice() {
    int error = OPUS_OK;
    const std::unique_ptr<OpusEncoder, void (*)(OpusEncoder *)> encoder(
        opus_encoder_create(kProbeRate, 1, OPUS_APPLICATION_VOIP, &error), opus_encoder_destroy);
    if (!encoder) return {};
    (void)opus_encoder_ctl(encoder.get(), OPUS_SET_BITRATE(kProbeBitrate));
    std::vector<Packet> packets;
    for (int number = 0; number < kProbePackets; ++number) {
        const Frame frame = VoiceFrame(number);
        Packet packet(1500);
        const opus_int32 size = opus_encode(encoder.get(), frame.data(), kProbeFrame, packet.data(),
                                            static_cast<opus_int32>(packet.size()));
        if (size <= 0) return {};
        packet.resize(static_cast<size_t>(size));
        packets.push_back(packet);
    }
    return packets;
}

// packet: null for a lost one.
bool DecodeFrame(OpusDecoder &decoder, const unsigned char *packet, opus_int32 size, Frame &frame) {
    return opus_decode(&decoder, packet, size, frame.data(), kProbeFrame, 0) == kProbeFrame;
}

// The voice as a decoder of one complexity plays it; empty when libopus refuses.
struct DecodedVoice {
    bool hasComplexity = false;
    std::vector<Frame> received;
    Frame concealed{};  // behind it: the packet was lost
};

DecodedVoice Decode(const std::vector<Packet> &packets, int complexity) {
    int error = OPUS_OK;
    const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder *)> decoder(
        opus_decoder_create(kProbeRate, 1, &error), opus_decoder_destroy);
    DecodedVoice voice;
    if (!decoder) return voice;
    voice.hasComplexity =
        opus_decoder_ctl(decoder.get(), OPUS_SET_COMPLEXITY(complexity)) == OPUS_OK;
    for (const Packet &packet : packets) {
        Frame &frame = voice.received.emplace_back();
        const auto size = static_cast<opus_int32>(packet.size());
        if (!DecodeFrame(*decoder, packet.data(), size, frame)) return {};
    }
    return DecodeFrame(*decoder, nullptr, 0, voice.concealed) ? voice : DecodedVoice{};
}

std::array<DecoderFacts, kMaxComplexity + 1> FactsOfAll() {
    std::array<DecoderFacts, kMaxComplexity + 1> facts;
    const std::vector<Packet> packets = EncodeVoice();
    const DecodedVoice classic = Decode(packets, kClassicComplexity);
    if (!classic.hasComplexity) return facts;
    // An enhancer may reach into lost frames, so that concealment is judged without one.
    const bool conceals = Decode(packets, kNeuralComplexity).concealed != classic.concealed;
    for (int complexity = 0; complexity <= kMaxComplexity; ++complexity) {
        facts.at(static_cast<size_t>(complexity)) = {
            .hasComplexity = true,
            .neuralConcealment = conceals && complexity >= kNeuralComplexity,
            .enhancement = complexity >= kEnhancingComplexity &&
                           Decode(packets, complexity).received != classic.received};
    }
    return facts;
}

std::string Complexity(int complexity) {
    return "--decoder-complexity " + std::to_string(complexity);
}

}  // namespace

const DecoderFacts &DecoderFactsAt(int complexity) {
    static const std::array<DecoderFacts, kMaxComplexity + 1> kFacts = FactsOfAll();
    return kFacts.at(static_cast<size_t>(complexity));
}

std::string DecoderLine(int complexity, const DecoderFacts &facts) {
    std::string line = opus_get_version_string();
    if (!facts.hasComplexity) return line + ", which has no decoder complexity";
    line += ", complexity " + std::to_string(complexity) + ": ";
    line += facts.neuralConcealment ? "neural concealment" : "classic concealment";
    return line + (facts.enhancement ? ", speech enhancement" : "");
}

std::string DecoderNote(int complexity, const DecoderFacts &facts) {
    const std::string version = opus_get_version_string();
    if (!facts.hasComplexity) {
        return Complexity(complexity) + " changes nothing: " + version +
               " has no decoder complexity, libopus 1.5 and later have";
    }
    if (complexity >= kNeuralComplexity && !facts.neuralConcealment) {
        return Complexity(complexity) + " does no more than 4: this build of " + version +
               " conceals without a network, one with its networks is needed";
    }
    if (complexity >= kEnhancingComplexity && !facts.enhancement) {
        return Complexity(complexity) + " does no more than 5: this build of " + version +
               " has no speech enhancer, one with its networks is needed";
    }
    return {};
}

}  // namespace aiplc::tools
