/* Rows, values and writes as JSON, with the nlohmann JSON library. */
#include <stdio.h>

#include "ecm_capi.h"
#include "vlanlua_json.h"

namespace {

CmdJson ValueOf(const CmdValue &v)
{
    ECM_CTL_VAL_S stVal{v.pstField != nullptr ? v.pstField->ucFieldNo : 0u, static_cast<uint32_t>(v.strBytes.size()),
                        v.ulNum, reinterpret_cast<const uint8_t *>(v.strBytes.data())};
    return Cmd_JsonValue(v.pstField, stVal);
}

bool IsKeyField(const ECM_CTL_TABLE_S *pstTable, const ECM_CTL_FIELD_S *pstField)
{
    for (uint32_t i = 0; i < pstTable->uiKeyNum; i++) {
        if (pstTable->aucKey[i] == pstField->ucFieldNo) {
            return true;
        }
    }
    return pstTable->uiKeyNum == 0;
}

}  // namespace

CmdJson Cmd_JsonDocument(const char *pcView)
{
    CmdJson stDoc;
    stDoc["format"] = CMD_JSON_FORMAT;
    stDoc["view"] = pcView;
    return stDoc;
}

CmdJson Cmd_JsonValue(const ECM_CTL_FIELD_S *pstField, const ECM_CTL_VAL_S &stVal)
{
    if (pstField == nullptr || !ECM_CTL_IsByteType(pstField->ucType)) {
        return stVal.ulNum;
    }
    uint32_t uiLen = stVal.pucBytes != nullptr ? stVal.uiLen : 0;
    if (pstField->ucType == ECM_TYPE_BITMAP) {
        CmdJson stRanges = CmdJson::array();
        for (const auto &range : Cmd_BitRanges(stVal.pucBytes, uiLen)) {
            stRanges.push_back({range.first, range.second});
        }
        return stRanges;
    }
    std::string strText(reinterpret_cast<const char *>(stVal.pucBytes), uiLen);
    return strText.substr(0, strText.find('\0'));
}

CmdJson Cmd_JsonFields(const CmdRow &stRow)
{
    CmdJson stFields = CmdJson::object();
    for (const CmdValue &v : stRow.vecValues) {
        stFields[v.pstField->pcName] = ValueOf(v);
    }
    return stFields;
}

CmdJson Cmd_JsonKey(const CmdRow &stRow)
{
    CmdJson stKey = CmdJson::object();
    for (const CmdValue &v : stRow.vecValues) {
        if (IsKeyField(stRow.pstTable, v.pstField)) {
            stKey[v.pstField->pcName] = ValueOf(v);
        }
    }
    return stKey;
}

CmdJson Cmd_JsonRow(const CmdRow &stRow)
{
    CmdJson stJson;
    stJson["row"] = stRow.uiNo;
    stJson["kind"] = stRow.eKind < KIND_NUM ? Cmd_KindInfo(stRow.eKind).pcShort : "";
    stJson["table"] = stRow.pstTable->pcName;
    stJson["fields"] = Cmd_JsonFields(stRow);
    if (stRow.eKind == KIND_UVLAN_QINQ) {
        CmdJson stSvcs = CmdJson::object();
        for (const auto &svc : stRow.vecServices) {
            stSvcs["svc" + std::to_string(svc.first)] = svc.second;
        }
        stJson["services"] = stSvcs;
    }
    if (stRow.eKind == KIND_UVLAN_QINQ || stRow.eKind == KIND_QINQ_MATCH) {
        stJson["damaged"] = Cmd_RowBackwards(stRow);
    }
    return stJson;
}

CmdJson Cmd_JsonWrite(const ECM_CTL_JOURNAL_S &stEntry)
{
    static const char *const apcOps[] = {"?", "insert", "set", "delete"};
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(stEntry.uiTableId);
    CmdJson stJson;
    stJson["op"] = apcOps[stEntry.uiOp <= ECM_JOURNAL_DELETE ? stEntry.uiOp : 0];
    stJson["table"] = pstTable != nullptr ? pstTable->pcName : std::to_string(stEntry.uiTableId);
    CmdJson stFields = CmdJson::object();
    for (uint32_t i = 0; i < stEntry.uiFieldNum; i++) {
        const ECM_CTL_FIELD_S *pstField = ECM_CTL_FindField(pstTable, stEntry.pstFields[i].uiFieldNo);
        std::string strName = pstField != nullptr ? pstField->pcName : std::string("f").append(std::to_string(stEntry.pstFields[i].uiFieldNo));
        stFields[strName] = Cmd_JsonValue(pstField, stEntry.pstFields[i]);
    }
    stJson["fields"] = stFields;
    return stJson;
}

void Cmd_PrintJson(const CmdJson &stDoc)
{
    std::string strText = stDoc.dump(2, ' ', false, CmdJson::error_handler_t::replace);
    fputs((strText + "\n").c_str(), stdout);
}
