// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_TOOLS_SCRATCH_FOLDER_H
#define AIPLC_TESTS_TOOLS_SCRATCH_FOLDER_H

#include <cstdint>
#include <string>
#include <vector>

namespace aiplc::tools {

using Bytes = std::vector<uint8_t>;

// A folder that is gone with the test.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;

    std::string Path(const std::string &name) const { return m_path + "/" + name; }
    // Writes a file and returns its path.
    std::string Write(const std::string &name, const Bytes &bytes) const;
    std::string Write(const std::string &name, const std::string &text) const;
    // Names of everything in the folder, sorted.
    std::vector<std::string> Names() const;

  private:
    std::string m_path;
};

Bytes ReadBytes(const std::string &path);

// The lowest count bytes of value, in network order or, Little, in Intel's.
void Put(Bytes &bytes, uint64_t value, int count);
void PutLittle(Bytes &bytes, uint64_t value, int count);
void Append(Bytes &bytes, const Bytes &more);

// An Opus packet by its table of contents (RFC 6716, 3.1): 20 ms SILK wideband mono (config 9) or
// narrowband (config 1), with the given bytes of coded sound behind it.
Bytes WidebandPacket(size_t soundBytes);
Bytes NarrowbandPacket(size_t soundBytes);

// Mono or interleaved 16-bit WAV file (RIFF, PCM format 1).
Bytes WavFile(const std::vector<int16_t> &samples, uint32_t sampleRate, uint16_t channels);
// The samples of a file made of a 44-byte header and 16-bit PCM.
std::vector<int16_t> WavSamples(const Bytes &file);

// Something speech-like to code: noise in syllables of 200 ms, below 3 kHz, the same every time.
std::vector<int16_t> Babble(uint32_t sampleRate, double seconds);

}  // namespace aiplc::tools

#endif
