/* Runs one configuration script on a fresh engine state bound to the database object, the way the
 * stock interpreter runs a script file. However the script ends (it returns, raises, calls
 * os.exit, or the process is told to stop) its unit of work is kept or rolled back as a whole:
 * os.exit is replaced by a function that ends the script like an error does, and SIGINT and SIGTERM
 * stop it at its next instruction. Uses only Lua C API functions that every engine has. */
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "sysdt_lua.h"  /* the engine's headers with C linkage, whichever engine it is */

#include "vlanlua_cmd.h"
#include "vlanlua_json.h"

namespace {

/* How the running script ended other than by returning or raising. One script runs per process. */
struct ScriptEnd {
    bool bExited = false;           /* it called os.exit */
    int iStatus = 0;                /* with this status */
};
ScriptEnd g_stEnd;
volatile sig_atomic_t g_iSignal = 0;    /* the signal that stopped it, 0 for none */
lua_State *volatile g_pRunning = nullptr;

/* os.exit([code]): true or no code is 0, false is 1. Raises a value no script can make, so the
 * chunk ends as if it raised, and remembers the status; a pcall of the script that catches it
 * does not undo the exit. */
int ExitScript(lua_State *L)
{
    g_stEnd.bExited = true;
    g_stEnd.iStatus = lua_isnoneornil(L, 1) ? 0 : lua_isboolean(L, 1) ? (lua_toboolean(L, 1) ? 0 : 1)
                                                                        : static_cast<int>(lua_tonumber(L, 1));
    lua_pushlightuserdata(L, &g_stEnd);
    return lua_error(L);
}

void StopHook(lua_State *L, lua_Debug *)
{
    lua_sethook(L, nullptr, 0, 0);
    lua_pushlightuserdata(L, &g_stEnd);
    lua_error(L);
}

/* As the stock interpreter does: the hook stops the script at its next call, return or instruction,
 * and a second signal ends the process at once (code the JIT compiled does not call hooks). Either
 * way the script's unit is not committed, so nothing of it is kept. */
void OnSignal(int iSignal)
{
    g_iSignal = iSignal;
    signal(iSignal, SIG_DFL);
    if (g_pRunning != nullptr) {
        lua_sethook(g_pRunning, StopHook, LUA_MASKCALL | LUA_MASKRET | LUA_MASKCOUNT, 1);
    }
}

void CatchSignals(lua_State *L, bool bOn)
{
    g_pRunning = bOn ? L : nullptr;
    struct sigaction stAct;
    memset(&stAct, 0, sizeof(stAct));
    stAct.sa_handler = bOn ? OnSignal : SIG_DFL;
    sigemptyset(&stAct.sa_mask);
    sigaction(SIGINT, &stAct, nullptr);
    sigaction(SIGTERM, &stAct, nullptr);
}

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

/* debug.traceback as the message handler: it hands a value that is not a text back untouched. */
void PushTraceback(lua_State *L)
{
    lua_getglobal(L, "debug");
    lua_getfield(L, -1, "traceback");
    lua_remove(L, -2);
}

void ReportError(lua_State *L, const char *pcWhat)
{
    if (lua_touserdata(L, -1) == &g_stEnd) {
        return;     /* os.exit or a signal: reported by how the run ends */
    }
    const char *pcMsg = lua_tostring(L, -1);
    fprintf(stderr, "vlanlua: %s%s\n", pcWhat,
            pcMsg != nullptr ? pcMsg : lua_typename(L, lua_type(L, -1)));
}

/* Runs the loaded chunk with the script's arguments; false after reporting why it failed. Whether
 * it ended through os.exit or a signal is in g_stEnd and g_iSignal. */
bool RunChunk(lua_State *L, const CmdScript &stScript)
{
    int iArgs = stScript.iArgc - stScript.iScriptAt - 1;
    if (!lua_checkstack(L, iArgs + 2)) {
        fputs("vlanlua: too many script arguments\n", stderr);
        return false;
    }
    int iChunk = lua_gettop(L);
    PushTraceback(L);
    lua_insert(L, iChunk);
    for (int i = 1; i <= iArgs; i++) {
        lua_pushstring(L, stScript.ppcArgv[stScript.iScriptAt + i]);
    }
    CatchSignals(L, true);
    int iRet = lua_pcall(L, iArgs, 0, iChunk);
    CatchSignals(L, false);
    if (iRet != 0) {
        ReportError(L, stScript.eMode == CMD_DRY_RUN ? "dry run rolled back: " : "");
    }
    return iRet == 0 && !g_stEnd.bExited && g_iSignal == 0;
}

/* What the command prints after the script: a dry run's writes (the journal entries from uiFirst
 * on) when bWrites, the trace of its calls when bTrace; as text, or as one JSON document. */
void PrintReport(void *pObj, uint32_t uiFirst, bool bWrites, bool bTrace, bool bJson, int iStatus)
{
    CmdJson stDoc = Cmd_JsonDocument(bWrites ? "dry-run" : "trace");
    stDoc["status"] = iStatus;
    if (bWrites) {
        stDoc["writes"] = CmdJson::array();
    }
    uint32_t uiNum = bWrites ? ECM_CTL_JournalCount(pObj) : 0;
    for (uint32_t i = uiFirst; i < uiNum; i++) {
        ECM_CTL_JOURNAL_S stEntry;
        if (ECM_CTL_JournalGet(pObj, i, &stEntry) != 0) {
            continue;
        } else if (bJson) {
            stDoc["writes"].push_back(Cmd_JsonWrite(stEntry));
        } else {
            fputs((Cmd_WriteLine(stEntry) + "\n").c_str(), stdout);
        }
    }
    if (bTrace && bJson) {
        stDoc["trace"] = Cmd_JsonTrace(pObj);
    } else if (bTrace) {
        Cmd_PrintTrace(pObj);
    }
    if (bJson && (bWrites || bTrace)) {
        Cmd_PrintJson(stDoc);
    }
}

/* While it lives, what the script prints goes to standard error, so that standard output holds
 * the JSON document alone. */
class ScriptOutputAside {
public:
    explicit ScriptOutputAside(bool bAside) : m_iSaved(bAside ? dup(STDOUT_FILENO) : -1)
    {
        if (m_iSaved >= 0) {
            fflush(stdout);
            dup2(STDERR_FILENO, STDOUT_FILENO);
        }
    }
    ~ScriptOutputAside()
    {
        fflush(stdout);     /* the script's own output comes before the report */
        if (m_iSaved >= 0) {
            dup2(m_iSaved, STDOUT_FILENO);
            close(m_iSaved);
        }
    }
    ScriptOutputAside(const ScriptOutputAside &) = delete;
    ScriptOutputAside &operator=(const ScriptOutputAside &) = delete;

private:
    int m_iSaved;
};

/* The exit status of a script that ran to its end (bRan), called os.exit, raised or was stopped. */
int ScriptStatus(bool bRan)
{
    if (g_iSignal != 0) {
        return 128 + g_iSignal;
    }
    return bRan ? 0 : g_stEnd.bExited ? g_stEnd.iStatus : CMD_EXIT_FAIL;
}

const char *SignalName()
{
    return g_iSignal == SIGINT ? "SIGINT" : "SIGTERM";
}

/* Each call keeps its own writes; a script that raises keeps those of the calls before. */
int RunEachCall(lua_State *L, void *pObj, const CmdScript &stScript, bool bJson)
{
    bool bRan = false;
    {
        ScriptOutputAside stAside(bJson);
        bRan = RunChunk(L, stScript);
    }
    int iStatus = ScriptStatus(bRan);
    PrintReport(pObj, 0, false, stScript.bTrace, bJson, iStatus);
    if (g_iSignal != 0) {
        fprintf(stderr, "vlanlua: stopped by %s; the calls made before keep their changes\n", SignalName());
    } else if (iStatus != 0 && !g_stEnd.bExited) {
        fputs("vlanlua: the calls made before the error keep their changes\n", stderr);
    }
    return iStatus;
}

/* What happened to the script's writes, when they were not kept. */
void ReportNotKept(bool bDry, int iStatus)
{
    if (g_iSignal != 0) {
        fprintf(stderr, "vlanlua: stopped by %s; %s\n", SignalName(), bDry ? "the dry run was rolled back" : "nothing was changed");
    } else if (!bDry && g_stEnd.bExited) {
        fprintf(stderr, "vlanlua: the script exited with status %d; nothing was changed\n", iStatus);
    } else if (!bDry) {
        fputs("vlanlua: nothing was changed\n", stderr);
    }
}

/* The script inside one outer unit of work: committed when it ends or exits with status 0, rolled
 * back when it raises, exits otherwise, is stopped, or is a dry run. A call inside joins the unit,
 * so a raise undoes the calls before it too. A dry run lists its writes unless it raised; the trace
 * is printed however the script ended. */
int RunInUnit(lua_State *L, void *pObj, const CmdScript &stScript, bool bJson)
{
    uint32_t uiFirst = ECM_CTL_JournalCount(pObj);
    uint32_t uiRet = ECM_CTL_UnitBegin(pObj);
    if (uiRet != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot start the change: %s\nvlanlua: nothing was changed\n",
                uiRet == ECM_ERR_BUSY ? "another process held the database past the busy timeout"
                                      : ECM_CTL_LastError(pObj));
        return CMD_EXIT_FAIL;
    }
    bool bDry = stScript.eMode == CMD_DRY_RUN;
    bool bRan = false;
    {
        ScriptOutputAside stAside(bJson);
        bRan = RunChunk(L, stScript);
    }
    int iStatus = ScriptStatus(bRan);
    bool bWrites = bDry && g_iSignal == 0 && (bRan || g_stEnd.bExited);
    PrintReport(pObj, uiFirst, bWrites, stScript.bTrace, bJson, iStatus);
    bool bCommit = !bDry && iStatus == 0;
    if (ECM_CTL_UnitEnd(pObj, bCommit ? 1 : 0) != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot %s the script's writes: %s\n", bCommit ? "commit" : "roll back",
                ECM_CTL_LastError(pObj));
        bCommit = false;
        iStatus = iStatus == 0 ? CMD_EXIT_FAIL : iStatus;
    }
    if (!bCommit) {
        ReportNotKept(bDry, iStatus);
    }
    return iStatus;
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

