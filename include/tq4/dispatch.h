/* dispatch.h: Tq4_dispatch, messages for one handler, which runs on one thread.
 *
 * Any thread hands over messages: Send waits for the handler's answer, Post is refused when too many wait, Push is
 * never refused. Each puts its message behind those that wait, or, as SendFirst, PostFirst and PushFirst, before them.
 * The handler gets one message after the other, on a thread that Start makes, or, after Start2, on the owner's thread,
 * which calls try_once when it is woken.
 *
 *     static long handle(void *context, Tq4_msg *message) { ... return answer; }
 *
 *     Tq4_dispatch d = Tq4_dispatch_oitf->Create(NULL);
 *     (*d)->Start(d, service, handle, "worker %d", 7);
 *     (*d)->Push(d, NULL, &peer, MSG_HELLO, 0, strdup("hello"), free);
 *     long answer = (*d)->Send(d, NULL, NULL, MSG_COUNT, 0, NULL, NULL);
 *     Tq4_dispatch_oitf->Delete(d);
 *
 * Life. A fresh dispatcher queues what it is given, and a Send waits for the first Start. After a Stop a Send answers 0
 * at once, until the next Start; Post and Push queue. Start after a Stop handles what was queued meanwhile.
 *
 * Parameters. With a free function, params belong to the dispatcher from the call on. They are freed once: after the
 * handler has had the message, when a Post is refused, or when the message is dropped. A handler that keeps them sets
 * message->params to null. The free function runs on whichever thread lets the message go, and may call every operation
 * of the dispatcher. Without a free function params are borrowed until the message is handled or dropped.
 *
 * Kills. A handler that keeps Stop or Delete waiting for 2000 ms is killed, inside the handler and nowhere else. Its
 * sender gets 0, its parameters are freed, and the dispatcher stays usable. A handler that even a kill does not end
 * goes on; its sender is let go when it returns. A thread that is killed in a Send ends when the Send is over.
 *
 * Object-level: Create takes null. Delete stops the dispatcher first; called by its own handler, it takes effect when
 * that returns, and the handle stays good until then. Reset stops it, drops what is queued as Stop does, also after
 * Start2, and makes it as new. Copy does nothing; a dispatcher equals only itself; Dup gives a fresh one.
 * Null handles give 0 or null; the parameters given with one are freed.
 *
 * Threads: the sending operations and IsSameThread from any thread. Start, Start2, Stop and Reset from one thread at a
 * time, the handler's included; Delete once. A thread may still be inside a Push whose message makes the handler delete
 * the dispatcher.
 */
#ifndef TQ4_DISPATCH_H
#define TQ4_DISPATCH_H

#include <stdarg.h>

#include "tq4/object.h"
#include "tq4/thread.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_dispatch_ Tq4_dispatch_;
typedef const Tq4_dispatch_ **Tq4_dispatch; /* handle */

/* How a message was handed over, at whichever end. */
typedef enum Tq4_msg_type { Tq4_msg_type_send = 0, Tq4_msg_type_push = 1, Tq4_msg_type_post = 2 } Tq4_msg_type;

/* What a handler is given; valid until it returns. */
typedef struct Tq4_msg {
    Tq4_msg_type type;
    unsigned long msg; /* the message code; the numbers are the user's */
    long submsg;
    /* Of a Post or Push: copies, zero ids where null was given. Of a Send: the sender's own ids, through which it can
     * be answered, or null; after Tq4_dispatch_Return copies too. */
    Tq4_id *sender;
    Tq4_id *receiver;
    void *params; /* one word: an object's handle, a pointer, a number; the handler takes it over by clearing this */
} Tq4_msg;

/* Handles a message. The result answers a Send and is otherwise ignored; a negative one means nothing special. It may
 * call every operation of its dispatcher. */
typedef long (*Tq4_msg_handler)(void *context, Tq4_msg *message);
/* Frees params, which are not null. */
typedef void (*Tq4_msg_free)(void *params);
/* Told after a message was queued, on the thread that queued it, with no lock held. */
typedef void (*Tq4_dispatch_notify)(void *context);

