// traffic_light: a state machine that a timer drives through a dispatcher for two seconds; then the moves it has made
// are read back from its log and compared with the order of lights.
//
//   traffic_light DIRECTORY
//
// The form of a service: the timer's thread only pushes messages, and one thread, the dispatcher's, owns the machine,
// so that nothing needs a lock. DIRECTORY becomes the log's main directory. Exits 1 when a light is out of order.
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include <tq4/tq4.h>

#include "object.hpp"

namespace {

enum Message : unsigned long { POWER = 1, TICK = 2, LAST_TICK = 3 };
constexpr unsigned long ticks = 20, tick_ms = 100;

// In their order, and how many ticks each shines: twice around in all.
struct Light {
    const char *name;
    long ticks;
};
constexpr Light lights[] = {{"red", 4}, {"red and amber", 1}, {"green", 4}, {"amber", 1}};
constexpr std::size_t light_count = std::size(lights), rounds = 2;

// What the dispatcher's thread works on.
struct Crossing {
    const Object<Tq4_fsm> fsm;
    const Object<Tq4_fsm_item> light{Tq4_fsm_item_oitf};
    const Object<Tq4_event> done{Tq4_event_oitf};
    long shining = 0; // ticks since the light changed

    explicit Crossing(Tq4_log log) : fsm(Tq4_fsm_oitf, log) {
        for (std::size_t i = 0; i < light_count; ++i) add(lights[i], lights[(i + 1) % light_count]);
        fsm->SetIntMsgHandle(fsm, POWER, 1, nullptr, lights[0].name);
    }
    void add(const Light &lit, const Light &next) {
        const Tq4_fsm_state state = fsm->AddState(fsm, lit.name);
        (*state)->SetStateEnterHandler(state, entered);
        (*state)->SetIntMsgHandleRange(state, TICK, 1, lit.ticks - 1, nullptr, "");
        (*state)->SetIntMsgHandle(state, TICK, lit.ticks, nullptr, next.name);
    }
    void give(Message message, long value) { fsm->HandleIntMsg(fsm, light, message, value, this); }

    static void entered(Tq4_fsm_item, const Tq4_fsm_msg *message, Tq4_fsm_state, Tq4_fsm_state, Tq4_fsm_state) {
        static_cast<Crossing *>(message->params)->shining = 0;
    }
    static long handle(void *context, Tq4_msg *message) {
        auto *crossing = static_cast<Crossing *>(context);
        if (message->msg == POWER) crossing->give(POWER, message->submsg);
        if (message->msg == TICK) crossing->give(TICK, ++crossing->shining);
        if (message->msg == LAST_TICK) crossing->done->Set(crossing->done);
        return 1;
    }
};

void on_timer(Tq4_timer, Tq4_timer_callback *firing) {
    const auto dispatch = static_cast<Tq4_dispatch>(firing->userdata);
    const auto count = static_cast<long>(firing->repeat);
    (*dispatch)->Push(dispatch, nullptr, nullptr, TICK, count, nullptr, nullptr);
    if (firing->closed) (*dispatch)->Push(dispatch, nullptr, nullptr, LAST_TICK, count, nullptr, nullptr);
}

bool run(Crossing &crossing) {
    if (crossing.fsm->Inspect(crossing.fsm) != 0) return false;
    std::printf("   %lu states inspected; %lu ticks of %lu ms\n", crossing.fsm->GetStateCount(crossing.fsm), ticks,
                tick_ms);
    const Object<Tq4_dispatch> dispatch(Tq4_dispatch_oitf);
    const Object<Tq4_timer> timer(Tq4_timer_oitf); // stops first
    if (!dispatch->Start(dispatch, &crossing, Crossing::handle, "crossing") || !timer->Start(timer, "crossing"))
        return false;
    dispatch->Send(dispatch, nullptr, nullptr, POWER, 1, nullptr, nullptr);
    timer->SetRepeatTimer2(timer, ticks, tick_ms, on_timer, nullptr,
                           const_cast<void *>(static_cast<const void *>(static_cast<Tq4_dispatch>(dispatch))), nullptr);
    return crossing.done->Wait(crossing.done, TQ4_ALL_ONES) == 1;
}

// The lights that the log says were changed to, each with the time in front of its line.
struct Change {
    std::string time, light;
};
std::vector<Change> changes_logged(const char *directory) {
    const Object<Tq4_finder> files(Tq4_finder_oitf);
    files->Find(files, (std::string(directory) + "/traffic_*.log").c_str(), Tq4_finder_files | Tq4_finder_recursive);
    const Object<Tq4_file> file(Tq4_file_oitf);
    std::vector<Change> changes;
    for (unsigned long i = 0; i < files->Count(files); ++i) {
        file->Open(file, files->Path(files, i), Tq4_file_read);
        while (const char *line = file->ReadLine(file, 1, 0)) {
            const std::string text = line;
            const std::size_t arrow = text.find("-->(");
            if (arrow != text.npos)
                changes.push_back({text.substr(12, 12), text.substr(arrow + 4, text.rfind(')') - arrow - 4)});
        }
    }
    return changes;
}

bool in_order(const std::vector<Change> &changes) {
    for (std::size_t i = 0; i < changes.size(); ++i)
        if (changes[i].light != lights[i % light_count].name) return false;
    return changes.size() == 1 + rounds * light_count; // the first came with the power
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) return std::fprintf(stderr, "Usage: traffic_light DIRECTORY\n"), 2;
    Tq4_debug_api->SetPrint([](int, const char *, va_list) {}); // threads would tell of their beginning and end
    const Object<Tq4_log> log(Tq4_log_oitf);
    log->Init(log, "traffic", 0);
    log->MainDir(log, argv[1]);
    {
        Crossing crossing(log);
        if (!run(crossing)) return std::fprintf(stderr, "traffic_light: it could not be started\n"), 1;
    }
    const std::vector<Change> changes = changes_logged(argv[1]);
    for (const Change &change : changes) std::printf("   %s  %s\n", change.time.c_str(), change.light.c_str());
    return in_order(changes) ? 0 : 1;
}
