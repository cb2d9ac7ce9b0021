// SPDX-License-Identifier: BSD-2-Clause
//
// aiplc send and aiplc receive as processes of their own over the loopback, and other programs in
// the place of either.

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/tools/test_files.h"
#include "tools/live/udp_socket.h"

namespace aiplc::tools {
namespace {

using testing::HasSubstr;

// A shell command whose output is read as it comes.
class Running {
  public:
    explicit Running(const std::string &command)
        : m_pipe(
              popen(("unset AIPLC_NAMESPACE; exec 2>&1; echo $$; exec " + command).c_str(), "r")),
          m_process(std::atoi(Line().c_str())) {}
    ~Running() {
        if (m_pipe != nullptr) (void)Join(SIGKILL);
    }
    Running(const Running &) = delete;

    // The next line, without its end; empty at the end.
    std::string Line() {
        std::string line;
        for (int c = 0; (c = std::fgetc(m_pipe)) != EOF && c != '\n';)
            line += static_cast<char>(c);
        return line;
    }
    // The port that `aiplc receive 0` has got, once it listens.
    std::string Port() {
        static const std::string before = "UDP port ";
        for (std::string line = Line(); !line.empty(); line = Line()) {
            const size_t at = line.find(before);
            if (at == std::string::npos) continue;
            const size_t from = at + before.size();
            return line.substr(from, line.find(';', from) - from);
        }
        ADD_FAILURE() << "no port";
        return "";
    }
    // Waits for the end, or asks for it first; returns the exit code, -1 after a signal.
    int Join(int signal = 0) {
        if (signal != 0) kill(m_process, signal);
        for (int c = 0; (c = std::fgetc(m_pipe)) != EOF;)
            output += static_cast<char>(c);
        const int status = pclose(std::exchange(m_pipe, nullptr));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string output;  // that Join has read

  private:
    std::FILE *m_pipe;
    pid_t m_process;
};

bool IsInstalled(const char *program) {
    return std::system(("command -v " + std::string(program) + " >/dev/null").c_str()) == 0;
}

class LiveCallTest : public FolderTest {
  protected:
    LiveCallTest() { Write("talk.wav", WavFile(Chirps(16000, 1.0), 16000)); }

