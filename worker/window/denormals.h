// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_DENORMALS_H
#define AIPLC_WORKER_DENORMALS_H

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace aiplc::worker {

// Decaying filters run into denormal numbers, which cost a hundred times a normal one. On this
// thread they count as 0 for as long as this object lives; then the caller's mode is back. The
// predictions of all hosts are made in this mode, so that they are the same.
class DenormalsAreZero {
  public:
    DenormalsAreZero() {
#if defined(__SSE__)
        constexpr unsigned kFlushToZero = 0x8000;
        constexpr unsigned kInputsAreZero = 0x0040;
        m_before = _mm_getcsr();
        _mm_setcsr(m_before | kFlushToZero | kInputsAreZero);
#endif
    }
    ~DenormalsAreZero() {
#if defined(__SSE__)
        _mm_setcsr(m_before);
#endif
    }
    DenormalsAreZero(const DenormalsAreZero &) = delete;
    DenormalsAreZero &operator=(const DenormalsAreZero &) = delete;

  private:
#if defined(__SSE__)
    unsigned m_before = 0;
#endif
};

}  // namespace aiplc::worker

#endif
