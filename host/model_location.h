// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_MODEL_LOCATION_H
#define AIPLC_HOST_MODEL_LOCATION_H

#include <string>

namespace aiplc::host {

// The file of the network's weights for a host that predicts in its own process: the one that
// AIPLC_MODEL of the environment names, else x64/xanu_audio_aiplc.model beside the program, else
// the one that was installed with this library. Empty when AIPLC_MODEL asks for the predictor that
// needs no weights. The file need not exist.
std::string ModelLocation();

}  // namespace aiplc::host

#endif
