// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/speech_audio.h"

#include <soxr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "tools/input/opus_call.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr int kMinRate = 1000;
constexpr int kMaxRate = 768000;
constexpr size_t kBlockFrames = 4096;

uint32_t LittleEndian32(const uint8_t *bytes) {
    return uint32_t{bytes[0]} | (uint32_t{bytes[1]} << 8) | (uint32_t{bytes[2]} << 16) |
           (uint32_t{bytes[3]} << 24);
}

// libsndfile reads what is there of a truncated WAV file without a word, so the length of the data
// chunk is looked up here. Lengths of 0 and near 2 or 4 GiB come from programs that wrote to a pipe
// and could not know better.
void CheckWavLength(InputFile &input) {
    std::array<uint8_t, 12> head{};
    input.Rewind();
    if (input.Read(head) < head.size() || std::memcmp(head.data(), "RIFF", 4) != 0) return;
    uint64_t at = head.size();
    std::array<uint8_t, 8> chunk{};
    while (pread(input.Descriptor(), chunk.data(), chunk.size(), static_cast<off_t>(at)) ==
           static_cast<ssize_t>(chunk.size())) {
        const uint32_t length = LittleEndian32(&chunk[4]);
        at += chunk.size();
        if (std::memcmp(chunk.data(), "data", 4) == 0) {
            const bool unknown = length == 0 || length >= 0x7FFF0000U;
            if (!unknown && at + length > input.Size()) {
                throw Failure(input.Name(), "truncated: " + std::to_string(input.Size() - at) +
                                                " of " + std::to_string(length) +
                                                " bytes of audio are there; give the whole file");
            }
            return;
        }
        at += uint64_t{length} + (length & 1U);
    }
}

}  // namespace

void SpeechAudio::CloseResampler::operator()(soxr *resampler) const {
    soxr_delete(resampler);
}

SpeechAudio::SpeechAudio(InputFile &input) : m_name(input.Name()), m_file(input) {
    CheckWavLength(input);
    const SF_INFO &info = m_file.Info();
    if (!m_file.IsOpen()) {
        throw Failure(m_name, "cannot be decoded: " + m_file.Error() +
                                  "; give WAV, FLAC, Ogg Vorbis or another audio file");
    }
    if (info.samplerate < kMinRate || info.samplerate > kMaxRate) {
        throw Failure(m_name, "a sample rate of " + std::to_string(info.samplerate) +
                                  " Hz; 1000 to 768000 Hz can be read");
    }
    if (info.frames <= 0) throw Failure(m_name, "holds no audio; give at least one sample");
    if (info.frames / info.samplerate >= kMaxCallSeconds) {
        throw Failure(m_name, "longer than 12 hours; give a shorter call");
    }
    m_sampleRate = info.samplerate;
    m_channels = info.channels;
    m_fileFrames = info.frames;
    m_interleaved.resize(kBlockFrames * static_cast<size_t>(m_channels));
    ConvertTo(m_sampleRate);
}

void SpeechAudio::ConvertTo(int sampleRate) {
    m_totalSamples = (m_fileFrames * sampleRate + m_sampleRate / 2) / m_sampleRate;
    m_totalSamples = std::max<int64_t>(m_totalSamples, 1);
    m_resampler.reset();
    if (sampleRate == m_sampleRate) return;
    const soxr_io_spec_t format = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr_error_t error = nullptr;
    m_resampler.reset(soxr_create(m_sampleRate, sampleRate, 1, &error, &format, &quality, nullptr));
    if (!m_resampler) {
        throw Failure(m_name, "cannot be resampled to " + std::to_string(sampleRate) +
                                  " Hz: " + (error != nullptr ? error : "unknown error"));
    }
}

// Takes the next block of the file and averages its channels.
void SpeechAudio::FillMono() {
    const auto frames = static_cast<int64_t>(kBlockFrames);
    const int64_t got = m_file.Read(m_interleaved.data(), frames);
    m_framesRead += got;
    m_monoUsed = 0;
    m_mono.resize(static_cast<size_t>(got));
    const auto channels = static_cast<size_t>(m_channels);
    for (size_t i = 0; i < m_mono.size(); ++i) {
        float sum = 0.0F;
        float squares = 0.0F;
        for (size_t c = 0; c < channels; ++c) {
            const float value = m_interleaved[i * channels + c];
            if (!std::isfinite(value)) continue;
            const float sample = std::clamp(value, -4.0F, 4.0F);
            sum += sample;
            squares += sample * sample;
        }
        m_mono[i] = sum / static_cast<float>(channels);
        m_channelEnergy += static_cast<double>(squares / static_cast<float>(channels));
        m_mixEnergy += static_cast<double>(m_mono[i] * m_mono[i]);
    }
    if (got < frames) {
        m_fileEnded = true;
        if (m_framesRead < m_fileFrames) {
            throw Failure(m_name, "truncated: " + std::to_string(m_framesRead) + " of " +
                                      std::to_string(m_fileFrames) +
                                      " samples can be decoded; give the whole file");
        }
    }
}

double SpeechAudio::MixLossDb() const {
    constexpr double kNothing = 1e-12;
    return 10.0 * std::log10((m_channelEnergy + kNothing) / (m_mixEnergy + kNothing));
}

// Delivers at least one sample unless the audio has ended.
size_t SpeechAudio::Resample(std::span<float> output) {
    for (;;) {
        if (m_monoUsed == m_mono.size() && !m_fileEnded) FillMono();
        const size_t left = m_mono.size() - m_monoUsed;
        if (!m_resampler) {
            const size_t taken = std::min(left, output.size());
            std::copy_n(&m_mono[m_monoUsed], taken, output.begin());
            m_monoUsed += taken;
            return taken;
        }
        size_t used = 0;
        size_t done = 0;
        const float *from = left > 0 ? &m_mono[m_monoUsed] : nullptr;  // null flushes the filter
        if (soxr_process(m_resampler.get(), from, left, &used, output.data(), output.size(),
                         &done) != nullptr) {
            throw Failure(m_name, "cannot be resampled");
        }
        m_monoUsed += used;
        if (done > 0 || left == 0) return done;
    }
}

size_t SpeechAudio::Read(std::span<int16_t> output) {
    std::array<float, 1024> block{};
    size_t written = 0;
    while (written < output.size() && m_delivered < m_totalSamples) {
        const auto wanted = std::min({block.size(), output.size() - written,
                                      static_cast<size_t>(m_totalSamples - m_delivered)});
        size_t got = Resample({block.data(), wanted});
        if (got == 0) {  // the last sample or two that rounding owes
            std::fill_n(block.begin(), wanted, 0.0F);
            got = wanted;
        }
        for (size_t i = 0; i < got; ++i) {
            const float value = std::clamp(block[i] * 32768.0F, -32768.0F, 32767.0F);
            output[written + i] = static_cast<int16_t>(std::lrint(value));
        }
        written += got;
        m_delivered += static_cast<int64_t>(got);
    }
    return written;
}

}  // namespace aiplc::tools
