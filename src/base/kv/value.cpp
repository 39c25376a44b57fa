// value: one dynamically typed cell. The operation table; what the operations do stands in the files beside this one.
#include "base/kv/value.hpp"

#include "base/kv/table.hpp"
#include "base/kv/value_check.hpp"

namespace {

// What an empty table is read as before it is made. It lasts as long as the process: other threads may read at its end.
const union Empty_table {
    Tq4_value_table_obj record;
    Empty_table() : record() {}
    ~Empty_table() {}
} empty;

} // namespace

const Tq4_value_table_obj *Tq4_value_obj::table_record() const {
    if (!is(Tq4_value_Table)) return nullptr;
    Tq4_value_table made = made_table();
    return made ? &Tq4_record_of<Tq4_value_table_obj>(made) : &empty.record;
}

Tq4_value_table_obj *Tq4_value_obj::own_table() const { return Tq4_record<Tq4_value_table_obj>(GetValueTable()); }
Tq4_value_table_obj *Tq4_value_obj::make_table() { return Tq4_record<Tq4_value_table_obj>(make_table_handle()); }

Tq4_value_table Tq4_value_obj::MakeTable() const {
    auto fresh = static_cast<Tq4_value_table>(Tq4_cxx_support->new_table());
    Tq4_value_table made = nullptr;
    std::atomic_ref held(const_cast<Tq4_value_table &>(m_data.table));
    if (held.compare_exchange_strong(made, fresh)) return fresh;
    Tq4_cxx_support->delete_obj(fresh); // another reader was first
    return made;
}

namespace {

using Value = Tq4_value_obj;
using Table = Tq4_value_table_obj;

// An operation of the nested table as a slot of the value: on a value that is not a table it gives the zero of its
// result, or first makes the value an empty table.
enum class Without_table { nothing, make };

template <auto Method, Without_table without> struct Nested {
    template <class R, class... A> using slot = R (*)(Tq4_value, A...);
    template <class R, class... A> constexpr operator slot<R, A...>() const {
        return [](Tq4_value handle, A... args) -> R {
            auto *value = Tq4_record<Value>(handle);
            if (!value) return R();
            if (Table *table = value->own_table()) return (table->*Method)(args...);
            if constexpr (without == Without_table::make) {
                Value made; // the old content goes last: key and text may lie in it
                made.Init(Tq4_value_Table);
                Table *table = made.own_table();
                if (!table) return R();
                const R result = (table->*Method)(args...);
                value->Swap(made);
                return result;
            } else {
                return R();
            }
        };
    }
};
template <auto Method> constexpr Nested<Method, Without_table::nothing> in_table{};
template <auto Method> constexpr Nested<Method, Without_table::make> making_table{};

template <class As> constexpr auto integer = Tq4_op<&Value::GetIntegerAs<As>>;
// Of the signed type and the unsigned one of a width.
template <Tq4_value_type signed_tag, class Element> constexpr auto array =
    Tq4_op<&Value::GetArray<signed_tag, static_cast<Tq4_value_type>(signed_tag + 1), Element>>;

} // namespace

