// SPDX-License-Identifier: BSD-2-Clause

#include "worker/model/model_path.h"

#include <cstdlib>

namespace aiplc::worker {

std::string ModelPath(const std::string &workerFolder) {
    const char *const set = std::getenv(kModelVariable);
    const std::string wish = set != nullptr ? set : "";
    if (wish == kNoModelWish) return {};
    return wish.empty() ? workerFolder + kModelFileName : wish;
}

}  // namespace aiplc::worker
