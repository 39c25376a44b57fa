// Making and destroying an object of the simplest module, beside the simplest GObject with the same content.
#include <benchmark/benchmark.h>

#include "module.hpp"

#ifdef HAVE_GLIB
#include <glib-object.h>
#endif

struct Tq4_number_obj {
    long m_value = 0;

    void Reset() { m_value = 0; }
    void Copy(const Tq4_number_obj *source) { m_value = source ? source->m_value : 0; }
    bool Equal(const Tq4_number_obj &other) const { return m_value == other.m_value; }
    long Value() const { return m_value; }
};

struct Tq4_number_;
using Tq4_number = const Tq4_number_ **;
struct Tq4_number_ {
    long (*Value)(Tq4_number);
};
const Tq4_number_ Tq4_number_itf = {.Value = Tq4_op<&Tq4_number_obj::Value>};
TQ4_MODULE(number)

namespace {

void tq4_object(benchmark::State &state) {
    for (auto _ : state) {
        void *object = Tq4_number_oitf->Create(nullptr);
        benchmark::DoNotOptimize(object);
        Tq4_number_oitf->Delete(object);
    }
}
BENCHMARK(tq4_object)->Name("object/tq4");

#ifdef HAVE_GLIB
struct Number {
    GObject parent;
    long value;
};
struct NumberClass {
    GObjectClass parent;
};
G_DEFINE_TYPE(Number, number, G_TYPE_OBJECT)
void number_class_init(NumberClass *) {}
void number_init(Number *self) { self->value = 0; }

void glib_object(benchmark::State &state) {
    for (auto _ : state) {
        gpointer object = g_object_new(number_get_type(), nullptr);
        benchmark::DoNotOptimize(object);
        g_object_unref(object);
    }
}
BENCHMARK(glib_object)->Name("object/glib");
#endif

} // namespace
