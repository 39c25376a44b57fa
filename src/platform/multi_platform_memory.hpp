// multi_platform_memory.hpp: memory in large pages, and addresses that get memory when they are written to.
#pragma once

#include <cstddef>

// What large pages come in, and the least worth asking for.
inline constexpr std::size_t MP_large_page = std::size_t{2} << 20;

// Memory of a multiple of MP_large_page, in large pages where the system has them to give: far apart places in it cost
// no look-ups of small pages. Contents undefined; to be given to std::free. Null when there is none.
void *MP_LargePages(std::size_t size);

// Addresses for that many bytes, a multiple of 4096: zeros, without memory until they are written to. Null on
// failure.
void *MP_ReserveAddresses(std::size_t size);
// Gives them back, with the same size.
void MP_ReleaseAddresses(void *addresses, std::size_t size);
