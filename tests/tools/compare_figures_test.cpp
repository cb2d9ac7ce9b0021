// SPDX-License-Identifier: BSD-2-Clause
//
// From scores to figures to gates, on scores made by hand.

#include "tools/compare/compare_figures.h"

#include <gmock/gmock.h>

#include "tools/compare/compare_format.h"
#include "tools/compare/compare_method.h"
#include "tools/compare/figure_gate.h"
#include "tools/compare/flac_audio.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::ThrowsMessage;

const size_t kCodec = MethodIndex(CompareMethod::Id::codec);
const size_t kAiplc = MethodIndex(CompareMethod::Id::aiplc);

// A gap in which the codec's frames are distance away, and those of aiplc two less.
GapScores Gap(int64_t frames, double distance) {
    GapScores gap{100, frames, std::vector<GapTerms>(CompareMethods().size())};
    const auto count = static_cast<double>(frames);
    gap.methods[kCodec].inside[0] = {distance * count, count};
    gap.methods[kAiplc].inside[0] = {(distance - 2.0) * count, count};
    gap.methods[kCodec].after[0] = {3.0, 2.0};
    return gap;
}

CallScores Call(const std::vector<GapScores> &gaps, double correlation) {
    CallScores call;
    call.gaps = gaps;
    call.stretches.resize(3);
    for (StretchScores &stretch : call.stretches) {
        stretch.methods.resize(CompareMethods().size());
        StretchTerms &terms = stretch.methods[kCodec];
        terms.intelligibility = {correlation * 10.0, 10.0};
        terms.interruptions = {1.0, 1.0 / 30.0};
        for (measure::Term &share : terms.shares)
            share.count = 100.0;
        terms.shares[static_cast<size_t>(AIPLC_SOURCE_CODEC)].sum = 2500.0;
    }
    return call;
}

std::vector<CallScores> TwoCalls() {
    return {Call({Gap(1, 10.0), Gap(1, 12.0), Gap(5, 20.0)}, 0.9),
            Call({Gap(2, 13.0), Gap(3, 18.0)}, 0.7)};
}

const CompareFigure &Figure(const std::vector<CompareFigure> &figures, size_t method,
                            CompareKind kind, CompareMeasure measure) {
    const CompareFigure *figure = FindFigure(figures, method, kind, measure);
    if (figure == nullptr) throw std::runtime_error("no such figure");
    return *figure;
}

TEST(CompareFiguresTest, MeansByKindAndPairedIntervals) {
    for (const ResampledUnit unit : {ResampledUnit::gaps, ResampledUnit::calls}) {
        const auto figures = MakeFigures(TwoCalls(), unit);
        const auto codec = [&](CompareKind kind) {
            return Figure(figures, kCodec, kind, CompareMeasure::lsd).estimate;
        };
        EXPECT_DOUBLE_EQ(codec(CompareKind::gap1).value, 11.0);
        EXPECT_DOUBLE_EQ(codec(CompareKind::gap2to3).value, 16.0);  // by frames
        EXPECT_DOUBLE_EQ(codec(CompareKind::gap4to6).value, 20.0);
        EXPECT_DOUBLE_EQ(codec(CompareKind::after).value, 1.5);
        EXPECT_DOUBLE_EQ(codec(CompareKind::call).value, 202.0 / 12.0);
        EXPECT_EQ(codec(CompareKind::call).count, 12.0);
        EXPECT_FALSE(codec(CompareKind::gap4to6).low.has_value());  // one gap
        EXPECT_EQ(codec(CompareKind::gap1).low.has_value(), unit == ResampledUnit::gaps);
        EXPECT_EQ(FindFigure(figures, kCodec, CompareKind::gap7up, CompareMeasure::lsd), nullptr);

        const CompareFigure &aiplc =
            Figure(figures, kAiplc, CompareKind::call, CompareMeasure::lsd);
        EXPECT_NEAR(*aiplc.versusCodec->low, -2.0, 1e-9);
        EXPECT_NEAR(*aiplc.versusCodec->high, -2.0, 1e-9);
        EXPECT_EQ(aiplc.Verdict(), 1);
        CompareFigure tie = aiplc;
        tie.versusCodec = measure::Estimate{-1e-5, 3.0, -1e-5, -1e-5};
        EXPECT_EQ(tie.Verdict(), 0);
        if (unit == ResampledUnit::gaps) {  // unpaired they overlap
            EXPECT_GT(*aiplc.estimate.high, *codec(CompareKind::call).low);
        }

        const auto whole = [&](CompareMeasure measure) {
            return Figure(figures, kCodec, CompareKind::call, measure).estimate;
        };
        EXPECT_NEAR(whole(CompareMeasure::estoi).value, 0.8, 1e-12);
        EXPECT_EQ(whole(CompareMeasure::estoi).count, 2.0);
        EXPECT_NEAR(whole(CompareMeasure::interruptions).value, 30.0, 1e-9);
        EXPECT_NEAR(whole(ShareOf(AIPLC_SOURCE_CODEC)).value, 25.0, 1e-12);
        EXPECT_EQ(FindFigure(figures, kCodec, CompareKind::call, ShareOf(AIPLC_SOURCE_FEC)),
                  nullptr);
    }
    EXPECT_EQ(UnitFor(9), ResampledUnit::gaps);
    EXPECT_EQ(UnitFor(10), ResampledUnit::calls);
}

