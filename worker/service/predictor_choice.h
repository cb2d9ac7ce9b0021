// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_PREDICTOR_CHOICE_H
#define AIPLC_WORKER_PREDICTOR_CHOICE_H

#include <memory>

#include "worker/window/predictor.h"

namespace aiplc::worker {

// Result code of a request where there is no model. The library then uses the codec.
inline constexpr int32_t kNoModel = 20;

// The neural predictor with the model beside this process's executable, or what kModelVariable
// asks for. Without a usable model says on stderr what is wrong, and returns one that refuses.
std::unique_ptr<Predictor> ChoosePredictor();

}  // namespace aiplc::worker

#endif
