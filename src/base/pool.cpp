// pool: lending payloads out under ids that stay checkable.
//
// The functions that a caller gives may use the pool. So an item is taken out of its list, and its l is cleared, before
// one of them is called for it. Afterwards nothing is relied on that the function may have changed.
// Cost: everything is constant, the search for a slot that was never used in the long run: m_res_count passes each
// once.
#include "base/pool.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "assert.hpp"
#include "module.hpp"
#include "tq4/system.h"

namespace {

void reset_handle(void *payload) { Tq4_object_of(payload)->oitf->Reset(payload); }

Tq4_pool_CreateParams with_defaults(Tq4_pool_CreateParams given) {
    given.max_res = std::min(given.max_res, TQ4_POOL_MOST);
    if (!given.Delete) given.Delete = reset_handle;
    if (!given.Reset) given.Reset = [](void *payload, unsigned long) { reset_handle(payload); };
    return given;
}

// The bits of the slot numbers below count; one bit at least.
uint32_t mask_of(uint32_t count) {
    if (count == 0) return 0;
    const int bits = std::max(1, static_cast<int>(std::bit_width(count - 1)));
    return (1u << bits) - 1;
}

uint32_t first_serial(uint32_t below) {
    const uint64_t random = static_cast<uint64_t>(Tq4_system_api->Random());
    return below ? std::max(1u, static_cast<uint32_t>(random % below)) : 1;
}

// Stands where a payload is being made.
char being_made;

} // namespace

Tq4_pool_obj::Tq4_pool_obj(const Tq4_pool_CreateParams *given)
    : m_callback(with_defaults(*given)), m_mask(mask_of(m_callback.max_res)),
      m_mask_radom(static_cast<uint32_t>(m_callback.mask) & m_mask),
      // Of the directory, too, only what is used takes memory: pages of zeros that nobody writes are the system's.
      m_item_res(static_cast<Tq4_pool_leaf **>(std::calloc(Leaves() + 1, sizeof(void *)))),
      m_serial(first_serial(m_callback.max_res)) {
    TQ4_ASSERT(m_item_res != nullptr);
}

// Whatever Delete does with the pool, nothing new comes in.
Tq4_pool_obj::~Tq4_pool_obj() {
    m_callback.Create = [](void *) -> void * { return nullptr; };
    m_res_count = 0;
    for (std::size_t i = 0; i < Leaves(); ++i) {
        if (!m_item_res[i]) continue;
        for (unsigned at = 0; at < Tq4_pool_leaf::size; ++at) Destroy({m_item_res[i], at});
    }
    for (std::size_t i = 0; i < Leaves(); ++i) delete m_item_res[i];
    std::free(m_item_res);
}

// From here on the slot is unmade for whatever Delete does with the pool.
void Tq4_pool_obj::Destroy(Tq4_pool_slot slot) {
    if (Tq4_list_node_linked(slot.node())) (slot.busy() ? m_busy : m_resource).Unlink(slot.node());
    slot.l() = 0;
    void *payload = std::exchange(slot.obj(), nullptr);
    if (payload && payload != &being_made) m_callback.Delete(payload);
}

// --- Lending ---

void *Tq4_pool_obj::Alloc(void *param, Tq4_id *id) {
    const unsigned number = m_resource.m_count ? number_of(m_resource.first()) : NextUnmade();
    return AllocAt(number, param, id);
}

void *Tq4_pool_obj::AllocAt(unsigned number, void *param, Tq4_id *id) {
    const Tq4_pool_slot slot = Claim(number, param);
    return slot ? Lend(slot, FreshId(slot), id) : nullptr;
}

void *Tq4_pool_obj::AllocBy(void *param, const Tq4_id *id) {
    if (!id || id->l == 0) return nullptr;
    const Tq4_id own = *id; // Create may change what it points to
    const Tq4_pool_slot slot = Claim(Unscramble(own.h), param);
    return slot ? Lend(slot, own, nullptr) : nullptr;
}

// The slot, if it is free or a payload can be made for it, in no list.
Tq4_pool_slot Tq4_pool_obj::Claim(unsigned number, void *param) {
    const Tq4_pool_slot slot = At(number);
    if (!slot.made()) return Make(number, param);
    if (!slot.free()) return {};
    m_resource.Unlink(slot.node());
    return slot;
}

Tq4_pool_slot Tq4_pool_obj::Make(unsigned number, void *param) {
    if (number >= m_callback.max_res) return {};
    const Tq4_pool_slot slot = Room(number);
    slot.item().slot = number;
    slot.obj() = &being_made;
    slot.obj() = m_callback.Create(param);
    if (slot.obj()) return slot;
    m_res_count = std::min<uint64_t>(m_res_count, number); // Create may have lent others beyond
    return {};
}

