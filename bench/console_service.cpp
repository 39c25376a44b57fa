// console_service: the smallest service, for console_bench. With "--bare" it writes a prompt without the frame: what
// any process costs that loads the library.
#include <cstring>

#include <tq4/tq4.h>

int main(int argc, char **argv) {
    if (argc > 1 && std::strcmp(argv[1], "--bare") == 0) {
        Tq4_debug_api->Printf(0, "> ");
        return 0;
    }
    return Tq4_app->Run(argc, argv, nullptr, nullptr) == 1 ? 0 : 1;
}
