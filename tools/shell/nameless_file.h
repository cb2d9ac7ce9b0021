// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_NAMELESS_FILE_H
#define AIPLC_TOOLS_NAMELESS_FILE_H

namespace aiplc::tools {

// Opens a temporary file without a name, in $TMPDIR or /tmp, for reading and writing; it is gone
// with its last descriptor, which the caller closes. Throws Failure.
int OpenNamelessFile();

}  // namespace aiplc::tools

#endif
