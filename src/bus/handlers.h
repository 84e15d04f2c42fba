// Every handler of the routing table.

#pragma once

#include "bus/handler.h"

// Device events (bus/event_handlers.cpp).
HandlerResult ovrin_dbus_event_signal(DBusConnection *connection, DBusMessage *message, void *data,
                                      apr_pool_t *pool);
HandlerResult app_dbus_event_method(DBusConnection *connection, DBusMessage *message, void *data,
                                    apr_pool_t *pool);

// The configuration (bus/config_methods.cpp).
HandlerResult app_dbus_jsonGetTitles(DBusConnection *connection, DBusMessage *message, void *data,
                                     apr_pool_t *pool);
HandlerResult app_dbus_jsonGetGroup(DBusConnection *connection, DBusMessage *message, void *data,
                                    apr_pool_t *pool);
HandlerResult app_dbus_jsonGetAll(DBusConnection *connection, DBusMessage *message, void *data,
                                  apr_pool_t *pool);
HandlerResult app_dbus_jsonSetAll(DBusConnection *connection, DBusMessage *message, void *data,
                                  apr_pool_t *pool);
HandlerResult enableLock(DBusConnection *connection, DBusMessage *message, void *data,
                         apr_pool_t *pool);

// Control (bus/control_methods.cpp).
HandlerResult app_dbus_doScene(DBusConnection *connection, DBusMessage *message, void *data,
                               apr_pool_t *pool);
HandlerResult app_dbus_doScenemode(DBusConnection *connection, DBusMessage *message, void *data,
                                   apr_pool_t *pool);
