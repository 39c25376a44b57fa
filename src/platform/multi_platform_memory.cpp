// multi_platform_memory: asks the system for large pages; getting small ones instead is no failure.
#include "platform/multi_platform_memory.hpp"

#include <cstdlib>
#include <sys/mman.h>

void *MP_LargePages(std::size_t size) {
    void *memory = std::aligned_alloc(MP_large_page, size);
    if (memory) madvise(memory, size, MADV_HUGEPAGE);
    return memory;
}

void *MP_ReserveAddresses(std::size_t size) {
    void *addresses = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return addresses == MAP_FAILED ? nullptr : addresses;
}

void MP_ReleaseAddresses(void *addresses, std::size_t size) { munmap(addresses, size); }
