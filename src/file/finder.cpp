// finder: the matches of one walk, sorted. Their paths are texts of the finder's own, so they stay valid until the next
// search.
#include "tq4/finder.h"

#include <algorithm>
#include <string>
#include <vector>

#include "file/name_pattern.hpp"
#include "file/walk.hpp"
#include "module.hpp"

struct Tq4_finder_obj {
    struct Found {
        std::string path;
        unsigned long size;
        Tq4_file_type type;
    };
    std::vector<Found> m_found; // by path

    void Reset() { m_found.clear(); }
    void Copy(const Tq4_finder_obj *source) { source ? void(m_found = source->m_found) : Reset(); }
    bool Equal(const Tq4_finder_obj &other) const {
        return std::equal(m_found.begin(), m_found.end(), other.m_found.begin(), other.m_found.end(),
                          [](const Found &a, const Found &b) { return a.path == b.path; });
    }

    long Find(const char *path, int flags);
    unsigned long Count() const { return m_found.size(); }
    const char *Path(unsigned long index) const { return index < Count() ? m_found[index].path.c_str() : nullptr; }
    const char *Name(unsigned long index) const;
    unsigned long Size(unsigned long index) const { return index < Count() ? m_found[index].size : 0; }
    Tq4_file_type Type(unsigned long index) const { return index < Count() ? m_found[index].type : Tq4_file_type_none; }
    int each(Tq4_finder_visitor visitor, void *param) const;

private:
    void Consider(const Tq4_walk_entry &entry, std::string_view pattern, int wanted);
};

namespace {

std::string_view name_of(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// The directory of a search as a text to open, and to put before the names that are found there.
std::string directory_to_read(const char *path, std::string_view directory) {
    if (!directory.empty()) return std::string(directory);
    return *path == '/' ? "/" : ".";
}

} // namespace

long Tq4_finder_obj::Find(const char *path, int flags) {
    Reset();
    if (!path) return -1;
    std::string_view directory, pattern;
    MP_SpliteFileName2(path, &directory, &pattern);
    const int kinds = flags & (Tq4_finder_files | Tq4_finder_directories);
    const int wanted = kinds ? kinds : Tq4_finder_files | Tq4_finder_directories;
    const bool whole =
        Tq4_walk_tree(directory_to_read(path, directory), {.recursive = (flags & Tq4_finder_recursive) != 0},
                      [&](const Tq4_walk_entry &entry) { Consider(entry, pattern, wanted); });
    std::sort(m_found.begin(), m_found.end(), [](const Found &a, const Found &b) { return a.path < b.path; });
    if (!whole) Reset();
    return whole ? static_cast<long>(Count()) : -1;
}

void Tq4_finder_obj::Consider(const Tq4_walk_entry &entry, std::string_view pattern, int wanted) {
    if (!Tq4_name_matches(pattern, entry.name)) return;
    MP_FileInfo info = entry.info;
    if (info.type == Tq4_file_type_none) MP_GetFileInfoIn(entry.directory, entry.name, 1, &info); // perhaps a link
    const int kind = info.type == Tq4_file_type_directory ? Tq4_finder_directories : Tq4_finder_files;
    if (wanted & kind) m_found.push_back({entry.path, info.size, static_cast<Tq4_file_type>(info.type)});
}

const char *Tq4_finder_obj::Name(unsigned long index) const {
    return index < Count() ? name_of(m_found[index].path).data() : nullptr;
}

int Tq4_finder_obj::each(Tq4_finder_visitor visitor, void *param) const {
    if (!visitor) return 0;
    for (const Found &found : m_found)
        if (const int result = visitor(found.path.c_str(), param)) return result;
    return 0;
}

const Tq4_finder_ Tq4_finder_itf = {
    .Find = Tq4_op<&Tq4_finder_obj::Find>,
    .Count = Tq4_op<&Tq4_finder_obj::Count>,
    .Path = Tq4_op<&Tq4_finder_obj::Path>,
    .Name = Tq4_op<&Tq4_finder_obj::Name>,
    .Size = Tq4_op<&Tq4_finder_obj::Size>,
    .Type = Tq4_op<&Tq4_finder_obj::Type>,
    .each = Tq4_op<&Tq4_finder_obj::each>,
};
TQ4_MODULE(finder)
