// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_METHOD_H
#define AIPLC_TOOLS_COMPARE_METHOD_H

#include <cstddef>
#include <vector>

#include "host/receiver.h"

namespace aiplc::tools {

// A way to play a call with losses.
struct CompareMethod {
    enum class Id { silence, codec, neural, aiplc, ideal };

    Id id = Id::ideal;
    const char *name = "";   // in reports and gates
    const char *title = "";  // for people
    const char *about = "";
    host::ReceiverOptions receiver;  // all but the rate
};

// The methods that are compared, in the order of reports: silence, codec, neural where the libopus
// at hand has it, aiplc, ideal. Received packets are decoded alike in all of them.
const std::vector<CompareMethod> &CompareMethods();

// Where a method of CompareMethods lies; the id must be there.
size_t MethodIndex(CompareMethod::Id id);

// Whether the libopus at hand conceals losses with a neural network: version 1.5 and later, built
// with it, at a decoder complexity of 5 or more. Found by what its decoder does with a lost packet.
bool HasNeuralConcealment();

}  // namespace aiplc::tools

#endif
