/* One 16 kHz call with its own Opus decoder. All functions run on the audio thread. */
#include <aiplc/aiplc.h>
#include <opus/opus.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

static OpusDecoder *decoder;
static StAiPlcChannel block;
static AiPlcHostStats stats = {.sampleRate = 16000};
static AiPlcHostContext host = {.stats = &stats, .packetCount = 1};
static int16_t record[4 + 320], area[7 * 960];

static void print_log(const char *unit, int32_t line, const char *format, ...) {
    va_list text;
    va_start(text, format);
    fprintf(stderr, "%s:%d ", unit, (int)line);
    vfprintf(stderr, format, text);
    fputc('\n', stderr);
    va_end(text);
}

static int32_t conceal(uint32_t call, AiPlcDecodeRequest *request) {
    (void)call; /* AiPlcApply's second argument: tells your calls apart */
    request->pcmOutSamples = 320;
    return opus_decode(decoder, NULL, 0, request->pcmOut, 320, 0) == 320 ? 0 : -1;
}

int call_open(void) {
    decoder = opus_decoder_create(16000, 1, NULL);
    host.decodeLost = conceal;
    AiplcRegLog(print_log); /* says, among other things, why there is no worker */
    if (decoder == NULL || AiPlcCreate(&host.channel, &block) != 0) return -1;
    int32_t result = AiPlcAsyncInit(host.channel, 1); /* starts the worker */
    if (result == AIPLC_E_INVALID || result == AIPLC_E_NO_RINGS) return -1;
    if (result != 0) fprintf(stderr, "no worker (%d), the codec conceals\n", (int)result);
    host.channel->frameSamples = 320;
    return 0;
}

/* Every 20 ms: packet number n, or NULL when it is missing. out gets the frame of 60 ms ago. */
int call_frame(const uint8_t *packet, int bytes, uint16_t n, int16_t out[320]) {
    uint8_t *start = (uint8_t *)area;
    AiPlcHostStream s = {.outBase = start, .outRead = start, .outWrite = start};
    s.outEnd = start + sizeof area;
    if (packet != NULL && opus_decode(decoder, packet, bytes, record + 4, 320, 0) == 320) {
        uint16_t header[4] = {4 + 320, n, (uint16_t)opus_packet_get_bandwidth(packet), 0};
        memcpy(record, header, sizeof header);
        s.inReadPos = (uint8_t *)(record + 4), s.inEndPos = (uint8_t *)(record + 4 + 320);
        s.pktCursor = (uint16_t *)record, s.pktWordsLeft = 4 + 320, s.inAvailable = 320;
    }
    host.streams[0] = s;
    if (AiPlcApply(&host, 0, 0) != 0) return -1;
    memcpy(out, area, 320 * sizeof *out);
    return 0;
}

void call_close(void) {
    (void)AiPlcAsyncDestroy(host.channel);
    opus_decoder_destroy(decoder);
}
