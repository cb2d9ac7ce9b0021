// SPDX-License-Identifier: BSD-2-Clause
//
// Short spectra of the samples that the network sees, and back: Hann windows, silence outside.

#ifndef AIPLC_WORKER_SHORT_SPECTRA_H
#define AIPLC_WORKER_SHORT_SPECTRA_H

#include <array>
#include <memory>
#include <span>

#include "worker/model/network_layout.h"

struct kiss_fftr_state;

namespace aiplc::worker {

// One row a bin.
struct Spectra {
    std::array<Row, kBins> re{};
    std::array<Row, kBins> im{};
};

class ShortSpectra {
  public:
    ShortSpectra();  // throws std::bad_alloc

    // The first spectrum that samples from this one on have a part in.
    static constexpr size_t FirstSpectrum(size_t sample) {
        return sample < kSpectrumSize / 2 ? 0 : (sample - kSpectrumSize / 2) / kHop + 1;
    }

    // The spectra from first on; white noise of variance 1 has power 1 in each bin.
    void Analyse(std::span<const float, kSeenSamples> signal, size_t first,
                 Spectra &spectra) noexcept;

    // The samples from begin on; needs the spectra from FirstSpectrum(begin) on.
    void Synthesise(const Spectra &spectra, size_t begin,
                    std::span<float, kSeenSamples> signal) noexcept;

  private:
    struct Free {
        void operator()(kiss_fftr_state *state) const;
    };
    using Fft = std::unique_ptr<kiss_fftr_state, Free>;
    using Padded = std::array<float, kSeenSamples + kSpectrumSize>;

    Fft m_forward;
    Fft m_inverse;
    std::array<float, kSpectrumSize> m_analysis{};   // windows with their scale
    std::array<float, kSpectrumSize> m_synthesis{};  //
    Padded m_overlap{};  // 1 over the sum of the squared windows there; padding before and after
    Padded m_padded{};
};

}  // namespace aiplc::worker

#endif
