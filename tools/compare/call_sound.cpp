// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/call_sound.h"

#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "tools/compare/call_excerpts.h"
#include "tools/compare/compare_method.h"
#include "tools/compare/flac_audio.h"
#include "tools/compare/json_stream.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

constexpr int kExcerptTries = 4;

std::vector<int16_t> Cut(const CallRecording &recording, const std::vector<Excerpt> &excerpts) {
    const int64_t frameSamples =
        static_cast<int64_t>(recording.samples.size()) / recording.Frames();
    std::vector<int16_t> samples;
    for (const Excerpt &excerpt : excerpts) {
        const auto begin = recording.samples.begin() + excerpt.first * frameSamples;
        samples.insert(samples.end(), begin, begin + excerpt.frames * frameSamples);
    }
    return samples;
}

// A JSON object as text, and its length. A text longer than the limit is measured but not kept.
struct SoundText {
    std::string text;
    int64_t bytes = 0;
};

// excerpts: null for the whole call.
SoundText Encode(std::span<const CallRecording> recordings, const std::vector<Excerpt> *excerpts,
                 int sampleRate, int64_t limit) {
    nlohmann::ordered_json json;
    if (excerpts != nullptr) {
        for (const Excerpt &excerpt : *excerpts)
            json["excerpts"].push_back({{"first", excerpt.first}, {"frames", excerpt.frames}});
    }
    for (size_t method = 0; method < recordings.size(); ++method)
        json["audio"][CompareMethods()[method].name] = "";
    // Addresses need no escapes: each adds as many bytes as it has.
    auto bytes = static_cast<int64_t>(JsonText(json).size());
    for (size_t method = 0; method < recordings.size(); ++method) {
        ThrowIfInterrupted();
        const CallRecording &recording = recordings[method];
        std::string url = excerpts != nullptr ? FlacDataUrl(Cut(recording, *excerpts), sampleRate)
                                              : FlacDataUrl(recording.samples, sampleRate);
        bytes += static_cast<int64_t>(url.size());
        if (bytes <= limit) {
            json["audio"][CompareMethods()[method].name] = std::move(url);
        } else {
            json = {};
        }
    }
    return {bytes <= limit ? JsonText(json) : std::string(), bytes};
}

// As many excerpts as fit; sound that is harder to encode than the call as a whole takes more
// tries.
std::string EncodeExcerpts(std::span<const CallRecording> recordings, const CallScores &scores,
                           int sampleRate, int64_t wholeBytes, int64_t limit) {
    const int64_t frames = recordings.front().Frames();
    double budget =
        static_cast<double>(frames) * static_cast<double>(limit) / static_cast<double>(wholeBytes);
    for (int i = 0; i < kExcerptTries; ++i) {
        const std::vector<Excerpt> excerpts = ChooseExcerpts(
            scores, MethodIndex(CompareMethod::Id::aiplc), frames, static_cast<int64_t>(budget));
        if (excerpts.empty()) break;
        SoundText sound = Encode(recordings, &excerpts, sampleRate, limit);
        if (sound.bytes <= limit) return std::move(sound.text);
        budget *= 0.9 * static_cast<double>(limit) / static_cast<double>(sound.bytes);
    }
    return {};
}

}  // namespace

CallSound EncodeSound(std::span<const CallRecording> recordings, const CallScores &scores,
                      int sampleRate, const SoundLimits &limits) {
    SoundText whole = Encode(recordings, nullptr, sampleRate, limits.all);
    CallSound sound;
    sound.whole = std::move(whole.text);
    sound.wholeBytes = whole.bytes;
    if (whole.bytes > limits.call) {
        sound.excerpts = EncodeExcerpts(recordings, scores, sampleRate, whole.bytes, limits.call);
    }
    return sound;
}

}  // namespace aiplc::tools
