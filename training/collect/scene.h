// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_SCENE_H
#define AIPLC_TRAINING_SCENE_H

namespace aiplc::training {

// The conditions of a call. drawn: random ones, for training. The others are fixed conditions for
// comparisons: 24 kb/s, 20 ms packets, wideband.
enum class Scene {
    drawn,
    // Speech; loss_plan.h says what is lost.
    single,
    random,
    shortBursts,
    longBursts,
    mixed,
    recorded,
    // Sounds that are not speech (sounds.h), with single losses and a few pairs.
    tone,
    dtmf,
    music,
};

constexpr bool IsSpeech(Scene scene) {
    return scene != Scene::tone && scene != Scene::dtmf && scene != Scene::music;
}

}  // namespace aiplc::training

#endif
