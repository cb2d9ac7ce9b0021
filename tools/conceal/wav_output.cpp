// SPDX-License-Identifier: BSD-2-Clause

#include "tools/conceal/wav_output.h"

#include <algorithm>
#include <cmath>

#include "tools/shell/failure.h"

namespace aiplc::tools {

WavOutput::WavOutput(const std::string &target, int input, int sampleRate, int64_t skip,
                     int64_t length, double gain)
    : m_file(target, input), m_skip(skip), m_left(length), m_gain(gain) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    m_wav.reset(sf_open_fd(m_file.Descriptor(), SFM_WRITE, &info, SF_FALSE));
    if (!m_wav)
        throw Failure(m_file.Name(), std::string("cannot be written: ") + sf_strerror(nullptr));
}

void WavOutput::Write(std::span<const int16_t> samples) {
    const auto skipped =
        std::min(static_cast<int64_t>(samples.size()), std::max<int64_t>(m_skip, 0));
    m_skip -= skipped;
    samples = samples.subspan(static_cast<size_t>(skipped));
    samples =
        samples.first(static_cast<size_t>(std::min(static_cast<int64_t>(samples.size()), m_left)));
    m_left -= static_cast<int64_t>(samples.size());
    if (m_gain != 1.0) {
        m_scaled.clear();
        for (const int16_t sample : samples) {
            const double value = std::clamp(sample * m_gain, -32768.0, 32767.0);
            m_scaled.push_back(static_cast<int16_t>(std::lrint(value)));
        }
        samples = m_scaled;
    }
    const auto count = static_cast<sf_count_t>(samples.size());
    if (sf_writef_short(m_wav.get(), samples.data(), count) != count) {
        throw Failure(m_file.Name(), std::string("cannot be written: ") + sf_strerror(m_wav.get()) +
                                         "; make room on the disk");
    }
}

void WavOutput::Commit() {
    SNDFILE *wav = m_wav.release();
    const int result = sf_close(wav);  // writes the header's lengths
    if (result != 0) {
        throw Failure(m_file.Name(), std::string("cannot be written: ") + sf_error_number(result));
    }
    m_file.Commit();
}

}  // namespace aiplc::tools
