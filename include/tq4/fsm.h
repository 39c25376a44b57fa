/* fsm.h: Tq4_fsm, a finite state machine made of rules, Tq4_fsm_state, its states, and Tq4_fsm_item, what it drives.
 *
 * A machine holds states and their rules. Any number of items, one for each thing that is driven (a connection, a job),
 * hold only where they are. An event is an integer or a text with a value; it is given to the machine with an item. The
 * rule that matches calls its handler and may move the item to another state.
 *
 *     Tq4_fsm machine = Tq4_fsm_oitf->Create(log);
 *     Tq4_fsm_state idle = (*machine)->AddState(machine, "idle"), busy = (*machine)->AddState(machine, "busy");
 *     (*idle)->SetIntMsgHandle(idle, JOB, 1, on_job, "busy");
 *     if ((*machine)->Inspect(machine) != 0) ...          what is wrong stands in the log
 *     Tq4_fsm_item item = Tq4_fsm_item_oitf->Create(NULL);
 *     (*machine)->HandleIntMsg(machine, item, JOB, 1, job);
 *
 * The initial state has no name. An item enters it with its first event, and is there for that event already.
 *
 * A rule names its next state. A null name is the initial state, and "" is to stay. Any other is the state of that
 * name, which may be added after the rule. A rule that leads to the state the item is in makes it stay too.
 *
 * The rule for an event is, in the item's state:
 *     1. the exact rule for its message and value; of two for the same, the one that was set last;
 *     2. the range rule for its message whose range holds the value; of several, the one that was set first;
 *     3. the default rule for its message; of two, the one that was set last;
 *     4. the state's rule for unexpected events;
 * and when there is none, the first of the same four that was set on the machine. An event without a rule is dropped.
 *
 * What happens, in this order, each handler being called with (previous, current, next):
 *     first event    the initial state's enter handler with (null, initial, null). When that state has a clean handler,
 *                    it is called with the same, and the event is over.
 *     stay           the rule's handler; next is null.
 *     move           the rule's handler; the exit handler of the state that is left; then, in the new state, where
 *                    current and next are the new state, its enter handler and its clean handler. A state with a clean
 *                    handler is final: its force rule is not followed.
 *     force          after a move, while the state has a force rule that leads elsewhere, and three times at most: the
 *                    exit handler; the force rule's handler, which comes second here, deliberately; then the new
 *                    state's handlers as in a move.
 * previous is null until an item has moved. The initial state's force rule is not followed at the first event.
 *
 * Handlers may do what they like with the machine's rules, with its items and with other machines:
 *  - An event that a handler gives to an item that is being handled waits until that one's event is over. Of several
 *    only the last is kept, deliberately. A copy of its text is kept with it.
 *  - An event for another item is handled at once.
 *  - An item that is reset or deleted in a handler is let alone: of its event, nothing more is done.
 *  - A handler must not reset or delete its machine.
 *
 * Log. A machine with a log writes a line at level -1 for each event, each move, and everything that goes wrong;
 * without one nothing is formatted. Lines begin with the item's id (Tq4_object_SetId), zeros when it has none. Those
 * that report a dropped event, a rule without a state and a move show the low 32 bits of an integer message,
 * deliberately.
 *
 * Ownership. A machine owns its states. It must outlive its items' last event; before a machine is reset, its items
 * are. An item belongs to the machine that drives it.
 *
 * States are made by the new_state hook of cxx_support.h and deleted by its delete hook: a machine makes first the
 * state that holds its own rules, then its initial state, then one with each new name.
 *
 * Copy does nothing and Equal is identity. Dup of a machine is an empty one with the same log; of a state, one without
 * name and rules; of an item, a new one. Reset of a machine removes its states, rules and wrapper, and keeps its log;
 * of a state, it removes rules and handlers, and keeps the name; of an item, it makes it as after Create, without an
 * event that waits, and its id zero.
 *
 * Null handles are ignored and give null or 0; so do a null item and a null message name.
 *
 * Threads: a machine, its states and its items belong to one thread at a time; handlers run on it, within the call. A
 * forced kill of that thread takes effect inside a handler, never between them; the item's event then stays unfinished,
 * and the item waits for Reset or Delete.
 */
