// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_AUDIO_OUTPUT_H
#define AIPLC_TOOLS_AUDIO_OUTPUT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "tools/conceal/wav_output.h"
#include "tools/live/sound_card.h"

namespace aiplc::tools {

// Where the audio of a running call goes, and the clock that asks for it: the sound card's, or one
// frame every 20 ms.
class AudioOutput {
  public:
    // file: WAV, "-" for bare samples on standard output, empty for neither. card: a device's name.
    // Throws Failure.
    AudioOutput(const std::string &file, const std::optional<std::string> &card, int sampleRate);

    // SteadyUs at which the next 20 ms are wanted; the first ones now.
    int64_t DueUs(int64_t nowUs);
    // Throws Failure, or ReaderGone.
    void Write(std::span<const int16_t> samples);
    // The file appears.
    void Finish();

    // Frames that were asked for so late that the clock had to be set anew, or that the card
    // lacked.
    [[nodiscard]] uint64_t Interruptions() const;

  private:
    std::unique_ptr<WavOutput> m_wav;
    bool m_toStandardOutput = false;
    std::unique_ptr<SoundCard> m_card;
    std::optional<int64_t> m_nextUs;
    uint64_t m_interruptions = 0;
};

}  // namespace aiplc::tools

#endif
