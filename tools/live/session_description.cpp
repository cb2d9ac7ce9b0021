// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/session_description.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <sstream>
#include <vector>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr int kMaxPort = 65535;
constexpr int kMaxPayloadType = 127;

std::optional<int> Number(const std::string &text, int most) {
    int number = -1;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || number < 0 || number > most) return std::nullopt;
    return number;
}

std::vector<std::string> Words(const std::string &text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// name: in small letters.
bool IsNamed(std::string encoding, const char *name) {
    std::ranges::transform(encoding, encoding.begin(), [](char letter) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    });
    return encoding.starts_with(name);
}

// One m= section, as far as it has been read.
struct Media {
    SessionDescription session;
    bool isAudio = false;
    bool isEncrypted = false;
    bool isOpus = false;
};

// "c=IN IP4 224.2.1.1/127"
void TakeConnection(const std::vector<std::string> &words, std::string &host) {
    if (words.size() >= 3) host = words[2].substr(0, words[2].find('/'));
}

// "m=audio 5004 RTP/AVP 111 0"
Media TakeMedia(const std::vector<std::string> &words, const std::string &host) {
    Media media;
    media.session.host = host;
    if (words.size() < 4 || words[0] != "audio") return media;
    const std::optional<int> port = Number(words[1], kMaxPort);
    if (!port || *port == 0) return media;
    media.isAudio = true;
    media.session.port = static_cast<uint16_t>(*port);
    media.isEncrypted = words[2].find("SAVP") != std::string::npos;
    return media;
}

void TakeAttribute(const std::vector<std::string> &words, Media &media) {
    if (words.empty()) return;
    const std::string &name = words[0];
    if (name == "rtcp-mux") media.session.rtcpMux = true;
    if (name.starts_with("rtcp:")) {
        const std::optional<int> port = Number(name.substr(5), kMaxPort);
        if (port) media.session.rtcpPort = static_cast<uint16_t>(*port);
    }
    if (!name.starts_with("rtpmap:") || words.size() < 2) return;
    const std::optional<int> type = Number(name.substr(7), kMaxPayloadType);
    if (type && IsNamed(words[1], "red/48000")) media.session.redPayloadType = *type;
    if (type && IsNamed(words[1], "opus/48000") && !media.isOpus) {
        media.isOpus = true;
        media.session.payloadType = *type;
    }
}

}  // namespace

SessionDescription ParseSessionDescription(const std::string &text, const std::string &file) {
    std::istringstream lines(text);
    std::string line;
    std::string host;
    std::vector<Media> all;
    while (std::getline(lines, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.size() < 2 || line[1] != '=') continue;
        const std::vector<std::string> words = Words(line.substr(2));
        if (line[0] == 'c') TakeConnection(words, all.empty() ? host : all.back().session.host);
        if (line[0] == 'm') all.push_back(TakeMedia(words, host));
        if (line[0] == 'a' && !all.empty()) TakeAttribute(words, all.back());
    }
    const auto found =
        std::ranges::find_if(all, [](const Media &media) { return media.isAudio && media.isOpus; });
    if (found == all.end())
        throw Failure(file,
                      "announces no Opus stream; a session description has a line m=audio PORT "
                      "RTP/AVP TYPE and a line a=rtpmap:TYPE opus/48000/2");
    if (found->isEncrypted)
        throw Failure(file,
                      "announces an encrypted stream (SAVP); only RTP/AVP and RTP/AVPF are read");
    return found->session;
}

std::string SessionDescriptionText(const SessionDescription &session, bool isVersion6) {
    const std::string address = std::string("IN ") + (isVersion6 ? "IP6 " : "IP4 ") + session.host;
    const std::string type = std::to_string(session.payloadType);
    std::string types = type;
    std::string red;
    if (session.redPayloadType) {
        const std::string redType = std::to_string(*session.redPayloadType);
        types = redType + " " + type;
        red = "a=rtpmap:" + redType + " red/48000/2\r\na=fmtp:" + redType + " " + type + "/" +
              type + "\r\n";
    }
    return "v=0\r\no=- 0 0 " + address + "\r\ns=aiplc send\r\nc=" + address +
           "\r\nt=0 0\r\nm=audio " + std::to_string(session.port) + " RTP/AVP " + types +
           "\r\na=rtpmap:" + type + " opus/48000/2\r\n" + red +
           (session.rtcpMux ? "a=rtcp-mux\r\n" : "");
}

}  // namespace aiplc::tools
