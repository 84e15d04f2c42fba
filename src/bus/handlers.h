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
BusHandler app_dbus_jsonDel;
BusHandler app_dbus_jsonRename;
BusHandler app_dbus_jsonGetEventBySeq;
BusHandler app_dbus_jsonGetMacroEventBySeq;
BusHandler enableLock;

// The stored documents (bus/file_methods.cpp).
BusHandler app_dbus_getDat;
BusHandler app_dbus_reset_config;
BusHandler app_dbus_backup_config;
BusHandler app_dbus_restore_config;
BusHandler app_dbus_restore_config2;
BusHandler app_dbus_backup_OvrinData;
BusHandler app_dbus_sendDat;

// Control (bus/control_methods.cpp).
BusHandler app_dbus_doScene;
BusHandler app_dbus_doScenemode;
BusHandler app_dbus_setDST;
BusHandler app_dbus_enableastclock;
BusHandler reloadPosition;
BusHandler app_dbus_setHomeScene;
BusHandler app_dbus_send_push;
BusHandler app_dbus_set_eventLog_recentNum;
