// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/call_scores.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "measure/frame_spectrum.h"
#include "measure/intelligibility.h"
#include "measure/interruptions.h"
#include "measure/joins.h"
#include "measure/log_spectral_distance.h"
#include "measure/mel_cepstral_distance.h"
#include "measure/speech_range.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kStretchFrames = 100;
constexpr double kFrameSeconds = 0.02;
constexpr int64_t kFramesAfter = 2;  // behind a gap that count as its own
constexpr double kOctave = 12.0;     // semitones

measure::Term One(double value) {
    return {value, 1.0};
}

// Which frames of a call without simulated losses are what the sender said: not those that were
// already lost when it was captured, and not the ones right behind, in which the decoder recovers.
std::vector<bool> ReferenceFrames(const CallRecording &recording) {
    std::vector<bool> has(recording.sources.size(), true);
    for (size_t frame = 0; frame < has.size(); ++frame) {
        if (!IsConcealed(recording.sources[frame])) continue;
        const size_t end = std::min(has.size(), frame + 1 + size_t{kFramesAfter});
        std::fill(has.begin() + static_cast<std::ptrdiff_t>(frame),
                  has.begin() + static_cast<std::ptrdiff_t>(end), false);
    }
    return has;
}

class CallScorer {
  public:
    CallScorer(std::span<const ScoredPlay> plays, size_t gapsOf, int sampleRate)
        : m_plays(plays),
          m_gapsOf(*plays[gapsOf].played),
          m_speech(*plays[gapsOf].lossFree),
          m_sampleRate(sampleRate),
          m_frameSamples(static_cast<size_t>(sampleRate / 50)),
          m_hasReference(ReferenceFrames(m_speech)),
          m_spectrum(sampleRate) {
        for (int64_t frame = 0; frame < m_speech.Frames(); ++frame) {
            if (IsReference(frame)) m_range.Add(measure::MeanPower(Frame(m_speech, frame)));
        }
    }

    std::vector<GapScores> Gaps() {
        std::vector<GapScores> gaps;
        for (int64_t frame = 0; frame < m_gapsOf.Frames(); ++frame) {
            if (!IsConcealed(Source(m_gapsOf, frame))) continue;
            GapScores gap{frame, 1, std::vector<GapTerms>(m_plays.size())};
            while (frame + gap.frames < m_gapsOf.Frames() &&
                   IsConcealed(Source(m_gapsOf, frame + gap.frames)))
                ++gap.frames;
            frame += gap.frames - 1;
            AddDistances(gap);
            AddJoin(gap, gap.first);
            AddJoin(gap, gap.first + gap.frames);
            gaps.push_back(std::move(gap));
        }
        return gaps;
    }

    std::vector<StretchScores> Stretches() const {
        std::vector<StretchScores> stretches(
            static_cast<size_t>((m_speech.Frames() + kStretchFrames - 1) / kStretchFrames));
        for (StretchScores &stretch : stretches)
            stretch.methods.resize(m_plays.size());
        std::map<const CallRecording *, Reference> references;
        for (size_t method = 0; method < m_plays.size(); ++method) {
            const CallRecording &played = *m_plays[method].played;
            const CallRecording &lossFree = *m_plays[method].lossFree;
            const auto at = [&](double seconds) -> StretchTerms & {
                const auto index = static_cast<size_t>(
                    seconds / (static_cast<double>(kStretchFrames) * kFrameSeconds));
                return stretches[std::min(index, stretches.size() - 1)].methods[method];
            };
            auto place = references.find(&lossFree);
            if (place == references.end())
                place = references.emplace(&lossFree, MakeReference(lossFree)).first;
            for (const auto &segment : place->second.intelligibility.Segments(played.samples)) {
                if (IsReference(segment.seconds, segment.end))
                    at(segment.seconds).intelligibility += One(segment.correlation);
            }
            for (const size_t start :
                 measure::Interruptions(played.samples, place->second.samples, m_sampleRate))
                at(static_cast<double>(start) / m_sampleRate).interruptions.sum += 1.0;
            for (int64_t frame = 0; frame < played.Frames(); ++frame) {
                StretchTerms &terms =
                    stretches[static_cast<size_t>(frame / kStretchFrames)].methods[method];
                if (IsReference(frame)) terms.interruptions.count += kFrameSeconds / 60.0;
                for (measure::Term &share : terms.shares)
                    share.count += 1.0;
                terms.shares[static_cast<size_t>(Source(played, frame))].sum += 100.0;
            }
        }
        return stretches;
    }

  private:
    // A call without simulated losses, as the measures of whole calls take it.
    struct Reference {
        measure::Intelligibility intelligibility;
        std::vector<int16_t> samples;  // silent where there is no reference
    };

    Reference MakeReference(const CallRecording &lossFree) const {
        Reference reference{{lossFree.samples, m_sampleRate}, lossFree.samples};
        for (size_t frame = 0; frame < m_hasReference.size(); ++frame) {
            if (m_hasReference[frame]) continue;
            std::fill_n(
                reference.samples.begin() + static_cast<std::ptrdiff_t>(frame * m_frameSamples),
                m_frameSamples, int16_t{0});
        }
        return reference;
    }

