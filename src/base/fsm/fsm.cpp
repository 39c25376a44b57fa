// fsm: a machine's states and its rules for all of them.
//
// The rules for all states are those of a state that no item is ever in: they are set, found and inspected alike.
#include "base/fsm/fsm.hpp"

#include "assert.hpp"

namespace {

using Fsm = Tq4_fsm_obj;

Fsm::State new_state() {
    auto state = Tq4_make_hooked<Tq4_fsm_state>(Tq4_cxx_support->new_state);
    TQ4_ASSERT(state != nullptr);
    return state;
}

} // namespace

Tq4_fsm_obj::Tq4_fsm_obj(const void *log) : m_log(static_cast<Tq4_log>(const_cast<void *>(log))) { Declare(); }

void Tq4_fsm_obj::Declare() {
    m_mapStates = Tq4_make<Tq4_strmap>(Tq4_strmap_oitf);
    m_default = new_state();
    Append(nullptr);
    initial().m_ref = 1;
}

void Tq4_fsm_obj::Clear() {
    for (const auto &handling : m_handlings) {
        handling->End();
        handling->Abandon();
    }
    m_depth = 0; // what a killed thread left at hand is over
    m_default.reset();
    m_mapStates.reset();
    m_StatesList.clear();
}

void Tq4_fsm_obj::Reset() {
    Clear();
    Declare();
    m_cpp_handler = nullptr;
}

Tq4_fsm_state Tq4_fsm_obj::Append(const char *name) {
    const Tq4_fsm_state state = m_StatesList.emplace_back(new_state()).get();
    const auto &string = Tq4_record_of<Tq4_fsm_state_obj>(state).m_StateName;
    (*string)->Strcpy(string.get(), name);
    (*m_mapStates)->SetAtS(m_mapStates.get(), const_cast<void *>(static_cast<const void *>(state)), name);
    return state;
}

Tq4_fsm_state Tq4_fsm_obj::AddState(const char *name) {
    if (name && !*name) return nullptr;
    const Tq4_fsm_state known = GetState(name);
    return known ? known : Append(name);
}

Tq4_fsm_state Tq4_fsm_obj::GetState(const char *name) const {
    if (name && !*name) return nullptr; // the initial state has no name, not an empty one
    return static_cast<Tq4_fsm_state>((*m_mapStates)->LookupS(m_mapStates.get(), name));
}

// The visitor may add states.
void Tq4_fsm_obj::EachState(Tq4_fsm_state_visitor visitor) {
    if (!visitor) return;
    for (std::size_t i = 0; i < m_StatesList.size(); ++i)
        if (visitor(m_StatesList[i].get()) != 0) return;
}

bool Tq4_fsm_obj::LookForNextState(Tq4_fsm_state_Handle &rule) const {
    if (rule.m_nextStateflag == Tq4_fsm_stateNextStateFaild) return false;
    const bool named = rule.m_nextStateflag == Tq4_fsm_stateNextStateNotInit;
    rule.Found(Tq4_record<Tq4_fsm_state_obj>(GetState(named ? Tq4_fsm_text_of(rule.m_nextStateName) : nullptr)));
    return rule.resolved();
}

// --- The table ---

namespace {

// An operation of the state that holds the rules for all states.
template <auto Method> struct On_all_of;
template <class... Args, void (Tq4_fsm_state_obj::*Method)(Args...)> struct On_all_of<Method> {
    static void Set(Tq4_fsm machine, Args... args) {
        if (machine) (Fsm::record_of(Tq4_record_of<Fsm>(machine).m_default).*Method)(args...);
    }
};
template <auto Method> constexpr auto On_all = On_all_of<Method>::Set;

} // namespace

const Tq4_fsm_ Tq4_fsm_itf = {
    .HandleStrMsg = Tq4_op<&Fsm::HandleStrMsg>,
    .HandleIntMsg = Tq4_op<&Fsm::HandleIntMsg>,
    .AddState = Tq4_op<&Fsm::AddState>,
    .GetState = Tq4_op<&Fsm::GetState>,
    .GetStateCount = Tq4_op<&Fsm::GetStateCount>,
    .SetIntMsgHandle = On_all<&Tq4_fsm_state_obj::SetIntMsgHandle>,
    .SetIntMsgHandleRange = On_all<&Tq4_fsm_state_obj::SetIntMsgHandleRange>,
    .SetIntMsgHandleDefault = On_all<&Tq4_fsm_state_obj::SetIntMsgHandleDefault>,
    .SetStrMsgHandle = On_all<&Tq4_fsm_state_obj::SetStrMsgHandle>,
    .SetStrMsgHandleRange = On_all<&Tq4_fsm_state_obj::SetStrMsgHandleRange>,
    .SetStrMsgHandleDefault = On_all<&Tq4_fsm_state_obj::SetStrMsgHandleDefault>,
    .Inspect = Tq4_op<&Fsm::Inspect>,
    .EachState = Tq4_op<&Fsm::EachState>,
    .SetCPPHandler = Tq4_op<&Fsm::SetCPPHandler>,
    .SetLog = Tq4_op<&Fsm::SetLog>,
};
TQ4_MODULE(fsm)