#ifndef TQ4_FSM_H
#define TQ4_FSM_H

#include "tq4/log.h"
#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_fsm_ Tq4_fsm_;
typedef const Tq4_fsm_ **Tq4_fsm; /* handle */
typedef struct Tq4_fsm_state_ Tq4_fsm_state_;
typedef const Tq4_fsm_state_ **Tq4_fsm_state; /* handle */
/* Items have no operations but those of every object. */
typedef struct Tq4_fsm_item_ Tq4_fsm_item_;
typedef const Tq4_fsm_item_ **Tq4_fsm_item; /* handle */

/* An event as handlers see it. It is the machine's, and valid until the handler returns. */
typedef struct Tq4_fsm_msg {
    const char *sMsg;   /* borrowed from the caller: the text; null for an integer event */
    unsigned long iMsg; /* the integer; 0 for a text event */
    long status;        /* the event's value */
    void *params;       /* borrowed: the caller's, passed on as it is */
} Tq4_fsm_msg;

/* Any of the states may be null. */
typedef void (*Tq4_fsm_handler)(Tq4_fsm_item item, const Tq4_fsm_msg *message, Tq4_fsm_state previous,
                                Tq4_fsm_state current, Tq4_fsm_state next);

/* A wrapper around all handlers of a machine. It gets the handler as it was set, which it may take for anything, and a
 * null context. */
typedef void (*Tq4_fsm_cpp_handler)(Tq4_fsm_handler handler, void *context, Tq4_fsm_item item,
                                    const Tq4_fsm_msg *message, Tq4_fsm_state previous, Tq4_fsm_state current,
                                    Tq4_fsm_state next);

/* Returns non-zero to stop. */
typedef int (*Tq4_fsm_state_visitor)(Tq4_fsm_state state);

/* What a rule matches. */
typedef enum Tq4_fsm_stateMsgType TQ4_INT {
    Tq4_fsm_stateNoMsg = 0,     /* nothing: it is the force rule */
    Tq4_fsm_stateIntMsg = 1,    /* an integer */
    Tq4_fsm_stateStringMsg = 2, /* a text */
    Tq4_fsm_stateAnyMsg = 3     /* everything: it is the rule for unexpected events */
} Tq4_fsm_stateMsgType;

/* What is known of a rule's next state. */
typedef enum Tq4_fsm_stateNextStateType TQ4_INT {
    Tq4_fsm_stateNextStateNull = 0,    /* the initial state, not yet found */
    Tq4_fsm_stateNextStateNotInit = 1, /* a name, not yet looked up */
    Tq4_fsm_stateNextStateOk = 2,      /* found */
    Tq4_fsm_stateNextStateSelf = 3,    /* to stay */
    Tq4_fsm_stateNextStateFaild = 4    /* there was no such state when it was looked up, which happens once */
} Tq4_fsm_stateNextStateType;

struct Tq4_fsm_ {
    /* Gives the item a text event; name is borrowed until the call returns. */
    void (*HandleStrMsg)(Tq4_fsm machine, Tq4_fsm_item item, const char *name, long value, void *params);
    /* Gives the item an integer event. */
    void (*HandleIntMsg)(Tq4_fsm machine, Tq4_fsm_item item, unsigned long message, long value, void *params);

    /* The state of that name, added behind all others when it is new. Null gives the initial state, "" gives null. */
    Tq4_fsm_state (*AddState)(Tq4_fsm machine, const char *name);
    /* The state of that name; null when there is none, and for "". Null gives the initial state. */
    Tq4_fsm_state (*GetState)(Tq4_fsm machine, const char *name);
    /* The number of states with the initial one. */
    unsigned long (*GetStateCount)(Tq4_fsm machine);

