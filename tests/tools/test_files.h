// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_TOOLS_TEST_FILES_H
#define AIPLC_TESTS_TOOLS_TEST_FILES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace aiplc::tools {

using Bytes = std::vector<uint8_t>;
using Samples = std::vector<int16_t>;

// Tests with a folder of their own, which is gone with them.
class FolderTest : public testing::Test {
  protected:
    FolderTest();
    ~FolderTest() override;

    std::string Path(const std::string &name) const { return m_path + "/" + name; }
    // Writes a file and returns its path.
    std::string Write(const std::string &name, const Bytes &bytes) const;
    std::string Read(const std::string &name) const;
    // The samples of a file as WavFile makes it.
    Samples ReadWav(const std::string &name) const;
    // Names of everything in the folder, sorted.
    std::vector<std::string> Names() const;

  private:
    std::string m_path;
};

// The lowest count bytes of value, in network order or in Intel's.
Bytes Big(uint64_t value, int count);
Bytes Little(uint64_t value, int count);
Bytes Text(const std::string &text);
Bytes Join(const std::vector<Bytes> &parts);

// A WAV file: 44 bytes of header, PCM of 16 bits.
Bytes WavFile(const Samples &interleaved, uint32_t sampleRate, uint16_t channels = 1);

// Something to code that tells where it is: chirps of 200 ms from 200 to 3000 Hz, the same sound
// at every rate.
Samples Chirps(uint32_t sampleRate, double seconds);

}  // namespace aiplc::tools

#endif
