// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/sound_file.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace aiplc::tools {

SoundFile::SoundFile(const InputFile &input)
    : m_descriptor(input.Descriptor()), m_length(static_cast<sf_count_t>(input.Size())) {
    SF_VIRTUAL_IO calls{Length, Seek, ReadBytes, WriteBytes, Tell};
    m_file.reset(sf_open_virtual(&calls, SFM_READ, &m_info, this));
}

int64_t SoundFile::Read(float *interleaved, int64_t frames) {
    return sf_readf_float(m_file.get(), interleaved, frames);
}

sf_count_t SoundFile::Length(void *self) {
    return static_cast<SoundFile *>(self)->m_length;
}

sf_count_t SoundFile::Seek(sf_count_t offset, int whence, void *self) {
    auto *file = static_cast<SoundFile *>(self);
    sf_count_t base = 0;
    if (whence == SEEK_CUR) base = file->m_position;
    if (whence == SEEK_END) base = file->m_length;
    // Offsets come from the file's own fields and may be anything.
    sf_count_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) return -1;
    file->m_position = std::min(target, file->m_length);
    return file->m_position;
}

sf_count_t SoundFile::ReadBytes(void *target, sf_count_t count, void *self) {
    auto *file = static_cast<SoundFile *>(self);
    if (count <= 0) return 0;
    const ssize_t got =
        pread(file->m_descriptor, target, static_cast<size_t>(count), file->m_position);
    if (got <= 0) return 0;
    file->m_position += got;
    return got;
}

sf_count_t SoundFile::WriteBytes(const void * /*source*/, sf_count_t /*count*/, void * /*self*/) {
    return 0;
}

sf_count_t SoundFile::Tell(void *self) {
    return static_cast<SoundFile *>(self)->m_position;
}

}  // namespace aiplc::tools
