#include "config/json_fields.h"

const char *memberText(const json_t *object, const char *key)
{
    return json_string_value(json_object_get(object, key));
}

void getTarget(TargetId &target, const json_t *object)
{
    target.dev = json_integer_value(json_object_get(object, "dev"));
    target.if_ = json_integer_value(json_object_get(object, "if"));
    target.ch = json_integer_value(json_object_get(object, "ch"));
}

json_t *targetToJson(const TargetId &target)
{
    json_t *object = json_object();
    json_object_set_new(object, "dev", json_integer(target.dev));
    json_object_set_new(object, "if", json_integer(target.if_));
    json_object_set_new(object, "ch", json_integer(target.ch));
    return object;
}

ObjectWalk::Iterator::Iterator(const ObjectWalk &walked, size_t start) : walk(walked), index(start)
{
    stopAtOtherKinds();
}

ObjectWalk::Iterator &ObjectWalk::Iterator::operator++()
{
    ++index;
    stopAtOtherKinds();
    return *this;
}

void ObjectWalk::Iterator::stopAtOtherKinds()
{
    const size_t size = json_array_size(walk.array);
    if (index >= size || json_is_object(json_array_get(walk.array, index)))
        return;
    const Messages &texts = walk.messages;
    const int position = static_cast<int>(index + 1);
    if (texts.namesFunction)
        ovrin_log_write(ERROR, texts.function, texts.line, "app", texts.format, texts.function,
                        position);
    else
        ovrin_log_write(ERROR, texts.function, texts.line, "app", texts.format, position);
    index = size;
}
