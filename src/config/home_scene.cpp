#include "config/home_scene.h"

ListNode defaulSceneListHead = {&defaulSceneListHead, &defaulSceneListHead};

HomeSceneData *callocHomeSceneData()
{
    auto *data = callocRecord<HomeSceneData>();
    if (data)
        listInit(&data->node);
    return data;
}

void freehomeSceneData(HomeSceneData *data)
{
    listDel(&data->node);
    if (data->channel)
        freeGetDevice_dev_channel(data->channel);
    if (data->device)
        freeGetDevice_dev(data->device);
    freeMem(data);
}
