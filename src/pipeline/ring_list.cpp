// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <array>
#include <cstdlib>

namespace {

constexpr std::array<int16_t, AIPLC_FRAME_SAMPLES_48K> kSilence{};
// Links node behind the ring's newest one and makes it the head.
void Append(AiPlcRingList &ring, AiPlcPkt *node) {
    node->prev = ring.head;
    if (ring.head != nullptr) ring.head->next = node;
    ring.head = node;
}

void FreeChain(AiPlcPkt *newest) {
    while (newest != nullptr) {
        AiPlcPkt *older = newest->prev;
        (void)AiPlcDestroyPkt(newest);
        newest = older;
    }
}

}  // namespace

AiPlcRingList *AiPlcInitRingList(uint16_t count) {
    if (count == 0) return nullptr;
    auto *ring = static_cast<AiPlcRingList *>(std::calloc(1, sizeof(AiPlcRingList)));
    if (ring == nullptr) return nullptr;
    ring->count = count;

    AiPlcPkt *first = nullptr;
    for (uint16_t made = 0; made < count; ++made) {
        AiPlcPkt *node = AiPlcCreatePkt(kSilence.data(), sizeof kSilence, PKT_MUTE);
        if (node == nullptr) {
            FreeChain(ring->head);
            std::free(ring);
            return nullptr;
        }
        if (first == nullptr) first = node;
        Append(*ring, node);
    }
    ring->head->next = first;
    first->prev = ring->head;
    return ring;
}

int32_t AiPlcDestroyRingList(AiPlcRingList *ring) {
    if (ring == nullptr || ring->head == nullptr) return -1;
    AiPlcPkt *node = ring->head;
    for (uint16_t left = ring->count; left > 0 && node != nullptr; --left) {
        AiPlcPkt *older = node->prev;
        if (node->samples != nullptr) (void)AiPlcDestroyPkt(node);
        node = older;
    }
    std::free(ring);
    return 0;
}
