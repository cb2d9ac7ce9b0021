// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_DECODER_FACTS_H
#define AIPLC_TOOLS_DECODER_FACTS_H

#include <string>

namespace aiplc::tools {

// Decoder complexities of libopus 1.5 and later, 0 to 10.
inline constexpr int kClassicComplexity = 4;  // the highest without a network
inline constexpr int kNeuralComplexity = 5;   // the lowest that conceals with a network
inline constexpr int kMaxComplexity = 10;     // the strongest enhancer of received speech

// Abilities of the Opus decoder of the libopus at hand at one complexity.
struct DecoderFacts {
    bool hasComplexity = false;      // knows the setting; libopus before 1.5 does not
    bool neuralConcealment = false;  // makes up lost audio with a network
    bool enhancement = false;        // changes received wideband speech with a network
};

// Found by decoding a voice: the version of libopus does not tell whether it was built with its
// networks. complexity: 0 to 10.
const DecoderFacts &DecoderFactsAt(int complexity);

// The facts in one line: "libopus 1.5.2, complexity 10: neural concealment, speech enhancement".
std::string DecoderLine(int complexity, const DecoderFacts &facts);

// Says that --decoder-complexity asks for more than the decoder at hand does, and what would be
// needed; empty when it does all that it is asked for.
std::string DecoderNote(int complexity, const DecoderFacts &facts);

}  // namespace aiplc::tools

#endif
