// load BLOCK LIBRARY: loads the library into a process whose static thread-local memory others have taken but for the
// last 64 bytes or so, and uses it on two threads.
//
// The blocks are copies of one small library. Another process tells how many of them there is room for.
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tq4/string.h"

namespace fs = std::filesystem;

namespace {

constexpr int most_blocks = 200;

fs::path copy_of(const fs::path &block, const fs::path &directory, int number) {
    const fs::path copy = directory / (std::to_string(number) + ".so");
    fs::copy_file(block, copy, fs::copy_options::overwrite_existing);
    return copy;
}

// How many were loaded until one found no room.
int load_blocks(const fs::path &block, const fs::path &directory, int most) {
    int loaded = 0;
    while (loaded < most && dlopen(copy_of(block, directory, loaded).c_str(), RTLD_NOW)) ++loaded;
    return loaded;
}

int room_for_blocks(const fs::path &block, const fs::path &directory) {
    const pid_t child = fork();
    if (child == 0) _exit(load_blocks(block, directory, most_blocks));
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 0;
}

bool works(const Tq4_object_itf *strings) {
    auto text = static_cast<Tq4_string>(strings->Create("text"));
    const bool right = (*text)->length(text) == 4;
    strings->Delete(text);
    return right;
}

int fail(const char *what) {
    std::fprintf(stderr, "%s: %s\n", what, dlerror());
    return 1;
}

int run(const fs::path &block, const char *library, const fs::path &directory) {
    const int room = room_for_blocks(block, directory);
    if (room < 2 || room == most_blocks) return fail("blocks of thread-local memory do not run out here");
    if (load_blocks(block, directory, room - 1) != room - 1) return fail("blocks");
    void *loaded = dlopen(library, RTLD_NOW);
    if (!loaded) return fail("the library found no room");
    auto *strings = static_cast<const Tq4_object_itf *const *>(dlsym(loaded, "Tq4_string_oitf"));
    if (!strings) return fail("the library lacks strings");
    bool both = works(*strings);
    std::thread([&] { both = works(*strings) && both; }).join();
    return both ? 0 : fail("the library does not work");
}

} // namespace

int main(int, char **arguments) {
    std::string directory = fs::temp_directory_path() / "tq4_tls_XXXXXX";
    if (!mkdtemp(directory.data())) return fail("no directory");
    const int result = run(arguments[1], arguments[2], directory);
    fs::remove_all(directory);
    return result;
}
