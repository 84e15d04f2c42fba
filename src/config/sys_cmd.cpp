#include "config/sys_cmd.h"

#include <cstdlib>

ListNode sysCmdListHead = {&sysCmdListHead, &sysCmdListHead};

SysCmd *callocSysCmd()
{
    auto *command = callocRecord<SysCmd>();
    if (command)
        listInit(&command->node);
    return command;
}

void freeSysCmd(SysCmd *command)
{
    listDel(&command->node);
    free(command->cmd);
    freeMem(command);
}

void listSysCmd(ListNode *head)
{
    for (const SysCmd &command : ELEMENTS(SysCmd, node, head))
        LOG(DEBUG, "cmd: %s\n", command.cmd ? command.cmd : "");
}