TEST(CompareFiguresTest, CsvQuotesNamesAndLeavesMissingFieldsEmpty) {
    const std::string rows = GapRows("a,\"b\".wav", "loss5", TwoCalls()[0]);
    EXPECT_THAT(rows, testing::StartsWith("gap,\"a,\"\"b\"\".wav\",loss5,codec,gap1,lsd,100,1,10,,,"
                                          "1,,,\n"));
}

TEST(CompareFiguresTest, TablesMarkWhatTheIntervalTellsApart) {
    CompareOptions options;
    options.inputs = {"a.wav", "b.wav"};
    LossCondition loss;
    loss.name = "5 %";
    std::vector<CallScores> calls = TwoCalls();
    const auto table = [&](ResampledUnit unit) {
        return CompareTables(options, {loss}, {MakeFigures(calls, unit)}, unit);
    };
    // Two dB better in every gap; with one unit alone there is nothing to tell apart.
    EXPECT_THAT(table(ResampledUnit::gaps),
                testing::ContainsRegex("5 % .*16\\.83 .*14\\.83 .*\\*"));
    EXPECT_THAT(table(ResampledUnit::gaps),
                testing::ContainsRegex("4 to 6 .*20\\.00 .*18\\.00 +-\n"));
    calls.resize(1);
    EXPECT_THAT(table(ResampledUnit::calls),
                testing::ContainsRegex("5 % .*17\\.43 .*15\\.43 +-\n"));
    // The codec's share of frames is no matter of better or worse.
    EXPECT_THAT(table(ResampledUnit::gaps), Not(HasSubstr("share.")));
}

TEST(LossConditionTest, GridThenTracesOrTheCallsOwn) {
    CompareOptions options;
    const auto ids = [&options] {
        std::vector<std::string> list;
        for (const LossCondition &loss : LossConditions(options.losses))
            list.push_back(loss.id + ": " + loss.name);
        return list;
    };
    EXPECT_THAT(ids(), ElementsAre("own: the call's own losses"));
    options.losses.percents = {5.0, 12.5};
    EXPECT_THAT(ids(), ElementsAre("loss5: 5 %", "loss12.5: 12.5 %"));
    options.losses.meanBursts = {1.0, 4.0};
    EXPECT_THAT(ids(),
                ElementsAre("loss5-burst1: 5 % in bursts of 1", "loss5-burst4: 5 % in bursts of 4",
                            "loss12.5-burst1: 12.5 % in bursts of 1",
                            "loss12.5-burst4: 12.5 % in bursts of 4"));
}

TEST(FigureGateTest, HoldsByLossAndNamesBothValues) {
    std::vector<LossCondition> losses(2);
    losses[0].name = "light";
    losses[1].name = "heavy";
    // At the heavy loss there is one long gap more.
    std::vector<CallScores> more = TwoCalls();
    more.push_back(Call({Gap(8, 40.0)}, 0.5));
    const std::vector<std::vector<CompareFigure>> figures = {
        MakeFigures(TwoCalls(), ResampledUnit::gaps), MakeFigures(more, ResampledUnit::gaps)};
    const auto failures = [&](const char *gate) {
        return FigureGate(gate).Failures(losses, figures);
    };
    EXPECT_TRUE(failures("aiplc.lsd > codec.lsd").empty());
    EXPECT_THAT(failures("codec.lsd>aiplc.lsd"),
                ElementsAre(HasSubstr("light: codec.lsd = 16.83, aiplc.lsd = 14.83"),
                            HasSubstr("heavy: codec.lsd = 26.1, aiplc.lsd = 24.1")));
    EXPECT_THAT(failures("codec.lsd >= 20"), ElementsAre(HasSubstr("heavy: codec.lsd = 26.1, 20")));
    EXPECT_EQ(failures("codec.gap1.lsd <= 11").size(), 2U);
    EXPECT_TRUE(failures("codec.gap1.lsd < 11").empty());
    EXPECT_THAT(failures("39 < codec.gap7+.lsd"), ElementsAre(HasSubstr("heavy")));
    EXPECT_EQ(failures("codec.share.codec > 24").size(), 2U);
    EXPECT_TRUE(failures("codec.share.fec > 0").empty());
    EXPECT_THAT(failures("silence.mcd > 1"), ElementsAre(HasSubstr("cannot be judged")));
}

TEST(FigureGateTest, NamesWhatIsRightWhenAskedForWhatIsNot) {
    const std::pair<const char *, const char *> cases[] = {
        {"aipcl.lsd > 1", "silence, codec,"},
        {"aiplc.gap2.lsd > 1", "gap1, gap2-3, gap4-6, gap7+, after, call"},
        {"aiplc.gap1.estoi > 1", "for call all"},
        {"aiplc.after.click > 1", "for after"},
        {"aiplc.lsd = 1", ">="},
        {"aiplc.lsd > much", "method.measure"},
        {"aiplc.lsd > ", "method.measure"},
        {"aiplc.lsd > nan", "no number"}};
    for (const auto &[gate, hint] : cases) {
        EXPECT_THAT([gate = gate] { FigureGate parsed(gate); },
                    ThrowsMessage<UsageError>(HasSubstr(hint)));
    }
}

TEST(FlacAudioTest, Base64OfTheStandard) {
    const auto encode = [](std::string_view text) {
        return Base64({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    };
    EXPECT_EQ(encode("") + encode("f") + encode("fo"), "Zg==Zm8=");
    EXPECT_EQ(encode("foobar\xFB\xFF\xFE"), "Zm9vYmFy+//+");
}

}  // namespace
}  // namespace aiplc::tools