    /* Rules for all states, asked when a state has none; otherwise as those of the same names in Tq4_fsm_state_. */
    void (*SetIntMsgHandle)(Tq4_fsm machine, unsigned long message, long value, Tq4_fsm_handler handler,
                            const char *next);
    void (*SetIntMsgHandleRange)(Tq4_fsm machine, unsigned long message, long low, long high, Tq4_fsm_handler handler,
                                 const char *next);
    void (*SetIntMsgHandleDefault)(Tq4_fsm machine, unsigned long message, Tq4_fsm_handler handler, const char *next);
    void (*SetStrMsgHandle)(Tq4_fsm machine, const char *name, long value, Tq4_fsm_handler handler, const char *next);
    void (*SetStrMsgHandleRange)(Tq4_fsm machine, const char *name, long low, long high, Tq4_fsm_handler handler,
                                 const char *next);
    void (*SetStrMsgHandleDefault)(Tq4_fsm machine, const char *name, Tq4_fsm_handler handler, const char *next);

    /* Looks up the next state of every rule, replaced and covered ones included, and logs each that is missing; then
     * each state that no rule leads to. The sum of 1 when a next state is missing and 2 when a state is not led to. */
    int (*Inspect)(Tq4_fsm machine);
    /* Calls visitor for each state in the order they were added, the initial one first, until it returns non-zero. */
    void (*EachState)(Tq4_fsm machine, Tq4_fsm_state_visitor visitor);
    /* Calls every handler through the wrapper from now on; null calls them directly again. It is not called where there
     * is no handler. */
    void (*SetCPPHandler)(Tq4_fsm machine, Tq4_fsm_cpp_handler wrapper);
    /* Sets the log (borrowed), null for none. */
    void (*SetLog)(Tq4_fsm machine, Tq4_log log);
};

/* Create takes the log to write to (borrowed), or null. */
extern TQ4_API const Tq4_object_itf *const Tq4_fsm_oitf;

/* In all that follows, handlers may be null, next names the next state as said above, and texts are copied. */
struct Tq4_fsm_state_ {
    /* The state's name, "" for the initial state; valid while the state lives. "" for null. */
    const char *(*Name)(Tq4_fsm_state state);

    /* Rules for an integer message: with one value; with the values from low to high; with any value. */
    void (*SetIntMsgHandle)(Tq4_fsm_state state, unsigned long message, long value, Tq4_fsm_handler handler,
                            const char *next);
    void (*SetIntMsgHandleRange)(Tq4_fsm_state state, unsigned long message, long low, long high,
                                 Tq4_fsm_handler handler, const char *next);
    void (*SetIntMsgHandleDefault)(Tq4_fsm_state state, unsigned long message, Tq4_fsm_handler handler,
                                   const char *next);
    /* The same for a text message. */
    void (*SetStrMsgHandle)(Tq4_fsm_state state, const char *name, long value, Tq4_fsm_handler handler,
                            const char *next);
    void (*SetStrMsgHandleRange)(Tq4_fsm_state state, const char *name, long low, long high, Tq4_fsm_handler handler,
                                 const char *next);
    void (*SetStrMsgHandleDefault)(Tq4_fsm_state state, const char *name, Tq4_fsm_handler handler, const char *next);

    /* The rule for every event that no other rule of the state matches. A null handler removes it. */
    void (*SetUnExceptEventHandle)(Tq4_fsm_state state, Tq4_fsm_handler handler, const char *next);
    /* Called when an item has come into the state. */
    void (*SetStateEnterHandler)(Tq4_fsm_state state, Tq4_fsm_handler handler);
    /* The force rule, followed as soon as an item has moved into the state. */
    void (*SetForceState)(Tq4_fsm_state state, const char *next, Tq4_fsm_handler handler);
    /* Called before an item leaves the state. */
    void (*SetStateExitHandler)(Tq4_fsm_state state, Tq4_fsm_handler handler);
    /* Makes the state final: called after the enter handler, as the last thing of an event. Null undoes it. */
    void (*SetStateCleanHandler)(Tq4_fsm_state state, Tq4_fsm_handler handler);
};

/* Create ignores its parameter and gives a state without a name, of no machine: for the new_state hook. */
extern TQ4_API const Tq4_object_itf *const Tq4_fsm_state_oitf;

/* Create ignores its parameter and gives an item that is in no state yet. */
extern TQ4_API const Tq4_object_itf *const Tq4_fsm_item_oitf;

TQ4_END_DECLS

#endif
