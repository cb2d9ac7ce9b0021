// SPDX-License-Identifier: BSD-2-Clause
//
// aiplc_collect_windows: plays simulated calls and writes the windows that the library requests.

#include <opus.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <numeric>
#include <optional>

#include "host/receiver.h"
#include "tools/shell/failure.h"
#include "training/collect/call_plan.h"
#include "training/collect/sounds.h"
#include "training/collect/speech_collection.h"
#include "training/collect/window_file.h"
#include "worker/classical/outage.h"
#include "worker/network/neural.h"

namespace aiplc::training {
namespace {

enum class Answers { drawn, classic, target, codec, ask, model };

const std::map<std::string, host::SenderApplication> kApplications = {
    {"voip", host::SenderApplication::voip},
    {"audio", host::SenderApplication::audio},
    {"low-delay", host::SenderApplication::lowDelay}};

struct Options {
    std::string speech;
    std::string background;
    std::string windows;
    std::string audio;
    std::string model;
    std::vector<std::string> licences;
    Split split = Split::train;
    Scene scene = Scene::drawn;
    uint32_t outputRate = 0;
    int decoderComplexity = host::ReceiverOptions{}.decoderComplexity;
    std::string application;
    bool fullBand = false;
    bool noSecondLook = false;
    Answers answers = Answers::drawn;
    uint32_t seed = 1;
    int passes = 1;
    int part = 0;
    int parts = 1;
    double callSeconds = 16;
    int maxCalls = 0;
    bool noLosses = false;
};

template <typename T>
void AddChoice(CLI::App &app, const char *name, T &value, std::map<std::string, T> choices,
               const char *help) {
    app.add_option(name, value, help)->transform(CLI::CheckedTransformer(std::move(choices)));
}

void Declare(CLI::App &app, Options &options) {
    app.add_option("--speech", options.speech,
                   "folder of recordings; not for tone, dtmf and music");
    app.add_option("--background", options.background,
                   "folder of noise and music; the scene music plays those named music...");
    app.add_option("--windows", options.windows,
                   "write the windows to files with this path and beginning");
    app.add_option("--audio", options.audio,
                   "write what is heard to NUMBER_RATE.pcm (16-bit) here");
    app.add_option("--licences", options.licences, "take only recordings with these licences")
        ->delimiter(',');
    AddChoice<Split>(app, "--split", options.split,
                     {{"train", Split::train}, {"valid", Split::valid}},
                     "recordings to train on or to validate with");
    AddChoice<Scene>(app, "--scene", options.scene,
                     {{"drawn", Scene::drawn},
                      {"single", Scene::single},
                      {"random", Scene::random},
                      {"bursts2-3", Scene::shortBursts},
                      {"bursts4-6", Scene::longBursts},
                      {"mixed", Scene::mixed},
                      {"recorded", Scene::recorded},
                      {"tone", Scene::tone},
                      {"dtmf", Scene::dtmf},
                      {"music", Scene::music}},
                     "what happens in the calls");
    AddChoice<Answers>(app, "--answers", options.answers,
                       {{"drawn", Answers::drawn},
                        {"classic", Answers::classic},
                        {"target", Answers::target},
                        {"codec", Answers::codec},
                        {"ask", Answers::ask},
                        {"model", Answers::model}},
                       "what predicts; ask: the program that reads requests from standard output "
                       "and writes answers of 2560 samples to standard input; model: the network "
                       "as in the worker");
    app.add_option("--output-rate", options.outputRate,
                   "of all calls; otherwise 16000, or drawn where the scene is")
        ->check(CLI::IsMember({16000, 48000}));
    app.add_option("--decoder-complexity", options.decoderComplexity,
                   "of the receiver's decoder and of the target's; libopus 1.5 and later conceals "
                   "with a network from 5 on and may enhance received speech from 6 on")
        ->check(CLI::Range(0, 10));
    app.add_option(
           "--application", options.application,
           "of the encoder: voip mostly codes with SILK, audio what is no speech with CELT, "
           "low-delay everything; otherwise voip, or drawn where the scene is")
        ->check(CLI::IsMember(kApplications));
    app.add_flag("--no-second-look", options.noSecondLook,
                 "single losses are left to the codec, as the library does");
    app.add_flag("--full-band", options.fullBand,
                 "full-band calls, of the recordings that have the full band");
    app.add_option("--model", options.model, "weights for --answers model");
    app.add_option("--seed", options.seed, "the same seed gives the same data");
    app.add_option("--passes", options.passes, "times that each recording is used")
        ->check(CLI::PositiveNumber);
    app.add_option("--part", options.part, "do every PARTS-th call, from this one")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--parts", options.parts)->check(CLI::PositiveNumber);
    app.add_option("--call-seconds", options.callSeconds, "length of a call at most")
        ->check(CLI::Range(1.0, 3600.0));
    app.add_flag("--no-losses", options.noLosses, "let all packets arrive");
    app.add_option("--max-calls", options.maxCalls, "stop after so many calls; 0: all");
}

void Ask(const WindowRecord &request, Window &answer) {
    if (std::fwrite(&request, sizeof request, 1, stdout) != 1 || std::fflush(stdout) != 0 ||
        std::fread(answer.data(), sizeof answer, 1, stdin) != 1) {
        throw std::runtime_error("the program that answers the requests has ended");
    }
}

// Null unless the network answers.
std::unique_ptr<worker::Neural> LoadNeural(const Options &options) {
    if ((options.answers == Answers::model) == options.model.empty())
        throw std::runtime_error("--answers model and --model FILE go together");
    if (options.model.empty()) return nullptr;
    std::string fault;
    auto model = worker::Model::Load(options.model, fault);
    if (!model) throw std::runtime_error(fault);
    return std::make_unique<worker::Neural>(std::move(model));
}

void ChooseAnswer(Answers answers, worker::Outage *predictor, CallSetup &setup) {
    if (answers == Answers::drawn) return;
    setup.facts.flags &= static_cast<uint16_t>(~WindowRecord::kTruthMixed);
    setup.answer = nullptr;
    if (answers == Answers::target) setup.answer = MixTruth(1);
    if (answers == Answers::ask) setup.answer = Ask;
    if (predictor != nullptr) {
        predictor->Forget();
        setup.answer = [predictor](const WindowRecord &request, Window &answer) {
            predictor->Predict(request.window, answer);
        };
    }
    setup.refuse = answers == Answers::codec;
}

void WriteAudio(const Options &options, uint32_t call, const CallSetup &setup,
                const CallResult &result) {
    char name[64];
    std::snprintf(name, sizeof name, "/%06u_%u", call, setup.outputRate);
    tools::OutputFile audio(options.audio + name + ".pcm", tools::OutputFile::kNoInput);
    audio.Write({reinterpret_cast<const char *>(result.output.data()), 2 * result.output.size()});
    audio.Commit();
    tools::OutputFile sources(options.audio + name + ".sources", tools::OutputFile::kNoInput);
    for (const AiPlcFrameSource source : result.sources)
        sources.Write(std::string(AiPlcFrameSourceName(source)) + '\n');
    sources.Commit();
}

// Background at either rate, loaded once.
class Backgrounds {
  public:
    explicit Backgrounds(const std::string &folder) {
        if (folder.empty()) return;
        for (const Split split : {Split::train, Split::valid})
            for (const std::string &path : FindSpeech(folder, split, {}))
                m_recordings.push_back(LoadRecording(path));
    }
    // Draws one; empty when there is none at this rate.
    std::span<const int16_t> Draw(int rate, Random &random) const {
        if (m_recordings.empty()) return {};
        const auto last = static_cast<int>(m_recordings.size()) - 1;
        const Recording &one = m_recordings[static_cast<size_t>(random.Integer(0, last))];
        return one.rate == rate ? std::span<const int16_t>(one.samples)
                                : std::span<const int16_t>{};
    }

