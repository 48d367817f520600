/* The module's entry point and its eighteen script functions, each exported under its own
 * name. Uses only the platform's names. */
#ifndef VLANLUA_API_H
#define VLANLUA_API_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

int luaopen_libvlanluaext(void *pState);
/* The module's release ("1.0.0"). */
const char *VLANLUA_Version(void);

uint32_t VLANLUA_Spt_CheckL2SuppExist(void *pState);
uint32_t VLANLUA_Spt_CheckPwSuppExist(void *pState);
uint32_t VLANLUA_Spt_GetMainifBySubif(void *pState);
uint32_t VLANLUA_Spt_Merg2BitMap(void *pState);
uint32_t VLANLUA_Spt_And2BitMap(void *pState);
uint32_t VLANLUA_Spt_GetFirstFreeValue(void *pState);
uint32_t VLANLUA_Spt_CrtCtrlVidBitMap(void *pState);
uint32_t VLANLUA_Spt_UpdataCtrlVidBitMap(void *pState);
uint32_t VLANLUA_Spt_QinQMatchMerge(void *pState);
uint32_t VLANLUA_Spt_Dot1QMatchMerge(void *pState);
uint32_t VLANLUA_Spt_UserVlanMibQuery(void *pState);
uint32_t VLANLUA_Spt_UserVlanDot1qExist(void *pState);
uint32_t VLANLUA_Spt_UserVlanQinqExist(void *pState);
uint32_t VLANLUA_Spt_SetUserVlanQinQSvc(void *pState);
uint32_t VLANLUA_Spt_CmdParaCheck(void *pState);
uint32_t VLANLUA_Spt_GetNextQinQMibQuery(void *pState);
uint32_t VLANLUA_Spt_UpdataQinQIfSpec(void *pState);
uint32_t VLANLUA_Spt_CheckVlanUsdByPort(void *pState);

#ifdef __cplusplus
}
#endif
#endif
