// Readers side by side: what look-ups make on demand (a decoded table's index, handles, groups) is made once, whoever
// comes first. The thread sanitizer watches.
#include "base/kv/kv_fixture.hpp"

namespace {

constexpr unsigned long count = 300;

// Two letters that stand side by side: their cases do not change the bucket.
std::string name(unsigned long n) { return "NAme" + std::to_string(n); }

// All begin together, in several rounds, each on a fresh object.
template <class Make, class Read> void read_side_by_side(Make make, Read read) {
    for (int round = 0; round < 20; ++round) {
        const auto object = make();
        std::atomic<int> waiting = 4, wrong = 0;
        std::vector<std::thread> readers;
        for (int i = waiting; i > 0; --i)
            readers.emplace_back([&] {
                for (--waiting; waiting;) std::this_thread::yield();
                if (!read(object.get())) ++wrong;
            });
        for (std::thread &reader : readers) reader.join();
        EXPECT_EQ(wrong, 0);
    }
}

Bytes dump_of_a_table() {
    const Table t = new_table();
    for (unsigned long n = 0; n < count; ++n) {
        (*t)->SetSI(t.get(), name(n).c_str(), static_cast<long>(n));
        const Tq4_value_table inner = (*t)->InsertTableI(t.get(), n);
        (*inner)->SetSS(inner, "text", "a text that is too long for its cell");
        (*t)->InsertTableI(t.get(), count + n); // empty: made when the first reader asks for it
    }
    return dump(t);
}

bool reads_all(Tq4_value_table t) {
    const Key folded = new_key();
    bool right = true;
    for (unsigned long n = 0; n < count; ++n) {
        const Tq4_value value = (*t)->ValueS(t, name(n).c_str());
        right = right && value && (*value)->GetLong(value) == static_cast<long>(n);
        const Tq4_value_table inner = (*t)->TableI(t, n);
        unsigned long length = 0;
        right = right && inner && (*inner)->BytesS(inner, "text", &length) && length == 36;
        const Tq4_value_table empty = (*t)->TableI(t, count + n);
        right = right && empty && (*empty)->Count(empty) == 0 && (*t)->TableI(t, count + n) == empty;
        (*folded)->SetS(folded.get(), ("name" + std::to_string(n)).c_str(), -1, 1);
        right = right && (*t)->ValueK(t, folded.get()) == value;
    }
    const String out = new_string();
    return right && (*t)->Dump(t, out.get()) > 0 && Tq4_object_Equal(t, t);
}

TEST(Readers, OfATableShareWhatTheyMake) {
    const Bytes bytes = dump_of_a_table();
    const auto imported = [&] {
        Table t = new_table();
        import(t, bytes);
        return t;
    };
    read_side_by_side(imported, reads_all);
}

TEST(Readers, OfMapsShareWhatTheyMake) {
    const auto strmap = [] {
        auto m = Tq4_make<Tq4_strmap>(Tq4_strmap_oitf);
        for (unsigned long n = 0; n < count; ++n) (*m)->SetAtS(m.get(), m.get(), name(n).c_str());
        (*m)->CaseFlag(m.get(), 1);
        return m;
    };
    read_side_by_side(strmap, [](Tq4_strmap m) {
        int found = 0;
        for (unsigned long n = 0; n < count; ++n) found += (*m)->LookupS(m, name(n).c_str()) != nullptr;
        return found == static_cast<int>(count);
    });
    const auto intmap = [] {
        auto m = Tq4_make<Tq4_intmap>(Tq4_intmap_oitf);
        for (unsigned long n = 0; n < count; ++n) (*m)->SetAt3(m.get(), m.get(), n, 0, 17);
        return m;
    };
    read_side_by_side(intmap, [](Tq4_intmap m) {
        int found = 0;
        for (unsigned long n = 0; n < count; ++n)
            found += (*m)->Lookup1(m, n) != nullptr, found += (*m)->Lookup2(m, n, 0) != nullptr;
        return found == 2 * static_cast<int>(count);
    });
}

// What a filter does: it looks at each place and removes some, or adds beside it.
TEST(Positions, AreLinearAlsoWhereEntriesGoAndCome) {
    const auto seconds = [](int size) {
        const Table t = new_table();
        timespec from, to;
        for (int n = 0; n < size; ++n) (*t)->SetII(t.get(), static_cast<unsigned long>(n), n);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &from);
        for (int at = 0; at < static_cast<int>((*t)->Count(t.get()));) {
            (*t)->At(t.get(), at, nullptr);
            at % 2 ? (*t)->RemoveAt(t.get(), at), ++at : ++at;
        }
        for (int n = 0, at = size / 3; n < size; ++n) (*t)->InsertAt(t.get(), at++);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &to);
        return static_cast<double>(to.tv_sec - from.tv_sec) + 1e-9 * static_cast<double>(to.tv_nsec - from.tv_nsec);
    };
    EXPECT_LT(seconds(128000), 100 * seconds(8000)) << "quadratic would be 256 times";
}

} // namespace