  private:
    std::vector<Recording> m_recordings;
};

struct Totals {
    uint32_t calls = 0;
    uint64_t ambiguous = 0;
    double seconds = 0;
};

// Replaces drawn properties of a call by those that options give.
void Override(const Options &options, CallSetup &setup) {
    setup.decoderComplexity = options.decoderComplexity;
    setup.secondLook = !options.noSecondLook;
    if (!options.application.empty())
        setup.sender.application = kApplications.at(options.application);
    if (options.outputRate != 0) {
        setup.outputRate = options.outputRate;
        setup.facts.rateKhz = static_cast<uint8_t>(options.outputRate / 1000);
    }
    if (options.fullBand) {
        setup.sender.maxBandwidth = OPUS_BANDWIDTH_FULLBAND;
        setup.facts.bandwidth = OPUS_BANDWIDTH_FULLBAND - OPUS_BANDWIDTH_NARROWBAND;
    }
    if (options.noLosses) setup.lost.clear();
}

void PlayRecording(const Options &options, const Backgrounds &backgrounds, const Recording &speech,
                   uint32_t file, uint32_t pass, worker::Outage *predictor, WindowFiles &files,
                   Totals &totals) {
    if (options.fullBand && speech.rate != 48000) return;
    const auto length = static_cast<size_t>(options.callSeconds * speech.rate);
    for (size_t start = 0; start < speech.samples.size(); start += length) {
        if (options.maxCalls > 0 && totals.calls >= static_cast<uint32_t>(options.maxCalls)) return;
        const uint32_t call = totals.calls++;
        if (call % static_cast<uint32_t>(options.parts) != static_cast<uint32_t>(options.part))
            continue;
        Random random({options.seed, pass, file, static_cast<uint32_t>(start)});
        const size_t end = std::min(start + length, speech.samples.size());
        const auto at = [&speech](size_t i) {
            return speech.samples.begin() + static_cast<std::ptrdiff_t>(i);
        };
        std::vector<int16_t> pcm(at(start), at(end));
        const double seconds = static_cast<double>(pcm.size()) / speech.rate;
        bool background = false;
        if (options.scene == Scene::drawn)
            background = MixScene(pcm, backgrounds.Draw(speech.rate, random), random);
        CallSetup setup = DrawCall(options.scene, speech.rate, seconds, random);
        Override(options, setup);
        if (background) setup.facts.flags |= WindowRecord::kBackground;
        setup.facts.call = call;
        ChooseAnswer(options.answers, predictor, setup);
        const CallResult result = CollectWindows(setup, pcm);
        if (!options.windows.empty()) files.Write(result.windows);
        if (!options.audio.empty()) WriteAudio(options, call, setup, result);
        totals.ambiguous += result.ambiguous;
        totals.seconds += seconds;
    }
}

// All files in an order that differs from pass to pass: any beginning of the data is a mixture.
std::vector<uint32_t> DrawOrder(size_t files, uint32_t seed, uint32_t pass) {
    std::vector<uint32_t> order(files);
    std::iota(order.begin(), order.end(), 0U);
    Random random({seed, pass});
    for (size_t i = files; i > 1; --i)
        std::swap(order[i - 1], order[random.Bits() % i]);
    return order;
}

// Where the calls' audio comes from: recordings of speech, or sounds.
class Material {
  public:
    explicit Material(const Options &options) {
        if (!IsSpeech(options.scene)) {
            if (options.scene == Scene::music && options.background.empty())
                throw std::runtime_error("--scene music needs --background FOLDER with music");
            m_sounds.emplace(options.scene, options.background, options.callSeconds, options.seed);
            m_count = options.maxCalls > 0 ? static_cast<size_t>(options.maxCalls) : kSounds;
            return;
        }
        if (options.speech.empty())
            throw std::runtime_error("--speech FOLDER is missing: give one of recordings");
        m_paths = FindSpeech(options.speech, options.split, options.licences);
        m_count = m_paths.size();
    }
    size_t Count() const { return m_count; }
    Recording Load(uint32_t index) const {
        return m_sounds ? m_sounds->Make(index) : LoadRecording(m_paths[index]);
    }

