// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using Samples = std::vector<int16_t>;

void ExpectTriangle(const float *table, int length) {
    for (int k = 0; k < length; ++k) {
        char text[32];
        std::snprintf(text, sizeof text, "%.9g", (k + 0.5) / length);
        EXPECT_EQ(table[k], std::strtof(text, nullptr)) << k;
        EXPECT_EQ(table[2 * length - 1 - k], table[k]) << k;
        EXPECT_FLOAT_EQ(table[k] + table[length + k], 1.0F) << k;
    }
}

}  // namespace

TEST(Windows, AreTrianglesOfNineDigits) {
    ExpectTriangle(g_aiplcTriangWin16K, 320);
    ExpectTriangle(g_aiplcTriangWin48K, 960);
    EXPECT_EQ(g_aiplcTriangWin48K[14], 0.0151041672F);
}

TEST(Fades, ScaleABlockOf320) {
    for (const int sign : {1, -1}) {
        Samples out(320, static_cast<int16_t>(10000 * sign));
        Samples in = out;
        AiPlc16kFadeOut(out.data());
        AiPlc16kFadeIn(in.data());
        const int first[] = {9984, 9953};
        const int last[] = {46, 15};
        for (size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(out[i], sign * first[i]);
            EXPECT_EQ(out[318 + i], sign * last[i]);
            EXPECT_EQ(in[319 - i], sign * first[i]);
            EXPECT_EQ(in[1 - i], sign * last[i]);
        }
    }
    Samples extreme(320, 0);
    extreme[0] = 32767;
    AiPlc16kFadeOut(extreme.data());
    EXPECT_EQ(extreme[0], 32715);
    extreme[0] = -32768;
    AiPlc16kFadeOut(extreme.data());
    EXPECT_EQ(extreme[0], -32716);
}

TEST(CrossFade, MovesFromOutgoingToIncoming) {
    const Samples outgoing(320, 10000);
    Samples incoming(320, -10000);
    AiPlcFuseSmooth(outgoing.data(), incoming.data(), g_aiplcTriangWin16K, 320);
    EXPECT_EQ(incoming[0], 9969);
    EXPECT_EQ(incoming[1], 9907);
    EXPECT_EQ(incoming[159], 31);
    EXPECT_EQ(incoming[160], -31);
    EXPECT_EQ(incoming[319], -9969);

    const Samples source(960, 10000);
    Samples result(960, 0);
    EXPECT_EQ(AiPlcWinSmoothing(source.data(), result.data(), 960), 0);
    EXPECT_EQ(result[0], 5);
    EXPECT_EQ(result[1], 15);
    EXPECT_EQ(result[959], 9994);
    const Samples before = result;
    EXPECT_EQ(AiPlcWinSmoothing(source.data(), result.data(), 959), -1);
    EXPECT_EQ(AiPlcWinSmoothing(nullptr, result.data(), 960), -1);
    EXPECT_EQ(result, before);
}
