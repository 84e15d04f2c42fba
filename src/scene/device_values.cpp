#include "scene/device_values.h"

#include "config/device_value.h"
#include "config/snapshot.h"
#include "scene/sdk_command.h"

static constexpr Integer VALUE_OFF = 0;
static constexpr Integer VALUE_ON = 99;

static Integer restoredValue(const GetDev_channel &channel, Integer mode, Integer present)
{
    switch (mode) {
    case RESTORE_PRESENT:
        return getDevValByFuncType(&channel);
    case RESTORE_OFF:
        return VALUE_OFF;
    case RESTORE_ON:
        return VALUE_ON;
    default:
        return present;
    }
}

static void storeValue(const GetDev *reported, Comp &comp, Integer mode)
{
    const GetDev_channel *channel = channelOf(reported, comp.target);
    if (channel)
        comp.value = restoredValue(*channel, mode, comp.value);
    else
        LOG_AS("storeCurrentDeviceValue", ERROR, "getChannelFromGetDev_dev fails\n");
}

int storeCurrentDeviceValue(apr_pool_t *pool, Scene *scene, Integer mode)
{
    if (!scene) {
        LOG(ERROR, "scene is NULL\n");
        return 0;
    }
    if (scene->buildinSiren)
        scene->buildinSiren->siren_type = 0;  // putting things back never sounds the siren
    for (Comp &comp : ELEMENTS(Comp, node, &scene->comps)) {
        GetDev *reported = setGetDevice(sendOvrinSdkCmd(pool, "getdevice", comp.target.dev));
        storeValue(reported, comp, mode);
        if (reported)
            freeGetDevice(reported);
    }
    return 0;
}