  private:
    static constexpr size_t kSounds = 24;

    std::vector<std::string> m_paths;
    std::optional<Sounds> m_sounds;
    size_t m_count = 0;
};

void Run(const Options &options) {
    auto network = LoadNeural(options);
    const worker::Neural *const neural = network.get();
    const auto predictor = network ? std::make_unique<worker::Outage>(std::move(network)) : nullptr;
    const Backgrounds backgrounds(options.scene == Scene::drawn ? options.background : "");
    const Material material(options);
    WindowFiles files(options.windows + '_' + std::to_string(options.part));
    Totals totals;
    for (uint32_t pass = 0; pass < static_cast<uint32_t>(options.passes); ++pass) {
        for (const uint32_t file : DrawOrder(material.Count(), options.seed, pass)) {
            PlayRecording(options, backgrounds, material.Load(file), file, pass, predictor.get(),
                          files, totals);
        }
        std::fprintf(stderr, "pass %u: %llu windows from %.0f s, %llu left out as ambiguous\n",
                     pass + 1, static_cast<unsigned long long>(files.Records()), totals.seconds,
                     static_cast<unsigned long long>(totals.ambiguous));
    }
    files.Close();
    if (neural != nullptr) {
        std::fprintf(stderr,
                     "%llu of %llu answers of the model were replaced as out of bounds; %llu more "
                     "requests were for steady sounds, which go on without it\n",
                     static_cast<unsigned long long>(neural->Counted().replaced),
                     static_cast<unsigned long long>(neural->Counted().predictions),
                     static_cast<unsigned long long>(neural->Counted().steady));
    }
}

}  // namespace
}  // namespace aiplc::training

int main(int argc, char **argv) {
    try {
        CLI::App app("Plays simulated calls and writes the windows that the library requests.");
        aiplc::training::Options options;
        aiplc::training::Declare(app, options);
        CLI11_PARSE(app, argc, argv);
        aiplc::training::Run(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "aiplc_collect_windows: %s\n", error.what());
        return 1;
    }
    return 0;
}