const Tq4_value_ Tq4_value_itf = {
    .Dump = Tq4_op<&Value::Dump>,
    .Import = Tq4_op<&Value::Import>,
    .Type = Tq4_op<&Value::Type>,
    .Init = Tq4_op<&Value::Init>,
    .SetString = Tq4_op<&Value::SetString>,
    .SetChar = Tq4_op<&Value::SetScalar<Tq4_value_CHAR, signed char>>,
    .SetShort = Tq4_op<&Value::SetScalar<Tq4_value_SHORT, short>>,
    .SetLong = Tq4_op<&Value::SetScalar<Tq4_value_LONG, long>>,
    .SetInt = Tq4_op<&Value::SetScalar<Tq4_value_INT, int>>,
    .SetFloat = Tq4_op<&Value::SetFloat>,
    .SetDouble = Tq4_op<&Value::SetDouble>,
    .SetInt64 = Tq4_op<&Value::SetInt64>,
    .SetUChar = Tq4_op<&Value::SetScalar<Tq4_value_UCHAR, unsigned char>>,
    .SetUShort = Tq4_op<&Value::SetScalar<Tq4_value_USHORT, unsigned short>>,
    .SetULong = Tq4_op<&Value::SetScalar<Tq4_value_ULONG, unsigned long>>,
    .SetUInt = Tq4_op<&Value::SetScalar<Tq4_value_UINT, unsigned>>,
    .SetShortArray = Tq4_op<&Value::SetArray<Tq4_value_PSHORT, short>>,
    .SetIntArray = Tq4_op<&Value::SetArray<Tq4_value_PINT, int>>,
    .SetLongArray = Tq4_op<&Value::SetArray<Tq4_value_PLONG, long>>,
    .SetFloatArray = Tq4_op<&Value::SetArray<Tq4_value_PFLOAT, float>>,
    .SetDoubleArray = Tq4_op<&Value::SetArray<Tq4_value_PDOUBLE, double>>,
    .SetUShortArray = Tq4_op<&Value::SetArray<Tq4_value_PUSHORT, unsigned short>>,
    .SetUIntArray = Tq4_op<&Value::SetArray<Tq4_value_PUINT, unsigned>>,
    .SetULongArray = Tq4_op<&Value::SetArray<Tq4_value_PULONG, unsigned long>>,
    .SetStringArray = Tq4_op<&Value::SetStringArray>,
    .SetTable = Tq4_op<&Value::SetTable>,
    .SetPtr = Tq4_op<&Value::SetPtr>,
    .SetRef = Tq4_op<&Value::SetRef>,
    .AppendString = Tq4_op<&Value::AppendString>,
    .AppendStringArray = Tq4_op<&Value::AppendStringArray>,
    .AppendShort = Tq4_op<&Value::AppendElement<Tq4_value_PSHORT, Tq4_value_PUSHORT, short>>,
    .AppendLong = Tq4_op<&Value::AppendElement<Tq4_value_PLONG, Tq4_value_PULONG, long>>,
    .AppendInt = Tq4_op<&Value::AppendElement<Tq4_value_PINT, Tq4_value_PUINT, int>>,
    .AppendUShort = Tq4_op<&Value::AppendElement<Tq4_value_PUSHORT, Tq4_value_PSHORT, unsigned short>>,
    .AppendULong = Tq4_op<&Value::AppendElement<Tq4_value_PULONG, Tq4_value_PLONG, unsigned long>>,
    .AppendUInt = Tq4_op<&Value::AppendElement<Tq4_value_PUINT, Tq4_value_PINT, unsigned>>,
    .AppendFloat = Tq4_op<&Value::AppendFloat>,
    .AppendDouble = Tq4_op<&Value::AppendDouble>,
    .AppendBytes = Tq4_op<&Value::AppendBytes>,
    .GetChar = integer<char>,
    .GetShort = integer<short>,
    .GetInt = integer<int>,
    .GetLong = integer<long>,
    .GetFloat = Tq4_op<&Value::GetFloat>,
    .GetDouble = Tq4_op<&Value::GetDouble>,
    .GetInt64 = Tq4_op<&Value::GetInt64>,
    .GetUChar = integer<unsigned char>,
    .GetUShort = integer<unsigned short>,
    .GetUInt = integer<unsigned>,
    .GetULong = integer<unsigned long>,
    .GetPtr = Tq4_op<&Value::GetPtr>,
    .GetBytes = Tq4_op<&Value::GetBytes>,
    .GetShortArray = array<Tq4_value_PSHORT, short>,
    .GetIntArray = array<Tq4_value_PINT, int>,
    .GetLongArray = array<Tq4_value_PLONG, long>,
    .GetFloatArray = Tq4_op<&Value::GetArray<Tq4_value_PFLOAT, Tq4_value_PFLOAT, float>>,
    .GetDoubleArray = Tq4_op<&Value::GetArray<Tq4_value_PDOUBLE, Tq4_value_PDOUBLE, double>>,
    .GetUShortArray = array<Tq4_value_PSHORT, unsigned short>,
    .GetUIntArray = array<Tq4_value_PINT, unsigned>,
    .GetULongArray = array<Tq4_value_PLONG, unsigned long>,
    .GetString = Tq4_op<&Value::GetString>,
    .GetStringArray = Tq4_op<&Value::GetStringArray>,
    .GetValueTable = Tq4_op<&Value::GetValueTable>,
    .GetRef = Tq4_op<&Value::GetRef>,
    .Echo = Tq4_op<&Value::Echo>,
    .Print = Tq4_op<&Value::Print>,
    .Json_encode = Tq4_op<&Value::Json_encode>,
    .Json_decode = Tq4_op<&Value::Json_decode>,
    .SetSS = making_table<&Table::SetSS>,
    .SetIS = making_table<&Table::SetIS>,
    .SetSI = making_table<&Table::SetSI>,
    .SetII = making_table<&Table::SetII>,
    .SetPtrS = making_table<&Table::SetPtrS>,
    .SetPtrI = making_table<&Table::SetPtrI>,
    .InsertS = making_table<&Table::InsertS>,
    .InsertI = making_table<&Table::InsertI>,
    .InsertK = making_table<&Table::InsertK>,
    .InsertAt = making_table<&Table::InsertAt>,
    .RemoveAt = in_table<&Table::RemoveAt>,
    .ModifyKeyK = in_table<&Table::ModifyKeyK>,
    .ModifyKeyS = in_table<&Table::ModifyKeyS>,
    .ModifyKeyI = in_table<&Table::ModifyKeyI>,
    .ValueK = in_table<&Table::Value<Tq4_key>>,
    .ValueS = in_table<&Table::Value<const char *>>,
    .ValueI = in_table<&Table::Value<unsigned long>>,
    .PtrK = in_table<&Table::Ptr<Tq4_key>>,
    .PtrS = in_table<&Table::Ptr<const char *>>,
    .PtrI = in_table<&Table::Ptr<unsigned long>>,
    .BytesK = in_table<&Table::Bytes<Tq4_key>>,
    .BytesS = in_table<&Table::Bytes<const char *>>,
    .BytesI = in_table<&Table::Bytes<unsigned long>>,
    .BaseK = in_table<&Table::Base<Tq4_key>>,
    .BaseS = in_table<&Table::Base<const char *>>,
    .BaseI = in_table<&Table::Base<unsigned long>>,
    .Int64K = in_table<&Table::Int64<Tq4_key>>,
    .Int64S = in_table<&Table::Int64<const char *>>,
    .Int64I = in_table<&Table::Int64<unsigned long>>,
    .First = in_table<&Table::First>,
    .Next = in_table<&Table::Next>,
    .At = in_table<&Table::At>,
    .RemoveK = in_table<&Table::Remove<Tq4_key>>,
    .RemoveS = in_table<&Table::Remove<const char *>>,
    .RemoveI = in_table<&Table::Remove<unsigned long>>,
    .RemoveAll = in_table<&Table::RemoveAll>,
    .Count = in_table<&Table::Count>,
    .Check = Tq4_value_itf_Check,
    .ToJson = Tq4_op<&Value::ToJson>,
    .FromJson = Tq4_op<&Value::FromJson>,
};
TQ4_MODULE(value)
