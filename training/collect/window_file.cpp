// SPDX-License-Identifier: BSD-2-Clause

#include "training/collect/window_file.h"

#include <cstdio>

namespace aiplc::training {

void WindowFiles::Write(std::span<const WindowRecord> records) {
    for (const WindowRecord &record : records) {
        if (!m_shard) {
            char number[16];
            std::snprintf(number, sizeof number, "_%03d.windows", m_shards++);
            m_shard =
                std::make_unique<tools::OutputFile>(m_prefix + number, tools::OutputFile::kNoInput);
        }
        m_shard->Write({reinterpret_cast<const char *>(&record), sizeof record});
        ++m_records;
        if (++m_inShard == kRecordsPerShard) Close();
    }
}

void WindowFiles::Close() {
    if (m_shard) m_shard->Commit();
    m_shard.reset();
    m_inShard = 0;
}

}  // namespace aiplc::training
