// SPDX-License-Identifier: BSD-2-Clause
//
// Dimensions that the network's weights were trained for, as in training/model.py.

#ifndef AIPLC_WORKER_NETWORK_LAYOUT_H
#define AIPLC_WORKER_NETWORK_LAYOUT_H

#include <cstddef>

#include "worker/window/predictor.h"

namespace aiplc::worker {

// The network sees a window from its third frame on.
inline constexpr size_t kSeenBegin = 2 * kFrameSamples;
inline constexpr size_t kSeenSamples = kWindowSamples - kSeenBegin;

// Short spectra of kSpectrumSize samples, centred on samples 0, 80, .. 1920 of those seen.
inline constexpr size_t kSpectrumSize = 320;
inline constexpr size_t kHop = 80;
inline constexpr size_t kSpectra = kSeenSamples / kHop + 1;
inline constexpr size_t kBins = kSpectrumSize / 2 + 1;
inline constexpr size_t kBands = 64;

// The signals of candidates.h; the first is the autoregressive prediction.
inline constexpr size_t kSignals = 6;
inline constexpr size_t kOthers = kSignals - 1;

// Levels of the prediction's bins, of the others' bands and of the noise; phases of the others'
// bands relative to the prediction's, real parts first; what is missing, what lies from the last
// gap on, the window's level.
inline constexpr size_t kInputs = kBins + kSignals * kBands + 2 * kOthers * kBands + 3;
// Gains: of the prediction's bins, of the others' bands (of each real parts first), of the noise.
inline constexpr size_t kOutputs = 2 * kBins + 2 * kOthers * kBands + kBands;

// The second stage, bin by bin. Levels of the prediction, the signals and the noise; phases of the
// signals relative to the prediction's, real parts first, and the prediction's advance; what is
// missing, what is open, the frequency; what the first stage passes on, for each band.
inline constexpr size_t kContext = 4;
// It covers the bins up to 5.6 kHz; above there are few harmonics.
inline constexpr size_t kRefinedBins = 112;
// The first spectrum that it changes: a gap begins at spectrum 8 or behind it.
inline constexpr size_t kRefined = 9;
inline constexpr size_t kRefinerInputs = 1 + kSignals + 1 + 2 * kSignals + 2 + 3 + kContext;
// Gains of the prediction and the signals, real parts first; of the noise.
inline constexpr size_t kRefinerOutputs = 2 * (1 + kSignals) + 1;

// A level or a channel at all spectra. The columns from kSpectra on fill up vectors; what they hold
// means nothing.
inline constexpr size_t kColumns = 32;
struct alignas(64) Row {
    float at[kColumns];
};

}  // namespace aiplc::worker

#endif
