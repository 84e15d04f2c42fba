// What is released when its scope ends. C handles are owned where they are declared; records are
// freed by name.

#pragma once

#include <apr_allocator.h>
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

// How much freed pool memory is kept for the next pools; the rest goes back to the system. A pool
// that was large once would else be kept for good.
inline void limitKeptPoolMemory()
{
    static constexpr apr_size_t KEPT_BYTES = apr_size_t{256} * 1024;
    apr_pool_t *pool = nullptr;
    if (apr_pool_create_ex(&pool, nullptr, nullptr, nullptr) != APR_SUCCESS)
        return;
    apr_allocator_max_free_set(apr_pool_allocator_get(pool), KEPT_BYTES);
    apr_pool_destroy(pool);
}

// A scratch pool of its own for one call, event or thread; null when memory has run out.
inline Owned<apr_pool_t> createPool()
{
    apr_pool_t *pool = nullptr;
    if (apr_pool_create_ex(&pool, nullptr, nullptr, nullptr) != APR_SUCCESS)
        return nullptr;
    return Owned<apr_pool_t>(pool);
}
