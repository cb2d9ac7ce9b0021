// SPDX-License-Identifier: BSD-2-Clause

#include "measure/bootstrap.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace aiplc::measure {
namespace {

// Takes the interval that 95 % of the draws lie in.
template <typename ValueOfDraw>
void SetInterval(Estimate &estimate, ValueOfDraw valueOfDraw) {
    std::vector<double> values;
    for (size_t draw = 0; draw < size_t{Bootstrap::kDraws}; ++draw) {
        const double value = valueOfDraw(draw);
        if (std::isfinite(value)) values.push_back(value);
    }
    if (values.empty()) return;
    std::sort(values.begin(), values.end());
    const auto last = static_cast<double>(values.size() - 1);
    estimate.low = values[static_cast<size_t>(std::lround(0.025 * last))];
    estimate.high = values[static_cast<size_t>(std::lround(0.975 * last))];
}

}  // namespace

void Bootstrap::AddUnit(std::span<const Term> terms) {
    m_terms.insert(m_terms.end(), terms.begin(), terms.end());
}

void Bootstrap::Draw(uint64_t seed) {
    const size_t units = Units();
    m_means.clear();
    if (units < 2) return;
    std::mt19937_64 random(seed);
    m_means.reserve(kDraws * m_columns);
    std::vector<Term> sums(m_columns);
    for (int draw = 0; draw < kDraws; ++draw) {
        std::fill(sums.begin(), sums.end(), Term{});
        for (size_t i = 0; i < units; ++i) {
            // 32 random bits spread over the units; what std::uniform_int_distribution does with
            // them is each library's own choice.
            const size_t unit = ((random() >> 32) * units) >> 32;
            const Term *terms = &m_terms[unit * m_columns];
            for (size_t column = 0; column < m_columns; ++column)
                sums[column] += terms[column];
        }
        for (const Term &sum : sums) {
            m_means.push_back(sum.count > 0.0 ? sum.sum / sum.count
                                              : std::numeric_limits<double>::quiet_NaN());
        }
    }
}

Term Bootstrap::Total(size_t column) const {
    Term total;
    for (size_t i = column; i < m_terms.size(); i += m_columns)
        total += m_terms[i];
    return total;
}

std::optional<Estimate> Bootstrap::Mean(size_t column) const {
    const Term total = Total(column);
    if (total.count <= 0.0) return std::nullopt;
    Estimate estimate;
    estimate.value = total.sum / total.count;
    estimate.count = total.count;
    if (!m_means.empty())
        SetInterval(estimate, [&](size_t draw) { return m_means[draw * m_columns + column]; });
    return estimate;
}

std::optional<Estimate> Bootstrap::Difference(size_t column, size_t from) const {
    const Term one = Total(column);
    const Term other = Total(from);
    if (one.count <= 0.0 || other.count <= 0.0) return std::nullopt;
    Estimate estimate;
    estimate.value = one.sum / one.count - other.sum / other.count;
    estimate.count = std::min(one.count, other.count);
    if (!m_means.empty()) {
        SetInterval(estimate, [&](size_t draw) {
            const double *means = &m_means[draw * m_columns];
            return means[column] - means[from];
        });
    }
    return estimate;
}

}  // namespace aiplc::measure
