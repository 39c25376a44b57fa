/* queue.h: Tq4_queue, a list of items each carrying a payload, and Tq4_queue_item, such an item. */
#ifndef TQ4_QUEUE_H
#define TQ4_QUEUE_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_queue_ Tq4_queue_;
typedef const Tq4_queue_ **Tq4_queue; /* handle */
typedef struct Tq4_queue_item_ Tq4_queue_item_;
typedef const Tq4_queue_item_ **Tq4_queue_item; /* handle */

/* Given to Create; null means both 0. */
typedef struct Tq4_queue_CreateParams {
    short thread_safe_flag; /* non-zero: make a lock */
    short event_sync_flag;  /* non-zero: make an event */
} Tq4_queue_CreateParams;

typedef int (*Tq4_queue_obj_compare)(void *a, void *b, void *param);
typedef int (*Tq4_queue_visitor)(void *payload, void *param);
typedef void (*Tq4_queue_on_swap)(void *a, void *b);
typedef void (*Tq4_queue_deleter)(void *payload);

struct Tq4_queue_ {
    void (*ThreadSafe)(Tq4_queue q, int on);
    void (*EventSync)(Tq4_queue q, int on);
    void (*QSort)(Tq4_queue q, Tq4_queue_obj_compare compare, void *param);
    unsigned long (*Count)(Tq4_queue q);
    void (*RemoveAll)(Tq4_queue q);
    int (*Wait)(Tq4_queue q, unsigned long wait);
    void (*Set)(Tq4_queue q);
    Tq4_queue_item (*InsertAt)(Tq4_queue q, Tq4_queue_item item, unsigned long index);
    Tq4_queue_item (*PutHead)(Tq4_queue q, Tq4_queue_item item);
    Tq4_queue_item (*PutTail)(Tq4_queue q, Tq4_queue_item item);
    void *(*PeekObj)(Tq4_queue q, unsigned long index, unsigned long wait);
    Tq4_queue_item (*At)(Tq4_queue q, unsigned long index, unsigned long wait);
    Tq4_queue_item (*Head)(Tq4_queue q, unsigned long wait);
    Tq4_queue_item (*Tail)(Tq4_queue q, unsigned long wait);
    Tq4_queue_item (*RemoveAt)(Tq4_queue q, unsigned long index, unsigned long wait);
    Tq4_queue_item (*RemoveHead)(Tq4_queue q, unsigned long wait);
    Tq4_queue_item (*RemoveTail)(Tq4_queue q, unsigned long wait);
    void (*each)(Tq4_queue q, Tq4_queue_visitor visitor, void *param);
    void (*Range)(Tq4_queue q, unsigned long index, int n, Tq4_queue_visitor visitor, void *param);
    void (*SetOnSwap)(Tq4_queue q, Tq4_queue_on_swap on_swap);
};

struct Tq4_queue_item_ {
    Tq4_queue (*Queue)(Tq4_queue_item i);
    void (*Remove)(Tq4_queue_item i);
    void (*ToHead)(Tq4_queue_item i);
    void (*ToTail)(Tq4_queue_item i);
    void *(*Attach)(Tq4_queue_item i, void *payload, Tq4_queue_deleter deleter);
    void *(*GetAttach)(Tq4_queue_item i);
    Tq4_queue_item (*Next)(Tq4_queue_item i);
    Tq4_queue_item (*Pre)(Tq4_queue_item i);
    Tq4_queue_item (*AddBefore)(Tq4_queue_item i, Tq4_queue_item other);
    Tq4_queue_item (*AddAfter)(Tq4_queue_item i, Tq4_queue_item other);
};

extern TQ4_API const Tq4_object_itf *const Tq4_queue_oitf;
extern TQ4_API const Tq4_object_itf *const Tq4_queue_item_oitf;

/* A static record of the module; opaque. */
extern TQ4_API const void *const Tq4_queue_00;

TQ4_END_DECLS

#endif
