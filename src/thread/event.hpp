// event.hpp: a look at an event for who guards what it tells with a lock.
#pragma once

#include "tq4/event.h"

// Whether the event is set. Says nothing about what other threads do meanwhile, except where every waiter takes the
// caller's lock after its wait: then a waiter that clears the event later finds what the caller did under the lock.
bool Tq4_event_is_set(Tq4_event event);
