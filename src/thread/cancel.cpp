// cancel: the mark of threads that may be killed at any instruction. The thread module sets it, each thread for itself.
#include "thread/cancel.hpp"

constinit thread_local bool Tq4_killable = false;
