// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare_measure.h"

namespace aiplc::tools {
namespace {

// In the order of AiPlcFrameSource.
constexpr std::array<const char *, AIPLC_FRAME_SOURCES> kShareNames = {
    "Frames before the first packet",
    "Frames decoded in time",
    "Frames decoded from late packets",
    "Frames decoded from redundancy (FEC)",
    "Frames of comfort noise (DTX)",
    "Frames received in part",
    "Frames by the network, received ones on both sides",
    "Frames by the network, none received behind",
    "Single lost frames by the network (second look)",
    "Frames concealed by the codec",
    "Frames faded out",
    "Frames of silence",
    "Frames from copies in later packets (redundant audio)"};

std::vector<MeasureInfo> MakeMeasures() {
    std::vector<MeasureInfo> measures = {
        {"lsd", "Log-spectral distance", "dB", "lower", 2},
        {"mcd", "Mel-cepstral distance", "dB", "lower", 2},
        {"estoi", "Intelligibility (ESTOI)", "", "higher", 3},
        {"joinLevel", "Energy step at the joins", "dB", "lower", 2},
        {"joinPitch", "Pitch step at the joins", "semitones", "lower", 2},
        {"click", "Clicks at the joins", "dB", "lower", 2},
        {"interruptions", "Interruptions of 150 ms or more", "per minute", "lower", 2}};
    for (size_t i = 0; i < AIPLC_FRAME_SOURCES; ++i) {
        const std::string id(AiPlcFrameSourceName(static_cast<AiPlcFrameSource>(i)));
        measures.push_back({"share." + id, kShareNames.at(i), "%", "none", 1});
    }
    return measures;
}

}  // namespace

const KindInfo &Info(CompareKind kind) {
    static constexpr std::array<KindInfo, kCompareKinds> kKinds = {
        {{"gap1", "1 frame"},
         {"gap2-3", "2 to 3 frames"},
         {"gap4-6", "4 to 6 frames"},
         {"gap7+", "7 frames or more"},
         {"after", "two frames after a gap"},
         {"call", "whole call"}}};
    return kKinds.at(static_cast<size_t>(kind));
}

CompareKind KindOfGap(int64_t frames) {
    if (frames <= 1) return CompareKind::gap1;
    if (frames <= 3) return CompareKind::gap2to3;
    return frames <= 6 ? CompareKind::gap4to6 : CompareKind::gap7up;
}

CompareMeasure ShareOf(AiPlcFrameSource source) {
    return static_cast<CompareMeasure>(kNamedMeasures + static_cast<size_t>(source));
}

const MeasureInfo &Info(CompareMeasure measure) {
    static const std::vector<MeasureInfo> kMeasures = MakeMeasures();
    return kMeasures.at(static_cast<size_t>(measure));
}

}  // namespace aiplc::tools
