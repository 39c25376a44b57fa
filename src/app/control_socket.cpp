// control_socket: a local stream socket. That a daemon runs is decided by connecting to it: a socket file that nobody
// answers is a dead daemon's.
#include "app/control_socket.hpp"

#include "own.hpp"
#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_fs.hpp"
#include "tq4/sock_api.h"
#include "tq4/sockaddr.h"

namespace {

constexpr mode_t directory_mode = 0770;
constexpr mode_t others_mask = 0007; // the socket gets what directory_mode is
constexpr int backlog = 1;
constexpr int type_neither_file_nor_directory = 0;

Tq4_own<Tq4_sockaddr> address_of(const char *path) {
    auto address = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    if (!(*address)->Init(address.get(), path, 0)) address.reset(); // longer than an address may be
    return address;
}

// Whoever starts at the same moment waits here, and then finds a daemon instead of what a dead one left.
class Start_lock {
public:
    explicit Start_lock(const char *path) : m_lock(MP_LockDirectoryOf(path)) {}
    ~Start_lock() {
        if (m_lock >= 0) MP_FileClose(m_lock);
    }
    Start_lock(const Start_lock &) = delete;
    Start_lock &operator=(const Start_lock &) = delete;

private:
    int m_lock; // owned; -1: the directory cannot be opened, and then the socket cannot be made either
};

bool answers(Tq4_sockaddr address) {
    const int connection = Tq4_sock_api->Connect2(address, -1);
    if (connection >= 0) Tq4_sock_api->Close(connection);
    return connection >= 0;
}

void remove_dead_socket(const char *path) {
    MP_FileInfo info;
    if (MP_GetFileInfo(path, 0, &info) && info.type == type_neither_file_nor_directory) MP_FileDelete(path);
}

Tq4_control_failure make_socket(const char *path, int *socket) {
    MP_MkdirBeforCreateFile(path, directory_mode); // a failure shows in the binding
    const Start_lock lock(path);
    const auto address = address_of(path);
    if (!address || answers(address.get())) return Tq4_control_failure::Bind;
    remove_dead_socket(path);
    *socket = Tq4_sock_api->OpenTcp2(address.get(), 1);
    if (*socket < 0) return Tq4_control_failure::Bind;
    if (Tq4_sock_api->Listen(*socket, backlog) == 0) return Tq4_control_failure::None;
    MP_FileDelete(path);
    Tq4_sock_api->Close(*socket);
    *socket = -1;
    return Tq4_control_failure::Listen;
}

} // namespace

int Tq4_control_connect(const char *path) {
    const auto address = address_of(path);
    return address ? Tq4_sock_api->Connect2(address.get(), -1) : -1;
}

Tq4_control_failure Tq4_control_listen(const char *path, int *socket) {
    *socket = -1;
    const mode_t mask = MP_SetFileMask(others_mask);
    const Tq4_control_failure failure = make_socket(path, socket);
    MP_SetFileMask(mask);
    return failure;
}
