/* Lua binding "cfgdb": scripts and tests open, bind, fill, inspect and fault configuration databases.
 * Checks every argument before changing anything, and raises Lua errors only where no C++ object is alive. */
#include <stdio.h>
#include <string.h>

#include <vector>

#include "ecm_capi.h"
#include "ecm_ctl.h"
#include "mox_ctl.h"
#include "cfgdb.h"
#include "sysdt_lua.h"

namespace {

const char *const DB_META = "cfgdb.db";
constexpr size_t ERR_LEN = 256;

struct DbBox {
    void *pObj;
};

void *CheckDb(lua_State *L)
{
    DbBox *pstBox = static_cast<DbBox *>(luaL_checkudata(L, 1, DB_META));
    if (pstBox->pObj == nullptr) {
        luaL_error(L, "cfgdb: database is closed");
    }
    return pstBox->pObj;
}

lua_State *MainThread(lua_State *L)
{
    return SysdtLua_MainThread(L);
}

/* A table given by its name or its identifier. */
const ECM_CTL_TABLE_S *CheckTable(lua_State *L, int iArg)
{
    if (lua_type(L, iArg) == LUA_TSTRING) {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTableByName(lua_tostring(L, iArg));
        if (pstTable == nullptr) {
            luaL_error(L, "cfgdb: unknown table %s", lua_tostring(L, iArg));
        }
        return pstTable;
    }
    lua_Integer llTid = SysdtLua_CheckInteger(L, iArg);
    const ECM_CTL_TABLE_S *pstTable =
        (llTid >= 0 && llTid <= 0xFFFFFFFFLL) ? ECM_CTL_FindTable(static_cast<uint32_t>(llTid)) : nullptr;
    if (pstTable == nullptr) {
        char acErr[64];
        snprintf(acErr, sizeof(acErr), "cfgdb: unknown table 0x%08llX", static_cast<unsigned long long>(llTid));
        luaL_error(L, "%s", acErr);
    }
    return pstTable;
}

/* Reads the value at the top of the stack for one field; false with a reason when it does not fit. */
bool ReadValue(lua_State *L, const ECM_CTL_TABLE_S *pstTable, const ECM_CTL_FIELD_S *pstField, ECM_CTL_VAL_S *pstVal,
               char *pcErr)
{
    *pstVal = {pstField->ucFieldNo, 0, 0, nullptr};
    if (ECM_CTL_IsByteType(pstField->ucType)) {
        if (lua_type(L, -1) != LUA_TSTRING) {
            snprintf(pcErr, ERR_LEN, "cfgdb: %s.%s wants a string, got %s", pstTable->pcName,
                     pstField->pcScriptName, luaL_typename(L, -1));
            return false;
        }
        size_t ulLen = 0;
        pstVal->pucBytes = reinterpret_cast<const uint8_t *>(lua_tolstring(L, -1, &ulLen));
        pstVal->uiLen = static_cast<uint32_t>(ulLen);
        if (ulLen > pstField->usWidth) {
            snprintf(pcErr, ERR_LEN, "cfgdb: %s.%s takes at most %u bytes, got %zu", pstTable->pcName,
                     pstField->pcScriptName, pstField->usWidth, ulLen);
            return false;
        }
        return true;
    }
    int iIsInt = 0;
    lua_Integer llValue = SysdtLua_ToIntegerX(L, -1, &iIsInt);
    if (!iIsInt || lua_type(L, -1) != LUA_TNUMBER) {
        snprintf(pcErr, ERR_LEN, "cfgdb: %s.%s wants an integer, got %s", pstTable->pcName,
                 pstField->pcScriptName, luaL_typename(L, -1));
        return false;
    }
    uint64_t ulMax = (pstField->usWidth >= 8) ? UINT64_MAX : ((1ULL << (8 * pstField->usWidth)) - 1);
    if (llValue < 0 || static_cast<uint64_t>(llValue) > ulMax) {
        snprintf(pcErr, ERR_LEN, "cfgdb: %s.%s value %lld out of range 0..%llu", pstTable->pcName,
                 pstField->pcScriptName, static_cast<long long>(llValue), static_cast<unsigned long long>(ulMax));
        return false;
    }
    pstVal->ulNum = static_cast<uint64_t>(llValue);
    return true;
}

/* The field a key of a fields table names: its number or its name. */
const ECM_CTL_FIELD_S *FieldOfKey(lua_State *L, int iKey, const ECM_CTL_TABLE_S *pstTable)
{
    if (lua_type(L, iKey) == LUA_TSTRING) {
        return ECM_CTL_FindFieldByName(pstTable, lua_tostring(L, iKey));
    }
    int iIsInt = 0;
    lua_Integer llField = (lua_type(L, iKey) == LUA_TNUMBER) ? SysdtLua_ToIntegerX(L, iKey, &iIsInt) : 0;
    return (iIsInt && llField > 0 && llField < 256) ? ECM_CTL_FindField(pstTable, static_cast<uint32_t>(llField))
                                                    : nullptr;
}

/* Reads {[field]=value} at iArg (absent or nil: no values) into pstVals; false with a reason. Fields
 * are given by number or by name. */
bool ReadFields(lua_State *L, int iArg, const ECM_CTL_TABLE_S *pstTable, std::vector<ECM_CTL_VAL_S> *pvecVals,
                char *pcErr)
{
    if (lua_isnoneornil(L, iArg)) {
        return true;
    }
    if (!lua_istable(L, iArg)) {
        snprintf(pcErr, ERR_LEN, "cfgdb: fields of %s must be a table, got %s", pstTable->pcName,
                 luaL_typename(L, iArg));
        return false;
    }
    lua_pushnil(L);
    while (lua_next(L, iArg) != 0) {
        const ECM_CTL_FIELD_S *pstField = FieldOfKey(L, -2, pstTable);
        if (pstField == nullptr) {
            int iKeyType = lua_type(L, -2);
            snprintf(pcErr, ERR_LEN, "cfgdb: %s has no field %s", pstTable->pcName,
                     iKeyType == LUA_TNUMBER || iKeyType == LUA_TSTRING ? lua_tostring(L, -2) : luaL_typename(L, -2));
            lua_pop(L, 2);
            return false;
        }
        ECM_CTL_VAL_S stVal;
        if (!ReadValue(L, pstTable, pstField, &stVal, pcErr)) {
            lua_pop(L, 2);
            return false;
        }
        pvecVals->push_back(stVal);
        lua_pop(L, 1);
    }
    return true;
}

void PushValue(lua_State *L, const ECM_CTL_FIELD_S *pstField, const ECM_CTL_VAL_S *pstVal)
{
    if (!ECM_CTL_IsByteType(pstField->ucType)) {
        lua_pushinteger(L, static_cast<lua_Integer>(pstVal->ulNum));
        return;
    }
    size_t ulLen = pstVal->uiLen;
    if (pstField->ucType == ECM_TYPE_TEXT && pstVal->pucBytes != nullptr) {
        ulLen = strnlen(reinterpret_cast<const char *>(pstVal->pucBytes), ulLen);
    }
    lua_pushlstring(L, reinterpret_cast<const char *>(pstVal->pucBytes), pstVal->pucBytes != nullptr ? ulLen : 0);
}

/* Pushes {[field]=value} of a list of values of one table. */
void PushFields(lua_State *L, const ECM_CTL_TABLE_S *pstTable, const ECM_CTL_VAL_S *pstVals, uint32_t uiNum)
{
    lua_createtable(L, 0, static_cast<int>(uiNum));
    for (uint32_t i = 0; i < uiNum; i++) {
        PushValue(L, ECM_CTL_FindField(pstTable, pstVals[i].uiFieldNo), &pstVals[i]);
        lua_rawseti(L, -2, pstVals[i].uiFieldNo);
    }
}

struct RowsCtx {
    lua_State *L;
    const ECM_CTL_TABLE_S *pstTable;
    lua_Integer llCount;
};

void OnRow(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum)
{
    RowsCtx *pstCtx = static_cast<RowsCtx *>(pCtx);
    PushFields(pstCtx->L, pstCtx->pstTable, pstFields, uiNum);
    lua_rawseti(pstCtx->L, -2, ++pstCtx->llCount);
}

/* Which control operation a filtered call runs. */
enum CtlOp { CTL_INSERT, CTL_ROWS, CTL_COUNT, CTL_DELETE };

/* Runs one control operation with the fields at argument 3; the result (if any) is pushed. */
bool RunCtl(lua_State *L, void *pObj, CtlOp eOp, const ECM_CTL_TABLE_S *pstTable, char *pcErr)
{
    std::vector<ECM_CTL_VAL_S> vecVals;
    if (!ReadFields(L, 3, pstTable, &vecVals, pcErr)) {
        return false;
    }
    uint32_t uiNum = static_cast<uint32_t>(vecVals.size());
    uint64_t ulCount = 0;
    uint32_t uiRet = ECM_OK;
    if (eOp == CTL_INSERT) {
        uiRet = ECM_CTL_Insert(pObj, pstTable->uiTableId, vecVals.data(), uiNum);
    } else if (eOp == CTL_ROWS) {
        lua_newtable(L);
        RowsCtx stCtx{L, pstTable, 0};
        uiRet = ECM_CTL_Rows(pObj, pstTable->uiTableId, vecVals.data(), uiNum, OnRow, &stCtx);
    } else {
        uiRet = (eOp == CTL_COUNT) ? ECM_CTL_Count(pObj, pstTable->uiTableId, vecVals.data(), uiNum, &ulCount)
                                   : ECM_CTL_Delete(pObj, pstTable->uiTableId, vecVals.data(), uiNum, &ulCount);
        lua_pushinteger(L, static_cast<lua_Integer>(ulCount));
    }
    if (uiRet != ECM_OK) {
        snprintf(pcErr, ERR_LEN, "cfgdb: %s: %s (code 0x%X)", pstTable->pcName, ECM_CTL_LastError(pObj), uiRet);
        return false;
    }
    return true;
}

int CtlEntry(lua_State *L, CtlOp eOp)
{
    void *pObj = CheckDb(L);
    const ECM_CTL_TABLE_S *pstTable = CheckTable(L, 2);
    char acErr[ERR_LEN];
    int iTop = lua_gettop(L);
    if (!RunCtl(L, pObj, eOp, pstTable, acErr)) {
        return luaL_error(L, "%s", acErr);
    }
    return lua_gettop(L) - iTop;
}

/* ---- Methods ---- */

int DbInsert(lua_State *L) { return CtlEntry(L, CTL_INSERT); }
int DbRows(lua_State *L) { return CtlEntry(L, CTL_ROWS); }
int DbCount(lua_State *L) { return CtlEntry(L, CTL_COUNT); }
int DbDelete(lua_State *L) { return CtlEntry(L, CTL_DELETE); }

int DbBind(lua_State *L)
{
    ECM_CTL_Bind(MainThread(L), CheckDb(L));
    return 0;
}

int DbClose(lua_State *L)
{
    DbBox *pstBox = static_cast<DbBox *>(luaL_checkudata(L, 1, DB_META));
    ECM_CTL_Close(pstBox->pObj);
    pstBox->pObj = nullptr;
    return 0;
}

uint32_t CheckCount(lua_State *L)
{
    lua_Integer llN = SysdtLua_CheckInteger(L, 2);
    luaL_argcheck(L, llN >= 0 && llN <= 0xFFFFFFFFLL, 2, "count out of range");
    return static_cast<uint32_t>(llN);
}

int DbFailAlloc(lua_State *L)
{
    void *pObj = CheckDb(L);
    ECM_CTL_FailAlloc(pObj, CheckCount(L));
    return 0;
}

int DbFailCall(lua_State *L)
{
    void *pObj = CheckDb(L);
    ECM_CTL_FailCall(pObj, CheckCount(L));
    return 0;
}

int DbMem(lua_State *L)
{
    MOX_STATS_S stStats;
    MOX_GetStats(ECM_CTL_MemHandle(CheckDb(L)), &stStats);
    lua_createtable(L, 0, 5);
    CfgDb_SetInt(L, "live", stStats.ulLiveBlocks);
    CfgDb_SetInt(L, "live_bytes", stStats.ulLiveBytes);
    CfgDb_SetInt(L, "peak", stStats.ulPeakBytes);
    CfgDb_SetInt(L, "total", stStats.ulTotalAllocs);
    CfgDb_SetInt(L, "asserts", stStats.ulAsserts);
    return 1;
}

/* Pushes the journal entries from uiFirst on as a list and takes them out of the journal. */
void PushJournal(lua_State *L, void *pObj, uint32_t uiFirst)
{
    static const char *const apcOps[] = {"?", "insert", "set", "delete"};
    uint32_t uiNum = ECM_CTL_JournalCount(pObj);
    lua_createtable(L, static_cast<int>(uiNum > uiFirst ? uiNum - uiFirst : 0), 0);
    for (uint32_t i = uiFirst; i < uiNum; i++) {
        ECM_CTL_JOURNAL_S stEntry;
        ECM_CTL_JournalGet(pObj, i, &stEntry);
        lua_createtable(L, 0, 4);
        lua_pushstring(L, apcOps[stEntry.uiOp <= ECM_JOURNAL_DELETE ? stEntry.uiOp : 0]);
        lua_setfield(L, -2, "op");
        CfgDb_SetInt(L, "table", stEntry.uiTableId);
        CfgDb_SetInt(L, "flag", stEntry.uiFlag);
        PushFields(L, ECM_CTL_FindTable(stEntry.uiTableId), stEntry.pstFields, stEntry.uiFieldNum);
        lua_setfield(L, -2, "fields");
        lua_rawseti(L, -2, static_cast<int>(i - uiFirst) + 1);
    }
    ECM_CTL_JournalTruncate(pObj, uiFirst);
}

int DbJournal(lua_State *L)
{
    PushJournal(L, CheckDb(L), 0);
    return 1;
}

/* ---- Trace of the client operations ---- */

/* db:trace(true) records anew, db:trace(false) stops and hands over what was recorded, db:trace()
 * hands it over and records on. */
int DbTrace(lua_State *L)
{
    void *pObj = CheckDb(L);
    if (lua_isnoneornil(L, 2)) {
        CfgDb_PushTrace(L, pObj);
        return 1;
    }
    luaL_checktype(L, 2, LUA_TBOOLEAN);
    if (lua_toboolean(L, 2)) {
        ECM_CTL_Trace(pObj, 1, SysdtLua_CallName);
        return 0;
    }
    ECM_CTL_Trace(pObj, 0, nullptr);
    CfgDb_PushTrace(L, pObj);
    return 1;
}

/* ---- Units of work from a script ---- */

/* Runs fn(...) (arguments 2..) inside an outer unit of the database and ends the unit: commits
 * when bCommit and fn returned, else rolls back. fn's results stay on the stack above the
 * database. When fn raises or the commit fails, the writes leave the journal and the error is
 * raised; a dry run takes its entries out itself. */
int RunInUnit(lua_State *L, bool bCommit, uint32_t *puiJournal)
{
    void *pObj = CheckDb(L);
    luaL_checktype(L, 2, LUA_TFUNCTION);
    *puiJournal = ECM_CTL_JournalCount(pObj);
    if (ECM_CTL_UnitBegin(pObj) != ECM_OK) {
        return luaL_error(L, "cfgdb: cannot begin a unit of work: %s", ECM_CTL_LastError(pObj));
    }
    bool bOk = lua_pcall(L, lua_gettop(L) - 2, LUA_MULTRET, 0) == 0;
    if (static_cast<DbBox *>(lua_touserdata(L, 1))->pObj != pObj) {
        return luaL_error(L, "cfgdb: the database was closed inside its unit of work");
    }
    if (ECM_CTL_UnitEnd(pObj, bOk && bCommit) != ECM_OK && bOk && bCommit) {
        ECM_CTL_JournalTruncate(pObj, *puiJournal);
        return luaL_error(L, "cfgdb: commit failed, the unit was rolled back: %s", ECM_CTL_LastError(pObj));
    }
    if (!bOk) {
        ECM_CTL_JournalTruncate(pObj, *puiJournal);
        return lua_error(L);
    }
    return lua_gettop(L) - 1;
}

int DbTransaction(lua_State *L)
{
    uint32_t uiJournal = 0;
    return RunInUnit(L, true, &uiJournal);
}

int DbDryRun(lua_State *L)
{
    uint32_t uiJournal = 0;
    (void)RunInUnit(L, false, &uiJournal);
    PushJournal(L, CheckDb(L), uiJournal);
    return 1;
}

int DbGc(lua_State *L)
{
    return DbClose(L);
}

int DbToString(lua_State *L)
{
    DbBox *pstBox = static_cast<DbBox *>(luaL_checkudata(L, 1, DB_META));
    lua_pushfstring(L, "cfgdb.db (%s)", pstBox->pObj != nullptr ? "open" : "closed");
    return 1;
}

/* ---- Module functions ---- */

uint32_t OptId(lua_State *L, int iOpts, const char *pcKey)
{
    if (iOpts == 0) {
        return 0;
    }
    lua_getfield(L, iOpts, pcKey);
    int iIsInt = 0;
    lua_Integer llValue = SysdtLua_ToIntegerX(L, -1, &iIsInt);
    bool bNil = lua_isnil(L, -1);
    lua_pop(L, 1);
    if (bNil) {
        return 0;
    }
    if (!iIsInt || llValue < 0 || llValue > 0xFFFFFFFFLL) {
        luaL_error(L, "cfgdb.open: option %s must be an integer in 0..4294967295", pcKey);
    }
    return static_cast<uint32_t>(llValue);
}

/* The longest wait for a database that others write, in ms; the platform's default when not given. */
uint32_t OptBusyTimeout(lua_State *L, int iOpts)
{
    if (iOpts == 0) {
        return ECM_BUSY_TIMEOUT_DEFAULT;
    }
    lua_getfield(L, iOpts, "busy_timeout");
    bool bGiven = !lua_isnil(L, -1);
    lua_pop(L, 1);
    return bGiven ? OptId(L, iOpts, "busy_timeout") : ECM_BUSY_TIMEOUT_DEFAULT;
}

int Open(lua_State *L)
{
    int iOpts = lua_istable(L, 1) ? 1 : (lua_istable(L, 2) ? 2 : 0);
    const char *pcPath = (iOpts == 1 || lua_isnoneornil(L, 1)) ? nullptr : luaL_checkstring(L, 1);
    if (iOpts == 0 && !lua_isnoneornil(L, 2)) {
        SysdtLua_TypeError(L, 2, "table of options");
    }
    uint32_t uiVr = OptId(L, iOpts, "vr");
    uint32_t uiLr = OptId(L, iOpts, "lr");
    uint32_t uiCdb = OptId(L, iOpts, "cdb");
    uint32_t uiBusyMs = OptBusyTimeout(L, iOpts);
    DbBox *pstBox = static_cast<DbBox *>(SysdtLua_NewUserdata(L, sizeof(DbBox)));
    pstBox->pObj = nullptr;
    SysdtLua_SetMetatable(L, DB_META);
    char acErr[ERR_LEN];
    pstBox->pObj = ECM_CTL_OpenEx(pcPath, uiLr, uiVr, uiCdb, uiBusyMs, acErr, sizeof(acErr));
    if (pstBox->pObj == nullptr) {
        return luaL_error(L, "cfgdb.open: %s: %s", pcPath != nullptr ? pcPath : ":memory:", acErr);
    }
    return 1;
}

const char *TypeName(uint32_t uiType)
{
    switch (uiType) {
        case ECM_TYPE_U8: return "u8";
        case ECM_TYPE_U16: return "u16";
        case ECM_TYPE_U32: return "u32";
        case ECM_TYPE_TEXT: return "text";
        case ECM_TYPE_VRID: return "vr";
        default: return "bitmap";
    }
}

void PushFieldDesc(lua_State *L, const ECM_CTL_FIELD_S *pstField)
{
    lua_createtable(L, 0, 5);
    CfgDb_SetInt(L, "no", pstField->ucFieldNo);
    CfgDb_SetText(L, "name", pstField->pcScriptName);
    CfgDb_SetText(L, "type", TypeName(pstField->ucType));
    CfgDb_SetInt(L, "width", pstField->usWidth);
    CfgDb_SetText(L, "column", pstField->pcName);
}

void PushTableDesc(lua_State *L, const ECM_CTL_TABLE_S *pstTable)
{
    lua_createtable(L, 0, 5);
    CfgDb_SetInt(L, "id", pstTable->uiTableId);
    CfgDb_SetText(L, "name", pstTable->pcName);
    CfgDb_SetText(L, "what", pstTable->pcWhat);
    lua_createtable(L, static_cast<int>(pstTable->uiKeyNum), 0);
    for (uint32_t k = 0; k < pstTable->uiKeyNum; k++) {
        lua_pushstring(L, ECM_CTL_FindField(pstTable, pstTable->aucKey[k])->pcScriptName);
        lua_rawseti(L, -2, static_cast<int>(k) + 1);
    }
    lua_setfield(L, -2, "key");
    lua_createtable(L, static_cast<int>(pstTable->uiFieldNum), 0);
    for (uint32_t f = 0; f < pstTable->uiFieldNum; f++) {
        PushFieldDesc(L, &pstTable->pstFields[f]);
        lua_rawseti(L, -2, static_cast<int>(f) + 1);
    }
    lua_setfield(L, -2, "fields");
}

/* cfgdb.tables(): every table of the schema in identifier order, each also under its name:
 * {id, name, what, key = {names}, fields = {{no, name, type, width, column}, ...}}. */
int Tables(lua_State *L)
{
    lua_newtable(L);
    for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_TableAt(i);
        PushTableDesc(L, pstTable);
        lua_pushvalue(L, -1);
        lua_setfield(L, -3, pstTable->pcName);
        lua_rawseti(L, -2, static_cast<int>(i) + 1);
    }
    return 1;
}

