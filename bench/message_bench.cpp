// The binary encoding of a typical message, 12 fields and 3 of them nested, beside MessagePack of the same content.
#include <benchmark/benchmark.h>

#include <string_view>

#include "tq4/tq4.h"

#ifdef HAVE_MSGPACK
#define MSGPACK_NO_BOOST
#include <msgpack.hpp>
#endif

namespace {

// The fields, told to something that makes a message of them.
template <class Message> void describe(Message &message) {
    message.Text("type", "order.created");
    message.Number("sequence", 4711);
    message.Number("time", 1700000000123);
    message.Text("from", "node-17.example.net");
    message.Text("to", "billing");
    message.Number("attempt", 1);
    message.Real("amount", 129.95);
    message.Text("currency", "EUR");
    message.Text("trace", "5f2b7c1e9d3a4f60");
    const char *const nested[] = {"customer", "ship", "bill"};
    for (const char *name : nested) {
        message.Begin(name, 3);
        message.Number("id", 900042);
        message.Text("name", "Ada Example");
        message.Text("city", "Hamburg");
        message.End();
    }
}
constexpr unsigned fields = 12;

struct Table {
    Tq4_value_table t = static_cast<Tq4_value_table>(Tq4_value_table_oitf->Create(nullptr));
    Tq4_value_table at = t;

    ~Table() { Tq4_value_table_oitf->Delete(t); }
    void Text(const char *key, const char *text) { (*at)->SetSS(at, key, text); }
    void Number(const char *key, long n) { (*at)->SetSI(at, key, n); }
    void Real(const char *key, double n) {
        Tq4_value v = (*at)->InsertS(at, key);
        (*v)->SetDouble(v, n);
    }
    void Begin(const char *key, unsigned) { at = (*at)->InsertTableS(at, key); }
    void End() { at = t; }
};

struct Text {
    Tq4_string s = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
    ~Text() { Tq4_string_oitf->Delete(s); }
};

void tq4_dump(benchmark::State &state) {
    Table message;
    describe(message);
    Text out;
    for (auto _ : state) {
        (*out.s)->truncate(out.s, 0);
        benchmark::DoNotOptimize((*message.t)->Dump(message.t, out.s));
    }
    state.counters["bytes"] = static_cast<double>((*out.s)->length(out.s));
}
BENCHMARK(tq4_dump)->Name("message_encode/tq4");

void tq4_import(benchmark::State &state) {
    Table message;
    describe(message);
    Text out;
    const auto length = static_cast<int>((*message.t)->Dump(message.t, out.s));
    const char *bytes = (*out.s)->c_str(out.s);
    for (auto _ : state) {
        Table copy;
        if ((*copy.t)->Import(copy.t, bytes, length) != length) state.SkipWithError("not imported");
    }
}
BENCHMARK(tq4_import)->Name("message_decode/tq4");

// Three fields of twelve, as a service looks at what arrives before it passes it on.
void tq4_read(benchmark::State &state) {
    Table message;
    describe(message);
    Text out;
    const auto length = static_cast<int>((*message.t)->Dump(message.t, out.s));
    const char *bytes = (*out.s)->c_str(out.s);
    for (auto _ : state) {
        Table copy;
        (*copy.t)->Import(copy.t, bytes, length);
        unsigned long n = 0;
        benchmark::DoNotOptimize((*copy.t)->BytesS(copy.t, "type", &n));
        benchmark::DoNotOptimize((*copy.t)->BaseS(copy.t, "sequence"));
        benchmark::DoNotOptimize((*copy.t)->BytesS(copy.t, "trace", &n));
        if (n != 16) state.SkipWithError("not read");
    }
}
BENCHMARK(tq4_read)->Name("message_read/tq4");

void tq4_build(benchmark::State &state) {
    for (auto _ : state) {
        Table message;
        describe(message);
    }
}
BENCHMARK(tq4_build)->Name("message_build/tq4");

#ifdef HAVE_MSGPACK
struct Packed {
    msgpack::sbuffer bytes;
    msgpack::packer<msgpack::sbuffer> to{bytes};

    void Key(const char *key) { Put(key); }
    void Put(const char *text) {
        const auto n = static_cast<uint32_t>(std::strlen(text));
        to.pack_str(n);
        to.pack_str_body(text, n);
    }
    void Text(const char *key, const char *text) { Key(key), Put(text); }
    void Number(const char *key, long n) { Key(key), to.pack(n); }
    void Real(const char *key, double n) { Key(key), to.pack(n); }
    void Begin(const char *key, unsigned count) { Key(key), to.pack_map(count); }
    void End() {}
};

void msgpack_pack(benchmark::State &state) {
    // What is packed is the object that unpacking gives, as what is dumped is a table.
    Packed packed;
    packed.to.pack_map(fields);
    describe(packed);
    const msgpack::object_handle message = msgpack::unpack(packed.bytes.data(), packed.bytes.size());
    msgpack::sbuffer out;
    for (auto _ : state) {
        out.clear();
        msgpack::pack(out, message.get());
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["bytes"] = static_cast<double>(out.size());
}
BENCHMARK(msgpack_pack)->Name("message_encode/msgpack");

void msgpack_unpack(benchmark::State &state) {
    Packed packed;
    packed.to.pack_map(fields);
    describe(packed);
    for (auto _ : state) {
        const msgpack::object_handle message = msgpack::unpack(packed.bytes.data(), packed.bytes.size());
        if (message->via.map.size != fields) state.SkipWithError("not unpacked");
    }
}
BENCHMARK(msgpack_unpack)->Name("message_decode/msgpack");

const msgpack::object *find(const msgpack::object_map &map, std::string_view key) {
    for (const msgpack::object_kv &pair : map)
        if (std::string_view(pair.key.via.str.ptr, pair.key.via.str.size) == key) return &pair.val;
    return nullptr;
}

void msgpack_read(benchmark::State &state) {
    Packed packed;
    packed.to.pack_map(fields);
    describe(packed);
    for (auto _ : state) {
        const msgpack::object_handle message = msgpack::unpack(packed.bytes.data(), packed.bytes.size());
        benchmark::DoNotOptimize(find(message->via.map, "type")->via.str.ptr);
        benchmark::DoNotOptimize(find(message->via.map, "sequence")->via.u64);
        if (find(message->via.map, "trace")->via.str.size != 16) state.SkipWithError("not read");
    }
}
BENCHMARK(msgpack_read)->Name("message_read/msgpack");
#endif

} // namespace
