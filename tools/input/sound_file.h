// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_SOUND_FILE_H
#define AIPLC_TOOLS_SOUND_FILE_H

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>

#include "tools/input/input_file.h"

namespace aiplc::tools {

// An audio file being decoded by libsndfile through calls of our own: given a descriptor,
// libsndfile 1.2 may close it on a file that it does not know, asked to or not.
class SoundFile {
  public:
    // input must outlive this object.
    explicit SoundFile(const InputFile &input);
    SoundFile(const SoundFile &) = delete;
    SoundFile &operator=(const SoundFile &) = delete;

    // Whether libsndfile knows the format; if not, Error tells why and nothing else may be called.
    [[nodiscard]] bool IsOpen() const { return m_file != nullptr; }
    [[nodiscard]] std::string Error() const { return sf_strerror(m_file.get()); }
    [[nodiscard]] const SF_INFO &Info() const { return m_info; }
    // Reads frames of Info().channels samples, full scale 1; returns the frames read.
    int64_t Read(float *interleaved, int64_t frames);

  private:
    struct Close {
        void operator()(SNDFILE *file) const { sf_close(file); }
    };

    static sf_count_t Length(void *self);
    static sf_count_t Seek(sf_count_t offset, int whence, void *self);
    static sf_count_t ReadBytes(void *target, sf_count_t count, void *self);
    static sf_count_t WriteBytes(const void *source, sf_count_t count, void *self);
    static sf_count_t Tell(void *self);

    int m_descriptor;
    sf_count_t m_length;
    sf_count_t m_position = 0;
    SF_INFO m_info{};
    std::unique_ptr<SNDFILE, Close> m_file;
};

}  // namespace aiplc::tools

#endif
