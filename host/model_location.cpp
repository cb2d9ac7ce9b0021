// SPDX-License-Identifier: BSD-2-Clause

#include "host/model_location.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

#include "worker/model/model_path.h"

namespace aiplc::host {
namespace {

namespace fs = std::filesystem;

fs::path ProgramFolder() {
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path();
}

// The folder of the file, library or program, that this code was loaded from.
fs::path LibraryFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&ModelLocation), &info) == 0) return {};
    std::error_code error;
    return fs::canonical(info.dli_fname, error).parent_path();
}

}  // namespace

std::string ModelLocation() {
    const fs::path beside = ProgramFolder() / "x64" / "";
    std::string chosen = worker::ModelPath(beside);
    std::error_code error;
    if (chosen != (beside / worker::kModelFileName).string() || fs::exists(chosen, error))
        return chosen;
    const fs::path installed = LibraryFolder() / AIPLC_WORKER_FROM_LIBRARY / worker::kModelFileName;
    return fs::exists(installed, error) ? installed.lexically_normal().string() : chosen;
}

}  // namespace aiplc::host
