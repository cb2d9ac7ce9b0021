// SPDX-License-Identifier: BSD-2-Clause

#include "tests/tools/test_files.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>

namespace aiplc::tools {

FolderTest::FolderTest() : m_path(testing::TempDir() + "aiplc-test-XXXXXX") {
    if (mkdtemp(m_path.data()) == nullptr) std::abort();
}

FolderTest::~FolderTest() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string FolderTest::Write(const std::string &name, const Bytes &bytes) const {
    std::ofstream(Path(name), std::ios::binary) << std::string(bytes.begin(), bytes.end());
    return Path(name);
}

std::string FolderTest::Read(const std::string &name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Samples FolderTest::ReadWav(const std::string &name) const {
    const std::string file = Read(name);
    Samples samples((file.size() - 44) / 2);
    std::memcpy(samples.data(), &file[44], samples.size() * 2);
    return samples;
}

std::vector<std::string> FolderTest::Names() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(m_path))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

Bytes Little(uint64_t value, int count) {
    Bytes bytes;
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return bytes;
}

Bytes Big(uint64_t value, int count) {
    Bytes bytes = Little(value, count);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

Bytes Text(const std::string &text) {
    return {text.begin(), text.end()};
}

Bytes Join(const std::vector<Bytes> &parts) {
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes WavFile(const Samples &interleaved, uint32_t sampleRate, uint16_t channels) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(interleaved.data());
    const Bytes samples(bytes, bytes + interleaved.size() * 2);
    return Join({Text("RIFF"), Little(36 + samples.size(), 4), Text("WAVEfmt "), Little(16, 4),
                 Little(1, 2), Little(channels, 2), Little(sampleRate, 4),
                 Little(uint64_t{2} * sampleRate * channels, 4), Little(uint64_t{2} * channels, 2),
                 Little(16, 2), Text("data"), Little(samples.size(), 4), samples});
}

Samples Chirps(uint32_t sampleRate, double seconds) {
    Samples samples(static_cast<size_t>(seconds * sampleRate));
    for (size_t i = 0; i < samples.size(); ++i) {
        const double t = std::fmod(static_cast<double>(i) / sampleRate, 0.2);
        const double loudness = 8000.0 * std::sin(std::numbers::pi * t / 0.2);
        const double cycles = 200.0 * t + 7000.0 * t * t;
        samples[i] = static_cast<int16_t>(loudness * std::sin(2.0 * std::numbers::pi * cycles));
    }
    return samples;
}

}  // namespace aiplc::tools
