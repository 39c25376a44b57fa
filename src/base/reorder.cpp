// reorder: a ring of slots, each empty or held.
//
// r is the head's slot. The w_size slots from it on are ready, all held; the one behind them, w, is the first gap,
// unless the ring is full. Further held slots may lie behind the gap: e_size counts all that are held, so while it
// equals w_size there is nothing behind the gap to look for. A packet d numbers after the head belongs d slots after
// it. Cost: storing and releasing in order are constant; a closed gap walks over the slots that become ready, each
// once.
#include "tq4/reorder.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "assert.hpp"
#include "module.hpp"
#include "tq4/debug.h"

namespace {

constexpr int most_slots = 65536;

enum Slot_type : uint16_t { Empty = 0, Appended = 1, Held = 2 };

struct Tq4_reorder_item {
    void *data; // owned while held; may be null
    uint32_t seq;
    Slot_type type;
};

} // namespace

struct Tq4_reorder_obj {
    std::unique_ptr<Tq4_reorder_item[]> instance; // null before Init
    unsigned r = 0;
    unsigned w_size = 0;
    unsigned e_size = 0;
    unsigned m_size = 0;  // slots
    uint32_t eseq = 0;    // the head's sequence number
    bool m_first = false; // it has been given or taken from a packet
    Tq4_reorder_delete m_delete = std::free;
    int m_autowait = 0; // the hold-back that late packets have brought about
    int m_raw_wait = 0; // its limit

    Tq4_reorder_obj() = default;
    ~Tq4_reorder_obj() { Drop(); }
    Tq4_reorder_obj &operator=(Tq4_reorder_obj &&) = default;
    void Reset() {
        Drop();
        *this = {};
    }
    void Copy(const Tq4_reorder_obj *) {}
    bool Equal(const Tq4_reorder_obj &other) const { return this == &other; }
    void Duplicate(const Tq4_reorder_obj &source) {
        if (source.m_size) Init(static_cast<int>(source.m_size), source.m_delete, source.m_raw_wait);
    }

    void Init(int size, Tq4_reorder_delete delete_data, int max_wait);
    void SetFirstSeq(unsigned seq) {
        eseq = seq;
        m_first = true;
    }
    void SetMaxwait(int max_wait);
    int CacheItem(unsigned seq, void *data, int mode);
    void *GetItemWait(unsigned *seq, int wait, int *empty);
    int SafeCache(unsigned seq, void *data) { return CacheItem(seq, data, 1) > 0; }
    void *SafeGet(unsigned *seq) { return GetItemWait(seq, 0, nullptr); }
    unsigned GetNok() const { return eseq; }
    int SafeWait(unsigned *seq, void *data);
    int Ack(unsigned seq, Tq4_reorder_visitor callback, void *context);
    unsigned GetSendSeq() const { return w_size ? At(w_size - 1).seq + 1 : eseq; }
    int IsEmpty() const { return w_size == 0; }
    int IsFull() const { return w_size == m_size; }
    void *PeekData(unsigned seq) const;
    void each(Tq4_reorder_visitor callback, void *context) const { Visit(e_size, callback, context); }
    void each_nok(Tq4_reorder_visitor callback, void *context) const { Visit(w_size, callback, context); }

private:
    // The slot at a distance from the head; the distance is below m_size.
    Tq4_reorder_item &At(unsigned distance) const {
        const unsigned place = r + distance;
        return instance[place < m_size ? place : place - m_size];
    }
    uint32_t Distance(unsigned seq) const { return seq - eseq; } // as a signed number below 0: before the head
    int CacheElsewhere(unsigned seq, void *data, int mode);
    int Store(unsigned distance, unsigned seq, void *data);
    int Append(unsigned seq, void *data, Slot_type type);
    void AddReady();
    void *TakeHead();
    void MakeRoom(unsigned seq);
    void Free(void *data) const {
        if (data) m_delete(data);
    }
    void Drop();
    void Visit(unsigned held, Tq4_reorder_visitor callback, void *context) const;
    void Check() const;
};

void Tq4_reorder_obj::Init(int size, Tq4_reorder_delete delete_data, int max_wait) {
    Reset();
    m_size = static_cast<unsigned>(std::clamp(size, 1, most_slots));
    instance = std::make_unique<Tq4_reorder_item[]>(m_size);
    if (delete_data) m_delete = delete_data;
    SetMaxwait(max_wait);
    Check();
}

