// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/sound_card.h"

#include <algorithm>

#include "tools/shell/failure.h"

#ifdef AIPLC_HAVE_ALSA
#include <alsa/asoundlib.h>
#endif

namespace aiplc::tools {

#ifdef AIPLC_HAVE_ALSA

namespace {

constexpr unsigned kDeviceLatencyUs = 60'000;

snd_pcm_t *Pcm(void *handle) {
    return static_cast<snd_pcm_t *>(handle);
}

}  // namespace

SoundCard::SoundCard(const std::string &device, int sampleRate)
    : m_device(device), m_sampleRate(sampleRate) {
    snd_pcm_t *pcm = nullptr;
    int result = snd_pcm_open(&pcm, device.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    m_handle = pcm;
    if (result == 0)
        result = snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16, SND_PCM_ACCESS_RW_INTERLEAVED, 1,
                                    static_cast<unsigned>(sampleRate), 1, kDeviceLatencyUs);
    if (result == 0) return;
    if (pcm != nullptr) snd_pcm_close(pcm);
    throw Failure("sound card " + device, std::string("cannot be opened: ") + snd_strerror(result) +
                                              "; aplay -L lists the devices, -o writes a file");
}

SoundCard::~SoundCard() {
    snd_pcm_close(Pcm(m_handle));
}

void SoundCard::Recover(int error) {
    ++m_underruns;
    const int result = snd_pcm_recover(Pcm(m_handle), error, 1);
    if (result < 0)
        throw Failure("sound card " + m_device,
                      std::string("plays no more: ") + snd_strerror(result));
}

int64_t SoundCard::RoomInUs() {
    snd_pcm_sframes_t room = snd_pcm_avail_update(Pcm(m_handle));
    if (room < 0) {
        Recover(static_cast<int>(room));
        room = snd_pcm_avail_update(Pcm(m_handle));
    }
    const int64_t missing = m_sampleRate / 50 - static_cast<int64_t>(room);
    return missing <= 0 ? 0 : std::max<int64_t>(missing * 1'000'000 / m_sampleRate, 1000);
}

void SoundCard::Write(std::span<const int16_t> samples) {
    const snd_pcm_sframes_t written = snd_pcm_writei(Pcm(m_handle), samples.data(), samples.size());
    if (written < 0) Recover(static_cast<int>(written));
}

#else

SoundCard::SoundCard(const std::string &device, int sampleRate)
    : m_device(device), m_sampleRate(sampleRate) {
    throw Failure("sound card " + device,
                  "this aiplc was built without sound output; install libasound2-dev and build it "
                  "again, or pipe: -o - | aplay -f S16_LE -r " +
                      std::to_string(sampleRate));
}
SoundCard::~SoundCard() = default;
int64_t SoundCard::RoomInUs() {
    return 0;
}
void SoundCard::Write(std::span<const int16_t> /*samples*/) {}

#endif

}  // namespace aiplc::tools
