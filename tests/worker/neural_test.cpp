// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/neural.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "bench/allocations.h"
#include "worker/model/tensor_file.h"

namespace aiplc::worker {
namespace {

using Window = std::array<int16_t, kWindowSamples>;

std::shared_ptr<const Model> LoadModel() {
    std::string fault;
    std::shared_ptr<const Model> model = Model::Load(AIPLC_WEIGHTS "/model.bin", fault);
    if (!model) throw std::runtime_error(fault);
    return model;
}

// Values that PyTorch computed, written by training/export.py.
class Vectors {
  public:
    template <typename T>
    std::vector<T> Get(const std::string &name) const {
        const Tensor &tensor = *m_file->Find(name);
        std::vector<T> values(tensor.values.size() / sizeof(T));
        std::memcpy(values.data(), tensor.values.data(), tensor.values.size());
        return values;
    }
    std::vector<Window> Windows() const {
        const auto samples = Get<int16_t>("window");
        std::vector<Window> windows(samples.size() / kWindowSamples);
        std::memcpy(windows.data(), samples.data(), samples.size() * sizeof(int16_t));
        return windows;
    }

  private:
    std::string m_fault;
    std::optional<TensorFile> m_file =
        TensorFile::Load(AIPLC_WEIGHTS "/model_vectors.bin", m_fault);
};

}  // namespace

TEST(Neural, PredictionsArePyTorchsWithoutAllocations) {
    const Vectors vectors;
    const auto windows = vectors.Windows();
    const auto signals = vectors.Get<int16_t>("signals");
    const auto predictions = vectors.Get<int16_t>("answer");
    ASSERT_EQ(windows.size(), 10U);
    Candidates candidates;
    Neural neural(LoadModel());
    Window classic;
    Window out;
    Window again;
    for (size_t w = 0; w < windows.size(); ++w) {
        ASSERT_TRUE(candidates.Make(windows[w], classic));
        for (size_t kind = 0; kind < kSignals; ++kind) {
            const auto &signal = candidates[static_cast<Candidates::Kind>(kind)];
            EXPECT_TRUE(std::ranges::equal(
                signal,
                std::span(signals).subspan((w * kSignals + kind) * kSeenSamples, kSeenSamples)))
                << w << ' ' << kind;
        }
        const auto before = bench::Allocations();
        EXPECT_EQ(neural.Predict(windows[w], out), 0);
        EXPECT_EQ(neural.Predict(windows[w], again), 0);
        EXPECT_EQ(bench::Allocations(), before);
        EXPECT_EQ(out, again);
        const size_t gap = candidates.LastGap().begin;
        int worst = 0;
        for (size_t i = 0; i < kWindowSamples; ++i) {
            const int expected =
                i < gap ? classic[i] : predictions[w * kSeenSamples + i - kSeenBegin];
            const int error = std::abs(out[i] - expected);
            worst = std::max(worst, i < gap ? 10 * error : error);
        }
        EXPECT_LE(worst, 2) << w;
        EXPECT_NE(out, classic) << w;
    }
    EXPECT_EQ(neural.Counted().predictions, 20U);
    EXPECT_EQ(neural.Counted().replaced, 0U);
}

// No gap, an old one, nothing before it, nothing at all.
TEST(Neural, LeavesToTheAutoregressiveWhatItCannotDo) {
    Neural neural(LoadModel());
    Autoregressive autoregressive;
    const Window window = Vectors().Windows()[0];
    for (const auto &[begin, end] : {std::pair<size_t, size_t>{0, 0}, {2, 3}, {0, 7}, {0, 8}}) {
        Window in = window;
        std::fill_n(in.begin() + 1600, 320, int16_t{9});  // where the vector's own gap is
        std::fill(&in[begin * kFrameSamples], in.data() + end * kFrameSamples, int16_t{0});
        Window out;
        Window expected;
        EXPECT_EQ(neural.Predict(in, out), 0);
        autoregressive.Predict(in, expected);
        EXPECT_EQ(out, expected) << begin << ' ' << end;
    }
    EXPECT_EQ(neural.Counted().predictions, 0U);
}

TEST(Neural, ContinuesASteadySoundWithoutTheNetwork) {
    Neural neural(LoadModel());
    Window window;
    for (size_t i = 0; i < window.size(); ++i)
        window[i] = static_cast<int16_t>(std::lround(5000 * std::sin(0.1728 * double(i))));
    const Window tone = window;
    std::fill_n(&window[1600], 320, int16_t{0});
    Window out;
    const auto before = bench::Allocations();
    EXPECT_EQ(neural.Predict(window, out), 0);
    EXPECT_EQ(bench::Allocations(), before);
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_NEAR(out[i], tone[i], 100) << i;
    EXPECT_EQ(neural.Counted().steady, 1U);
    EXPECT_EQ(neural.Counted().predictions, 0U);
    neural.ForgetLast();
    EXPECT_EQ(neural.Counted().steady, 0U);
}

// On every instruction set of this machine, against the definition.
TEST(Convolution, IsTheSameOnAllInstructionSets) {
    constexpr size_t kInputCount = 5;
    constexpr size_t kOutputCount = 17;
    constexpr size_t kWide = 96;
    constexpr size_t kPadded = Convolution::Padded(kOutputCount);
    static_assert(kPadded == 24);
    std::vector<Row> weightRows(kPadded * kInputCount * 3 / kColumns + 2);
    float *const weights = weightRows.data()->at;
    std::vector<float> bias(kPadded);
    std::vector<float> in(kInputCount * kWide);
    const auto value = [](size_t i) {
        return static_cast<float>(std::sin(double{1.7} * double(i)));
    };
    for (size_t i = 0; i < kPadded * kInputCount * 3; ++i)
        weights[i] = value(i);
    for (size_t i = 0; i < kPadded; ++i)
        bias[i] = value(i + 1000);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = value(i + 2000);
    const Convolution convolution{weights, bias.data(), kInputCount, kOutputCount, 3};
    int sets = 0;
    for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0;
         left &= left - 1, ++sets) {
        hwy::GetChosenTarget().Update(left & -left);
        std::vector<Row> out(kPadded, Row{{1, 2, 3}});
        Convolve(convolution, {&in[32], kWide}, 7, Onto::sum, out);
        for (size_t row = 0; row < kOutputCount; ++row) {
            for (size_t i = 0; i < kSpectra; ++i) {
                double sum = bias[row] + (i < 3 ? static_cast<double>(i + 1) : 0);
                for (size_t k = 0; k < kInputCount * 3; ++k) {
                    const size_t panel = row / 12 * 12 * kInputCount * 3;
                    sum += double{weights[panel + k * 12 + row % 12]} *
                           in[k % kInputCount * kWide + 32 + i + 7 * (k / kInputCount) - 7];
                }
                EXPECT_NEAR(out[row].at[i], sum, 1e-5) << row << ' ' << i;
            }
        }
    }
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    EXPECT_GE(sets, 1);
}

}  // namespace aiplc::worker
