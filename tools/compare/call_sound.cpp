// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/call_sound.h"

#include <vector>

#include "tools/compare/call_excerpts.h"
#include "tools/compare/compare_method.h"
#include "tools/compare/flac_audio.h"
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

// The text of the members, and its length. A text longer than the limit is measured but not kept.
struct Members {
    std::string text;
    int64_t bytes = 0;

    void Add(const std::string &part, int64_t limit) {
        bytes += static_cast<int64_t>(part.size());
        if (bytes <= limit) {
            text += part;
        } else {
            text = {};
        }
    }
};

// excerpts: null for the whole call.
Members Encode(std::span<const CallRecording> recordings, const std::vector<Excerpt> *excerpts,
               int sampleRate, int64_t limit) {
    Members members;
    if (excerpts != nullptr) {
        std::string list;
        for (const Excerpt &excerpt : *excerpts) {
            list += (list.empty() ? "" : ",") + std::string("{\"first\":") +
                    std::to_string(excerpt.first) +
                    ",\"frames\":" + std::to_string(excerpt.frames) + "}";
        }
        members.Add(",\"excerpts\":[" + list + "]", limit);
    }
    members.Add(",\"audio\":{", limit);
    for (size_t method = 0; method < recordings.size(); ++method) {
        ThrowIfInterrupted();
        const CallRecording &recording = recordings[method];
        const std::string url = excerpts != nullptr
                                    ? FlacDataUrl(Cut(recording, *excerpts), sampleRate)
                                    : FlacDataUrl(recording.samples, sampleRate);
        members.Add((method == 0 ? "\"" : ",\"") + std::string(CompareMethods()[method].name) +
                        "\":\"" + url + "\"",
                    limit);
    }
    members.Add("}", limit);
    return members;
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
        Members members = Encode(recordings, &excerpts, sampleRate, limit);
        if (members.bytes <= limit) return std::move(members.text);
        budget *= 0.9 * static_cast<double>(limit) / static_cast<double>(members.bytes);
    }
    return {};
}

}  // namespace

CallSound EncodeSound(std::span<const CallRecording> recordings, const CallScores &scores,
                      int sampleRate, const SoundLimits &limits) {
    Members whole = Encode(recordings, nullptr, sampleRate, limits.all);
    CallSound sound;
    sound.whole = std::move(whole.text);
    sound.wholeBytes = whole.bytes;
    if (whole.bytes > limits.call) {
        sound.excerpts = EncodeExcerpts(recordings, scores, sampleRate, whole.bytes, limits.call);
    }
    return sound;
}

}  // namespace aiplc::tools
