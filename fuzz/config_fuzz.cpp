// Any bytes as a configuration file, read in pieces of any size, and any changes to the tree that it gives: what is
// written, read and written again is the same, and the pieces make no difference.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "file/ini/reader.hpp"
#include "file/ini/writer.hpp"
#include "own.hpp"
#include "tq4/config.h"
#include "tq4/debug.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// A file's text after it was read, in pieces of so many bytes, and written.
std::string rewritten(std::string_view text, std::size_t piece) {
    Tq4_config_tree tree;
    Tq4_config_reader reader(tree);
    for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) reader.Feed(text.substr(0, piece));
    reader.Finish();
    return Tq4_config_written(tree);
}

// All settings in and below the current section. (Names that hold a NUL cannot be asked for.)
void list(Tq4_config s, std::string &out) {
    for (const char *key = (*s)->GetFirstKey(s); key; key = (*s)->GetNextKey(s))
        (out += key) += std::string(" = ") + (*s)->ReadString(s, key, "") + "\n";
    const char *name;
    for (unsigned long i = 0; (name = (*s)->GetChildSectionName(s, i)); ++i)
        for (unsigned long index = 0; (*s)->ToChildSection(s, name, index); ++index) {
            (out += "<") += (*s)->GetSection(s);
            list(s, out);
            (*s)->ToParentSection(s);
        }
}

void require_same_settings(Tq4_config a, Tq4_config b) {
    std::string listed[2];
    list(a, listed[0]);
    list(b, listed[1]);
    require(listed[0] == listed[1]);
}

void change(Tq4_config s, FuzzedDataProvider &input) {
    const int operation = input.ConsumeIntegralInRange(0, 9);
    const unsigned long index = input.ConsumeIntegralInRange(0ul, 3ul);
    const std::string name = input.ConsumeRandomLengthString(40), text = input.ConsumeRandomLengthString(40);
    long number;
    double real;
    char c, bytes[8];
    switch (operation) {
    case 0:
        (*s)->SetSection(s, "%s", name.c_str());
        break;
    case 1:
        (*s)->AddSection(s, name.c_str());
        break;
    case 2:
        (*s)->RemoveSection(s);
        break;
    case 3:
        (*s)->RemoveChildSection(s, (*s)->GetChildSectionName(s, index), index);
        break;
    case 4:
        (*s)->ToChildSection(s, (*s)->GetChildSectionName(s, index), index);
        break;
    case 5:
        (*s)->RemoveKey(s, (*s)->GetFirstKey(s));
        break;
    case 6:
        (*s)->RemoveKey(s, (*s)->GetNextKey(s));
        break;
    case 7: {
        const char *key = (*s)->GetNextKey(s);
        (*s)->ReadLong(s, key, &number);
        (*s)->ReadDouble(s, key, &real);
        (*s)->ReadChar(s, key, &c);
        (*s)->ReadBytes(s, key, bytes, index);
        (*s)->WriteString(s, key, text.c_str());
        break;
    }
    case 8:
        (*s)->ToParentSection(s);
        break;
    default:
        if ((*s)->WriteString(s, name.c_str(), text.c_str()))
            require((*s)->ReadString(s, name.c_str(), "") == text.substr(0, text.find('\0')));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    Tq4_debug_api->SetLog([](int, const char *, va_list) {}); // refused names are many
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto piece = input.ConsumeIntegralInRange<std::size_t>(1, 5000);
    const auto changes = input.ConsumeIntegralInRange<std::size_t>(0, 16);
    const std::string text = input.ConsumeRandomLengthString(size);
    const std::string first = rewritten(text, piece);
    require(rewritten(text, text.size()) == first);
    require(rewritten(first, piece) == first);
    if (changes == 0) return 0;

    const int file = memfd_create("settings", MFD_CLOEXEC);
    require(write(file, text.data(), text.size()) == static_cast<long>(text.size()));
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    auto own = Tq4_make<Tq4_config>(Tq4_config_oitf), copy = Tq4_make<Tq4_config>(Tq4_config_oitf);
    const Tq4_config s = own.get();
    require((*s)->Read(s, path.c_str()) == 1);
    close(file);
    for (int round = 0; round < 3; ++round) { // a copy is what is read of what is written
        Tq4_config_oitf->Copy(copy.get(), s);
        require(Tq4_object_Equal(copy.get(), s));
        require_same_settings(copy.get(), s);
        for (std::size_t i = 0; i < changes; ++i) change(s, input);
        (*s)->ToTopSection(s);
    }
    return 0;
}
