// SPDX-License-Identifier: BSD-2-Clause
//
// Sounds of a call that are not speech.

#ifndef AIPLC_TRAINING_SOUNDS_H
#define AIPLC_TRAINING_SOUNDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "training/collect/random.h"
#include "training/collect/scene.h"
#include "training/collect/speech_collection.h"

namespace aiplc::training {

// Makes the recordings of the scenes tone, dtmf and music, each as long as a call:
// - tone: 440 Hz, steady, -30 to -10 dBFS;
// - dtmf: digits dialled on a telephone (ITU-T Q.23), each 80 to 200 ms long with pauses of 60 to
//   200 ms, -30 to -10 dBFS. The higher tone of a digit is 2 dB above the lower one;
// - music: the pieces of a folder in turn, those whose names begin with "music", from a place in
//   the piece that is drawn.
class Sounds {
  public:
    static constexpr int kRate = 16000;  // Hz, of tone and dtmf

    // musicFolder is read for the scene music only. Throws tools::Failure when it holds none.
    Sounds(Scene scene, const std::string &musicFolder, double seconds, uint32_t seed);

    // The same for the same seed and index.
    Recording Make(uint32_t index) const;

  private:
    Recording Excerpt(uint32_t index, Random &random) const;

    Scene m_scene;
    double m_seconds;
    uint32_t m_seed;
    std::vector<Recording> m_pieces;
};

}  // namespace aiplc::training

#endif
