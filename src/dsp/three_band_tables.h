// SPDX-License-Identifier: BSD-2-Clause
//
// Coefficients of the three-band bank at 48 kHz, cosine-modulated from one 48-tap prototype p:
// T_k[n] = p[n] cos((2k + 1) pi (n - 1) / 6). All six rows follow exactly from the lowest band's.

#ifndef AIPLC_THREE_BAND_TABLES_H
#define AIPLC_THREE_BAND_TABLES_H

#include <aiplc/aiplc.h>

#include <array>
#include <cstddef>

namespace aiplc::dsp {

using BankRow = std::array<float, AIPLC_BANK_TAPS>;
using BankTable = std::array<BankRow, AIPLC_BANDS>;

inline constexpr BankRow kLowBand = {
    -0.000827039999F, -0.000954979972F, -0.00300142006F, -0.0030481501F,  0.0F, 0.00346945995F,
    0.00267977989F,   -0.00372706004F,  -0.0105238399F,  -0.00983211957F, 0.0F, 0.00994112995F,
    0.00736980978F,   -0.00993776042F,  -0.0274664797F,  -0.0253608208F,  0.0F, 0.0258788597F,
    0.0196774099F,    -0.0277491603F,   -0.0824532583F,  -0.0854317471F,  0.0F, 0.149890035F,
    0.286604494F,     0.330942363F,     0.25961715F,     0.121545419F,    0.0F, -0.0476044118F,
    -0.0240314808F,   0.0227215197F,    0.0448235013F,   0.0298276693F,   0.0F, -0.0158577804F,
    -0.00860635005F,  0.00850991998F,   0.0172185395F,   0.0115799299F,   0.0F, -0.00607594009F,
    -0.00322773005F,  0.00309433998F,   0.00600928022F,  0.00383508997F,  0.0F, -0.00173287001F,
};

constexpr BankTable MakeAnalysisTable() {
    BankTable table{};
    for (size_t n = 0; n < AIPLC_BANK_TAPS; ++n) {
        const bool odd = n % 2 == 1;
        const size_t m = odd ? (n - 1) % 12 : 0;
        table[0][n] = kLowBand[n];
        if (odd) table[1][n] = m == 0 || m == 6 ? kLowBand[n] : -2.0F * kLowBand[n];
        table[2][n] = odd ? kLowBand[n] : -kLowBand[n];
    }
    return table;
}

// Row b holds, for each output phase r = 0..2, the 16 weights of band samples i - 15 .. i: the
// analysis filter advanced by one tap.
constexpr BankTable MakeSynthesisTable(const BankTable &analysis) {
    BankTable table{};
    for (size_t band = 0; band < AIPLC_BANDS; ++band) {
        for (size_t r = 0; r < 3; ++r) {
            for (size_t j = 0; j < 16; ++j) {
                table[band][16 * r + j] =
                    analysis[band][(46 + r + AIPLC_BANK_TAPS - 3 * j) % AIPLC_BANK_TAPS];
            }
        }
    }
    return table;
}

inline constexpr BankTable g_aiplcBandAnalysisCoeff = MakeAnalysisTable();
inline constexpr BankTable g_aiplcBandSynthesisCoeff = MakeSynthesisTable(g_aiplcBandAnalysisCoeff);

}  // namespace aiplc::dsp

#endif