    std::string Quoted(const std::string &name) const {
        return std::string("'").append(Path(name)).append("'");
    }
    std::string Receive(const std::string &options) const {
        return "'" AIPLC_PROGRAM "' receive 0 --predictor none -o " + Quoted("heard.wav") +
               " --json-lines " + Quoted("lines") + " " + options;
    }
    std::string Send(const std::string &options) const {
        return "'" AIPLC_PROGRAM "' send " + Quoted("talk.wav") + " " + options;
    }
    // The receiver's last line, and the audio that it must have written.
    nlohmann::json End() const {
        const std::string lines = Read("lines");
        const size_t start = lines.rfind('\n', lines.size() - 2);
        const auto end =
            nlohmann::json::parse(lines.substr(start == std::string::npos ? 0 : start));
        EXPECT_EQ(end["event"], "end");
        EXPECT_NEAR(static_cast<double>(ReadWav("heard.wav").size()),
                    48000 * end["seconds"].get<double>(), 1);
        // Half a second of speech or more came through.
        int64_t loud = 0;
        for (const int16_t sample : ReadWav("heard.wav"))
            loud += std::abs(sample) > 500 ? 1 : 0;
        EXPECT_GT(loud, 12000);
        return end;
    }
};

TEST_F(LiveCallTest, SendsToReceiveOverBothVersionsOfTheProtocol) {
    for (const std::string host : {"127.0.0.1", "[::1]"}) {
        SCOPED_TRACE(host);
        Running receiver(Receive("--once"));
        Running sender(Send(host + ":" + receiver.Port() +
                            " --ssrc 0x1234 --payload-type 100 --loss 10 --burst 2 --seed 3 "
                            "--jitter 20 --reorder 5 --duplicate 10"));
        EXPECT_EQ(sender.Join(), 0);
        if (sender.output.find(": 0 packets sent") != std::string::npos)
            GTEST_SKIP() << "no IPv6 here";
        EXPECT_EQ(receiver.Join(), 0);
        const nlohmann::json end = End();
        EXPECT_THAT(sender.output, HasSubstr(end["packetsReceived"].dump() + " packets sent"));
        EXPECT_GT(end["packetsDuplicated"], 0);
        EXPECT_EQ(end["ssrc"], 0x1234);
        EXPECT_EQ(end["payloadType"], 100);
        EXPECT_TRUE(end["senderLeft"]);
        EXPECT_GT(end["receiverReports"], 0);
        EXPECT_GT(end["concealedSamples"], 0);
    }
}

TEST_F(LiveCallTest, CopiesOfLostPacketsAreHeard) {
    Running receiver(Receive("--once --payload-type 100 --red-payload-type 99"));
    Running sender(Send("127.0.0.1:" + receiver.Port() +
                        " --payload-type 100 --red 3 --red-payload-type 99 --loss 20 --burst 2"));
    EXPECT_EQ(sender.Join(), 0);
    EXPECT_EQ(receiver.Join(), 0);
    const nlohmann::json end = End();
    EXPECT_EQ(end["packetsForeign"], 0);
    EXPECT_EQ(end["packetsUndecodable"], 0);
    EXPECT_GT(end["packetsLost"], 0);
    EXPECT_GT(end["redundantBlocksUsed"], 0);
}

// Bytes of any kind, a stray RTCP packet, and a second sender with other numbers and another
// payload type; then nothing, until somebody ends the call.
TEST_F(LiveCallTest, GoesOnWhateverComesToThePort) {
    Running receiver(Receive(""));
    const std::string port = receiver.Port();
    const Address to = Resolve("127.0.0.1", static_cast<uint16_t>(std::stoi(port)));
    UdpSocket stranger(Resolve("127.0.0.1", 0));
    Bytes bytes;
    for (int i = 0; i < 200; ++i) {
        EXPECT_TRUE(stranger.Send(bytes, to));
        bytes.push_back(static_cast<uint8_t>(i * 37));
    }
    EXPECT_TRUE(stranger.Send(Big(0x80C80000, 4), to));
    EXPECT_EQ(Running(Send("127.0.0.1:" + port + " --ssrc 1")).Join(), 0);
    EXPECT_EQ(Running(Send("127.0.0.1:" + port + " --ssrc 2 --payload-type 97")).Join(), 0);
    EXPECT_EQ(receiver.Join(SIGINT), 0);
    const nlohmann::json end = End();
    EXPECT_EQ(end["ssrc"], 2);
    EXPECT_EQ(end["payloadType"], 97);
    EXPECT_EQ(end["sourceChanges"], 1);
    EXPECT_GE(end["packetsForeign"], 200);
    EXPECT_GT(end["seconds"], 1.5);
}

TEST_F(LiveCallTest, HearsForeignSenders) {
    const std::string in = Quoted("talk.wav");
    const std::pair<const char *, std::string> senders[] = {
        {"ffmpeg", "ffmpeg -v error -re -i " + in + " -c:a libopus -f rtp 'rtp://127.0.0.1:PORT'"},
        {"gst-launch-1.0", "gst-launch-1.0 -q filesrc location=" + in +
                               " ! wavparse ! audioconvert ! audioresample ! opusenc ! rtpopuspay "
                               "! udpsink host=127.0.0.1 port=PORT"}};
    int played = 0;
    for (const auto &[program, line] : senders) {
        if (!IsInstalled(program)) continue;
        SCOPED_TRACE(program);
        Running receiver(Receive("--duration 1"));
        std::string command = line;
        command.replace(command.find("PORT"), 4, receiver.Port());
        Running sender(command);
        EXPECT_EQ(sender.Join(), 0) << sender.output;
        EXPECT_EQ(receiver.Join(), 0);
        EXPECT_GT(End()["packetsReceived"], 45);
        ++played;
    }
    if (played == 0) GTEST_SKIP() << "neither ffmpeg nor gst-launch-1.0 is installed";
}

TEST_F(LiveCallTest, IsHeardByForeignReceivers) {
    const std::string out = Quoted("foreign.wav");
    const std::pair<const char *, std::string> receivers[] = {
        {"ffmpeg", "ffmpeg -v fatal -y -protocol_whitelist file,udp,rtp -i " + Quoted("call.sdp") +
                       " -t 1 -ar 16000 " + out},
        {"gst-launch-1.0",
         "gst-launch-1.0 -q udpsrc port=PORT num-buffers=60 caps=application/"
         "x-rtp,media=audio,clock-rate=48000,encoding-name=OPUS,payload=111 ! "
         "rtpopusdepay ! opusdec ! audioconvert ! wavenc ! filesink location=" +
             out}};
    int played = 0;
    for (const auto &[program, line] : receivers) {
        if (!IsInstalled(program)) continue;
        SCOPED_TRACE(program);
        // A port that is free now.
        const std::string port = std::to_string(OpenPair(Resolve("127.0.0.1", 0)).rtp.Port());
        Running sender(Send("127.0.0.1:" + port + " --loop --sdp " + Quoted("call.sdp")));
        while (Read("call.sdp").find("rtpmap:111") == std::string::npos) {
        }
        std::string command = line;
        if (command.find("PORT") != std::string::npos)
            command.replace(command.find("PORT"), 4, port);
        Running receiver(command);
        EXPECT_EQ(receiver.Join(), 0) << receiver.output;
        EXPECT_EQ(sender.Join(SIGINT), 0);
        EXPECT_GT(ReadWav("foreign.wav").size(), 15000U);
        ++played;
    }
    if (played == 0) GTEST_SKIP() << "neither ffmpeg nor gst-launch-1.0 is installed";
}

}  // namespace
}  // namespace aiplc::tools