void Tq4_reorder_obj::SetMaxwait(int max_wait) {
    m_raw_wait = std::clamp(max_wait, 0, std::max(static_cast<int>(m_size) - 2, 0));
    m_autowait = std::min(m_autowait, m_raw_wait);
}

// --- The receiving end ---

int Tq4_reorder_obj::CacheItem(unsigned seq, void *data, int mode) {
    if (!data) {
        const int appended = Append(eseq + w_size, nullptr, Appended);
        if (!appended) Tq4_debug_api->log(0, "Tq4_reorder_CacheItem 缓冲区满\n");
        return appended;
    }
    if (!m_first) SetFirstSeq(seq);
    const uint32_t distance = Distance(seq);
    return distance < m_size ? Store(distance, seq, data) : CacheElsewhere(seq, data, mode);
}

// A packet that is not for the window as it is.
[[gnu::noinline]] int Tq4_reorder_obj::CacheElsewhere(unsigned seq, void *data, int mode) {
    if (static_cast<int32_t>(Distance(seq)) < 0) {
        m_autowait = std::min(m_autowait + 1, m_raw_wait);
        return 0;
    }
    if (mode < 0 && m_size) {
        MakeRoom(seq);
        return Store(Distance(seq), seq, data);
    }
    if (mode > 0) {
        Tq4_debug_api->log(0, "Tq4_reorder_CacheItem 数据包超过范围，直接丢弃 %u\n", seq);
    } else {
        constexpr const char *text = "Tq4_reorder_CacheItem 数据包 seq 超过范围，返回失败\n";
        Tq4_debug_api->log(0, text);
        Tq4_debug_api->Printf(0, text);
    }
    return -1;
}

int Tq4_reorder_obj::Store(unsigned distance, unsigned seq, void *data) {
    Tq4_reorder_item &slot = At(distance);
    if (slot.type != Empty) {
        if (slot.data) return -100;
        slot = {data, seq, Held};
        return 1;
    }
    slot = {data, seq, Held};
    ++e_size;
    if (distance != w_size) return 1;
    AddReady();
    if (w_size == m_size)
        Tq4_debug_api->log(0, "Tq4_reorder_itf_CacheItem 队列满,obj->m_size=%d\n", static_cast<int>(m_size));
    return static_cast<int>(w_size);
}

// The slot of the first gap is held now, and with it become ready those behind.
void Tq4_reorder_obj::AddReady() {
    ++w_size;
    while (w_size < e_size && At(w_size).type != Empty) ++w_size;
    Check();
}

// Until the packet fits: packets from the head on; then the window begins with it, and nothing held is within. How far
// away it claims to be makes no difference.
void Tq4_reorder_obj::MakeRoom(unsigned seq) {
    while (Distance(seq) >= m_size && w_size) {
        Tq4_debug_api->log(0, "主动丢弃数据包 %u,eseq = %u,seq = %u,end_pos=%u\n", At(0).seq, eseq, seq, Distance(seq));
        Free(TakeHead());
    }
    if (Distance(seq) < m_size) return;
    Drop();
    eseq = seq;
}

// The head's slot is emptied; the head is the next.
void *Tq4_reorder_obj::TakeHead() {
    Tq4_reorder_item &head = At(0);
    void *data = head.data;
    head.type = Empty;
    if (++r == m_size) r = 0;
    ++eseq;
    --w_size;
    --e_size;
    Check();
    return data;
}

void *Tq4_reorder_obj::GetItemWait(unsigned *seq, int wait, int *empty) {
    if (seq) *seq = w_size ? At(0).seq : eseq;
    const bool ready = w_size && (wait <= 0 || static_cast<int>(w_size) >= std::max(wait, m_autowait));
    if (empty) *empty = !ready;
    return ready ? TakeHead() : nullptr;
}

// --- The sending end ---

int Tq4_reorder_obj::Append(unsigned seq, void *data, Slot_type type) {
    if (w_size == m_size) return 0;
    At(w_size) = {data, seq, type};
    ++e_size;
    AddReady();
    return 1;
}

