// SPDX-License-Identifier: BSD-2-Clause

#include "tools/play/model_facts.h"

#include <cstdio>
#include <filesystem>
#include <optional>

#include "src/adapter/protocol.h"
#include "worker/model/model_file.h"
#include "worker/model/model_path.h"

namespace aiplc::tools {
namespace {

std::string ModelPath() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::canonical("/proc/self/exe", error);
    return worker::ModelPath(program.parent_path() / protocol::kWorkerFolder / "");
}

}  // namespace

std::string ModelFacts() {
    const std::string path = ModelPath();
    if (path.empty()) return "model: none, autoregressive prediction";
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

std::string ModelLine() {
    const std::string path = ModelPath();
    if (path.empty()) return "none, autoregressive prediction";
    std::string fault;
    const auto model = worker::Model::Load(path, fault);
    if (!model) return "not usable, the codec conceals: " + fault;
    char facts[96];
    std::snprintf(facts, sizeof facts, "version %u, %zu parameters, CRC-32 %08x", model->version,
                  model->parameters, model->checksum);
    return facts;
}

}  // namespace aiplc::tools
