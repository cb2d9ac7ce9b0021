// SPDX-License-Identifier: BSD-2-Clause

#include "compare_method.h"

#include <opus/opus.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <stdexcept>

namespace aiplc::tools {
namespace {

// From 5 on the decoders of libopus 1.5 and later conceal with a network, from 6 on they also
// enhance what was received, which would tell the methods apart where nothing was lost.
constexpr int kClassicComplexity = 4;
constexpr int kNeuralComplexity = 5;

constexpr int kProbeRate = 16000;
constexpr int kProbeFrame = 320;
constexpr int kProbePackets = 20;  // then one is lost

using Frame = std::array<opus_int16, kProbeFrame>;

// packet: null for a lost one.
bool Decode(OpusDecoder &decoder, const unsigned char *packet, opus_int32 size, Frame &frame) {
    return opus_decode(&decoder, packet, size, frame.data(), kProbeFrame, 0) == kProbeFrame;
}

// The first 20 ms that the decoder makes up behind 400 ms of a voice; all zero when it does not
// know the setting.
Frame FirstConcealedFrame(int complexity) {
    int error = OPUS_OK;
    const std::unique_ptr<OpusEncoder, void (*)(OpusEncoder *)> encoder(
        opus_encoder_create(kProbeRate, 1, OPUS_APPLICATION_VOIP, &error), opus_encoder_destroy);
    const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder *)> decoder(
        opus_decoder_create(kProbeRate, 1, &error), opus_decoder_destroy);
    Frame frame{};
    if (!encoder || !decoder ||
        opus_decoder_ctl(decoder.get(), OPUS_SET_COMPLEXITY(complexity)) != OPUS_OK) {
        return frame;
    }
    for (int packet = 0; packet < kProbePackets; ++packet) {
        for (int i = 0; i < kProbeFrame; ++i) {
            const double seconds = static_cast<double>(packet * kProbeFrame + i) / kProbeRate;
            double value = 0.0;
            for (int overtone = 1; overtone <= 20; ++overtone)
                value += std::sin(2.0 * std::numbers::pi * 120.0 * overtone * seconds) / overtone;
            frame[static_cast<size_t>(i)] = static_cast<opus_int16>(4000.0 * value);
        }
        std::array<unsigned char, 1500> bytes{};
        const opus_int32 size = opus_encode(encoder.get(), frame.data(), kProbeFrame, bytes.data(),
                                            static_cast<opus_int32>(bytes.size()));
        if (size <= 0 || !Decode(*decoder, bytes.data(), size, frame)) return {};
    }
    return Decode(*decoder, nullptr, 0, frame) ? frame : Frame{};
}

std::vector<CompareMethod> MakeMethods() {
    using Id = CompareMethod::Id;
    const host::ReceiverOptions classic{.useWorker = false,
                                        .decoderComplexity = kClassicComplexity};
    host::ReceiverOptions silent = classic;
    silent.codecConceals = false;
    host::ReceiverOptions neural = classic;
    neural.decoderComplexity = kNeuralComplexity;
    const bool hasNeural = HasNeuralConcealment();
    host::ReceiverOptions withWorker = hasNeural ? neural : classic;  // as a host would have it
    withWorker.useWorker = true;

    std::vector<CompareMethod> methods;
    methods.reserve(5);
    methods.push_back(
        {Id::silence, "silence", "Silence", "Nothing is played in place of a lost frame.", silent});
    methods.push_back(
        {Id::codec, "codec", "Codec", "The concealment of the Opus decoder.", classic});
    if (hasNeural) {
        methods.push_back({Id::neural, "neural", "Neural codec",
                           "The neural concealment of the Opus decoder.", neural});
    }
    methods.push_back({Id::aiplc, "aiplc", "aiplc",
                       hasNeural ? "This library with its worker; what that leaves is concealed by "
                                   "the decoder's network."
                                 : "This library with its worker.",
                       withWorker});
    methods.push_back({Id::ideal, "ideal", "No loss",
                       "The call as it sounds when every packet arrives in time.", classic});
    return methods;
}

}  // namespace

bool HasNeuralConcealment() {
    return FirstConcealedFrame(kClassicComplexity) != FirstConcealedFrame(kNeuralComplexity);
}

const std::vector<CompareMethod> &CompareMethods() {
    static const std::vector<CompareMethod> kMethods = MakeMethods();
    return kMethods;
}

size_t MethodIndex(CompareMethod::Id id) {
    const std::vector<CompareMethod> &methods = CompareMethods();
    for (size_t i = 0; i < methods.size(); ++i) {
        if (methods[i].id == id) return i;
    }
    throw std::logic_error("no such method");
}

}  // namespace aiplc::tools
