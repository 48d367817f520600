/* Runs one configuration script on a fresh engine state bound to the database object, the way the
 * stock interpreter runs a script file. Uses only Lua C API functions that every engine has. */
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <lua.hpp>     /* the engine's headers with C linkage, whichever engine it is */
#include <string>

#include "vlanlua_cmd.h"

namespace {

/* The folder the running executable lives in. */
std::string OwnDir()
{
    char acPath[PATH_MAX];
    ssize_t lLen = readlink("/proc/self/exe", acPath, sizeof(acPath) - 1);
    if (lLen <= 0) {
        return ".";
    }
    acPath[lLen] = '\0';
    char *pcSlash = strrchr(acPath, '/');
    return pcSlash != nullptr ? std::string(acPath, pcSlash) : std::string(".");
}

/* arg as the stock interpreter builds it: the script at 0, its arguments from 1, the command and
 * its options at negative indexes. */
void SetArgTable(lua_State *L, const CmdScript &stScript)
{
    lua_createtable(L, stScript.iArgc - stScript.iScriptAt - 1, stScript.iScriptAt + 1);
    for (int i = 0; i < stScript.iArgc; i++) {
        lua_pushstring(L, stScript.ppcArgv[i]);
        lua_rawseti(L, -2, i - stScript.iScriptAt);
    }
    lua_setglobal(L, "arg");
}

int PushTraceback(lua_State *L)
{
    lua_getglobal(L, "debug");
    lua_getfield(L, -1, "traceback");
    lua_remove(L, -2);
    return lua_gettop(L);
}

void ReportError(lua_State *L, const char *pcWhat)
{
    const char *pcMsg = lua_tostring(L, -1);
    fprintf(stderr, "vlanlua: %s%s\n", pcWhat,
            pcMsg != nullptr ? pcMsg : lua_typename(L, lua_type(L, -1)));
}

/* Loads and runs the script with its arguments; false after reporting why it failed. */
bool RunChunk(lua_State *L, const CmdScript &stScript)
{
    int iHandler = PushTraceback(L);
    const char *pcFile = strcmp(stScript.pcPath, "-") == 0 ? nullptr : stScript.pcPath;
    if (luaL_loadfile(L, pcFile) != 0) {
        ReportError(L, "");
        return false;
    }
    int iArgs = stScript.iArgc - stScript.iScriptAt - 1;
    if (!lua_checkstack(L, iArgs)) {
        fputs("vlanlua: too many script arguments\n", stderr);
        return false;
    }
    for (int i = 1; i <= iArgs; i++) {
        lua_pushstring(L, stScript.ppcArgv[stScript.iScriptAt + i]);
    }
    if (lua_pcall(L, iArgs, 0, iHandler) != 0) {
        ReportError(L, stScript.eMode == CMD_DRY_RUN ? "dry run rolled back: " : "");
        return false;
    }
    return true;
}

/* The writes a dry run made: the journal entries from uiFirst on, one line each. */
void PrintWrites(void *pObj, uint32_t uiFirst)
{
    uint32_t uiNum = ECM_CTL_JournalCount(pObj);
    for (uint32_t i = uiFirst; i < uiNum; i++) {
        ECM_CTL_JOURNAL_S stEntry;
        if (ECM_CTL_JournalGet(pObj, i, &stEntry) == 0) {
            fputs((Cmd_WriteLine(stEntry) + "\n").c_str(), stdout);
        }
    }
}

/* Each call keeps its own writes; a script that raises keeps those of the calls before. */
int RunEachCall(lua_State *L, const CmdScript &stScript)
{
    if (RunChunk(L, stScript)) {
        return 0;
    }
    fputs("vlanlua: the calls made before the error keep their changes\n", stderr);
    return CMD_EXIT_FAIL;
}

/* The script inside one outer unit of work: committed when it ends, rolled back when it raises or
 * when it is a dry run. A call inside joins the unit, so a raise undoes the calls before it too. */
int RunInUnit(lua_State *L, void *pObj, const CmdScript &stScript)
{
    uint32_t uiFirst = ECM_CTL_JournalCount(pObj);
    uint32_t uiRet = ECM_CTL_UnitBegin(pObj);
    if (uiRet != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot start the change: %s\nvlanlua: nothing was changed\n",
                uiRet == ECM_ERR_BUSY ? "another process held the database past the busy timeout"
                                      : ECM_CTL_LastError(pObj));
        return CMD_EXIT_FAIL;
    }
    bool bOk = RunChunk(L, stScript);
    bool bDry = stScript.eMode == CMD_DRY_RUN;
    if (bOk && bDry) {
        fflush(stdout);     /* the script's own output comes before the list of writes */
        PrintWrites(pObj, uiFirst);
    }
    bool bCommit = bOk && !bDry;
    if (ECM_CTL_UnitEnd(pObj, bCommit ? 1 : 0) != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot %s the script's writes: %s\n", bCommit ? "commit" : "roll back",
                ECM_CTL_LastError(pObj));
        bOk = false;
    }
    if (!bOk && !bDry) {
        fputs("vlanlua: nothing was changed\n", stderr);
    }
    return bOk ? 0 : CMD_EXIT_FAIL;
}

}  // namespace

/* Installed, the modules are at the install's module folder relative to the command; in the build
 * tree, at build/lua. */
void Cmd_SetModulePath(void *pState)
{
    lua_State *L = static_cast<lua_State *>(pState);
    std::string strDir = OwnDir();
    std::string strPath = strDir + "/" VLANLUA_INSTALL_CMOD_DIR "/?.so;" + strDir + "/" VLANLUA_BUILD_CMOD_DIR "/?.so;";
    lua_getglobal(L, "package");
    lua_getfield(L, -1, "cpath");
    const char *pcOld = lua_tostring(L, -1);
    strPath += pcOld != nullptr ? pcOld : "";
    lua_pop(L, 1);
    lua_pushstring(L, strPath.c_str());
    lua_setfield(L, -2, "cpath");
    lua_pop(L, 1);
}

int Cmd_RunScript(void *pObj, const CmdScript &stScript)
{
    lua_State *L = luaL_newstate();
    if (L == nullptr) {
        fputs("vlanlua: cannot create the engine state\n", stderr);
        return CMD_EXIT_FAIL;
    }
    luaL_openlibs(L);
    Cmd_SetModulePath(L);
    SetArgTable(L, stScript);
    ECM_CTL_Bind(L, pObj);
    int iRet = stScript.eMode == CMD_EACH_CALL ? RunEachCall(L, stScript) : RunInUnit(L, pObj, stScript);
    ECM_CTL_Unbind(L);
    lua_close(L);
    return iRet;
}
