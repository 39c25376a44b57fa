// control_socket: a local stream socket. That a daemon runs is decided by connecting to it: a socket file at which the
// system refuses that is a dead daemon's. Everything else that goes wrong says nothing about a daemon.
//
// The file is removed while its socket still listens: until then nobody else takes it for a dead daemon's, and no other
// file gets its number.
#include "app/control_socket.hpp"

#include <cerrno>
#include <utility>

#include "own.hpp"
#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_system.hpp"
#include "tq4/file_api.h"
#include "tq4/sock_api.h"
#include "tq4/sockaddr.h"

namespace {

constexpr mode_t directory_mode = 0770;
constexpr mode_t others_mask = 0007; // the socket gets what directory_mode is
constexpr int backlog = 1;

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

bool tells_that_nobody_listens(int error) { return error == ENOENT || error == ECONNREFUSED; }

// Whether the address is free to be taken; otherwise the system's error number is the reason.
bool is_free(Tq4_sockaddr address) {
    const int asking = Tq4_sock_api->OpenTcp2(address, 0);
    if (asking < 0) return false;
    Tq4_sock_api->Block(asking, 0); // where there is no room for another connection, somebody listens
    const bool connected = Tq4_sock_api->Connect2(address, asking) >= 0;
    const int error = connected ? EAGAIN : Tq4_sock_api->Error();
    Tq4_sock_api->Close(asking);
    Tq4_sock_api->SetError(error == EAGAIN ? EADDRINUSE : error);
    return tells_that_nobody_listens(error);
}

void remove_dead_socket(const char *path) {
    MP_FileInfo info;
    if (MP_GetFileInfo(path, 0, &info) && info.type == Tq4_file_type_none) MP_FileDelete(path);
}

Tq4_control_file file_at(const char *path) {
    MP_FileInfo info{};
    MP_GetFileInfo(path, 0, &info);
    return {info.device, info.number};
}

bool bind(const char *path, Tq4_sockaddr address, int *socket) {
    if (!is_free(address)) return false;
    remove_dead_socket(path);
    *socket = Tq4_sock_api->OpenTcp2(address, 1);
    return *socket >= 0;
}

Tq4_control_failure make_socket(const char *path, int *socket, Tq4_control_file *made) {
    const bool has_directory = MP_MkdirBeforCreateFile(path, directory_mode) == 0;
    const int directory_error = Tq4_sock_api->Error();
    const Start_lock lock(path);
    const auto address = address_of(path);
    Tq4_sock_api->SetError(ENAMETOOLONG);
    if (!address || !bind(path, address.get(), socket)) {
        if (Tq4_sock_api->Error() == ENOENT && !has_directory) Tq4_sock_api->SetError(directory_error);
        return Tq4_control_failure::Bind;
    }
    *made = file_at(path);
    if (Tq4_sock_api->Listen(*socket, backlog) == 0) return Tq4_control_failure::None;
    const int error = Tq4_sock_api->Error();
    MP_FileDelete(path);
    Tq4_sock_api->Close(std::exchange(*socket, -1));
    Tq4_sock_api->SetError(error);
    return Tq4_control_failure::Listen;
}

} // namespace

int Tq4_control_connect(const char *path) {
    const auto address = address_of(path);
    if (!address) return Tq4_control_nobody; // nobody can listen there
    const int connection = Tq4_sock_api->Connect2(address.get(), -1);
    if (connection >= 0) return connection;
    return tells_that_nobody_listens(Tq4_sock_api->Error()) ? Tq4_control_nobody : Tq4_control_unknown;
}

Tq4_control_failure Tq4_control_listen(const char *path, int *socket, Tq4_control_file *made) {
    *socket = -1;
    const mode_t mask = MP_SetFileMask(others_mask);
    const Tq4_control_failure failure = make_socket(path, socket, made);
    MP_SetFileMask(mask);
    return failure;
}

void Tq4_control_remove(const char *path, const Tq4_control_file &made) {
    const Tq4_control_file now = file_at(path);
    if (now.device == made.device && now.number == made.number) MP_FileDelete(path);
}

void Tq4_control_occupy(const char *path) { MP_OccupyDirectoryOf(path); }

bool Tq4_control_await_end(const char *path, long ms) {
    const long process = MP_OccupierOfDirectoryOf(path);
    return process <= 0 || MP_AwaitProcessEnd(process, ms);
}
