// Delivery of push texts: helper programs that are queued as command lines and run one after
// another by one thread, so that nobody waits for the network.

#pragma once

#include <apr_pools.h>

// Queues the text for every registered phone that wants it, logs and announces each delivery. 1
// when a phone qualified, 0 when none did, -1 without a text or the gateway's identity. Any thread;
// locks pushDevList_mutex and, within it, sysCmdList_mutex.
int sendPushMsg(apr_pool_t *pool, const char *message, const char *uuid);

// The same with the gateway's own identity.
int sendPush(apr_pool_t *pool, const char *message);

// Queues a mail; without an address, a password or a text nothing. Nothing in the daemon sends one.
void sendMail(apr_pool_t *pool, const char *email, const char *password, const char *message);
