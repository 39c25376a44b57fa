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

// Loads copies of the block until one finds no room, or there are enough. Returns how many.
int load_blocks(const fs::path &block, const fs::path &directory, int most) {
    for (int loaded = 0; loaded < most; ++loaded) {
        const fs::path copy = directory / (std::to_string(loaded) + ".so");
        fs::copy_file(block, copy, fs::copy_options::overwrite_existing);
        if (!dlopen(copy.c_str(), RTLD_NOW)) return loaded;
    }
    return most;
}

bool works(const Tq4_object_itf *strings) {
    auto text = static_cast<Tq4_string>(strings->Create("text"));
    const bool right = (*text)->length(text) == 4;
    strings->Delete(text);
    return right;
}

// What is wrong; null when nothing is.
const char *run(const fs::path &block, const char *library, const fs::path &directory) {
    const pid_t child = fork();
    if (child == 0) _exit(load_blocks(block, directory, most_blocks));
    int status = 0;
    waitpid(child, &status, 0);
    const int room = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    if (room < 2 || room == most_blocks) return "blocks of thread-local memory do not run out here";
    if (load_blocks(block, directory, room - 1) != room - 1) return "fewer blocks than before";
    void *loaded = dlopen(library, RTLD_NOW);
    if (!loaded) return dlerror();
    auto *strings = static_cast<const Tq4_object_itf *const *>(dlsym(loaded, "Tq4_string_oitf"));
    if (!strings) return dlerror();
    bool both = works(*strings);
    std::thread([&] { both = works(*strings) && both; }).join();
    return both ? nullptr : "the library does not work";
}

} // namespace

int main(int, char **arguments) {
    std::string directory = fs::temp_directory_path() / "tq4_tls_XXXXXX";
    if (!mkdtemp(directory.data())) return 1;
    const char *wrong = run(arguments[1], arguments[2], directory);
    if (wrong) std::fprintf(stderr, "%s\n", wrong);
    fs::remove_all(directory);
    return wrong != nullptr;
}
