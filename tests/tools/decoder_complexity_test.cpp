// SPDX-License-Identifier: BSD-2-Clause
//
// The abilities of the libopus at hand at each complexity of its decoder.

#include "tools/play/decoder_facts.h"

#include "tests/host/call.h"

namespace aiplc::tools {
namespace {

host::Pcm WithoutLostFrame(host::Pcm played) {
    played.resize(played.size() - 320);
    return played;
}

TEST(DecoderFactsTest, FactsAreWhatTheDecoderDoesToAnotherVoice) {
    host::Packets packets = host::Speech({.sampleRate = 16000, .bitrate = 24000}, 1.0);
    packets.push_back({});  // a lost frame
    const host::Pcm classic = host::DecodeAll(packets, 16000, kClassicComplexity);
    for (int complexity = 0; complexity <= kMaxComplexity; ++complexity) {
        const DecoderFacts &facts = DecoderFactsAt(complexity);
        const host::Pcm played = host::DecodeAll(packets, 16000, complexity);
        EXPECT_EQ(facts.enhancement, WithoutLostFrame(played) != WithoutLostFrame(classic))
            << complexity;
        EXPECT_EQ(facts.neuralConcealment || facts.enhancement, played != classic) << complexity;
        EXPECT_TRUE(facts.hasComplexity || played == classic) << complexity;
    }
}

}  // namespace
}  // namespace aiplc::tools
