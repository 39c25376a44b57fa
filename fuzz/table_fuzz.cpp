// Tables from any bytes, and then any operations on them: how far Import goes, beside a model; and that whatever is
// done with entries of mixed keys, flags and duplicates, what the index finds is in the list.
#include <fuzzer/FuzzedDataProvider.h>

#include <unordered_set>
#include <vector>

#include "base/kv/value_check.hpp"
#include "kv_model.hpp"

namespace {

using Table = Tq4_own<Tq4_value_table>;

// What the index finds is in the list.
void require_sound(const Table &t) {
    std::vector<Tq4_key> keys;
    std::unordered_set<const void *> listed{nullptr};
    Tq4_key key = nullptr;
    for (int i = 0; i < static_cast<int>((*t)->Count(t.get())); ++i) {
        listed.insert((*t)->At(t.get(), i, &key));
        keys.push_back(key);
    }
    for (Tq4_key each : keys) {
        require(listed.contains((*t)->ValueK(t.get(), each)));
        require(listed.contains((*t)->ValueS(t.get(), (*each)->GetS(each))));
    }
}

// A key that is there, or a new one of two letters.
void choose_key(const Table &t, Tq4_key key, FuzzedDataProvider &in) {
    Tq4_key there = nullptr;
    (*t)->At(t.get(), in.ConsumeIntegralInRange(0, 20), &there);
    const char text[] = {in.PickValueInArray({'a', 'A', 'b'}), in.PickValueInArray({'c', 'C', '\0'}), '\0'};
    if (there && in.ConsumeBool())
        Tq4_key_oitf->Copy(key, there);
    else if (in.ConsumeBool())
        (*key)->SetS(key, text, -1, in.ConsumeBool());
    else
        (*key)->SetLS(key, in.ConsumeIntegralInRange(0, 2), text, in.ConsumeBool());
    if (in.ConsumeBool()) (*key)->SetNoCase(key, in.ConsumeBool());
}

void operate(const Table &t, Tq4_key key, FuzzedDataProvider &in) {
    const int at = in.ConsumeIntegralInRange(-1, 20);
    const char *text = (*key)->GetS(key);
    switch (in.ConsumeIntegralInRange(0, 15)) {
    case 0:
        return void((*t)->InsertK(t.get(), key));
    case 1:
        return void((*t)->SetSS(t.get(), text, text));
    case 2:
        return void((*t)->SetII(t.get(), (*key)->GetL(key), at));
    case 3:
        return void((*t)->InsertAt(t.get(), at));
    case 4:
        return (*t)->RemoveAt(t.get(), at);
    case 5:
        return (*t)->RemoveK(t.get(), key);
    case 6:
        return (*t)->RemoveS(t.get(), text);
    case 7:
        return (*t)->ModifyKeyK(t.get(), at, at < 0 ? nullptr : key);
    case 8:
        return (*t)->ModifyKeyS(t.get(), at, text);
    case 9:
        return (*t)->ModifyKeyI(t.get(), at, (*key)->GetL(key));
    case 10:
        return (*t)->CaseFlag(t.get(), in.ConsumeBool());
    case 11:
        return dump_of(t).size() < 5000 ? void((*t)->Append(t.get(), t.get())) : void();
    case 12:
        return Tq4_value_table_oitf->Copy(t.get(), (*t)->InsertTableK(t.get(), key));
    case 13:
        return void((*t)->First(t.get(), nullptr));
    case 14:
        return void((*t)->Next(t.get(), nullptr));
    default:
        return (*t)->RemoveI(t.get(), (*key)->GetL(key));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    silence();
    FuzzedDataProvider in(data, size);
    const std::string bytes = in.ConsumeRandomLengthString(4000);
    const Table t = Tq4_make<Tq4_value_table>(Tq4_value_table_oitf);
    Kv_model model(bytes);
    const std::size_t end = model.table(0, 1);
    const Tq4_checked checked = Tq4_value_table_check(bytes.data(), static_cast<int>(bytes.size()));
    require(checked.complete == !model.damaged && (!checked.complete || checked.at == end));
    if (!model.stops) require(import_exact(t, bytes) == static_cast<int>(end));

    if (dump_of(t).size() > 65536) return 0; // zeros of arrays that were cut off take long, and tell nothing more
    require_sound(t);
    const auto key = Tq4_make<Tq4_key>(Tq4_key_oitf);
    for (int step = 0; step < 60 && in.remaining_bytes(); ++step) {
        choose_key(t, key.get(), in);
        operate(t, key.get(), in);
    }
    require_sound(t);
    const Table copy(static_cast<Tq4_value_table>(Tq4_object_Dup(t.get())));
    require(dump_of(copy) == dump_of(t));
    return 0;
}
