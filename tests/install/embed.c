/* A program that embeds the module the way the pkg-config file describes: it links the engine and
 * the platform library, binds an in-memory database to its state and loads the module from the
 * folder given as its argument. Prints the main interface of sub-interface 0x1001. */
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
#include <stdio.h>

#include "ecm_ctl.h"
#include "vlanlua_tables.h"

static const char SCRIPT[] =
    "package.cpath = ... .. '/?.so;' .. package.cpath\n"
    "local lib = require 'libvlanluaext'\n"
    "local code, main = lib.VLAN_spt_GetMainifBySubif(0x1001)\n"
    "print(code, main)\n";

int main(int argc, char **argv)
{
    char acErr[128];
    void *pObj = ECM_CTL_Open(NULL, 1, 7, 0, acErr, sizeof(acErr));
    ECM_CTL_VAL_S astRow[] = {{VLANLUA_FLD_IF_INFO_ifIndex, 0, 0x1001, NULL},
                              {VLANLUA_FLD_IF_INFO_mainIfIndex, 0, 0x1000, NULL}};
    if (argc != 2 || pObj == NULL || ECM_CTL_Insert(pObj, VLANLUA_TBL_IF_INFO, astRow, 2) != ECM_OK) {
        fprintf(stderr, "embed: cannot set up the database\n");
        return 1;
    }
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    ECM_CTL_Bind(L, pObj);
    int iRet = luaL_loadstring(L, SCRIPT);
    if (iRet == 0) {
        lua_pushstring(L, argv[1]);
        iRet = lua_pcall(L, 1, 0, 0);
    }
    if (iRet != 0) {
        fprintf(stderr, "embed: %s\n", lua_tostring(L, -1));
    }
    ECM_CTL_Close(pObj);
    lua_close(L);
    return iRet == 0 ? 0 : 1;
}
