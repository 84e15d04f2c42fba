#include "main/settings.h"

#include "bus/outbound.h"
#include "main/log.h"
#include "main/util.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

std::atomic<int> appstart_time_flag;
std::atomic<int> checkbox;
std::atomic<int> timeZone;
std::atomic<int> enast;
std::atomic<int> enswitchall;
std::atomic<int> Check_reply;
std::atomic<int> Enablupdatepush;
std::atomic<int> app_quit;
std::atomic<int> mainPid;
double lon;
double lat;
char tutkUUID[UUID_SIZE];
std::atomic<const char *> lan_mac;

static constexpr size_t UUID_LENGTH = 20;
static constexpr const char *PUSH_CUSTOMER = "Kovalo";

// Reading the settings is a step of the start-up and logs in its name.
static constexpr const char *START = "main";

static int integerSetting(apr_pool_t *pool, const char *key)
{
    const char *value = app_dbus_get_nvram(pool, key);
    return value ? atoi(value) : 0;
}

static double decimalSetting(apr_pool_t *pool, const char *key)
{
    const char *value = app_dbus_get_nvram(pool, key);
    return value ? atof(value) : 0.0;
}

void getTUTKUUID(const char *value)
{
    if (!value) {
        LOG(INFO, "tutkUUID is not set\n");
        return;
    }
    char uuid[UUID_SIZE];
    copyBounded(uuid, sizeof uuid, value);
    LOG(INFO, "tutkUUID: %s\n", uuid);
    const MutexLock lock(settings_mutex);
    strcpy(tutkUUID, uuid);
}

static void readUuid(apr_pool_t *pool)
{
    getTUTKUUID(app_dbus_get_nvram(pool, "TUTK_UUID"));
    bool complete;
    {
        const MutexLock lock(settings_mutex);
        complete = strlen(tutkUUID) == UUID_LENGTH;
    }
    if (!complete)
        getTUTKUUID(app_dbus_get_nvram(pool, "UUID"));
}

void applySceneMode(const char *caller, const char *value)
{
    if (value && strcmp(value, "1") == 0) {
        Check_reply = 1;
        LOG_AS(caller, INFO, "scene name 1: %s\n", value);
    } else if (value && strcmp(value, "0") == 0) {
        Check_reply = 0;
        LOG_AS(caller, INFO, "scene name 0: %s\n", value);
    }
}

static void readSceneMode(apr_pool_t *pool)
{
    const char *value = app_dbus_get_nvram(pool, "doscenemode");
    LOG_AS(START, INFO, "nvram read doscenemode value= %s\n", value ? value : "");
    applySceneMode(START, value);
}

static void readCustomer(apr_pool_t *pool)
{
    const char *value = app_dbus_get_nvram(pool, "customerName");
    const bool pushCustomer = value && strcmp(value, PUSH_CUSTOMER) == 0;
    Enablupdatepush = pushCustomer ? 1 : 0;
    if (pushCustomer)
        LOG_AS(START, INFO, "customer name Kovalo 1: %s\n", value);
    else
        LOG_AS(START, INFO, "customer name NULL: %s\n", value ? value : "");
}

void readPosition(apr_pool_t *pool)
{
    const double longitude = decimalSetting(pool, "setastclock_lon");
    const double latitude = decimalSetting(pool, "setastclock_lat");
    const MutexLock lock(settings_mutex);
    lon = longitude;
    lat = latitude;
}

void readSettings(apr_pool_t *pool)
{
    appstart_time_flag = integerSetting(pool, "appstart_time_flag");
    checkbox = integerSetting(pool, "jsonsetcheckbox");
    timeZone = integerSetting(pool, "TimeZone");
    readPosition(pool);
    enast = integerSetting(pool, "enableastclock");
    enswitchall = integerSetting(pool, "enableswitchall");
    readUuid(pool);
    readSceneMode(pool);
    readCustomer(pool);
}

char *hardwareAddress(const char *interfaceName)
{
    const int socketFd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socketFd < 0) {
        perror("socket");
        return nullptr;
    }
    ifreq request = {};
    copyBounded(request.ifr_name, sizeof request.ifr_name, interfaceName);
    char *text = nullptr;
    if (ioctl(socketFd, SIOCGIFHWADDR, &request) < 0) {
        perror("ioctl");
    } else {
        unsigned char byte[6];
        memcpy(byte, request.ifr_hwaddr.sa_data, sizeof byte);
        if (asprintf(&text, "%02X:%02X:%02X:%02X:%02X:%02X", byte[0], byte[1], byte[2], byte[3],
                     byte[4], byte[5]) < 0)
            text = nullptr;
        if (!text)
            LOG(ERROR, "calloc fail\n");
    }
    close(socketFd);
    return text;
}
