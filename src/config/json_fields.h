// One table a record says which member of its JSON object goes to which field. The parser and the
// serializer both read it; a member with a rule of its own is written out beside the call.

#pragma once

#include "config/record.h"

#include <jansson.h>
#include <span>

enum FieldUse : unsigned {
    READ = 1,   // parsed
    WRITE = 2,  // serialized
    BOTH = READ | WRITE,
};

template <typename Record> struct JsonField {
    const char *key;
    Text Record::*text = nullptr;
    Integer Record::*integer = nullptr;
    FieldUse use;

    constexpr JsonField(const char *name, Text Record::*field, FieldUse fieldUse = BOTH)
        : key(name), text(field), use(fieldUse)
    {
    }
    constexpr JsonField(const char *name, Integer Record::*field, FieldUse fieldUse = BOTH)
        : key(name), integer(field), use(fieldUse)
    {
    }
};

// Stores the members that are present with the right type; 1 when one was stored. What is absent,
// of another type or too long leaves its field as it was.
template <typename Record>
int readFields(json_t *object, Record &record,
               std::span<const JsonField<std::type_identity_t<Record>>> fields)
{
    int stored = 0;
    for (const auto &field : fields) {
        json_t *value = (field.use & READ) ? json_object_get(object, field.key) : nullptr;
        if (field.text && json_is_string(value)) {
            stored |= JsonStrCopy(record.*field.text, json_string_value(value), field.key);
        } else if (field.integer && json_is_integer(value)) {
            record.*field.integer = json_integer_value(value);
            stored = 1;
        }
    }
    return stored;
}

template <typename Record>
void writeFields(json_t *object, const Record &record,
                 std::span<const JsonField<std::type_identity_t<Record>>> fields)
{
    for (const auto &field : fields) {
        if (!(field.use & WRITE))
            continue;
        json_t *value =
            field.text ? json_string(record.*field.text) : json_integer(record.*field.integer);
        json_object_set_new(object, field.key, value);
    }
}

// A string member's text, or null when it is absent or of another type. It lives as long as the
// object.
const char *memberText(const json_t *object, const char *key);

// {"dev", "if", "ch"}: each 0 when it is absent or no integer.
void getTarget(TargetId &target, const json_t *object);
json_t *targetToJson(const TargetId &target);

// An array of one JSON value for each record of a walk, in its order.
template <typename Record>
json_t *arrayOf(const ListWalk<Record> &walk, json_t *(*recordToJson)(const Record *record))
{
    json_t *array = json_array();
    for (const Record &record : walk)
        json_array_append_new(array, recordToJson(&record));
    return array;
}

template <typename Record> json_t *titleToJson(const Record *record)
{
    return json_string(record->title);
}

// A walk over the objects of an array. The first element that is no object ends it and is logged,
// with its 1-based position, in the name of the function that walks.
class ObjectWalk {
public:
    struct Messages {
        const char *function;
        int line;
        const char *format;
        bool namesFunction;  // the format takes the function's name before the position
    };

    class Iterator {
    public:
        Iterator(const ObjectWalk &walked, size_t start);
        json_t *operator*() const
        {
            return json_array_get(walk.array, index);
        }
        Iterator &operator++();
        bool operator!=(const Iterator &other) const
        {
            return index != other.index;
        }

    private:
        void stopAtOtherKinds();

        const ObjectWalk &walk;
        size_t index;
    };

    ObjectWalk(json_t *walkedArray, const Messages &walkMessages)
        : array(walkedArray), messages(walkMessages)
    {
    }
    Iterator begin() const
    {
        return Iterator(*this, 0);
    }
    Iterator end() const
    {
        return Iterator(*this, json_array_size(array));
    }

private:
    json_t *array;
    Messages messages;
};

// for (json_t *camera : OBJECTS(array, "cameras %d is not an object\n"))
#define OBJECTS(array, format) ObjectWalk((array), {__func__, __LINE__, (format), false})
// The same for a text that begins with the function: "in %s,scenes %d data is not an object\n".
#define OBJECTS_NAMED(array, format) ObjectWalk((array), {__func__, __LINE__, (format), true})