struct Tq4_dispatch_ {
    /* Starts a thread that serves the handler. Its name is the format filled in (Sprintf of Tq4_string; null: empty),
     * copied, 127 bytes at most. context is borrowed and handed to the handler as it is. Gives the thread, borrowed: it
     * ends with Stop. While such a thread serves, nothing changes and it is given again. Null without a handler or when
     * the system gave no thread; then the dispatcher is as before. */
    Tq4_thread (*Start)(Tq4_dispatch d, void *context, Tq4_msg_handler handler, const char *format, ...);
    /* The same with an argument list, which is used up by the call. */
    Tq4_thread (*StartV)(Tq4_dispatch d, void *context, Tq4_msg_handler handler, const char *format, va_list args);
    /* Makes the thread with this id (GetCurrentId of Tq4_thread) the handler's: it is to call try_once. notify, when
     * not null, is called with the context after every message that was queued, and once here when messages wait
     * already. Called again it changes thread, context and functions; the thread before must have ended its last
     * try_once. Ignored without a handler or while a thread of Start serves. */
    void (*Start2)(Tq4_dispatch d, void *context, unsigned long thread_id, Tq4_dispatch_notify notify,
                   Tq4_msg_handler handler);
    /* Ends the thread of Start, at latest by a kill after 2000 ms. Messages that wait are dropped: every sender that
     * waits gets 0 at once, parameters are freed at the end. In the handler it does not wait: the thread ends after the
     * message at hand, which is answered as ever. After Start2 it does nothing. */
    void (*Stop)(Tq4_dispatch d);
    /* Hands over a message and waits without limit until it is handled; gives the handler's result, or what
     * Tq4_dispatch_Return gave, or 0 when the message was dropped. On the handler's thread the handler is called at
     * once, also inside itself. The ids are the caller's own and may be null. Parameters are freed by the handler's
     * thread, possibly after the result is here. */
    long (*Send)(Tq4_dispatch d, Tq4_id *sender, Tq4_id *receiver, unsigned long msg, long submsg, void *params,
                 Tq4_msg_free free_params);
    /* Hands over a message without waiting: 1. When more than 4096 messages wait already it frees the parameters and
     * gives 0. The ids are copied; null counts as a zero id. */
    long (*Post)(Tq4_dispatch d, Tq4_id *sender, Tq4_id *receiver, unsigned long msg, long submsg, void *params,
                 Tq4_msg_free free_params);
    /* The same without the limit: always 1 (0 for a null handle). */
    long (*Push)(Tq4_dispatch d, Tq4_id *sender, Tq4_id *receiver, unsigned long msg, long submsg, void *params,
                 Tq4_msg_free free_params);
    /* For the handler's thread, and for it alone: takes the first message that waits and has it handled. milliseconds
     * is how long it waits for one (0: not at all, all ones: without limit). Results:
     *   1   it handled a message
     *   0   none came, or a thread of Start serves and this is another
     *   -1  the dispatcher is stopped, or the handler has deleted it
     * When the number of messages that still wait is a multiple of 4096 (and not 0), it logs "%s busy queue=%d\n" with
     * the name and that number. After Start2 the name is the thread's id. */
    int (*try_once)(Tq4_dispatch d, unsigned long milliseconds);
    /* The same at the front: the message is the next to be handled. */
    long (*SendFirst)(Tq4_dispatch d, Tq4_id *sender, Tq4_id *receiver, unsigned long msg, long submsg, void *params,
                      Tq4_msg_free free_params);
    long (*PostFirst)(Tq4_dispatch d, Tq4_id *sender, Tq4_id *receiver, unsigned long msg, long submsg, void *params,
                      Tq4_msg_free free_params);
    long (*PushFirst)(Tq4_dispatch d, Tq4_id *sender, Tq4_id *receiver, unsigned long msg, long submsg, void *params,
                      Tq4_msg_free free_params);
    /* 1 on the handler's thread, else 0. */
    int (*IsSameThread)(Tq4_dispatch d);
};

extern TQ4_API const Tq4_object_itf *const Tq4_dispatch_oitf;

/* For a handler: answers the sender of its message now and lets it go on, while the handler goes on too. The message's
 * ids are copies from then on. The handler's own result is then ignored, as are further answers. For messages that
 * nobody waits for, and for null, nothing happens. In a Send on the handler's own thread it sets the result. */
TQ4_API void Tq4_dispatch_Return(Tq4_msg *message, long value);

TQ4_END_DECLS

#endif
