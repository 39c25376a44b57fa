// walk: a list of the directories still to be read takes the place of recursion, so a tree may be of any depth.
#include "file/walk.hpp"

#include "tq4/file_api.h"

bool Tq4_walk_tree(const std::string &directory, bool recursive, const Tq4_walk_visitor &visit) {
    std::vector<std::string> unread{directory};
    bool readable = true;
    for (bool top = true; !unread.empty(); top = false) {
        std::string parent = std::move(unread.back());
        unread.pop_back();
        std::vector<std::string> names;
        const bool read = MP_DirList(parent.c_str(), &names);
        if (top) readable = read;
        if (!parent.ends_with('/')) parent += '/';
        for (const std::string &name : names) {
            std::string path = parent + name;
            MP_FileInfo info;
            if (!MP_GetFileInfo(path.c_str(), 0, &info)) continue;
            visit(path, info);
            if (recursive && info.type == Tq4_file_type_directory) unread.push_back(std::move(path));
        }
    }
    return readable;
}
