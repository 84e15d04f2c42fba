#include "support/client.h"

#include <type_traits>

namespace support {

static constexpr const char *DAEMON = "com.ovrinbus.app";

static void append(DBusMessage *message, const std::vector<Argument> &arguments)
{
    DBusMessageIter iterator;
    dbus_message_iter_init_append(message, &iterator);
    for (const Argument &argument : arguments) {
        if (const auto *text = std::get_if<std::string>(&argument)) {
            const char *pointer = text->c_str();
            dbus_message_iter_append_basic(&iterator, DBUS_TYPE_STRING, &pointer);
        } else if (const auto *signed32 = std::get_if<int32_t>(&argument)) {
            dbus_message_iter_append_basic(&iterator, DBUS_TYPE_INT32, signed32);
        } else if (const auto *unsigned32 = std::get_if<uint32_t>(&argument)) {
            dbus_message_iter_append_basic(&iterator, DBUS_TYPE_UINT32, unsigned32);
        } else {
            dbus_message_iter_append_basic(&iterator, DBUS_TYPE_UINT16,
                                           &std::get<uint16_t>(argument));
        }
    }
}

bool PendingReply::arrived() const
{
    const std::lock_guard lock(mutex);
    return here;
}

Moment PendingReply::at() const
{
    const std::lock_guard lock(mutex);
    return when;
}

std::string PendingReply::signature() const
{
    const std::lock_guard lock(mutex);
    return types;
}

std::string PendingReply::error() const
{
    const std::lock_guard lock(mutex);
    return errorName;
}

std::string PendingReply::text() const
{
    const std::lock_guard lock(mutex);
    return textArgument;
}

int64_t PendingReply::number() const
{
    const std::lock_guard lock(mutex);
    return numberArgument;
}

void PendingReply::take(DBusMessage *reply)
{
    {
        const std::lock_guard lock(mutex);
        here = true;
        when = Clock::now();
        types = dbus_message_get_signature(reply);
        if (const char *name = dbus_message_get_error_name(reply))
            errorName = name;
        DBusMessageIter iterator;
        dbus_message_iter_init(reply, &iterator);
        const int type = dbus_message_iter_get_arg_type(&iterator);
        if (type == DBUS_TYPE_STRING) {
            const char *text;
            dbus_message_iter_get_basic(&iterator, &text);
            textArgument = text;
        } else if (type == DBUS_TYPE_INT32 || type == DBUS_TYPE_UINT32) {
            DBusBasicValue value;
            dbus_message_iter_get_basic(&iterator, &value);
            numberArgument = type == DBUS_TYPE_INT32 ? value.i32 : static_cast<int64_t>(value.u32);
        }
    }
    somethingChanged();
}

void Client::join(BusThread &thread, const std::string &address)
{
    peer.join(thread, address, nullptr);
}

void Client::leave()
{
    peer.leave();
}

std::shared_ptr<PendingReply> Client::call(const std::string &interface, const std::string &member,
                                           const std::vector<Argument> &arguments,
                                           const std::string &path)
{
    auto result = std::make_shared<PendingReply>();
    peer.busThread()->run([&] {
        const Message message(
            dbus_message_new_method_call(DAEMON, path.c_str(), interface.c_str(), member.c_str()));
        append(message.get(), arguments);
        DBusPendingCall *pending = nullptr;
        if (!dbus_connection_send_with_reply(peer.connection(), message.get(), &pending,
                                             DBUS_TIMEOUT_INFINITE) ||
            !pending)
            return;
        const auto notify = [](DBusPendingCall *finished, void *data) {
            const Message reply(dbus_pending_call_steal_reply(finished));
            (*static_cast<std::shared_ptr<PendingReply> *>(data))->take(reply.get());
        };
        const auto release = [](void *data) {
            delete static_cast<std::shared_ptr<PendingReply> *>(data);
        };
        dbus_pending_call_set_notify(pending, notify, new std::shared_ptr<PendingReply>(result),
                                     release);
        dbus_pending_call_unref(pending);
    });
    return result;
}

void Client::signal(const std::string &path, const std::string &interface,
                    const std::string &member, const std::vector<Argument> &arguments,
                    const std::string &destination)
{
    peer.busThread()->run([&] {
        const Message message(
            dbus_message_new_signal(path.c_str(), interface.c_str(), member.c_str()));
        if (!destination.empty())
            dbus_message_set_destination(message.get(), destination.c_str());
        append(message.get(), arguments);
        peer.send(message.get());
    });
}

}  // namespace support
