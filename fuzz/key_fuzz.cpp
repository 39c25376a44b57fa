// Keys from any bytes: how far Import goes, beside a model; and that what was read is written, read, copied, compared,
// hashed and used as a cipher key consistently.
#include <cstring>

#include "kv_model.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const auto key = Tq4_make<Tq4_key>(Tq4_key_oitf), again = Tq4_make<Tq4_key>(Tq4_key_oitf),
               copy = Tq4_make<Tq4_key>(Tq4_key_oitf);
    Kv_model model(bytes);
    const std::size_t end = model.key(0);
    require(import_exact(key, bytes) == static_cast<int>(end));
    const std::string dump = dump_of(key);
    require(import_exact(again, dump) == static_cast<int>(dump.size()) && dump_of(again) == dump);
    Tq4_key_oitf->Copy(copy.get(), key.get());
    const auto other = {again.get(), copy.get()};
    for (Tq4_key k : other) {
        require(Tq4_object_Equal(key.get(), k));
        for (int nocase : {0, 1}) require((*key)->Hash(key.get(), nocase) == (*k)->Hash(k, nocase));
    }
    // Keys that are equal without regard to case hash alike without regard to it.
    if (const char *text = (*key)->GetS(key.get())) {
        std::string upper = text;
        for (char &c : upper)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        (*again)->SetS(again.get(), text, -1, 1);
        (*copy)->SetS(copy.get(), upper.c_str(), -1, 0);
        require(Tq4_object_Equal(again.get(), copy.get()));
        require((*again)->Hash(again.get(), 0) == (*copy)->Hash(copy.get(), 1));
        require((*again)->EqualS(again.get(), upper.c_str(), 0));
    }
    const auto hidden = Tq4_make<Tq4_string>(Tq4_string_oitf), shown = Tq4_make<Tq4_string>(Tq4_string_oitf);
    const long length = (*key)->enc(key.get(), bytes.data(), bytes.size(), hidden.get());
    (*key)->dec(key.get(), (*hidden)->c_str(hidden.get()), static_cast<unsigned long>(length), shown.get());
    require(text_of(shown.get()) == bytes);
    // The key's own text as its input.
    if (const char *own = (*key)->GetS(key.get())) (*key)->Import(key.get(), own, static_cast<int>(strlen(own)));
    return 0;
}
