// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_MODEL_PATH_H
#define AIPLC_WORKER_MODEL_PATH_H

#include <string>

namespace aiplc::worker {

// The file's name beside the worker's executable.
inline constexpr char kModelFileName[] = "xanu_audio_aiplc.model";
// The environment variable that names another one, or asks for the predictor that needs none.
inline constexpr char kModelVariable[] = "AIPLC_MODEL";
inline constexpr char kNoModelWish[] = "autoregressive";

// The model file of a worker in the folder (empty, or with a separator at its end). Empty when
// kModelVariable asks for the predictor that needs no file.
std::string ModelPath(const std::string &workerFolder);

}  // namespace aiplc::worker

#endif
