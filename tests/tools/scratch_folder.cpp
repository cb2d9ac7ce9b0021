// SPDX-License-Identifier: BSD-2-Clause

#include "scratch_folder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <random>

namespace aiplc::tools {

ScratchFolder::ScratchFolder()
    : m_path((std::filesystem::temp_directory_path() / "aiplc-test-XXXXXX").string()) {
    if (mkdtemp(m_path.data()) == nullptr) std::abort();
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string ScratchFolder::Write(const std::string &name, const Bytes &bytes) const {
    return Write(name, std::string(bytes.begin(), bytes.end()));
}

std::string ScratchFolder::Write(const std::string &name, const std::string &text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
    return Path(name);
}

std::vector<std::string> ScratchFolder::Names() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

Bytes ReadBytes(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Put(Bytes &bytes, uint64_t value, int count) {
    for (int i = count - 1; i >= 0; --i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void PutLittle(Bytes &bytes, uint64_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void Append(Bytes &bytes, const Bytes &more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes WidebandPacket(size_t soundBytes) {
    Bytes packet(1 + soundBytes, 0x5A);
    packet[0] = 9 << 3;
    return packet;
}

Bytes NarrowbandPacket(size_t soundBytes) {
    Bytes packet(1 + soundBytes, 0x5A);
    packet[0] = 1 << 3;
    return packet;
}

Bytes WavFile(const std::vector<int16_t> &samples, uint32_t sampleRate, uint16_t channels) {
    const uint64_t dataBytes = samples.size() * 2;
    Bytes file = {'R', 'I', 'F', 'F'};
    PutLittle(file, 36 + dataBytes, 4);
    Append(file, {'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16, 0, 0, 0, 1, 0});
    PutLittle(file, channels, 2);
    PutLittle(file, sampleRate, 4);
    PutLittle(file, uint64_t{sampleRate} * channels * 2, 4);
    PutLittle(file, uint64_t{channels} * 2, 2);
    Append(file, {16, 0, 'd', 'a', 't', 'a'});
    PutLittle(file, dataBytes, 4);
    for (const int16_t sample : samples)
        PutLittle(file, static_cast<uint16_t>(sample), 2);
    return file;
}

std::vector<int16_t> WavSamples(const Bytes &file) {
    std::vector<int16_t> samples;
    for (size_t i = 44; i + 1 < file.size(); i += 2) {
        samples.push_back(static_cast<int16_t>(file[i] | (file[i + 1] << 8)));
    }
    return samples;
}

std::vector<int16_t> Babble(uint32_t sampleRate, double seconds) {
    std::mt19937 random(3);
    std::vector<int16_t> samples(static_cast<size_t>(seconds * sampleRate));
    const double rate = sampleRate;
    const double pole = std::exp(-2.0 * std::numbers::pi * 1500.0 / rate);
    double once = 0.0;
    double twice = 0.0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double noise = static_cast<double>(random()) / 4294967296.0 - 0.5;
        once = pole * once + (1.0 - pole) * noise;
        twice = pole * twice + (1.0 - pole) * once;
        const double phase = static_cast<double>(i) / rate / 0.2;
        const double syllable = std::fabs(std::sin(std::numbers::pi * phase));
        samples[i] = static_cast<int16_t>(30000.0 * syllable * twice);
    }
    return samples;
}

}  // namespace aiplc::tools
