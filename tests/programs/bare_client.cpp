// What the daemon's libraries take by themselves: a program that has joined the bus, has a pool and
// has read one JSON text, and sleeps.

#include <apr_general.h>
#include <apr_pools.h>
#include <cstdio>
#include <dbus/dbus.h>
#include <jansson.h>
#include <malloc.h>
#include <unistd.h>

int main()
{
    static constexpr int KILOBYTE = 1024;
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_TOP_PAD, 16 * KILOBYTE);
    apr_pool_t *pool = nullptr;
    if (apr_initialize() != APR_SUCCESS || apr_pool_create(&pool, nullptr) != APR_SUCCESS)
        return 1;
    DBusConnection *connection = dbus_bus_get_private(DBUS_BUS_SYSTEM, nullptr);
    json_t *value = json_loads(R"({"a":[1,2,3]})", 0, nullptr);
    if (!connection || !value)
        return 1;
    puts("ready");
    fflush(stdout);
    pause();
    return 0;
}
