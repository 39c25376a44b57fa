// kernel_choice.hpp: which of several rows of inner loops this processor runs best.
#pragma once

#include <span>

// The last supported one of a row's kernels, which go from the slowest, supported everywhere, to the fastest.
template <class Kernel> const Kernel *fastest_supported(std::span<const Kernel *const> kernels) {
    const Kernel *best = kernels.front();
    for (const Kernel *kernel : kernels)
        if (kernel->is_supported()) best = kernel;
    return best;
}
