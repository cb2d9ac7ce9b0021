// SPDX-License-Identifier: BSD-2-Clause

#include "tools/loss/loss_model.h"

#include <cctype>
#include <cmath>
#include <fstream>

#include "tools/shell/failure.h"
#include "tools/shell/number_text.h"

namespace aiplc::tools {
namespace {

constexpr size_t kMaxTraceBytes = size_t{64} << 20;

}  // namespace

GilbertElliott::GilbertElliott(double lossRate, double meanBurst, uint64_t seed)
    : m_random(seed), m_goodToBad(lossRate), m_badToGood(1.0 - lossRate), m_lossRate(lossRate) {
    if (!(lossRate >= 0.0 && lossRate < 1.0)) {
        throw UsageError("--loss " + NumberText(100.0 * lossRate) +
                         ": not a share of packets that can be lost; give a percentage from 0 to "
                         "below 100, such as --loss 10");
    }
    if (meanBurst == 0.0) return;
    if (!(meanBurst >= 1.0 && std::isfinite(meanBurst))) {
        throw UsageError("--burst " + NumberText(meanBurst) +
                         ": a burst has at least one packet; give a mean of 1 or more");
    }
    m_badToGood = 1.0 / meanBurst;
    m_goodToBad = m_badToGood * lossRate / (1.0 - lossRate);
    if (m_goodToBad > 1.0) {
        throw UsageError(
            "--loss " + NumberText(100.0 * lossRate) + " with --burst " + NumberText(meanBurst) +
            ": bursts this short cannot lose that much; at most " +
            NumberText(100.0 * meanBurst / (meanBurst + 1.0)) + " %, or give a mean burst of " +
            NumberText(lossRate / (1.0 - lossRate)) + " or more");
    }
}

// 53 random bits: what std::uniform_real_distribution yields is the library's own choice, this is
// the same everywhere.
double GilbertElliott::Uniform() {
    return static_cast<double>(m_random() >> 11) * 0x1p-53;
}

bool GilbertElliott::NextLost() {
    const double draw = Uniform();
    if (!m_started) {
        m_started = true;
        m_bad = draw < m_lossRate;
    } else {
        m_bad = m_bad ? draw >= m_badToGood : draw < m_goodToBad;
    }
    return m_bad;
}

LossTrace::LossTrace(const std::string &text, const std::string &fileName) {
    size_t line = 1;
    size_t column = 0;
    for (const char c : text) {
        ++column;
        if (c == '0' || c == '1') {
            m_lost.push_back(c == '1');
        } else if (c == '\n') {
            ++line;
            column = 0;
        } else if (std::isspace(static_cast<unsigned char>(c)) == 0) {
            throw Failure(fileName, "line " + std::to_string(line) + ", column " +
                                        std::to_string(column) +
                                        " is neither 0 nor 1; a loss trace has one digit per "
                                        "packet, 0 = received, 1 = lost");
        }
    }
    if (m_lost.empty()) {
        throw Failure(fileName, "the loss trace is empty; give at least one 0 or 1");
    }
}

LossTrace LossTrace::Load(const std::string &fileName) {
    std::ifstream file(fileName, std::ios::binary);
    if (!file) throw Failure(fileName, "cannot be read; give a text file of 0 and 1");
    std::string text;
    char block[4096];
    while (file.read(block, sizeof block), file.gcount() > 0) {
        text.append(block, static_cast<size_t>(file.gcount()));
        if (text.size() > kMaxTraceBytes) {
            throw Failure(fileName,
                          "longer than 64 MiB; a loss trace repeats, a short one will do");
        }
    }
    return {text, fileName};
}

bool LossTrace::NextLost() {
    const bool lost = m_lost[m_next];
    m_next = (m_next + 1) % m_lost.size();
    return lost;
}

}  // namespace aiplc::tools
