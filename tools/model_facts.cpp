// SPDX-License-Identifier: BSD-2-Clause

#include "model_facts.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "model_file.h"

namespace aiplc::tools {
namespace {

std::string BesideWorker() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::canonical("/proc/self/exe", error);
    return program.parent_path() / "x64" / worker::kModelFileName;
}

}  // namespace

std::string ModelFacts() {
    const char *const set = std::getenv(worker::kModelVariable);
    const std::string wish = set != nullptr ? set : "";
    if (wish == worker::kNoModelWish) return "model: none, autoregressive prediction";
    const std::string path = wish.empty() ? BesideWorker() : wish;
    std::string fault;
    const auto model = worker::Model::Load(path, fault);
    if (!model) return "model: not usable, the codec conceals: " + fault;
    char facts[160];
    std::snprintf(facts, sizeof facts,
                  "  version     %u\n  parameters  %zu (%zu channels, %zu blocks)\n"
                  "  CRC-32      %08x",
                  model->version, model->parameters, model->Channels(), model->blocks.size(),
                  model->checksum);
    return "model: " + path + '\n' + facts;
}

}  // namespace aiplc::tools
