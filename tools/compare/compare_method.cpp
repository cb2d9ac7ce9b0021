// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare_method.h"

#include <stdexcept>

#include "tools/play/receiver_handle.h"

namespace aiplc::tools {
namespace {

std::vector<CompareMethod> MakeMethods() {
    using Id = CompareMethod::Id;
    std::vector<CompareMethod> methods = {{Id::silence, "silence", "Silence"},
                                          {Id::codec, "codec", "Codec"}};
    if (DecoderFactsAt(kNeuralComplexity).neuralConcealment)
        methods.push_back({Id::neural, "neural", "Neural codec"});
    if (DecoderFactsAt(kMaxComplexity).enhancement)
        methods.push_back({Id::enhanced, "enhanced", "Enhanced codec"});
    methods.push_back({Id::aiplc, "aiplc", "aiplc"});
    methods.push_back({Id::ideal, "ideal", "No loss"});
    return methods;
}

std::string AboutWorker(const AiPlcReceiverOptions &receiver, const DecoderFacts &decoder) {
    std::string about =
        receiver.useSecondLook == 1
            ? "This library with its network, which is asked for single lost frames as well."
            : "This library with its network; single lost frames are left to the codec.";
    if (decoder.neuralConcealment)
        about += " Frames without an answer are concealed by the decoder's network.";
    if (decoder.enhancement) about += " Received speech is enhanced by another.";
    return about;
}

std::string AboutIdeal() {
    std::string about = "The call as it sounds when every packet arrives in time.";
    if (DecoderFactsAt(kMaxComplexity).enhancement) {
        about +=
            " Methods that enhance received speech are measured against the same call with the "
            "enhancer on.";
    }
    return about;
}

MethodSetup WithDecoder(int complexity, const char *about) {
    return {CodecAlone(complexity), DecoderFactsAt(complexity), about};
}

MethodSetup SetupOf(CompareMethod::Id id, const AiPlcReceiverOptions &wanted) {
    using Id = CompareMethod::Id;
    MethodSetup setup;
    switch (id) {
        case Id::silence:
            setup = WithDecoder(kClassicComplexity, "Nothing is played in place of a lost frame.");
            setup.receiver.codecConceals = 0;
            break;
        case Id::codec:
            setup = WithDecoder(kClassicComplexity, "The concealment of the Opus decoder.");
            break;
        case Id::neural:
            setup = WithDecoder(kNeuralComplexity, "The neural concealment of the Opus decoder.");
            break;
        case Id::enhanced:
            setup = WithDecoder(DecoderFactsAt(wanted.decoderComplexity).enhancement
                                    ? wanted.decoderComplexity
                                    : kMaxComplexity,
                                "The neural concealment of the Opus decoder, which also enhances "
                                "the speech that it receives.");
            break;
        case Id::aiplc:
            setup = {wanted, DecoderFactsAt(wanted.decoderComplexity), {}};
            setup.about = AboutWorker(wanted, setup.decoder);
            break;
        case Id::ideal:
            setup = WithDecoder(kClassicComplexity, "");
            setup.about = AboutIdeal();
            break;
    }
    return setup;
}

}  // namespace

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

std::vector<MethodSetup> MethodSetups(const ReceivingOptions &options) {
    const AiPlcReceiverOptions wanted = ReceiverFor(options);
    std::vector<MethodSetup> setups;
    for (const CompareMethod &method : CompareMethods())
        setups.push_back(SetupOf(method.id, wanted));
    return setups;
}

}  // namespace aiplc::tools
