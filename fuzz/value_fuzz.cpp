// Values from any bytes: how far Import goes, beside a model; that the checker passes exactly what is whole, and
// nothing that would stop the process; and that what was read can be copied, written, read again and printed.
#include "base/kv/value_check.hpp"
#include "kv_model.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    silence();
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    Kv_model model(bytes);
    const std::size_t end = model.value(0, 0);
    const Tq4_checked checked = Tq4_value_check(bytes.data(), static_cast<int>(size));
    require(checked.complete == !model.damaged);
    require(checked.complete ? checked.at == end : checked.at <= size);
    if (model.stops) return 0;

    const auto value = Tq4_make<Tq4_value>(Tq4_value_oitf), again = Tq4_make<Tq4_value>(Tq4_value_oitf),
               copy = Tq4_make<Tq4_value>(Tq4_value_oitf);
    require(import_exact(value, bytes) == static_cast<int>(size ? end : 0));
    const std::string dump = dump_of(value);
    if (dump.size() > 65536) return 0; // zeros of an array that was cut off take long, and tell nothing more
    const Tq4_checked written = Tq4_value_check(dump.data(), static_cast<int>(dump.size()));
    require(written.complete && written.at == dump.size());
    require(import_exact(again, dump) == static_cast<int>(dump.size()) && dump_of(again) == dump);
    Tq4_value_oitf->Copy(copy.get(), value.get());
    require(dump_of(copy) == dump);
    echoed(value, false);
    const auto json = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*value)->Json_encode(value.get(), json.get());
    require(text_of(json.get()) == echoed(value, true));
    // What has JSON text is read again from it; arrays may be one deeper there than tables are here.
    const auto text = Tq4_make<Tq4_string>(Tq4_string_oitf);
    if ((*value)->ToJson(value.get(), text.get(), 1)) {
        long at = 0;
        const int read = (*again)->FromJson(again.get(), (*text)->c_str(text.get()), (*text)->length(text.get()), &at);
        require(read || at > 512);
    } else {
        require((*text)->length(text.get()) == 0);
    }
    // Bytes of the value itself as its input.
    unsigned long length = 0;
    const char *own = (*value)->GetBytes(value.get(), &length);
    Kv_model inner(own ? std::string_view(own, length) : "");
    inner.value(0, 0);
    if (own && !inner.stops) (*value)->Import(value.get(), own, static_cast<int>(length));
    return 0;
}
