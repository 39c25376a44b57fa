// fsm_item: an item's beginning and end. A machine moves it in between.
#include "base/fsm/item.hpp"

#include "base/fsm/handling.hpp"

// An item without operations; its table only tells items from other objects.
struct Tq4_fsm_item_ {};

void Tq4_fsm_item_obj::Reset() {
    Leave();
    m_CurrentState = nullptr;
    m_PreState = Tq4_fsm_state_empty_pre;
    if (Tq4_id *id = Tq4_object_Id(handle())) Tq4_id_Reset(id);
}

// The machine that is handling an event of this item learns that it is over.
void Tq4_fsm_item_obj::Leave() {
    if (m_rflag) m_rflag->Abandon();
    m_rflag = nullptr;
}

const Tq4_fsm_item_ Tq4_fsm_item_itf = {};
TQ4_MODULE(fsm_item)
