// cancel: the mark of a thread that may be killed at any instruction. Each thread sets it for itself.
#include "thread/cancel.hpp"

constinit thread_local bool Tq4_killable = false;