int Tq4_reorder_obj::SafeWait(unsigned *seq, void *data) {
    const unsigned next = GetSendSeq();
    if (!Append(next, data, Held)) return 0;
    if (seq) *seq = next;
    return 1;
}

int Tq4_reorder_obj::Ack(unsigned seq, Tq4_reorder_visitor callback, void *context) {
    if (w_size == 0) return 0;
    const uint32_t distance = Distance(seq);
    if (static_cast<int32_t>(distance) < 0) return -3;
    if (distance >= m_size) {
        Tq4_debug_api->log(0, "Tq4_reorder_Ack seq=%x, ACK seq=%x,超过范围了01", eseq, seq);
        return -4;
    }
    if (distance >= w_size) {
        Tq4_debug_api->log(0, "Tq4_reorder_Ack seq=%x, ACK seq=%x,超过范围了02", eseq, seq);
        return -5;
    }
    for (unsigned left = distance + 1; left; --left) {
        const bool kept = callback && callback(At(0).seq, At(0).data, context) != 0;
        void *data = TakeHead();
        if (!kept) Free(data);
    }
    return static_cast<int>(distance) + 1;
}

// --- Looking, and the end ---

void *Tq4_reorder_obj::PeekData(unsigned seq) const {
    const uint32_t distance = Distance(seq);
    if (w_size == 0 || distance >= m_size) return nullptr;
    return At(distance).type != Empty ? At(distance).data : nullptr;
}

// The first held slots, as many as that.
void Tq4_reorder_obj::Visit(unsigned held, Tq4_reorder_visitor callback, void *context) const {
    if (!callback) return;
    for (unsigned distance = 0; held; ++distance) {
        const Tq4_reorder_item &slot = At(distance);
        if (slot.type == Empty) continue;
        --held;
        if (callback(slot.seq, slot.data, context) != 0) return;
    }
}

// Frees what is held; the head stays where it is. The delete function may look at what is left.
void Tq4_reorder_obj::Drop() {
    w_size = 0;
    for (unsigned distance = 0; e_size; ++distance) {
        Tq4_reorder_item &slot = At(distance);
        if (slot.type == Empty) continue;
        slot.type = Empty;
        --e_size;
        Free(slot.data);
    }
}

void Tq4_reorder_obj::Check() const {
    TQ4_CHECK(w_size <= e_size && e_size <= m_size && r < m_size);
    TQ4_CHECK(w_size == 0 || (At(0).type != Empty && At(w_size - 1).type != Empty));
    TQ4_CHECK(w_size == m_size || At(w_size).type == Empty);
    TQ4_CHECK(0 <= m_autowait && m_autowait <= m_raw_wait);
}

const Tq4_reorder_ Tq4_reorder_itf = {
    .Init = Tq4_op<&Tq4_reorder_obj::Init>,
    .SetFirstSeq = Tq4_op<&Tq4_reorder_obj::SetFirstSeq>,
    .SetMaxwait = Tq4_op<&Tq4_reorder_obj::SetMaxwait>,
    .CacheItem = Tq4_op<&Tq4_reorder_obj::CacheItem>,
    .GetItemWait = Tq4_op<&Tq4_reorder_obj::GetItemWait>,
    .SafeCache = Tq4_op<&Tq4_reorder_obj::SafeCache>,
    .SafeGet = Tq4_op<&Tq4_reorder_obj::SafeGet>,
    .GetNok = Tq4_op<&Tq4_reorder_obj::GetNok>,
    .SafeWait = Tq4_op<&Tq4_reorder_obj::SafeWait>,
    .GetNck = Tq4_op<&Tq4_reorder_obj::GetSendSeq>,
    .Ack = Tq4_op<&Tq4_reorder_obj::Ack>,
    .GetSendSeq = Tq4_op<&Tq4_reorder_obj::GetSendSeq>,
    .IsEmpty = Tq4_op<&Tq4_reorder_obj::IsEmpty>,
    .IsFull = Tq4_op<&Tq4_reorder_obj::IsFull>,
    .PeekData = Tq4_op<&Tq4_reorder_obj::PeekData>,
    .each = Tq4_op<&Tq4_reorder_obj::each>,
    .each_nok = Tq4_op<&Tq4_reorder_obj::each_nok>,
};
TQ4_MODULE(reorder)
