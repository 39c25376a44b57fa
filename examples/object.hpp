// object.hpp: an object of a module, deleted with its scope.
#pragma once

#include <tq4/tq4.h>

template <class Handle> class Object {
public:
    explicit Object(const Tq4_object_itf *module, const void *param = nullptr)
        : m_module(module), m_handle(static_cast<Handle>(module->Create(param))) {}
    ~Object() { m_module->Delete(m_handle); }
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    operator Handle() const { return m_handle; }
    auto operator->() const { return *m_handle; }

private:
    const Tq4_object_itf *m_module;
    Handle m_handle;
};
