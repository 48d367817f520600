/* Readable text for database values: a journaled write as one line, with each field under its
 * column name; text quoted, bitmaps as the ranges of their set bits, numbers in decimal. */
#include <stdio.h>

#include "ecm_capi.h"
#include "vlanlua_cmd.h"

namespace {

void AppendText(std::string *pstrOut, const uint8_t *pucBytes, uint32_t uiLen)
{
    pstrOut->push_back('"');
    for (uint32_t i = 0; i < uiLen && pucBytes[i] != 0; i++) {
        uint8_t ucByte = pucBytes[i];
        if (ucByte < 0x20 || ucByte >= 0x7F || ucByte == '"' || ucByte == '\\') {
            char acEsc[8];
            snprintf(acEsc, sizeof(acEsc), "\\x%02X", ucByte);
            pstrOut->append(acEsc);
        } else {
            pstrOut->push_back(static_cast<char>(ucByte));
        }
    }
    pstrOut->push_back('"');
}

bool BitSet(const uint8_t *pucBytes, uint32_t uiBit)
{
    return ((pucBytes[uiBit / 8] >> (uiBit % 8)) & 1u) != 0;
}

/* {1-10,20}. */
void AppendBitRanges(std::string *pstrOut, const uint8_t *pucBytes, uint32_t uiLen)
{
    pstrOut->push_back('{');
    bool bFirst = true;
    for (const auto &range : Cmd_BitRanges(pucBytes, uiLen)) {
        char acRange[32];
        snprintf(acRange, sizeof(acRange), range.second == range.first ? "%s%u" : "%s%u-%u", bFirst ? "" : ",",
                 range.first, range.second);
        pstrOut->append(acRange);
        bFirst = false;
    }
    pstrOut->push_back('}');
}

void AppendValue(std::string *pstrOut, const ECM_CTL_FIELD_S *pstField, const ECM_CTL_VAL_S &stVal)
{
    if (pstField != nullptr && pstField->ucType == ECM_TYPE_BITMAP) {
        AppendBitRanges(pstrOut, stVal.pucBytes, stVal.uiLen);
    } else if (pstField != nullptr && ECM_CTL_IsByteType(pstField->ucType)) {
        AppendText(pstrOut, stVal.pucBytes, stVal.pucBytes != nullptr ? stVal.uiLen : 0);
    } else {
        pstrOut->append(std::to_string(stVal.ulNum));
    }
}

}  // namespace

std::vector<std::pair<uint32_t, uint32_t>> Cmd_BitRanges(const uint8_t *pucBytes, uint32_t uiLen)
{
    std::vector<std::pair<uint32_t, uint32_t>> vecRanges;
    uint32_t uiBits = pucBytes != nullptr ? uiLen * 8 : 0;
    for (uint32_t v = 0; v < uiBits; v++) {
        if (!BitSet(pucBytes, v)) {
            continue;
        }
        uint32_t uiEnd = v;
        while (uiEnd + 1 < uiBits && BitSet(pucBytes, uiEnd + 1)) {
            uiEnd++;
        }
        vecRanges.emplace_back(v, uiEnd);
        v = uiEnd;
    }
    return vecRanges;
}

std::string Cmd_QuotedText(const std::string &strBytes)
{
    std::string strOut;
    AppendText(&strOut, reinterpret_cast<const uint8_t *>(strBytes.data()), static_cast<uint32_t>(strBytes.size()));
    return strOut;
}

const char *Cmd_ShortName(const char *pcColumn)
{
    const char *pc = pcColumn;
    if (*pc++ != 'f') {
        return pcColumn;
    }
    while (*pc >= '0' && *pc <= '9') {
        pc++;
    }
    return *pc == '_' ? pc + 1 : pcColumn;
}

std::string Cmd_RowColumns(const CmdRow &stRow)
{
    std::string strLine;
    for (const CmdValue &v : stRow.vecValues) {
        ECM_CTL_VAL_S stVal{v.pstField->ucFieldNo, static_cast<uint32_t>(v.strBytes.size()), v.ulNum,
                            reinterpret_cast<const uint8_t *>(v.strBytes.data())};
        strLine.append(strLine.empty() ? "" : " ").append(v.pstField->pcName).append("=");
        AppendValue(&strLine, v.pstField, stVal);
    }
    return strLine;
}

std::string Cmd_WriteLine(const ECM_CTL_JOURNAL_S &stEntry)
{
    static const char *const apcOps[] = {"?", "insert", "set", "delete"};
    std::string strLine = apcOps[stEntry.uiOp <= ECM_JOURNAL_DELETE ? stEntry.uiOp : 0];
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(stEntry.uiTableId);
    char acId[16];
    snprintf(acId, sizeof(acId), "0x%08X", stEntry.uiTableId);
    strLine.append(" ").append(pstTable != nullptr ? pstTable->pcName : acId);
    for (uint32_t i = 0; i < stEntry.uiFieldNum; i++) {
        const ECM_CTL_VAL_S &stVal = stEntry.pstFields[i];
        const ECM_CTL_FIELD_S *pstField = ECM_CTL_FindField(pstTable, stVal.uiFieldNo);
        strLine.append(" ");
        if (pstField != nullptr) {
            strLine.append(pstField->pcName);
        } else {
            strLine.append("f").append(std::to_string(stVal.uiFieldNo));
        }
        strLine.append("=");
        AppendValue(&strLine, pstField, stVal);
    }
    return strLine;
}
