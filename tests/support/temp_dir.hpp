// temp_dir.hpp: a fresh directory, removed with everything in it, and what a file holds.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string content(const std::filesystem::path &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator(file), {}};
}

class Temp_dir {
public:
    Temp_dir() {
        std::string name = std::filesystem::temp_directory_path() / "tq4_test_XXXXXX";
        m_path = mkdtemp(name.data());
    }
    ~Temp_dir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Temp_dir(const Temp_dir &) = delete;
    Temp_dir &operator=(const Temp_dir &) = delete;

    const std::string &path() const { return m_path; }
    std::string operator/(const std::string &name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};
