// What is released when its scope ends. C handles are owned where they are declared; records are
// freed by name.

#pragma once

#include <apr_pools.h>
#include <cstdlib>
#include <dbus/dbus.h>
#include <jansson.h>
#include <memory>

struct Release {
    void operator()(json_t *value) const noexcept
    {
        json_decref(value);
    }
    void operator()(DBusMessage *message) const noexcept
    {
        dbus_message_unref(message);
    }
    void operator()(DBusPendingCall *call) const noexcept
    {
        dbus_pending_call_unref(call);
    }
    void operator()(apr_pool_t *pool) const noexcept
    {
        apr_pool_destroy(pool);
    }
    void operator()(char *text) const noexcept
    {
        std::free(text);
    }
};
template <typename Handle> using Owned = std::unique_ptr<Handle, Release>;

// A bus error that frees itself.
class BusError {
public:
    BusError()
    {
        dbus_error_init(&error);
    }
    ~BusError()
    {
        dbus_error_free(&error);
    }
    BusError(const BusError &) = delete;
    BusError &operator=(const BusError &) = delete;

    operator DBusError *()
    {
        return &error;
    }
    bool isSet() const
    {
        return dbus_error_is_set(&error);
    }
    const char *message() const
    {
        return error.message ? error.message : "";
    }

private:
    DBusError error;
};

// A scratch pool of its own for one call, event or thread; null when memory has run out.
inline Owned<apr_pool_t> createPool()
{
    apr_pool_t *pool = nullptr;
    if (apr_pool_create_ex(&pool, nullptr, nullptr, nullptr) != APR_SUCCESS)
        return nullptr;
    return Owned<apr_pool_t>(pool);
}
