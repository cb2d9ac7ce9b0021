// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/nameless_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/shell/failure.h"

namespace aiplc::tools {

int OpenNamelessFile() {
    const char *folder = std::getenv("TMPDIR");
    std::string path = std::string(folder != nullptr ? folder : "/tmp") + "/aiplc-XXXXXX";
    const int descriptor = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor < 0) {
        throw Failure(path, std::string("cannot create a temporary file: ") + strerror(errno) +
                                "; set TMPDIR to a folder that can be written to");
    }
    unlink(path.c_str());
    return descriptor;
}

}  // namespace aiplc::tools
