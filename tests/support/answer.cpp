#include "support/answer.h"

namespace support {

static Message makeReply(DBusMessage *request, const Answer &answer)
{
    if (answer.kind == Answer::REFUSAL)
        return Message(dbus_message_new_error(request, DBUS_ERROR_FAILED, "refused"));
    Message reply(dbus_message_new_method_return(request));
    const char *text = answer.text.c_str();
    const dbus_int32_t number = 7;
    if (answer.kind == Answer::TEXT)
        dbus_message_append_args(reply.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    if (answer.kind == Answer::NUMBER)
        dbus_message_append_args(reply.get(), DBUS_TYPE_INT32, &number, DBUS_TYPE_INVALID);
    return reply;
}

void reply(Peer &peer, DBusMessage *request, const Answer &answer, std::function<void()> given)
{
    if (answer.kind == Answer::SILENCE)
        return;
    const std::shared_ptr<DBusMessage> message(makeReply(request, answer).release(), Unref());
    const auto answerNow = [&peer, message, given = std::move(given)] {
        peer.send(message.get());
        given();
    };
    if (answer.delay > Milliseconds(0))
        peer.later(Clock::now() + answer.delay, answerNow);
    else
        answerNow();
}

}  // namespace support
