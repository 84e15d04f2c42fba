// Every handler of the routing table.

#pragma once

#include "bus/handler.h"

// Device events (bus/event_handlers.cpp).
BusHandler ovrin_dbus_event_signal;
BusHandler app_dbus_event_method;

// The configuration (bus/config_methods.cpp).
BusHandler app_dbus_jsonGetTitles;
BusHandler app_dbus_jsonGetGroup;
BusHandler app_dbus_jsonGetAll;
BusHandler app_dbus_jsonSetAll;
BusHandler enableLock;

// Control (bus/control_methods.cpp).
BusHandler app_dbus_doScene;
BusHandler app_dbus_doScenemode;
