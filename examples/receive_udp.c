/* Plays Opus over RTP from a UDP port, as raw 48 kHz PCM to standard output:
     receive_udp 5004 | aplay -q -f S16_LE -r 48000
   Another call is another receiver; where there are many, AIPLC_PREDICTOR_IN_PROCESS shares the
   network. */
#define _POSIX_C_SOURCE 200809L
#include <aiplc/receiver.h>
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>

static void print_log(void *user_data, int32_t level, const char *text) {
    (void)user_data;
    fprintf(stderr, "%s: %s\n", level == AIPLC_RECEIVER_LOG_ERROR ? "error" : "note", text);
}

static int64_t now_us(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

int main(int argc, char **argv) {
    struct sockaddr_in here = {.sin_family = AF_INET};
    here.sin_port = htons((uint16_t)(argc > 1 ? atoi(argv[1]) : 5004));
    const int port = socket(AF_INET, SOCK_DGRAM, 0);
    if (bind(port, (struct sockaddr *)&here, sizeof here) != 0) return perror("bind"), 1;

    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    options.jitterBuffer = AIPLC_JITTER_ADAPTIVE;
    options.log = print_log;
    AiPlcReceiver *receiver;
    const int32_t result = AiPlcReceiverCreate(&receiver, &options);
    if (result != AIPLC_RECEIVER_OK)
        return fprintf(stderr, "%s\n", AiPlcReceiverResultText(result)), 1;

    int16_t samples[960];
    for (int64_t due = now_us();; due += 20000) {
        const struct timespec until = {.tv_sec = due / 1000000, .tv_nsec = due % 1000000 * 1000};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, NULL);
        uint8_t packet[2048];
        ssize_t bytes;
        while ((bytes = recv(port, packet, sizeof packet, MSG_DONTWAIT)) >= 0)
            AiPlcReceiverPushRtp(receiver, packet, (size_t)bytes,
                                 now_us()); /* foreign packets are counted */
        AiPlcReceiverPull(receiver, samples, 960);
        if (fwrite(samples, sizeof samples, 1, stdout) != 1 || fflush(stdout) != 0) break;
    }
    AiPlcReceiverDestroy(receiver);
    return 0;
}
