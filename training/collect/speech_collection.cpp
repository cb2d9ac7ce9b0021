// SPDX-License-Identifier: BSD-2-Clause

#include "training/collect/speech_collection.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tools/input/input_file.h"
#include "tools/input/speech_audio.h"
#include "tools/shell/failure.h"

namespace aiplc::training {
namespace {

namespace fs = std::filesystem;
using tools::Failure;

constexpr size_t kValidationShare = 20;
constexpr int kFullBandFrom = 32000;  // Hz

std::vector<std::string> AudioFiles(const std::string &folder) {
    static const std::set<std::string> kEndings = {".opus", ".ogg", ".wav", ".flac"};
    if (!fs::is_directory(folder)) throw Failure(folder, "no folder; give one of recordings");
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
        if (kEndings.contains(entry.path().extension())) names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    if (names.empty()) throw Failure(folder, "holds no .opus, .ogg, .wav or .flac file");
    return names;
}

std::set<std::string> ValidationFiles(const std::string &folder,
                                      const std::vector<std::string> &names) {
    std::set<std::string> valid;
    std::ifstream list(folder + "/valid.txt");
    if (list) {
        for (std::string line; std::getline(list, line);)
            valid.insert(line);
    } else {
        for (size_t i = 0; i < names.size(); i += kValidationShare)
            valid.insert(names[i]);
    }
    return valid;
}

std::vector<std::string> Columns(const std::string &line) {
    std::vector<std::string> columns;
    std::istringstream text(line);
    for (std::string column; std::getline(text, column, '\t');)
        columns.push_back(column);
    return columns;
}

std::map<std::string, std::string> Licences(const std::string &folder) {
    const std::string name = folder + "/manifest.tsv";
    std::ifstream manifest(name);
    std::string line;
    std::getline(manifest, line);
    const std::vector<std::string> head = Columns(line);
    const auto file = std::ranges::find(head, "file") - head.begin();
    const auto licence = std::ranges::find(head, "licence") - head.begin();
    const auto needed = static_cast<size_t>(std::max(file, licence));
    if (needed >= head.size()) {
        throw Failure(name, "no columns file and licence; a choice of licences needs them");
    }
    std::map<std::string, std::string> licences;
    while (std::getline(manifest, line)) {
        const std::vector<std::string> row = Columns(line);
        if (row.size() > needed)
            licences[row[static_cast<size_t>(file)]] = row[static_cast<size_t>(licence)];
    }
    return licences;
}

}  // namespace

std::vector<std::string> FindSpeech(const std::string &folder, Split split,
                                    const std::vector<std::string> &licences) {
    const std::vector<std::string> names = AudioFiles(folder);
    const std::set<std::string> valid = ValidationFiles(folder, names);
    const auto licenceOf =
        licences.empty() ? std::map<std::string, std::string>{} : Licences(folder);
    std::vector<std::string> paths;
    for (const std::string &name : names) {
        if (valid.contains(name) != (split == Split::valid)) continue;
        if (!licences.empty()) {
            const auto found = licenceOf.find(name);
            if (found == licenceOf.end() ||
                std::ranges::find(licences, found->second) == licences.end())
                continue;
        }
        paths.push_back((fs::path(folder) / name).string());
    }
    if (paths.empty()) throw Failure(folder, "no recording of this split has such a licence");
    return paths;
}

std::vector<std::string> FindMusic(const std::string &folder) {
    std::vector<std::string> paths;
    for (const std::string &name : AudioFiles(folder)) {
        if (name.starts_with("music")) paths.push_back((fs::path(folder) / name).string());
    }
    if (paths.empty()) throw Failure(folder, "holds no recording whose name begins with music");
    return paths;
}

Recording LoadRecording(const std::string &path) {
    tools::InputFile input = tools::InputFile::Open(path);
    tools::SpeechAudio audio(input);
    Recording recording;
    recording.rate = audio.SampleRate() >= kFullBandFrom ? 48000 : 16000;
    audio.ConvertTo(recording.rate);
    recording.samples.resize(static_cast<size_t>(audio.TotalSamples()));
    recording.samples.resize(audio.Read(recording.samples));
    return recording;
}

}  // namespace aiplc::training
