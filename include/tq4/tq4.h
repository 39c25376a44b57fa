/* tq4.h: the whole library. */
#ifndef TQ4_TQ4_H
#define TQ4_TQ4_H

#include "tq4/api.h"
#include "tq4/byte_order.h"
#include "tq4/cxx_support.h"
#include "tq4/debug.h"
#include "tq4/event.h"
#include "tq4/file.h"
#include "tq4/file_api.h"
#include "tq4/finder.h"
#include "tq4/intmap.h"
#include "tq4/key.h"
#include "tq4/lock.h"
#include "tq4/log.h"
#include "tq4/mutex.h"
#include "tq4/object.h"
#include "tq4/queue.h"
#include "tq4/semaphore.h"
#include "tq4/sock_api.h"
#include "tq4/sockaddr.h"
#include "tq4/stream.h"
#include "tq4/string.h"
#include "tq4/string_array.h"
#include "tq4/strmap.h"
#include "tq4/strmap2.h"
#include "tq4/system.h"
#include "tq4/thread.h"
#include "tq4/value.h"
#include "tq4/value_table.h"
#include "tq4/zip.h"

#endif
