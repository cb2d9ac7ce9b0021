// SPDX-License-Identifier: BSD-2-Clause

#include "worker/model/model_file.h"
#include "worker/model/model_path.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

#include "tests/tools/test_files.h"
#include "worker/model/tensor_file.h"
#include "worker/network/neural.h"
#include "worker/service/predictor_choice.h"

namespace aiplc::worker {
namespace {

using testing::HasSubstr;
using tools::Bytes;
using Window = std::array<int16_t, kWindowSamples>;

class ModelFile : public tools::FolderTest {
  protected:
    ModelFile() {
        std::ifstream file(AIPLC_WEIGHTS "/model.bin", std::ios::binary);
        good.assign(std::istreambuf_iterator<char>(file), {});
    }
    // Where what follows a tensor's name begins: kind, number of dimensions, dimensions, values.
    size_t Behind(const std::string &name) const {
        const auto at = std::search(good.begin(), good.end(), name.begin(), name.end());
        return static_cast<size_t>(at - good.begin()) + name.size();
    }
    // A copy with other bytes at a place, and a checksum that is right again.
    Bytes With(size_t at, const Bytes &bytes) const {
        Bytes changed = good;
        std::ranges::copy(bytes, changed.begin() + static_cast<std::ptrdiff_t>(at));
        const auto size = static_cast<uInt>(changed.size() - 20);
        std::ranges::copy(tools::Little(crc32(0, &changed[20], size), 4), changed.begin() + 16);
        return changed;
    }
    static Bytes Float(float value) {
        uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return tools::Little(bits, 4);
    }

    Bytes good;
};

}  // namespace

TEST_F(ModelFile, RefusesWhatIsDamagedOrOfAnotherModel) {
    Bytes flipped = good;
    flipped[flipped.size() / 2] ^= 4;
    // The right number of values, in another shape.
    const uint8_t *const shape = &good[Behind("enter.weight") + 2];
    const Bytes turned = tools::Join({Bytes(shape + 4, shape + 8), Bytes(shape, shape + 4)});
    const struct {
        Bytes bytes;
        const char *fault;
    } cases[] = {
        {{}, "has 0 bytes"},
        {Bytes(good.begin(), good.begin() + 23), "has 23 bytes"},
        {Bytes(good.begin(), good.end() - 1), "is damaged"},
        {flipped, "is damaged"},
        {With(0, {'R', 'I', 'F', 'F'}), "does not begin with AIPLCNN1"},
        {With(8, {1}), "version 1 of the model; this worker needs 2"},
        {With(12, {1}), "does not hold the 1 tensors"},
        {With(12, {255, 255, 255, 255}), "does not hold the 4294967295 tensors"},
        {With(Behind("enter.weight") + 6, {255, 255, 255, 255}), "does not hold"},
        {With(Behind("enter.weight") + 1, {255}), "does not hold"},
        {With(Behind("enter.bias"), {1}), "does not hold"},
        {With(Behind("enter.weight") + 2, turned), "it should be float32 with shape"},
        {With(Behind("act.weight") - 1, {'s'}), "act.weigh"},
        {With(Behind("dilations") + 6, Float(17)), "dilation of 17"},
        {With(Behind("dilations") + 6, Float(1.5F)), "dilation of 1.5"},
        {With(Behind("refiner.dilations") + 6, Float(9)), "dilation of 9"},
        {With(Behind("leave.weight") + 14, Float(std::numeric_limits<float>::infinity())),
         "leave.weight that are not finite"},
    };
    for (const auto &[bytes, part] : cases) {
        std::string fault;
        const std::string path = Write("model", bytes);
        EXPECT_EQ(Model::Load(path, fault), nullptr) << part;
        EXPECT_THAT(fault, testing::StartsWith(path + ": "));
        EXPECT_THAT(fault, HasSubstr(part));
    }
}

TEST_F(ModelFile, WithoutAModelEveryRequestIsRefusedAndTheReasonSaid) {
    const auto choose = [](const std::string &wish) {
        setenv(kModelVariable, wish.c_str(), 1);
        testing::internal::CaptureStderr();
        auto predictor = ChoosePredictor();
        unsetenv(kModelVariable);
        return std::pair(std::move(predictor), testing::internal::GetCapturedStderr());
    };
    Window window{};
    Window out{};
    // None lies beside this test.
    for (const std::string &wish : {Path("nix"), std::string()}) {
        const auto [predictor, said] = choose(wish);
        EXPECT_THAT(said, HasSubstr(wish.empty() ? "/xanu_audio_aiplc.model: "
                                                 : wish + ": cannot be read"));
        EXPECT_EQ(predictor->Predict(window, out), kNoModel);
    }
    for (const std::string wish : {AIPLC_WEIGHTS "/model.bin", "autoregressive"}) {
        const auto [predictor, said] = choose(wish);
        EXPECT_EQ(said, "");
        EXPECT_EQ(predictor->Predict(window, out), 0);
    }
}

// A model whose gains are far too high: the autoregressive prediction is heard, and it is said.
TEST_F(ModelFile, PredictionsOutOfBoundsAreReplacedAndCounted) {
    std::string fault;
    const size_t gains = Behind("leave.bias") + 6;
    Bytes bytes = good;
    for (size_t i = 0; i < 20; ++i)
        std::ranges::copy(Float(30), bytes.begin() + static_cast<std::ptrdiff_t>(gains + 4 * i));
    std::swap(good, bytes);
    auto model = Model::Load(Write("loud", With(0, {})), fault);
    ASSERT_TRUE(model) << fault;
    Neural neural(std::move(model));
    Window window;
    for (size_t i = 0; i < window.size(); ++i) {
        const auto t = static_cast<double>(i);
        window[i] = static_cast<int16_t>(std::lround(3000 * std::sin(0.1 * t + t * t / 40000)));
    }
    std::fill_n(&window[1600], 640, int16_t{0});
    Window out;
    Window expected;
    EXPECT_EQ(neural.Predict(window, out), 0);
    neural.ForgetLast();
    EXPECT_EQ(neural.Predict(window, out), 0);
    Autoregressive().Predict(window, expected);
    EXPECT_EQ(out, expected);
    testing::internal::CaptureStderr();
    neural.Report();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("1 of 1 predictions"));
}

}  // namespace aiplc::worker
