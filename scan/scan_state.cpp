#include "scan_state.h"

std::uint8_t g_configLoaded = 0;
int g_noCheck = 0;
int g_silent = 1;
int g_pidFd = -1;

ListNode g_scsiHostList = {};
ListNode g_sessionList = {};
ListNode g_nvmeCtrlList = {};

void SCAN_InitLists()
{
    LIST_Init(g_scsiHostList);
    LIST_Init(g_sessionList);
    LIST_Init(g_nvmeCtrlList);
}