// A slot below max_res, with its leaf.
Tq4_pool_slot Tq4_pool_obj::Room(unsigned number) {
    Tq4_pool_leaf *&leaf = m_item_res[number / Tq4_pool_leaf::size];
    if (!leaf) leaf = new Tq4_pool_leaf();
    return At(number);
}

// max_res when there is none.
unsigned Tq4_pool_obj::NextUnmade() {
    while (m_res_count < m_callback.max_res && At(static_cast<unsigned>(m_res_count)).made()) ++m_res_count;
    return static_cast<unsigned>(m_res_count);
}

void *Tq4_pool_obj::Lend(Tq4_pool_slot slot, Tq4_id id, Tq4_id *out) {
    slot.l() = id.l;
    m_busy.Append(slot.node());
    if (++m_serial == 0) m_serial = 1;
    if (out) *out = id;
    Check(slot);
    return slot.obj();
}

// --- Giving back ---

int Tq4_pool_obj::Recycle(const Tq4_id *id) {
    const Tq4_pool_slot slot = Find(id);
    if (!slot) return 0;
    GiveBack(slot);
    return 1;
}

// No more than there were: a Reset that lends again does not keep us here.
void Tq4_pool_obj::RecycleAll() {
    for (uint64_t count = m_busy.m_count; count && m_busy.m_count; --count) GiveBack(At(number_of(m_busy.first())));
}

void Tq4_pool_obj::GiveBack(Tq4_pool_slot slot) {
    m_busy.Unlink(slot.node());
    slot.l() = 0;
    m_callback.Reset(slot.obj(), slot.item().slot);
    m_resource.Append(slot.node());
    Check(slot);
}

// --- Walking ---

// The walk goes on behind what was shown, or, when that was given back, with what followed it before the visit.
void Tq4_pool_obj::each(Tq4_pool_visitor visitor, void *param) const {
    if (!visitor) return;
    const auto serial = [this](const Tq4_list_node *node) {
        return node == m_busy.end() ? 0 : At(number_of(node)).l();
    };
    for (const Tq4_list_node *node = m_busy.first(); node != m_busy.end();) {
        const Tq4_list_node *following = node->next;
        const uint32_t shown_serial = serial(node), following_serial = serial(following);
        if (visitor(At(number_of(node)).obj(), param) != 0) return;
        if (serial(node) == shown_serial)
            following = node->next;
        else if (serial(following) != following_serial)
            return;
        node = following;
    }
}

void Tq4_pool_obj::Check(Tq4_pool_slot touched) const {
    if (!Tq4_checks) return;
    TQ4_CHECK(At(touched.item().slot).node() == touched.node() && Tq4_list_node_linked(touched.node()));
    TQ4_CHECK(touched.obj() && touched.obj() != &being_made);
    TQ4_CHECK(m_serial != 0 && m_res_count <= m_callback.max_res);
    TQ4_CHECK(m_busy.m_count + m_resource.m_count <= m_callback.max_res);
    if (m_res_count) TQ4_CHECK(At(static_cast<unsigned>(m_res_count - 1)).made());
    for (const Tq4_list *list : {&m_busy, &m_resource})
        if (list->m_count)
            for (const Tq4_list_node *end : {list->m_head.next, list->m_tail.prev})
                TQ4_CHECK(At(number_of(end)).busy() == (list == &m_busy) && At(number_of(end)).node() == end);
}

const Tq4_pool_ Tq4_pool_itf = {
    .Alloc = Tq4_op<&Tq4_pool_obj::Alloc>,
    .AllocAt = Tq4_op<&Tq4_pool_obj::AllocAt>,
    .AllocBy = Tq4_op<&Tq4_pool_obj::AllocBy>,
    .Peek = Tq4_op<&Tq4_pool_obj::Peek>,
    .PeekAt = Tq4_op<&Tq4_pool_obj::PeekAt>,
    .ToIndex = Tq4_op<&Tq4_pool_obj::ToIndex>,
    .Counts = Tq4_op<&Tq4_pool_obj::Counts>,
    .Recycle = Tq4_op<&Tq4_pool_obj::Recycle>,
    .RecycleAll = Tq4_op<&Tq4_pool_obj::RecycleAll>,
    .each = Tq4_op<&Tq4_pool_obj::each>,
};
TQ4_MODULE(pool)
