// The binary interface in one place: the slots of every operation table in their order.
//
// Programs built against an older header call by position, so a slot never moves and never goes away. The names stand
// here a second time on purpose: a header edited by mistake then disagrees with this record. Each table is also looked
// at as it is in the running library: no slot is empty.
#include <cstddef>
#include <vector>

#include <gtest/gtest.h>

#include "tq4/tq4.h"

// TQ4_EACH(macro, argument, a, b, ...) is macro(argument, a) macro(argument, b) ..., for up to 256 names.
#define TQ4_EACH(macro, argument, ...) __VA_OPT__(TQ4_SCAN(TQ4_STEP(macro, argument, __VA_ARGS__)))
#define TQ4_STEP(macro, argument, name, ...)                                                                           \
    macro(argument, name) __VA_OPT__(TQ4_AGAIN TQ4_PARENTHESES(macro, argument, __VA_ARGS__))
#define TQ4_AGAIN() TQ4_STEP
#define TQ4_PARENTHESES ()
#define TQ4_SCAN(...) TQ4_SCAN_A(TQ4_SCAN_A(TQ4_SCAN_A(TQ4_SCAN_A(__VA_ARGS__))))
#define TQ4_SCAN_A(...) TQ4_SCAN_B(TQ4_SCAN_B(TQ4_SCAN_B(TQ4_SCAN_B(__VA_ARGS__))))
#define TQ4_SCAN_B(...) TQ4_SCAN_C(TQ4_SCAN_C(TQ4_SCAN_C(TQ4_SCAN_C(__VA_ARGS__))))
#define TQ4_SCAN_C(...) TQ4_SCAN_D(TQ4_SCAN_D(TQ4_SCAN_D(TQ4_SCAN_D(__VA_ARGS__))))
#define TQ4_SCAN_D(...) __VA_ARGS__

#define TQ4_SLOT(Table, slot) {#slot, offsetof(Table, slot)},
#define TQ4_SLOTS(Table, table, ...)                                                                                   \
    {                                                                                                                  \
#Table, sizeof(Table), [] { return static_cast<const void *>(table); }, {                                      \
            TQ4_EACH(TQ4_SLOT, Table, __VA_ARGS__)                                                                     \
        }                                                                                                              \
    }

