// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_JSON_STREAM_H
#define AIPLC_TOOLS_JSON_STREAM_H

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace aiplc::tools {

// One line of UTF-8. A file name may hold bytes that are no UTF-8; those become U+FFFD.
std::string JsonText(const nlohmann::ordered_json &json);

// Writes one JSON object member by member, so that the report of many calls is never in memory as
// a whole. AddMembers, and BeginList ... EndList, in any order, then End.
class JsonStream {
  public:
    // write: appends text to the target; may throw.
    explicit JsonStream(std::function<void(const std::string &)> write);

    // The members of this object become members of the one being written.
    void AddMembers(const nlohmann::ordered_json &object);

    // A member that is an array; each AddItem is a value of it, as JSON text.
    void BeginList(const std::string &name);
    void AddItem(const std::string &json);
    void EndList();

    void End();

  private:
    void BeginMember(const std::string &name);

    std::function<void(const std::string &)> m_write;
    bool m_anyMember = false;
    bool m_anyItem = false;  // in the present list
};

}  // namespace aiplc::tools

#endif
