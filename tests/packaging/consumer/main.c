/* SPDX-License-Identifier: BSD-2-Clause */

#include <aiplc/aiplc.h>
#include <math.h>
#include <opus/opus.h>
#include <stdio.h>

int call_open(void);
int call_frame(const uint8_t *packet, int bytes, uint16_t n, int16_t out[320]);
void call_close(void);

static int is_lost(int n) {
    return n > 10 && n % 12 < 2;
}

/* A tone over 60 frames, every sixth pair of frames lost: it must go on through the gaps. */
int main(void) {
    OpusEncoder *encoder = opus_encoder_create(16000, 1, OPUS_APPLICATION_VOIP, NULL);
    int quiet = 0;
    if (encoder == NULL || call_open() != 0) return 1;
    for (int n = 0; n < 60; ++n) {
        int16_t pcm[320], out[320];
        uint8_t packet[1500];
        double energy = 0;
        for (int i = 0; i < 320; ++i) {
            pcm[i] = (int16_t)(8000 * sin(2 * 3.14159265 * 440 * (320 * n + i) / 16000));
        }
        const int bytes = opus_encode(encoder, pcm, 320, packet, sizeof packet);
        if (bytes < 0 || call_frame(is_lost(n) ? NULL : packet, bytes, (uint16_t)n, out) != 0)
            return 1;
        for (int i = 0; i < 320; ++i)
            energy += (double)out[i] * out[i];
        if (is_lost(n - 3) && energy / 320 < 1000.0 * 1000.0) ++quiet;
    }
    call_close();
    opus_encoder_destroy(encoder);
    if (quiet > 0) fprintf(stderr, "%d frames are too quiet\n", quiet);
    return quiet > 0;
}
