// SPDX-License-Identifier: BSD-2-Clause
//
// Results travel between processes as MessagePack.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/compare/compare_job.h"
#include "tools/shell/failure.h"

namespace aiplc::measure {
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Term, sum, count)
}  // namespace aiplc::measure

namespace aiplc::tools {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(GapTerms, inside, after)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(GapScores, first, frames, methods)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(StretchTerms, intelligibility, interruptions, shares)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(StretchScores, methods)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CallScores, gaps, stretches)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CallSound, whole, excerpts, wholeBytes)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CompareResult, scores, entry, rows, sound, notes, requests,
                                   requestsFailed)

namespace {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File Open(int descriptor, const char *mode) {
    const int own = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    File file(own >= 0 ? fdopen(own, mode) : nullptr);
    if (!file) throw Failure(std::string("a call's result: ") + strerror(errno));
    return file;
}

}  // namespace

void WriteResult(const CompareResult &result, int descriptor) {
    const File file = Open(descriptor, "wb");
    const std::vector<uint8_t> bytes = nlohmann::json::to_msgpack(result);
    if (std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
        std::fflush(file.get()) != 0) {
        throw Failure(std::string("a call's result cannot be kept: ") + strerror(errno) +
                      "; set TMPDIR to a folder with more room");
    }
}

CompareResult ReadResult(int descriptor) {
    const File file = Open(descriptor, "rb");
    try {
        return nlohmann::json::from_msgpack(file.get()).get<CompareResult>();
    } catch (const nlohmann::json::exception &) {
        throw Failure("a call's result is cut short");
    }
}

}  // namespace aiplc::tools
