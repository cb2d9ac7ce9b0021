// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_REPORT_PAGE_H
#define AIPLC_TOOLS_REPORT_PAGE_H

#include <string_view>

namespace aiplc::tools {

// report/dist/report.html as it was when this program was built.
std::string_view ReportPage();

}  // namespace aiplc::tools

#endif
