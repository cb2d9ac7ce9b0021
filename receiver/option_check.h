// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_RECEIVER_OPTION_CHECK_H
#define AIPLC_RECEIVER_OPTION_CHECK_H

#include <aiplc/receiver.h>

#include <string>

namespace aiplc::receiver {

// Empty when every option is in its range; else which one is not, its value, and the range.
std::string OptionFault(const AiPlcReceiverOptions &options);

}  // namespace aiplc::receiver

#endif
