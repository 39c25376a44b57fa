// identity.hpp: object-level operations of records that have no content to copy or compare.
//
// Such an object equals only itself, a copy into it changes nothing, and its duplicate is a fresh object.
#pragma once

struct Tq4_identity {
    void Reset() {}
    void Copy(const Tq4_identity *) {}
    bool Equal(const Tq4_identity &other) const { return this == &other; }
};
