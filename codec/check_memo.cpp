#include "codec/check_memo.h"

#include <cstring>
#include <new>
#include <vector>

#include "korvan_qa_qb_series_port.h"

namespace {

// One slot per read request seen lately, chosen by the request's bytes. A request that lost its
// slot to another has its CRC computed again. 1,024 slots (40 KB) hold the read lists of most
// panels with few collisions; a larger list costs the lookup on each exchange, about 1%.
constexpr int kSlotBits = 10;
constexpr int kSlots = 1 << kSlotBits;
// Longer replies are checked in full every time; this bounds what the memo holds to 512 KB.
constexpr int kLongestRememberedReply = 512;
constexpr int kCrcLength = 2;

struct Slot {
    quint64 head = 0;
    bool used = false;
    unsigned short requestCrc = 0;
    std::vector<unsigned char> goodReply;  // empty while none is known
};

Slot slots[kSlots];

quint64 headKey(const unsigned char* head) {
    quint64 key;
    memcpy(&key, head, sizeof key);
    return key;
}

Slot& slotFor(quint64 key) {
    constexpr quint64 kGoldenRatio = 0x9E3779B97F4A7C15ull;  // spreads nearby addresses
    return slots[(key * kGoldenRatio) >> (64 - kSlotBits)];
}

void remember(Slot& slot, const unsigned char* reply, int size) {
    if (size > kLongestRememberedReply) {
        slot.goodReply.clear();
        return;
    }
    try {
        slot.goodReply.assign(reply, reply + size);
    } catch (const std::bad_alloc&) {
        slot.goodReply.clear();  // only the saving is lost
    }
}

}  // namespace

static_assert(sizeof(quint64) == kReadRequestHeadLength, "a read request's head is one key");

unsigned short readRequestCrc(const unsigned char* head) {
    const quint64 key = headKey(head);
    Slot& slot = slotFor(key);
    if (!slot.used || slot.head != key) {
        slot.head = key;
        slot.used = true;
        slot.requestCrc = CalCRC(const_cast<unsigned char*>(head), kReadRequestHeadLength);
        slot.goodReply.clear();
    }
    return slot.requestCrc;
}

bool replyCrcMatches(const QByteArray& request, const unsigned char* reply, int size) {
    // Only a read request, whose CRC came from the memo, owns a slot; replies to others are
    // checked in full.
    Slot* slot = nullptr;
    if (request.size() == kReadRequestHeadLength + kCrcLength) {
        const quint64 key = headKey(reinterpret_cast<const unsigned char*>(request.constData()));
        Slot& candidate = slotFor(key);
        if (candidate.used && candidate.head == key) {
            slot = &candidate;
        }
    }
    if (slot != nullptr && slot->goodReply.size() == static_cast<size_t>(size) &&
        memcmp(slot->goodReply.data(), reply, static_cast<size_t>(size)) == 0) {
        return true;
    }
    // The CRC length is 16 bits wide; CalCRC does not write through its pointer.
    const unsigned int crc =
        CalCRC(const_cast<unsigned char*>(reply), static_cast<unsigned short>(size - 2));
    const bool matches = crc == reply[size - 2] + 256u * reply[size - 1];
    if (matches && slot != nullptr) {
        remember(*slot, reply, size);
    }
    return matches;
}
