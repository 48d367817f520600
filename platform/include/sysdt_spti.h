/* Script-stack services of the platform: the stack operations a script function uses
 * and the library registration. The script state is opaque to every caller. */
#ifndef SYSDT_SPTI_H
#define SYSDT_SPTI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A script function: takes the script state, returns how many results it pushed. */
typedef uint32_t (*SYSDT_SPT_FUNC)(void *pState);

/* One registration entry; a table of them ends with an entry whose pointers are both null. */
typedef struct {
    const char *pcName;
    SYSDT_SPT_FUNC pfFunc;
} SYSDT_SPT_REG_S;

int32_t SYSDT_SPTI_GetTop(void *pState);
int32_t SYSDT_SPTI_IsNumber(void *pState, int32_t iPos);
int32_t SYSDT_SPTI_IsString(void *pState, int32_t iPos);
int32_t SYSDT_SPTI_IsBool(void *pState, int32_t iPos);
uint32_t SYSDT_SPTI_ToUInt(void *pState, int32_t iPos);
const char *SYSDT_SPTI_ToString(void *pState, int32_t iPos);
int32_t SYSDT_SPTI_ToBoolean(void *pState, int32_t iPos);
uint32_t SYSDT_SPTI_ObjLen(void *pState, int32_t iPos);
void SYSDT_SPTI_GetTable(void *pState, int32_t iPos);
void SYSDT_SPTI_Pop(void *pState, int32_t iCount);
void SYSDT_SPTI_PushUInt(void *pState, uint32_t uiValue);
void SYSDT_SPTI_PushInt(void *pState, int32_t iValue);
void SYSDT_SPTI_PushString(void *pState, const char *pcText, uint32_t uiLen);
void SYSDT_SPTI_PushNil(void *pState);
void SYSDT_SPTI_CreateTable(void *pState, int32_t iArraySize, int32_t iRecordSize);
void SYSDT_SPTI_SetTable(void *pState, int32_t iPos);
/* Inside a script call the store may run only when the call's results are handed over, after the
 * script function returned: pcName must outlive the function (a string literal does). */
void SYSDT_SPTI_SetField(void *pState, int32_t iPos, const char *pcName);

/* Registers every entry of the null-terminated table as a function of library pcLib, sets the
 * global pcLib to the library table and leaves that table on top of the stack. Returns 0. */
int32_t Script_OpenLib(void *pState, const char *pcLib, const SYSDT_SPT_REG_S *pstTable);

#ifdef __cplusplus
}
#endif
#endif
