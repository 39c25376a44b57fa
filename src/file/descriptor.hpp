// descriptor.hpp: an open descriptor that is closed with its scope.
#pragma once

#include <utility>

#include "platform/multi_platform_fs.hpp"

class Tq4_descriptor {
public:
    // Takes over what an operation that opens has returned, -1 for none.
    explicit Tq4_descriptor(int opened = -1) : m_descriptor(opened) {}
    Tq4_descriptor(Tq4_descriptor &&other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    Tq4_descriptor &operator=(Tq4_descriptor &&other) noexcept {
        Close();
        m_descriptor = std::exchange(other.m_descriptor, -1);
        return *this;
    }
    ~Tq4_descriptor() { Close(); }

    explicit operator bool() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }
    // 1; 0 when there is none, or the system lost data of it.
    int Close() { return m_descriptor >= 0 && MP_FileClose(std::exchange(m_descriptor, -1)); }

private:
    int m_descriptor; // owned
};
