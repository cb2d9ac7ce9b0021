// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_SPEECH_COLLECTION_H
#define AIPLC_TRAINING_SPEECH_COLLECTION_H

#include <cstdint>
#include <string>
#include <vector>

namespace aiplc::training {

enum class Split { train, valid };

// The recordings of a folder that belong to a split, as paths in alphabetical order.
//
// valid.txt in the folder names the validation files; without it every twentieth file is one.
// manifest.tsv, with the columns file and licence, is only needed for licences: when that is not
// empty, a file is taken only if its licence is in it. Throws tools::Failure.
std::vector<std::string> FindSpeech(const std::string &folder, Split split,
                                    const std::vector<std::string> &licences);

// The recordings of a folder whose names begin with "music", as paths in alphabetical order. Throws
// tools::Failure when there are none.
std::vector<std::string> FindMusic(const std::string &folder);

// A recording as mono PCM: at 48 kHz if it was made at 32 kHz or more, else at 16 kHz.
struct Recording {
    int rate = 16000;
    std::vector<int16_t> samples;
};
Recording LoadRecording(const std::string &path);

}  // namespace aiplc::training

#endif
