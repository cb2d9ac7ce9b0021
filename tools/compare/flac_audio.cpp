// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/flac_audio.h"

#include <sndfile.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

// A file in memory for libsndfile to write.
struct MemoryFile {
    std::vector<uint8_t> bytes;
    sf_count_t position = 0;

    static sf_count_t Length(void *self) {
        return static_cast<sf_count_t>(static_cast<MemoryFile *>(self)->bytes.size());
    }
    static sf_count_t Seek(sf_count_t offset, int whence, void *self) {
        auto *file = static_cast<MemoryFile *>(self);
        sf_count_t base = 0;
        if (whence == SEEK_CUR) base = file->position;
        if (whence == SEEK_END) base = Length(self);
        file->position = std::max<sf_count_t>(base + offset, 0);
        return file->position;
    }
    static sf_count_t Read(void *target, sf_count_t count, void *self) {
        auto *file = static_cast<MemoryFile *>(self);
        const sf_count_t got = std::clamp<sf_count_t>(Length(self) - file->position, 0,
                                                      std::max<sf_count_t>(count, 0));
        if (got > 0)
            std::memcpy(target, &file->bytes[static_cast<size_t>(file->position)],
                        static_cast<size_t>(got));
        file->position += got;
        return got;
    }
    static sf_count_t Write(const void *source, sf_count_t count, void *self) {
        auto *file = static_cast<MemoryFile *>(self);
        if (count <= 0) return 0;
        const auto end = static_cast<size_t>(file->position + count);
        if (file->bytes.size() < end) file->bytes.resize(end);
        std::memcpy(&file->bytes[static_cast<size_t>(file->position)], source,
                    static_cast<size_t>(count));
        file->position += count;
        return count;
    }
    static sf_count_t Tell(void *self) { return static_cast<MemoryFile *>(self)->position; }
};

}  // namespace

// By hand: the libraries that the tool has are for sound, captures and JSON, and have no Base64.
std::string Base64(std::span<const uint8_t> bytes) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t left = std::min<size_t>(bytes.size() - i, 3);
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k)
            group = (group << 8) | (k < left ? bytes[i + k] : 0U);
        for (size_t k = 0; k < 4; ++k)
            text += k <= left ? kDigits[(group >> (18 - 6 * k)) & 63U] : '=';
    }
    return text;
}

std::string FlacDataUrl(std::span<const int16_t> samples, int sampleRate) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = 1;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    SF_VIRTUAL_IO calls{MemoryFile::Length, MemoryFile::Seek, MemoryFile::Read, MemoryFile::Write,
                        MemoryFile::Tell};
    MemoryFile file;
    SNDFILE *flac = sf_open_virtual(&calls, SFM_WRITE, &info, &file);
    if (flac == nullptr) throw Failure(std::string("FLAC: ") + sf_strerror(nullptr));
    const auto count = static_cast<sf_count_t>(samples.size());
    const bool written = sf_writef_short(flac, samples.data(), count) == count;
    if (sf_close(flac) != 0 || !written) throw Failure("FLAC: the sound cannot be encoded");
    return "data:audio/flac;base64," + Base64(file.bytes);
}

}  // namespace aiplc::tools
