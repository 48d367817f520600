/* --trace: what each script call asked of the database, as text or JSON, from the object's trace. */
#include <stdio.h>

#include <string>

#include "vlanlua_json.h"

namespace {

/* A bound value as SQL writes it: an integer in decimal, bytes as a blob literal x'...'. */
std::string ValueText(const ECM_CTL_TRACE_VAL_S &stVal)
{
    if (stVal.uiLen == 0) {
        return std::to_string(stVal.llNum);
    }
    static const char acHex[] = "0123456789abcdef";
    std::string strText = "x'";
    for (uint32_t i = 0; i < stVal.uiLen; i++) {
        strText += acHex[stVal.pucBytes[i] >> 4];
        strText += acHex[stVal.pucBytes[i] & 0xF];
    }
    return strText + "'";
}

std::string Micros(uint64_t ulNs)
{
    char acBuf[32];
    snprintf(acBuf, sizeof(acBuf), "%.1f us", static_cast<double>(ulNs) / 1e3);
    return acBuf;
}

std::string Rows(uint64_t ulRows)
{
    return std::to_string(ulRows) + (ulRows == 1 ? " row" : " rows");
}

std::string TableName(uint32_t uiTableId)
{
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(uiTableId);
    return pstTable != nullptr ? std::string(" ") + pstTable->pcName : std::string();
}

void PrintStatement(const ECM_CTL_TRACE_STMT_S &stStmt)
{
    std::string strLine = std::string("    ") + stStmt.pcSql;
    for (uint32_t i = 0; i < stStmt.uiValNum; i++) {
        strLine.append(i == 0 ? "  -- " : ", ").append("?").append(std::to_string(i + 1)).append("=");
        strLine.append(ValueText(stStmt.pstVals[i]));
    }
    strLine.append("  [").append(Rows(stStmt.ulRows)).append(", ").append(Micros(stStmt.ulNs)).append("]\n");
    fputs(strLine.c_str(), stdout);
}

void PrintOperation(const ECM_CTL_TRACE_OP_S &stOp)
{
    std::string strLine = std::string("  ") + ECM_CTL_TraceOpName(stOp.uiOp) + TableName(stOp.uiTableId) + ": ";
    if (stOp.uiResult != 0) {
        char acCode[32];
        snprintf(acCode, sizeof(acCode), "failed 0x%X, ", stOp.uiResult);
        strLine += acCode;
    }
    strLine.append(Rows(stOp.ulRows)).append(", ").append(Micros(stOp.ulNs)).append("\n");
    fputs(strLine.c_str(), stdout);
    for (uint32_t i = 0; i < stOp.uiStmtNum; i++) {
        PrintStatement(stOp.pstStmts[i]);
    }
}

CmdJson JsonStatement(const ECM_CTL_TRACE_STMT_S &stStmt)
{
    CmdJson stValues = CmdJson::array();
    for (uint32_t i = 0; i < stStmt.uiValNum; i++) {
        const ECM_CTL_TRACE_VAL_S &stVal = stStmt.pstVals[i];
        if (stVal.uiLen == 0) {
            stValues.push_back(stVal.llNum);
        } else {
            stValues.push_back(ValueText(stVal));
        }
    }
    return {{"sql", stStmt.pcSql}, {"values", stValues}, {"rows", stStmt.ulRows}, {"us", stStmt.ulNs / 1e3}};
}

CmdJson JsonOperation(const ECM_CTL_TRACE_OP_S &stOp)
{
    CmdJson stJson = {{"op", ECM_CTL_TraceOpName(stOp.uiOp)}};
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(stOp.uiTableId);
    stJson["table"] = pstTable != nullptr ? CmdJson(pstTable->pcName) : CmdJson(nullptr);
    stJson["result"] = stOp.uiResult;
    stJson["rows"] = stOp.ulRows;
    stJson["us"] = stOp.ulNs / 1e3;
    stJson["statements"] = CmdJson::array();
    for (uint32_t i = 0; i < stOp.uiStmtNum; i++) {
        stJson["statements"].push_back(JsonStatement(stOp.pstStmts[i]));
    }
    return stJson;
}

}  // namespace

void Cmd_PrintTrace(void *pObj)
{
    uint32_t uiNum = ECM_CTL_TraceCount(pObj);
    for (uint32_t i = 0; i < uiNum; i++) {
        ECM_CTL_TRACE_CALL_S stCall;
        if (ECM_CTL_TraceGet(pObj, i, &stCall) != ECM_OK) {
            continue;
        }
        printf("call %u %s: %u operation%s, %s\n", i + 1, stCall.pcName[0] != '\0' ? stCall.pcName : "(no name)",
               stCall.uiOpNum, stCall.uiOpNum == 1 ? "" : "s", Micros(stCall.ulNs).c_str());
        for (uint32_t k = 0; k < stCall.uiOpNum; k++) {
            PrintOperation(stCall.pstOps[k]);
        }
    }
}

CmdJson Cmd_JsonTrace(void *pObj)
{
    CmdJson stCalls = CmdJson::array();
    uint32_t uiNum = ECM_CTL_TraceCount(pObj);
    for (uint32_t i = 0; i < uiNum; i++) {
        ECM_CTL_TRACE_CALL_S stCall;
        if (ECM_CTL_TraceGet(pObj, i, &stCall) != ECM_OK) {
            continue;
        }
        CmdJson stOps = CmdJson::array();
        for (uint32_t k = 0; k < stCall.uiOpNum; k++) {
            stOps.push_back(JsonOperation(stCall.pstOps[k]));
        }
        stCalls.push_back({{"call", stCall.pcName}, {"us", stCall.ulNs / 1e3}, {"operations", stOps}});
    }
    return stCalls;
}
