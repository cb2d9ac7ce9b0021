// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_WINDOW_FILE_H
#define AIPLC_TRAINING_WINDOW_FILE_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "tools/shell/output_file.h"
#include "training/collect/window_record.h"

namespace aiplc::training {

// Windows in files of at most kRecordsPerShard records each, PREFIX_000.windows and so on. A shard
// appears in the folder when it is whole.
class WindowFiles {
  public:
    static constexpr uint64_t kRecordsPerShard = 8192;  // 210 MB

    explicit WindowFiles(std::string prefix) : m_prefix(std::move(prefix)) {}

    // Throws tools::Failure when the disk is full or the folder cannot be written.
    void Write(std::span<const WindowRecord> records);
    // Finishes the last shard.
    void Close();

    uint64_t Records() const { return m_records; }

  private:
    std::string m_prefix;
    std::unique_ptr<tools::OutputFile> m_shard;
    int m_shards = 0;
    uint64_t m_inShard = 0;
    uint64_t m_records = 0;
};

}  // namespace aiplc::training

#endif
