// event.hpp: a look at an event, for an owner that guards with a lock what the event tells.
#pragma once

#include "tq4/event.h"

// Whether the event is set. Says nothing about what other threads do meanwhile, except where every waiter takes the
// caller's lock after its wait. Then a waiter that clears the event later finds what the caller did under the lock.
bool Tq4_event_is_set(Tq4_event event);
