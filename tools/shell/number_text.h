// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_NUMBER_TEXT_H
#define AIPLC_TOOLS_NUMBER_TEXT_H

#include <optional>
#include <string>

namespace aiplc::tools {

// As short as so many significant digits allow: "10", "2.5", "1e-07".
std::string NumberText(double value, int digits = 6);

// The part in percent of the whole; 0 where there is no whole.
double Percent(double part, double whole);

// The number that the text is as a whole, in C's notation; it may be infinite or no number ("nan").
std::optional<double> ParseNumber(const std::string &text);

}  // namespace aiplc::tools

#endif
