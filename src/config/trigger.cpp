#include "config/trigger.h"

#include "config/json_fields.h"

static constexpr JsonField<Trigger> TRIGGER_FIELDS[] = {
    {"op", &Trigger::op},
    {"field", &Trigger::field},
    {"duration", &Trigger::duration},
    {"threshold", &Trigger::threshold},
    {"dataunit", &Trigger::dataunit},
};

Trigger *callocTrigger()
{
    auto *trigger = callocRecord<Trigger>();
    if (trigger)
        listInit(&trigger->node);
    return trigger;
}

Trigger *copyTrigger(const Trigger *source)
{
    Trigger *trigger = callocTrigger();
    if (!trigger)
        return nullptr;
    *trigger = *source;
    listInit(&trigger->node);
    return trigger;
}

bool copyTriggers(const ListNode *source, ListNode *destination)
{
    for (const Trigger &trigger : ELEMENTS(Trigger, node, source)) {
        Trigger *copy = copyTrigger(&trigger);
        if (!copy)
            return false;
        listAddTail(&copy->node, destination);
    }
    return true;
}

Trigger *searchTrigger(Integer dev, Integer if_, Integer ch, ListNode *head)
{
    return findByTarget(ELEMENTS(Trigger, node, head), {dev, if_, ch});
}

void freeTrigger(Trigger *trigger)
{
    listDel(&trigger->node);
    freeMem(trigger);
}

void freeTriggers(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Trigger &trigger : ELEMENTS(Trigger, node, head))
        freeTrigger(&trigger);
}

void listTrigger(const Trigger *trigger)
{
    LOG(DEBUG,
        "op: %s field: %s duration: %lld threshold: %lld dataunit: %lld dev: %lld if: %lld ch: "
        "%lld\n",
        trigger->op, trigger->field, trigger->duration, trigger->threshold, trigger->dataunit,
        trigger->target.dev, trigger->target.if_, trigger->target.ch);
}

void listTriggers(ListNode *head)
{
    for (const Trigger &trigger : ELEMENTS(Trigger, node, head))
        listTrigger(&trigger);
}

static Trigger *addTrigger(const TargetId &target, ListNode *head)
{
    Trigger *trigger = callocTrigger();
    if (!trigger)
        return nullptr;
    trigger->target = target;
    listAddTail(&trigger->node, head);
    return trigger;
}

int setTrigger(json_t *array, ListNode *head)
{
    int stored = 0;
    for (json_t *element : OBJECTS_NAMED(array, "in %s,triggers %d data is not an object\n")) {
        const json_t *targetObject = json_object_get(element, "target");
        if (!json_is_object(targetObject)) {
            LOG(ERROR, "target isn't object\n");
            break;
        }
        TargetId target;
        getTarget(target, targetObject);
        Trigger *trigger;
        if (listEmpty(head)) {
            trigger = addTrigger(target, head);
            if (!trigger) {
                LOG(ERROR, "callocTrigger fail\n");
                break;
            }
        } else {
            // Deliberate: a request creates a trigger only in an empty list, and otherwise only
            // updates those that exist.
            trigger = searchTrigger(target.dev, target.if_, target.ch, head);
            if (!trigger)
                break;
        }
        readFields(element, *trigger, TRIGGER_FIELDS);
        stored = 1;
    }
    return stored;
}

static int delOneTrigger(const json_t *object, ListNode *head)
{
    const json_t *targetObject = json_object_get(object, "target");
    if (!json_is_object(targetObject)) {
        LOG_AS("delTrigger", ERROR, "target isn't object\n");
        return 0;
    }
    TargetId target;
    getTarget(target, targetObject);
    Trigger *trigger = searchTrigger(target.dev, target.if_, target.ch, head);
    if (!trigger)
        return 0;
    freeTrigger(trigger);
    return 1;
}

int delTrigger(json_t *array, ListNode *head)
{
    int deleted = 0;
    for (json_t *trigger : OBJECTS_NAMED(array, "in %s,triggers %d data is not an object\n"))
        deleted |= delOneTrigger(trigger, head);
    return deleted;
}

json_t *triggerToJson(const Trigger *trigger)
{
    json_t *object = json_object();
    writeFields(object, *trigger, TRIGGER_FIELDS);
    json_object_set_new(object, "target", targetToJson(trigger->target));
    return object;
}
