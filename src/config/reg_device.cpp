#include "config/reg_device.h"

#include "config/json_fields.h"

ListNode pushDevsListHead = {&pushDevsListHead, &pushDevsListHead};

static constexpr JsonField<RegDevice> REG_DEVICE_FIELDS[] = {
    {"app_id", &RegDevice::app_id},
    {"email", &RegDevice::email},
    {"username", &RegDevice::username},
    {"password", &RegDevice::password},
    {"gateway_name", &RegDevice::gateway_name},
    {"platform", &RegDevice::platform},
    {"ver", &RegDevice::ver, WRITE},  // written from the record, never set by a document
    {"update_ts", &RegDevice::update_ts},
    {"disable_notifications", &RegDevice::disable_notifications},
};

RegDevice *callocRegDevice()
{
    return callocRecord<RegDevice>();
}

RegDevices *callocRegDevices()
{
    auto *element = callocRecord<RegDevices>();
    if (!element)
        return nullptr;
    listInit(&element->node);
    element->device = callocRegDevice();
    if (element->device)
        return element;
    freeMem(element);
    return nullptr;
}

RegDevice *copyRegDev(const RegDevice *source)
{
    RegDevice *device = source ? callocRegDevice() : nullptr;
    if (device)
        *device = *source;
    return device;
}

RegDevices *searchRegDev(ListNode *head, const char *token)
{
    if (!token)
        return nullptr;
    for (RegDevices &element : ELEMENTS(RegDevices, node, head)) {
        if (strcmp(element.device->token, token) == 0)
            return &element;
    }
    return nullptr;
}

static bool isEarlier(const RegDevice &device, const RegDevice &other)
{
    if (device.update_ts != other.update_ts)
        return device.update_ts < other.update_ts;
    return device.gateway_name[0] != '\0' && other.gateway_name[0] == '\0';
}

RegDevices *searchEarlyPushDev(ListNode *head)
{
    RegDevices *earliest = nullptr;
    for (RegDevices &element : ELEMENTS(RegDevices, node, head)) {
        if (!earliest || isEarlier(*element.device, *earliest->device))
            earliest = &element;
    }
    return earliest;
}

void addRegDevToList(RegDevices *device, ListNode *head)
{
    listAddTail(&device->node, head);
}

void freeRegDev(RegDevice *device)
{
    freeMem(device);
}

void free_reg_dev_info(RegDevices *device)
{
    listDel(&device->node);
    freeRegDev(device->device);
    freeMem(device);
}

void free_reg_dev_info_list(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (RegDevices &element : ELEMENTS(RegDevices, node, head))
        free_reg_dev_info(&element);
}

// Tokens are looked up as they are stored: cut to their field. Null for null.
static RegDevices *searchCutToken(ListNode *head, const char *text, char (&token)[TOKEN_SIZE],
                                  const char *caller = __builtin_FUNCTION())
{
    if (!text)
        return nullptr;
    copyBounded(token, sizeof token, text, caller);
    return searchRegDev(head, token);
}

int setRegisteredDevice(json_t *object, ListNode *head)
{
    const char *text = memberText(object, "token");
    if (!text) {
        LOG(ERROR, "searchedPushDev is NULL !!!\n");
        return 0;
    }
    char token[TOKEN_SIZE];
    RegDevices *element = searchCutToken(head, text, token);
    if (!element) {
        element = callocRegDevices();
        if (!element) {
            LOG(ERROR, "searchedPushDev is NULL !!!\n");
            return 0;
        }
        strcpy(element->device->token, token);
        addRegDevToList(element, head);
    }
    readFields(object, *element->device, REG_DEVICE_FIELDS);
    return 1;
}

int setRegisteredDevices(json_t *array)
{
    int stored = 0;
    for (json_t *device : OBJECTS(array, "pushData %d is not an object\n")) {
        const MutexLock lock(pushDevList_mutex);
        stored |= setRegisteredDevice(device, &pushDevsListHead);
    }
    return stored;
}

int delRegisterDevices(json_t *array)
{
    int deleted = 0;
    for (json_t *object : OBJECTS(array, "devs %d is not an object\n")) {
        const MutexLock lock(pushDevList_mutex);
        char token[TOKEN_SIZE];
        RegDevices *element = searchCutToken(&pushDevsListHead, memberText(object, "token"), token);
        if (!element)
            continue;
        free_reg_dev_info(element);
        deleted = 1;
    }
    return deleted;
}

static json_t *registeredDeviceToJson(const RegDevices *element)
{
    json_t *object = json_object();
    writeFields(object, *element->device, REG_DEVICE_FIELDS);
    json_object_set_new(object, "token",
                        json_string(element->device->token));  // its field has a size of its own
    return object;
}

json_t *registeredDevicesToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(RegDevices, node, head), registeredDeviceToJson);
}
