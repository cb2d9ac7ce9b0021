// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/adapter.h>

// Out of line, so that the vtable and the type's identity are the library's alone.
AiplcAdapterInterface::~AiplcAdapterInterface() = default;