    static AiPlcFrameSource Source(const CallRecording &recording, int64_t frame) {
        return recording.sources[static_cast<size_t>(frame)];
    }
    std::span<const int16_t> Frame(const CallRecording &recording, int64_t frame) const {
        return std::span(recording.samples)
            .subspan(static_cast<size_t>(frame) * m_frameSamples, m_frameSamples);
    }

    // Whether there is something to compare a frame with.
    bool IsReference(int64_t frame) const {
        return frame >= 0 && frame < m_speech.Frames() &&
               m_hasReference[static_cast<size_t>(frame)];
    }
    // The same for a stretch of the call, in seconds, and one frame on either side of it: that far
    // the filters of a measure reach at most.
    bool IsReference(double from, double to) const {
        const auto first = static_cast<int64_t>(from / kFrameSeconds) - 1;
        const auto end = static_cast<int64_t>(std::ceil(to / kFrameSeconds)) + 1;
        for (int64_t frame = std::max<int64_t>(first, 0); frame < std::min(end, m_speech.Frames());
             ++frame) {
            if (!IsReference(frame)) return false;
        }
        return true;
    }
    bool IsSpeech(int64_t frame) const {
        return IsReference(frame) && m_range.IsSpeech(measure::MeanPower(Frame(m_speech, frame)));
    }

    void AddDistances(GapScores &gap) {
        const int64_t end = gap.first + gap.frames;
        for (int64_t frame = gap.first; frame < end; ++frame)
            AddDistance(frame, [&](size_t method) { return gap.methods[method].inside.data(); });
        for (int64_t frame = end; frame < std::min(end + kFramesAfter, m_gapsOf.Frames());
             ++frame) {
            if (IsConcealed(Source(m_gapsOf, frame))) break;
            AddDistance(frame, [&](size_t method) { return gap.methods[method].after.data(); });
        }
    }

    // terms(method): where its log-spectral and then its mel-cepstral distance go.
    template <typename TermsOf>
    void AddDistance(int64_t frame, TermsOf termsOf) {
        if (!IsSpeech(frame)) return;
        const CallRecording *reference = nullptr;
        for (size_t method = 0; method < m_plays.size(); ++method) {
            const ScoredPlay &play = m_plays[method];
            if (std::exchange(reference, play.lossFree) != play.lossFree)
                m_spectrum.Power(Frame(*play.lossFree, frame), m_referencePower);
            m_spectrum.Power(Frame(*play.played, frame), m_power);
            measure::Term *terms = termsOf(method);
            terms[0] += One(measure::LogSpectralDistanceDb(m_power, m_referencePower));
            terms[1] += One(m_cepstral.Db(m_power, m_referencePower));
        }
    }

    // frame: the first one behind the join. Where the reference is silent on both sides nobody
    // hears a join.
    void AddJoin(GapScores &gap, int64_t frame) {
        if (!IsReference(frame - 1) || !IsReference(frame)) return;
        if (!IsSpeech(frame - 1) && !IsSpeech(frame)) return;
        const auto at = static_cast<size_t>(frame) * m_frameSamples;
        const CallRecording *reference = nullptr;
        std::optional<double> level;
        std::optional<double> pitch;
        for (size_t method = 0; method < m_plays.size(); ++method) {
            const CallRecording &lossFree = *m_plays[method].lossFree;
            if (std::exchange(reference, &lossFree) != &lossFree) {
                level = measure::LevelStepDb(lossFree.samples, at, m_sampleRate);
                pitch = measure::PitchStep(lossFree.samples, at, m_sampleRate);
            }
            const std::vector<int16_t> &played = m_plays[method].played->samples;
            auto &terms = gap.methods[method].inside;
            const auto ownLevel = measure::LevelStepDb(played, at, m_sampleRate);
            if (level && ownLevel) terms[2] += One(std::abs(*ownLevel - *level));
            const auto ownPitch =
                pitch ? measure::PitchStep(played, at, m_sampleRate) : std::nullopt;
            if (ownPitch) terms[3] += One(std::min(std::abs(*ownPitch - *pitch), kOctave));
            const auto click = measure::ClickDb(played, at, m_sampleRate);
            if (click) terms[4] += One(*click);
        }
    }

    std::span<const ScoredPlay> m_plays;
    const CallRecording &m_gapsOf;
    const CallRecording &m_speech;  // the reference that tells where speech is
    int m_sampleRate;
    size_t m_frameSamples;
    std::vector<bool> m_hasReference;  // by frame
    measure::SpeechRange m_range;
    measure::FrameSpectrum m_spectrum;
    measure::MelCepstralDistance m_cepstral;
    std::vector<double> m_power;
    std::vector<double> m_referencePower;
};

}  // namespace

CallScores ScoreCall(std::span<const ScoredPlay> plays, size_t gapsOf, int sampleRate) {
    CallScorer scorer(plays, gapsOf, sampleRate);
    CallScores scores;
    scores.gaps = scorer.Gaps();
    scores.stretches = scorer.Stretches();
    return scores;
}

}  // namespace aiplc::tools
