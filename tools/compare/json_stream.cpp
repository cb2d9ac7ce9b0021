// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/json_stream.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace aiplc::tools {

using Json = nlohmann::ordered_json;

std::string JsonText(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

JsonStream::JsonStream(std::function<void(const std::string &)> write)
    : m_write(std::move(write)) {}

void JsonStream::BeginMember(const std::string &name) {
    m_write((std::exchange(m_anyMember, true) ? ",\n" : "{") + JsonText(name) + ":");
}

void JsonStream::AddMembers(const Json &object) {
    for (const auto &[name, value] : object.items()) {
        BeginMember(name);
        m_write(JsonText(value));
    }
}

void JsonStream::BeginList(const std::string &name) {
    BeginMember(name);
    m_write("[");
    m_anyItem = false;
}

void JsonStream::AddItem(const std::string &json) {
    m_write((std::exchange(m_anyItem, true) ? ",\n" : "\n") + json);
}

void JsonStream::EndList() {
    m_write("\n]");
}

void JsonStream::End() {
    m_write(m_anyMember ? "}\n" : "{}\n");
}

}  // namespace aiplc::tools
