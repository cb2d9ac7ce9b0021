// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_MODEL_FACTS_H
#define AIPLC_TOOLS_MODEL_FACTS_H

#include <string>

namespace aiplc::tools {

// Lines on the model that this program's worker will use, or on what is wrong with it.
std::string ModelFacts();

// The same in one line that names no path.
std::string ModelLine();

}  // namespace aiplc::tools

#endif
