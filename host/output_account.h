// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_OUTPUT_ACCOUNT_H
#define AIPLC_HOST_OUTPUT_ACCOUNT_H

#include <cstdint>

#include "host/output_frame.h"
#include "host/pipeline_channel.h"
#include "host/statistics.h"

namespace aiplc::host {

// The result of the channel's last call. handedIn and concealed tell what the frame was made of
// when it was handed to the library, which matters where the library plays it as received.
OutputFrame DescribeOutput(const PipelineChannel &channel, int64_t frame, AiPlcFrameSource handedIn,
                           uint32_t concealed);

// Adds output frames up.
class OutputAccount {
  public:
    // statistics outlives the account.
    OutputAccount(uint32_t sampleRate, Statistics &statistics)
        : m_sampleRate(sampleRate), m_statistics(statistics) {}

    void Count(const OutputFrame &frame);
    // Writes how long the requests took.
    void FillInTimes(Statistics &statistics) const;

  private:
    void CountDecision(const OutputFrame &frame);
    void CountSamples(const OutputFrame &frame);

    uint32_t m_sampleRate;
    Statistics &m_statistics;
    RequestTimes m_requestTimes;
    bool m_concealing = false;  // the last frame had concealed samples
};

}  // namespace aiplc::host

#endif
