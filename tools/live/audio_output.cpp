// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/audio_output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/input/opus_call.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/output_file.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kFrameUs = 20'000;
constexpr int64_t kMostBehindUs = 1'000'000;  // the machine slept, or the reader did

void WriteStandardOutput(std::span<const int16_t> samples) {
    const auto *bytes = reinterpret_cast<const char *>(samples.data());
    for (size_t left = samples.size_bytes(); left > 0;) {
        const ssize_t done = write(STDOUT_FILENO, bytes, left);
        if (done < 0 && errno == EINTR) {
            ThrowIfInterrupted();
            continue;
        }
        if (done < 0 && errno == EPIPE) throw ReaderGone();
        if (done < 0)
            throw Failure("standard output", std::string("cannot be written: ") + strerror(errno));
        bytes += done;
        left -= static_cast<size_t>(done);
    }
}

}  // namespace

AudioOutput::AudioOutput(const std::string &file, const std::optional<std::string> &card,
                         int sampleRate)
    : m_toStandardOutput(file == "-") {
    if (!file.empty() && !m_toStandardOutput) {
        m_wav = std::make_unique<WavOutput>(file, OutputFile::kNoInput, sampleRate, 0,
                                            kMaxCallSeconds * sampleRate, 1.0);
    }
    if (card) m_card = std::make_unique<SoundCard>(*card, sampleRate);
}

int64_t AudioOutput::DueUs(int64_t nowUs) {
    if (m_card) return nowUs + m_card->RoomInUs();
    if (m_nextUs && nowUs - *m_nextUs > kMostBehindUs) {
        ++m_interruptions;
        m_nextUs.reset();
    }
    if (!m_nextUs) m_nextUs = nowUs;
    return *m_nextUs;
}

void AudioOutput::Write(std::span<const int16_t> samples) {
    if (m_nextUs) *m_nextUs += kFrameUs;
    if (m_wav) m_wav->Write(samples);
    if (m_toStandardOutput) WriteStandardOutput(samples);
    if (m_card) m_card->Write(samples);
}

void AudioOutput::Finish() {
    if (m_wav) m_wav->Commit();
}

uint64_t AudioOutput::Interruptions() const {
    return m_interruptions + (m_card ? m_card->Underruns() : 0);
}

}  // namespace aiplc::tools
