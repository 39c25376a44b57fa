// walk: a list of levels takes the place of recursion, and open directories take the place of paths. So the depth of a
// tree meets neither the stack nor the longest path of the system.
//
// Only the two lowest levels are open, whatever the depth. The way up is "..", and the directory there must be the one
// that the walk came from. (A directory without the right to search has no way up, but nothing below it either: the
// level above is still open then.)
#include "file/walk.hpp"

#include "file/descriptor.hpp"
#include "tq4/file_api.h"

namespace {

struct Level {
    Tq4_descriptor directory;
    MP_FileInfo self;               // what it is, to know it again
    std::vector<std::string> names; // still to be visited
    std::size_t path_size;          // of its path, with the '/' behind it
    std::size_t name_start;         // of its name, there
};

bool is_same(const MP_FileInfo &a, const MP_FileInfo &b) { return a.device == b.device && a.number == b.number; }

class Walk {
public:
    Walk(const std::string &directory, const Tq4_walk_visitor &found, const Tq4_walk_visitor &left)
        : m_found(found), m_left(left), m_path(directory) {
        if (!m_path.ends_with('/')) m_path += '/';
    }

    // Goes into a directory, whose path stands in m_path. False when it cannot be read.
    bool Enter(Tq4_descriptor directory, std::size_t name_start) {
        Level level{std::move(directory), {}, {}, m_path.size(), name_start};
        if (!level.directory || !MP_GetOpenFileInfo(level.directory.get(), &level.self)) return false;
        const bool read = MP_DirList(level.directory.get(), &level.names);
        if (m_levels.size() >= 2) m_levels[m_levels.size() - 2].directory.Close();
        m_levels.push_back(std::move(level));
        return read;
    }

    // Visits all there is below. False when the way was lost.
    bool Run(bool recursive) {
        for (;;) {
            Level &level = m_levels.back();
            if (!level.names.empty()) {
                const std::string name = std::move(level.names.back());
                level.names.pop_back();
                Visit(level, name, recursive);
            } else {
                if (m_levels.size() == 1) return true;
                if (!Leave()) return false;
            }
        }
    }

private:
    const Tq4_walk_visitor &m_found, &m_left;
    std::string m_path; // of the lowest level
    std::vector<Level> m_levels;

    void Visit(Level &level, const std::string &name, bool recursive) {
        const int parent = level.directory.get();
        const std::size_t start = level.path_size;
        MP_FileInfo info;
        if (!MP_GetFileInfoIn(parent, name.c_str(), 0, &info)) return;
        m_path += name;
        m_found({m_path, m_path.c_str() + start, parent, info});
        if (recursive && info.type == Tq4_file_type_directory) {
            m_path += '/';
            const std::size_t depth = m_levels.size();
            Enter(Tq4_descriptor(MP_DirOpenIn(parent, name.c_str())), start);
            if (m_levels.size() > depth) return;
            m_path.pop_back();
            if (m_left) m_left({m_path, m_path.c_str() + start, parent, info});
        }
        m_path.resize(start);
    }

    // Goes up from a directory that has nothing left to visit.
    bool Leave() {
        const Level below = std::move(m_levels.back());
        m_levels.pop_back();
        Level &level = m_levels.back();
        if (!level.directory) level.directory = Tq4_descriptor(MP_DirOpenAbove(below.directory.get()));
        MP_FileInfo there;
        if (!MP_GetOpenFileInfo(level.directory.get(), &there) || !is_same(there, level.self)) return false;
        m_path.pop_back(); // the '/'
        if (m_left) m_left({m_path, m_path.c_str() + below.name_start, level.directory.get(), below.self});
        m_path.resize(level.path_size);
        return true;
    }
};

} // namespace

bool Tq4_walk_tree(const std::string &directory, Tq4_walk_options options, const Tq4_walk_visitor &found,
                   const Tq4_walk_visitor &left) {
    Walk walk(directory, found, left);
    return walk.Enter(Tq4_descriptor(MP_DirOpen(directory.c_str(), !options.refuse_link)), 0) &&
           walk.Run(options.recursive);
}
