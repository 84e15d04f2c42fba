// Shell commands that wait to be run, oldest first. The caller holds sysCmdList_mutex.

#pragma once

#include "config/record.h"
#include "main/locks.h"

struct SysCmd {
    char *cmd;  // owned
    ListNode node;
};

extern ListNode sysCmdListHead LOCKING(guarded_by(sysCmdList_mutex));

SysCmd *callocSysCmd();
// Unlinks and frees one command.
void freeSysCmd(SysCmd *command);
void listSysCmd(ListNode *head);
