/* What the files of the cfgdb binding share. */
#ifndef CFGDB_H
#define CFGDB_H

#include <stdint.h>

#include "sysdt_lua.h"

/* Sets field pcKey of the table on top of the stack. */
void CfgDb_SetInt(lua_State *L, const char *pcKey, uint64_t ulValue);
void CfgDb_SetText(lua_State *L, const char *pcKey, const char *pcValue);
/* Pushes the calls recorded by the object's trace as a list and takes them out of the recording:
 * {name, us, ops = {{op, table, result, rows, us, statements = {{sql, values, rows, us}}}}}. */
void CfgDb_PushTrace(lua_State *L, void *pObj);

#endif