namespace {

struct Slot {
    const char *name;
    std::size_t offset;
};

struct Table {
    const char *name;
    std::size_t size;
    const void *(*in_the_library)();
    std::vector<Slot> slots;
};

// The table that the handles of a module lead to.
const void *table_of(const Tq4_object_itf *oitf) {
    void *handle = oitf->Create(nullptr);
    const void *table = Tq4_object_itf2object(handle)->itf;
    oitf->Delete(handle);
    return table;
}

const Table tables[] = {
    TQ4_SLOTS(Tq4_object_itf, Tq4_object_oitf, Create, Delete, Reset, Copy, Equal, Dup, Owner, Id),
    TQ4_SLOTS(Tq4_cxx_support_, Tq4_cxx_support, delete_obj, new_string, new_array, new_value, new_table, new_key,
              new_state, set_delete, set_new_string, set_new_array, set_new_value, set_new_table, set_new_key,
              set_new_state),
    TQ4_SLOTS(Tq4_string_, table_of(Tq4_string_oitf), EqualCase, EqualStr, truncate, truncate_tail, Strncpy, Strcpy,
              Strncat, Strcat, Sprintf, Sprintf_append, vSprintf, vsprintf_append, Memcpy, Memcat, insert, vinsert,
              insert_char, insert_str, del, Replace, addch, addnch, resize, Extend, c_str, length, TrimLeft, TrimRight,
              Trim, FindLastChar, Find, FindLast, MatchBrack, Upper, Lower, GetAt, SetAt, Reverse, GetQuote, SetQuote,
              host2net, Align, FormatDate, Append_FormatDate, ToTime, ToInt, ToFloat, ToChar, GetTimePeriod,
              Base64Encode, Base64Decode, utf8_2_unicode_onece, utf8_2_unicode, unicode_2_utf8, utf8_2_gb18030,
              gb18030_2_utf8, unicode_2_gb18030, gb18030_2_unicode, enc, dec),
    TQ4_SLOTS(Tq4_string_array_, table_of(Tq4_string_array_oitf), Size, At, Head, Tail, Set, Insert, InsertArray, Add,
              AddString, Append, Remove, RemoveTail, RemoveAll, Split, SplitString, each),
    TQ4_SLOTS(Tq4_zip_, table_of(Tq4_zip_oitf), zip_start, zip, zip_end, unzip_start, unzip, unzip_end),
    TQ4_SLOTS(Tq4_key_, table_of(Tq4_key_oitf), Dump, Import, Hash, SetNoCase, SetS, SetI, SetL, SetII, SetIS, SetLS,
              SetIIS, GetType, GetIH, GetIL, GetL, GetS, EqualI, EqualL, EqualII, EqualS, EqualLS, enc, dec),
    TQ4_SLOTS(Tq4_value_, table_of(Tq4_value_oitf), Dump, Import, Type, Init, SetString, SetChar, SetShort, SetLong,
              SetInt, SetFloat, SetDouble, SetInt64, SetUChar, SetUShort, SetULong, SetUInt, SetShortArray, SetIntArray,
              SetLongArray, SetFloatArray, SetDoubleArray, SetUShortArray, SetUIntArray, SetULongArray, SetStringArray,
              SetTable, SetPtr, SetRef, AppendString, AppendStringArray, AppendShort, AppendLong, AppendInt,
              AppendUShort, AppendULong, AppendUInt, AppendFloat, AppendDouble, AppendBytes, GetChar, GetShort, GetInt,
              GetLong, GetFloat, GetDouble, GetInt64, GetUChar, GetUShort, GetUInt, GetULong, GetPtr, GetBytes,
              GetShortArray, GetIntArray, GetLongArray, GetFloatArray, GetDoubleArray, GetUShortArray, GetUIntArray,
              GetULongArray, GetString, GetStringArray, GetValueTable, GetRef, Echo, Print, Json_encode, Json_decode,
              SetSS, SetIS, SetSI, SetII, SetPtrS, SetPtrI, InsertS, InsertI, InsertK, InsertAt, RemoveAt, ModifyKeyK,
              ModifyKeyS, ModifyKeyI, ValueK, ValueS, ValueI, PtrK, PtrS, PtrI, BytesK, BytesS, BytesI, BaseK, BaseS,
              BaseI, Int64K, Int64S, Int64I, First, Next, At, RemoveK, RemoveS, RemoveI, RemoveAll, Count),
    TQ4_SLOTS(Tq4_value_table_, table_of(Tq4_value_table_oitf), Dump, Import, SetSS, SetIS, SetSI, SetII, SetSInt64,
              SetIInt64, SetPtrS, SetPtrI, InsertS, InsertI, InsertK, InsertAt, RemoveAt, ModifyKeyK, ModifyKeyS,
              ModifyKeyI, InsertTableI, InsertTableS, InsertTableK, ValueK, ValueS, ValueI, TableK, TableS, TableI,
              PtrK, PtrS, PtrI, BytesK, BytesS, BytesI, BaseK, BaseS, BaseI, Int64K, Int64S, Int64I, First, Next, At,
              RemoveK, RemoveS, RemoveI, RemoveAll, Count, Append, CaseFlag, each, Print, Echo),
    TQ4_SLOTS(Tq4_strmap_, table_of(Tq4_strmap_oitf), HashTableSize, Init, Count, IsEmpty, CaseFlag, LookupK, LookupI,
              LookupS, LookupSI, SetAtK, SetAtI, SetAtS, SetAtSI, RemoveK, RemoveI, RemoveS, RemoveSI, RemoveAll, NextK,
              NextSI, eachKV, each),
    TQ4_SLOTS(Tq4_strmap2_, table_of(Tq4_strmap2_oitf), HashTableSize, Init, Count, IsEmpty, CaseFlag, LookupI, LookupS,
              LookupSI, SetAtI, SetAtS, SetAtSI, RemoveI, RemoveS, RemoveSI, RemoveAll, NextSI, each),
    TQ4_SLOTS(Tq4_intmap_, table_of(Tq4_intmap_oitf), HashTableSize, Init, Count, IsEmpty, Lookup1, Lookup2, Lookup3,
              SetAt1, SetAt2, SetAt3, Remove1, Remove2, Remove3, RemoveAll, Next, each),
    TQ4_SLOTS(Tq4_queue_, table_of(Tq4_queue_oitf), ThreadSafe, EventSync, QSort, Count, RemoveAll, Wait, Set, InsertAt,
              PutHead, PutTail, PeekObj, At, Head, Tail, RemoveAt, RemoveHead, RemoveTail, each, Range, SetOnSwap),
    TQ4_SLOTS(Tq4_queue_item_, table_of(Tq4_queue_item_oitf), Queue, Remove, ToHead, ToTail, Attach, GetAttach, Next,
              Pre, AddBefore, AddAfter),
    TQ4_SLOTS(Tq4_lock_, table_of(Tq4_lock_oitf), Lock, Unlock),
    TQ4_SLOTS(Tq4_mutex_, table_of(Tq4_mutex_oitf), Lock, Unlock, IsLocked),
    TQ4_SLOTS(Tq4_event_, table_of(Tq4_event_oitf), Set, Reset, Wait, GetHandle),
    TQ4_SLOTS(Tq4_semaphore_, table_of(Tq4_semaphore_oitf), Wait, Post, PostN),
    TQ4_SLOTS(Tq4_thread_, table_of(Tq4_thread_oitf), Init, InitWithStack, GetCurrentId, GetId, GetHandle, Suspend,
              Resume, WaitFor, Kill, IsRunning, GetPriority, SetPriority, GetExitCode, Name, LastActiveTime,
              NotifyQuit),
    TQ4_SLOTS(Tq4_debug_, Tq4_debug_api, Init, UnInit, Charset, Printf, vPrintf, log, vlog, SetPrint, SetLog,
              SetPrintObj, SetLogObj, GetPrintObj, GetLogObj),
    TQ4_SLOTS(Tq4_system_, Tq4_system_api, ExePathName, ExeName, ExePath, CurrentDir, gettimeofday, difftimeval,
              localtime, GetTickCount, Sleep, GetDiskInfo, LoadDll, UnloadDll, Function, ByteOrder, CurrentThreadId,
              CurrentProcessId, Random, NextDate, PreDate, GetDayWeek, DateDiff),
    TQ4_SLOTS(Tq4_stream_, table_of(Tq4_stream_oitf), Handle, Attach, Detach, SetByteOrder, Printf, vPrintf, WriteChar,
              Write, last_char, Flush, ReadLine, LineLength, Read, ReadChar, Buffered, State, Write_short, Write_ushort,
              Write_int, Write_uint, Write_long, Write_ulong, Write_float, Write_double, Read_short, Read_ushort,
              Read_int, Read_uint, Read_long, Read_ulong, Read_float, Read_double),
    TQ4_SLOTS(Tq4_file_api_, Tq4_file_api, Exist, Type, Open, Close, Size, SizeOf, LineCount, Copy, Rename, Delete,
              MkDir, RmDir),
    TQ4_SLOTS(Tq4_file_, table_of(Tq4_file_oitf), Open, Close, IsOpen, Name, Stream, Seek, Tell, Size, Truncate, Sync,
              Handle, SetByteOrder, Printf, vPrintf, WriteChar, Write, Flush, ReadLine, LineLength, Read, ReadChar,
              State, Write_short, Write_ushort, Write_int, Write_uint, Write_long, Write_ulong, Write_float,
              Write_double, Read_short, Read_ushort, Read_int, Read_uint, Read_long, Read_ulong, Read_float,
              Read_double),
    TQ4_SLOTS(Tq4_finder_, table_of(Tq4_finder_oitf), Find, Count, Path, Name, Size, Type, each),
    TQ4_SLOTS(Tq4_log_, table_of(Tq4_log_oitf), Init, SizeLimit, LineLimit, Printf, vPrintf, Printf_t, vPrintf_t,
              HexLog, HexPrint, Write, Level, MainDir, DirInfo, FFlush, CheckFile),
    TQ4_SLOTS(Tq4_config_, table_of(Tq4_config_oitf), Read, Dump, FileName, SetSection, VSetSection, GetSection,
              GetChildSectionCount, GetChildSectionName, GetKVCount, GetFirstKey, GetNextKey, RemoveSection,
              RemoveChildSection, ToChildSection, ToParentSection, ToTopSection, RemoveKey, AddSection, ReadChar,
              ReadShort, ReadInt, ReadLong, ReadFloat, ReadDouble, ReadBytes, ReadUChar, ReadUShort, ReadUInt,
              ReadULong, ReadString, WriteChar, WriteShort, WriteInt, WriteLong, WriteFloat, WriteDouble, WriteString,
              WriteUChar, WriteUShort, WriteUInt, WriteULong),
    TQ4_SLOTS(Tq4_sockaddr_, table_of(Tq4_sockaddr_oitf), EqualIp, Exchange, Init, Init2, ReInit, ip, port, Info,
              sin_addr, sin_port),
    TQ4_SLOTS(Tq4_socket_api_, Tq4_sock_api, Init, Error, SetError, OpenUdp, OpenTcp, Connect, OpenUdp2, OpenTcp2,
              Connect2, Listen, Accept, Close, Wait, Write, Send, Read, RecvFrom, Reuse, BroadCast, NoDelay, AllError,
              Block, GetRoutingInf, GetLocalAddr, GetRemoteAddr),
    TQ4_SLOTS(Tq4_app_, Tq4_app, SetInfo, AddCmd, Run, Register, Find, ArgK, ArgV),
};

TEST(Slots, StandInTheirRecordedOrderAndAreFilled) {
    for (const Table &table : tables) {
        auto slots = static_cast<void *const *>(table.in_the_library());
        for (std::size_t i = 0; i < table.slots.size(); ++i)
            EXPECT_TRUE(table.slots[i].offset == i * sizeof(void *) && slots[i])
                << table.name << "::" << table.slots[i].name;
        EXPECT_EQ(table.size, table.slots.size() * sizeof(void *)) << table.name << " has slots that are not recorded";
    }
}

} // namespace
