// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_SPEECH_AUDIO_H
#define AIPLC_TOOLS_SPEECH_AUDIO_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tools/input/input_file.h"
#include "tools/input/sound_file.h"

struct soxr;

namespace aiplc::tools {

// An audio file as mono 16-bit PCM at the rate of the call, read piece by piece: channels are
// averaged, other rates resampled (linear phase, no delay), samples that are no number silenced.
class SpeechAudio {
  public:
    // Throws Failure when the audio cannot be decoded, is empty, truncated or longer than 12 hours.
    // input must outlive this object.
    explicit SpeechAudio(InputFile &input);

    [[nodiscard]] int SampleRate() const { return m_sampleRate; }
    [[nodiscard]] int Channels() const { return m_channels; }

    // Chooses the rate that Read delivers, in Hz; once, before Read.
    void ConvertTo(int sampleRate);
    // Samples that Read will deliver in all.
    [[nodiscard]] int64_t TotalSamples() const { return m_totalSamples; }
    // By how much the mix of the channels read so far is weaker than they are on average, dB: 0 for
    // the same sound in all, 10 log10(channels) for sounds with nothing in common, far more for
    // opposite phases.
    [[nodiscard]] double MixLossDb() const;
    // Fills the buffer unless the audio ends; returns the samples written. Throws Failure.
    size_t Read(std::span<int16_t> output);

  private:
    struct CloseResampler {
        void operator()(soxr *resampler) const;
    };

    void FillMono();
    size_t Resample(std::span<float> output);

    std::string m_name;
    SoundFile m_file;
    std::unique_ptr<soxr, CloseResampler> m_resampler;
    int m_sampleRate = 0;
    int m_channels = 0;
    int64_t m_fileFrames = 0;
    int64_t m_framesRead = 0;
    int64_t m_totalSamples = 0;
    int64_t m_delivered = 0;
    std::vector<float> m_interleaved;
    std::vector<float> m_mono;  // samples from m_monoUsed on are still to be taken
    size_t m_monoUsed = 0;
    bool m_fileEnded = false;
    double m_channelEnergy = 0.0;  // sum of squares, mean of the channels
    double m_mixEnergy = 0.0;
};

}  // namespace aiplc::tools

#endif
