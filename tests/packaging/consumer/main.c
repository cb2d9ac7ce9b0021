/* SPDX-License-Identifier: BSD-2-Clause */

#include <math.h>
#include <opus/opus.h>
#include <stddef.h>
#include <stdio.h>

int call_open(void);
int call_frame(const uint8_t *packet, int bytes, uint16_t n, int16_t out[320]);
void call_close(void);

/* The tone's mean square: amplitude 8000. */
#define TONE 3.2e7

static double mean_square(const int16_t *frame) {
    double sum = 0;
    for (int i = 0; i < 320; ++i)
        sum += (double)frame[i] * frame[i];
    return sum / 320;
}

/* A tone of which every sixth pair of frames is lost, n = 12, 13, 24 ..., 49. Before the first gap
   it comes back as it was; in a gap it does not fall silent (-50 dB), whatever the codec or the
   worker makes of it. */
static int play_call(FILE *file) {
    OpusEncoder *encoder = opus_encoder_create(16000, 1, OPUS_APPLICATION_VOIP, NULL);
    if (encoder == NULL || call_open() != 0) {
        fprintf(stderr, "consumer: the call could not be opened\n");
        return 1;
    }
    int bad = 0;
    for (int n = 0; n < 60 && bad == 0; ++n) {
        int16_t pcm[320], out[320];
        uint8_t packet[1500];
        for (int i = 0; i < 320; ++i)
            pcm[i] = (int16_t)(8000 * sin(0.173 * (320 * n + i)));
        const int bytes = opus_encode(encoder, pcm, 320, packet, sizeof packet);
        if (call_frame(n > 10 && n % 12 < 2 ? NULL : packet, bytes, (uint16_t)n, out) != 0) {
            fprintf(stderr, "consumer: call_frame failed at frame %d\n", n);
            bad = 1;
        }
        const double power = mean_square(out) / TONE;
        if (n > 4 && n < 15 ? power < 0.5 || power > 2 : n > 14 && power < 1e-5) {
            fprintf(stderr, "consumer: frame %d has %g times the tone's power\n", n, power);
            bad = 1;
        }
        if (fwrite(out, sizeof out, 1, file) != 1) bad = 1;
    }
    call_close();
    opus_encoder_destroy(encoder);
    return bad;
}

/* consumer FILE: plays the call and writes its samples. */
int main(int count, char **arguments) {
    FILE *file = count == 2 ? fopen(arguments[1], "wb") : NULL;
    if (file == NULL) {
        fprintf(stderr, "consumer: use consumer FILE\n");
        return 2;
    }
    const int bad = play_call(file);
    return fclose(file) == 0 ? bad : 1;
}
