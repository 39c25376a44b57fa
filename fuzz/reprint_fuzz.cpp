// Print, parse, print: what JSON text decodes to is printed, compactly and over lines, and both are decoded and printed
// again. Where the printed form is JSON, nothing may have changed.
#include "kv_model.hpp"

namespace {

bool readable_text(std::string_view text) {
    for (const char c : text)
        if (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20) return false;
    return true;
}

bool readable_strings(Tq4_string_array array) {
    for (unsigned long i = 0; i < (*array)->Size(array); ++i)
        if (!readable_text(text_of((*array)->At(array, i)))) return false;
    return true;
}

// Whether the printed form of a value is JSON that means the same: no text that needs escaping, nothing that prints as
// nothing or as an infinite number, and no table that is half an array.
bool readable(Tq4_value v, bool element) {
    const Tq4_value_type type = (*v)->Type(v);
    if (element && type != Tq4_value_Table && type != Tq4_value_STRINGARRAY && type != Tq4_value_PINT &&
        type != Tq4_value_PFLOAT)
        return false;
    if (type == Tq4_value_PCHAR) return readable_text(text_of((*v)->GetString(v)));
    if (type == Tq4_value_STRINGARRAY) return readable_strings((*v)->GetStringArray(v));
    if (type != Tq4_value_Table) return type != Tq4_value_Unknown;
    Tq4_key key = nullptr;
    Tq4_value member = (*v)->First(v, &key);
    const bool array = member && (*key)->GetType(key) == Tq4_key_type_Unvalid;
    for (; member; member = (*v)->Next(v, &key)) {
        if (array != ((*key)->GetType(key) == Tq4_key_type_Unvalid)) return false;
        if (!array && !readable_text((*key)->GetS(key))) return false;
        if (!readable(member, array)) return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto value = Tq4_make<Tq4_value>(Tq4_value_oitf);
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    if (!(*value)->Json_decode(value.get(), text.data(), static_cast<int>(size))) return 0;
    const std::string printed = echoed(value, true);
    if (!readable(value.get(), false) || printed.find("inf") != printed.npos) return 0;
    for (const std::string &form : {printed, echoed(value, false)}) {
        const auto again = Tq4_make<Tq4_value>(Tq4_value_oitf);
        require((*again)->Json_decode(again.get(), form.data(), static_cast<int>(form.size())) == 1);
        require(echoed(again, true) == printed);
    }
    return 0;
}
