// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_ADAPTER_CALL_H
#define AIPLC_ADAPTER_CALL_H

#include <cxxabi.h>

namespace aiplc {

// The result of a call into an adapter, which may be the host's own. An exception, whatever its
// type, must not pass the C interface: it counts as the call's failure, -1.
template <typename Call>
int CallAdapter(Call call) {
    try {
        return call();
#if defined(__GLIBCXX__)
    } catch (const abi::__forced_unwind &) {
        throw;  // no exception: the thread is being cancelled
#endif
    } catch (...) {
        return -1;
    }
}

}  // namespace aiplc

#endif
