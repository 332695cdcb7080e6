#include "scan_state.h"

std::uint8_t g_configLoaded = 0;
int g_noCheck = 0;
int g_silent = 1;
int g_pidFd = -1;

ListNode g_scsiHostList = {&g_scsiHostList, &g_scsiHostList};
ListNode g_sessionList = {&g_sessionList, &g_sessionList};
ListNode g_nvmeCtrlList = {&g_nvmeCtrlList, &g_nvmeCtrlList};
