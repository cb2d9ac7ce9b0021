// SPDX-License-Identifier: BSD-2-Clause

#include "src/dsp/truncate.h"

const aiplc::dsp::PcmRange aiplc::dsp::kPcmRange = {-32768.0F, 32767.0F};
