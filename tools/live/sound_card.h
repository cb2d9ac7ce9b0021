// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_SOUND_CARD_H
#define AIPLC_TOOLS_SOUND_CARD_H

#include <cstdint>
#include <span>
#include <string>

namespace aiplc::tools {

// Plays on a device of ALSA. Programs built without its library refuse to be given one.
class SoundCard {
  public:
    // device: "default", or a name that aplay -L lists. Throws Failure.
    SoundCard(const std::string &device, int sampleRate);
    ~SoundCard();
    SoundCard(const SoundCard &) = delete;
    SoundCard &operator=(const SoundCard &) = delete;

    // Microseconds until 20 ms fit in; 0 when they do. Throws Failure when the device is gone.
    int64_t RoomInUs();
    void Write(std::span<const int16_t> samples);
    // How often the device has run out of samples.
    [[nodiscard]] uint64_t Underruns() const { return m_underruns; }

  private:
    void Recover(int error);

    std::string m_device;
    int m_sampleRate;
    void *m_handle = nullptr;  // snd_pcm_t
    uint64_t m_underruns = 0;
};

}  // namespace aiplc::tools

#endif
