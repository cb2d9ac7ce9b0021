// SPDX-License-Identifier: BSD-2-Clause

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "tools/compare/compare_job.h"
#include "tools/compare/compare_method.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
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

// A block: its length in bytes, then its bytes.
void WriteBlock(std::FILE *file, const void *bytes, uint64_t length) {
    const bool done = std::fwrite(&length, sizeof length, 1, file) == 1 &&
                      std::fwrite(bytes, 1, length, file) == length;
    if (!done) {
        throw Failure(std::string("a call's result cannot be kept: ") + strerror(errno) +
                      "; set TMPDIR to a folder with more room");
    }
}

template <typename Container>
void ReadBlock(std::FILE *file, Container &container) {
    uint64_t length = 0;
    bool done = std::fread(&length, sizeof length, 1, file) == 1;
    if (done) {
        container.resize(length / sizeof(typename Container::value_type));
        done = std::fread(container.data(), 1, length, file) == length;
    }
    if (!done) throw Failure("a call's result is cut short");
}

}  // namespace

void WriteResult(const CompareResult &result, int descriptor) {
    const File file = Open(descriptor, "wb");
    std::vector<double> numbers = PackScores(result.scores);
    numbers.push_back(static_cast<double>(result.requests));
    numbers.push_back(static_cast<double>(result.requestsFailed));
    numbers.push_back(static_cast<double>(result.sound.wholeBytes));
    WriteBlock(file.get(), numbers.data(), numbers.size() * sizeof(double));
    for (const std::string *text :
         {&result.entry, &result.rows, &result.sound.whole, &result.sound.excerpts, &result.notes})
        WriteBlock(file.get(), text->data(), text->size());
    if (std::fflush(file.get()) != 0)
        throw Failure(std::string("a call's result cannot be kept: ") + strerror(errno));
}

CompareResult ReadResult(int descriptor) {
    const File file = Open(descriptor, "rb");
    CompareResult result;
    std::vector<double> numbers;
    ReadBlock(file.get(), numbers);
    for (std::string *text :
         {&result.entry, &result.rows, &result.sound.whole, &result.sound.excerpts, &result.notes})
        ReadBlock(file.get(), *text);
    result.scores = UnpackScores(numbers, CompareMethods().size());
    const size_t last = numbers.size() - 1;
    result.requests = static_cast<uint64_t>(numbers[last - 2]);
    result.requestsFailed = static_cast<uint64_t>(numbers[last - 1]);
    result.sound.wholeBytes = static_cast<int64_t>(numbers[last]);
    return result;
}

}  // namespace aiplc::tools