void *Cmd_LoadScript(const CmdScript &stScript)
{
    lua_State *L = luaL_newstate();
    if (L == nullptr) {
        fputs("vlanlua: cannot create the engine state\n", stderr);
        return nullptr;
    }
    const char *pcFile = strcmp(stScript.pcPath, "-") == 0 ? nullptr : stScript.pcPath;
    if (luaL_loadfile(L, pcFile) != 0) {
        ReportError(L, "");
        lua_close(L);
        return nullptr;
    }
    return L;
}

int Cmd_RunScript(void *pState, void *pObj, const CmdScript &stScript, bool bJson)
{
    lua_State *L = static_cast<lua_State *>(pState);
    if (pObj == nullptr) {
        lua_close(L);
        return CMD_EXIT_FAIL;
    }
    luaL_openlibs(L);
    Cmd_SetModulePath(L);
    SetArgTable(L, stScript);
    lua_getglobal(L, "os");
    lua_pushcfunction(L, ExitScript);
    lua_setfield(L, -2, "exit");
    lua_pop(L, 1);
    ECM_CTL_Bind(L, pObj);
    if (stScript.bTrace) {
        ECM_CTL_Trace(pObj, 1, SysdtLua_CallName);
    }
    int iRet = stScript.eMode == CMD_EACH_CALL ? RunEachCall(L, pObj, stScript, bJson)
                                               : RunInUnit(L, pObj, stScript, bJson);
    ECM_CTL_Unbind(L);
    lua_close(L);
    return iRet;
}
