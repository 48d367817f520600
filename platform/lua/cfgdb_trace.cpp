/* cfgdb's db:trace: the recorded calls of a database object as Lua tables. */
#include "cfgdb.h"
#include "ecm_ctl.h"

namespace {

void SetNumber(lua_State *L, const char *pcKey, double dValue)
{
    lua_pushnumber(L, dValue);
    lua_setfield(L, -2, pcKey);
}

void PushTraceValues(lua_State *L, const ECM_CTL_TRACE_STMT_S &stStmt)
{
    lua_createtable(L, static_cast<int>(stStmt.uiValNum), 0);
    for (uint32_t i = 0; i < stStmt.uiValNum; i++) {
        const ECM_CTL_TRACE_VAL_S &stVal = stStmt.pstVals[i];
        if (stVal.uiLen == 0) {
            lua_pushinteger(L, static_cast<lua_Integer>(stVal.llNum));
        } else {
            lua_pushlstring(L, reinterpret_cast<const char *>(stVal.pucBytes), stVal.uiLen);
        }
        lua_rawseti(L, -2, static_cast<int>(i) + 1);
    }
}

void PushTraceOp(lua_State *L, const ECM_CTL_TRACE_OP_S &stOp)
{
    lua_createtable(L, 0, 6);
    CfgDb_SetText(L, "op", ECM_CTL_TraceOpName(stOp.uiOp));
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(stOp.uiTableId);
    if (pstTable != nullptr) {
        CfgDb_SetText(L, "table", pstTable->pcName);
    }
    CfgDb_SetInt(L, "result", stOp.uiResult);
    CfgDb_SetInt(L, "rows", stOp.ulRows);
    SetNumber(L, "us", static_cast<double>(stOp.ulNs) / 1e3);
    lua_createtable(L, static_cast<int>(stOp.uiStmtNum), 0);
    for (uint32_t i = 0; i < stOp.uiStmtNum; i++) {
        const ECM_CTL_TRACE_STMT_S &stStmt = stOp.pstStmts[i];
        lua_createtable(L, 0, 4);
        CfgDb_SetText(L, "sql", stStmt.pcSql);
        PushTraceValues(L, stStmt);
        lua_setfield(L, -2, "values");
        CfgDb_SetInt(L, "rows", stStmt.ulRows);
        SetNumber(L, "us", static_cast<double>(stStmt.ulNs) / 1e3);
        lua_rawseti(L, -2, static_cast<int>(i) + 1);
    }
    lua_setfield(L, -2, "statements");
}

}  // namespace

/* Pushes the recorded calls as a list and takes them out of the recording. */
void CfgDb_PushTrace(lua_State *L, void *pObj)
{
    uint32_t uiNum = ECM_CTL_TraceCount(pObj);
    lua_createtable(L, static_cast<int>(uiNum), 0);
    for (uint32_t i = 0; i < uiNum; i++) {
        ECM_CTL_TRACE_CALL_S stCall;
        (void)ECM_CTL_TraceGet(pObj, i, &stCall);
        lua_createtable(L, 0, 3);
        CfgDb_SetText(L, "name", stCall.pcName);
        SetNumber(L, "us", static_cast<double>(stCall.ulNs) / 1e3);
        lua_createtable(L, static_cast<int>(stCall.uiOpNum), 0);
        for (uint32_t k = 0; k < stCall.uiOpNum; k++) {
            PushTraceOp(L, stCall.pstOps[k]);
            lua_rawseti(L, -2, static_cast<int>(k) + 1);
        }
        lua_setfield(L, -2, "ops");
        lua_rawseti(L, -2, static_cast<int>(i) + 1);
    }
    ECM_CTL_TraceClear(pObj);
}

