// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_BOOTSTRAP_H
#define AIPLC_MEASURE_BOOTSTRAP_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace aiplc::measure {

// Contribution of one resampled unit, such as a gap, to a mean: the sum of its values and their
// number.
struct Term {
    double sum = 0.0;
    double count = 0.0;

    Term &operator+=(const Term &other) {
        sum += other.sum;
        count += other.count;
        return *this;
    }
    bool operator==(const Term &) const = default;
};

// A mean with its 95 % interval; the interval is there from two units on.
struct Estimate {
    double value = 0.0;
    double count = 0.0;  // values in the mean
    std::optional<double> low;
    std::optional<double> high;
};

// Percentile bootstrap (Efron, "Bootstrap methods: another look at the jackknife", Ann. Statist.
// 7(1), 1979) of means over units that are drawn whole, so that values of one unit may depend on
// each other. All columns see the same draws, which makes the interval of a difference a paired
// one. The same units, seed and draws give the same intervals everywhere.
class Bootstrap {
  public:
    static constexpr int kDraws = 1000;

    // columns: means that are estimated from the same units.
    explicit Bootstrap(size_t columns) : m_columns(columns) {}

    // One unit: its term for every column.
    void AddUnit(std::span<const Term> terms);
    // Draws as many units as there are, kDraws times; once, before the estimates are asked for.
    void Draw(uint64_t seed);

    // Nothing when no unit has a value in the column.
    [[nodiscard]] std::optional<Estimate> Mean(size_t column) const;
    // Of the mean of one column less that of another.
    [[nodiscard]] std::optional<Estimate> Difference(size_t column, size_t from) const;

    [[nodiscard]] size_t Units() const { return m_terms.size() / m_columns; }

  private:
    [[nodiscard]] Term Total(size_t column) const;

    size_t m_columns;
    std::vector<Term> m_terms;    // unit by unit
    std::vector<double> m_means;  // draw by draw; no number where a draw has no value
};

}  // namespace aiplc::measure

#endif
