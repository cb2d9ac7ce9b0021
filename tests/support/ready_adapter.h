// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_READY_ADAPTER_H
#define AIPLC_TESTS_READY_ADAPTER_H

#include <aiplc/adapter.h>

// An adapter whose worker is there at once. What it answers is up to the derived class.
struct ReadyAdapter : AiplcAdapterInterface {
    int Create() override { return 0; }
    int Init() override { return 0; }
    int Delete() override { return 0; }
};

#endif
