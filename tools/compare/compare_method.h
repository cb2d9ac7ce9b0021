// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_METHOD_H
#define AIPLC_TOOLS_COMPARE_METHOD_H

#include <aiplc/receiver.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tools/play/decoder_facts.h"
#include "tools/play/receiving_options.h"

namespace aiplc::tools {

// A way to play a call with losses.
struct CompareMethod {
    enum class Id { silence, codec, neural, enhanced, aiplc, ideal };

    Id id = Id::ideal;
    const char *name = "";   // in reports and gates
    const char *title = "";  // for people
};

// The methods that are compared, in the order of reports: silence, codec, neural and enhanced where
// the libopus at hand has them, aiplc, ideal.
const std::vector<CompareMethod> &CompareMethods();

// Where a method of CompareMethods lies; the id must be there.
size_t MethodIndex(CompareMethod::Id id);

// How one method plays.
struct MethodSetup {
    AiPlcReceiverOptions receiver{};  // all but the rate
    // The abilities of the decoder. One that enhances changes what was received, so that the call
    // without losses that the method is measured against is played by the same decoder.
    DecoderFacts decoder;
    std::string about;  // for people
};

// The setups of CompareMethods, in the same order. options: the receiver of aiplc; enhanced takes
// its decoder complexity where that enhances.
std::vector<MethodSetup> MethodSetups(const ReceivingOptions &options);

}  // namespace aiplc::tools

#endif