int Unbind(lua_State *L)
{
    ECM_CTL_Unbind(MainThread(L));
    return 0;
}

const luaL_Reg g_astMethods[] = {
    {"bind", DbBind},       {"close", DbClose},     {"insert", DbInsert},        {"rows", DbRows},
    {"count", DbCount},     {"delete", DbDelete},   {"journal", DbJournal},      {"mem", DbMem},
    {"fail_alloc", DbFailAlloc}, {"fail_call", DbFailCall}, {"transaction", DbTransaction},
    {"dry_run", DbDryRun},  {"trace", DbTrace},     {nullptr, nullptr}};

const luaL_Reg g_astFuncs[] = {{"open", Open}, {"unbind", Unbind}, {"tables", Tables}, {nullptr, nullptr}};

}  // namespace

void CfgDb_SetInt(lua_State *L, const char *pcKey, uint64_t ulValue)
{
    lua_pushinteger(L, static_cast<lua_Integer>(ulValue));
    lua_setfield(L, -2, pcKey);
}

void CfgDb_SetText(lua_State *L, const char *pcKey, const char *pcValue)
{
    lua_pushstring(L, pcValue);
    lua_setfield(L, -2, pcKey);
}

extern "C" int luaopen_cfgdb(lua_State *L)
{
    SysdtLua_NoteMainThread(L);
    if (luaL_newmetatable(L, DB_META)) {
        SysdtLua_NewLib(L, g_astMethods);
        lua_setfield(L, -2, "__index");
        lua_pushcfunction(L, DbGc);
        lua_setfield(L, -2, "__gc");
        lua_pushcfunction(L, DbToString);
        lua_setfield(L, -2, "__tostring");
    }
    lua_pop(L, 1);
    SysdtLua_NewLib(L, g_astFuncs);
    return 1;
}
