// utils: the system interface.
//
// A table over the platform layer and the date arithmetic: nothing is kept here. What the platform answers in the
// table's own terms stands in the table as it is; the rest is turned from strings and loose numbers.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "base/date.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"
#include "tq4/system.h"

namespace {

constexpr std::size_t path_room = 4096;        // the system's own limit, NUL included
constexpr std::size_t longest_path_text = 510; // what a caller's string receives of a path

// Sets the string to the text that Fill finds, and returns it.
template <auto Fill> const char *text_into(Tq4_string s) {
    if (!s) return nullptr;
    char room[path_room];
    const char *text = Fill(room, sizeof room);
    (*s)->Strncpy(s, text, std::min(std::strlen(text), longest_path_text));
    return (*s)->c_str(s);
}

int now(long *seconds, long *microseconds) {
    timeval time{};
    const int result = MP_gettimeofday(&time);
    if (seconds) *seconds = time.tv_sec;
    if (microseconds) *microseconds = time.tv_usec;
    return result;
}

double difference(long seconds_a, long microseconds_a, long seconds_b, long microseconds_b) {
    const timeval a{seconds_a, microseconds_a}, b{seconds_b, microseconds_b};
    return MP_difftimeval(&a, &b);
}

constexpr Tq4_ByteOrder order_of(std::array<uint8_t, 4> bytes_of_0x01020304) {
    if (bytes_of_0x01020304 == std::array<uint8_t, 4>{1, 2, 3, 4}) return ByteOrder_BigEndians;
    if (bytes_of_0x01020304 == std::array<uint8_t, 4>{4, 3, 2, 1}) return ByteOrder_LittleEndians;
    return ByteOrder_MiddleEndians;
}
constexpr Tq4_ByteOrder host_order = order_of(std::bit_cast<std::array<uint8_t, 4>>(uint32_t{0x01020304}));

constexpr Tq4_system_ api_Tq4_system = {
    .ExePathName = text_into<MP_GetExeFullName>,
    .ExeName = text_into<MP_GetExeBaseName>,
    .ExePath = text_into<MP_GetExePath>,
    .CurrentDir = text_into<MP_GetCurrentDir>,
    .gettimeofday = now,
    .difftimeval = difference,
    .localtime = MP_localtime,
    .GetTickCount = MP_THREAD_GetTickCount,
    .Sleep = [](long milliseconds) { return MP_Sleep(milliseconds), 0; },
    .GetDiskInfo = MP_GetDiskInfo,
    .LoadDll = MP_LoadLibrary,
    .UnloadDll = MP_FreeLibrary,
    .Function = MP_GetSymbol,
    .ByteOrder = [] { return host_order; },
    .CurrentThreadId = MP_THREAD_GetCurrentId,
    .CurrentProcessId = MP_GetCurrentProcessId,
    .Random = random, // the generator that srand and srandom seed
    .NextDate = Tq4_NextDate,
    .PreDate = Tq4_PreDate,
    .GetDayWeek = Tq4_GetDayWeek,
    .DateDiff = Tq4_DateDiff,
};

} // namespace

extern "C" constinit const Tq4_system_ *const Tq4_system_api = &api_Tq4_system;
