/* The user-VLAN QinQ segments of one interface, read through the control side: each segment's PE
 * and CE range with the services of its base and VPN rows, printed as text and drawn as SVG.
 * Columns are found by their names in the schema, so the view follows the schema's field numbers. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "vlanlua_cmd.h"
#include "vlanlua_pub.h"

namespace {

/* Field number of the column whose name (without its "f<number>_" prefix) is pcShort; 0 if none. */
uint32_t ColumnNo(const ECM_CTL_TABLE_S *pstTable, const char *pcShort)
{
    for (uint32_t i = 0; pstTable != nullptr && i < pstTable->uiFieldNum; i++) {
        if (strcmp(Cmd_ShortName(pstTable->pstFields[i].pcName), pcShort) == 0) {
            return pstTable->pstFields[i].ucFieldNo;
        }
    }
    return 0;
}

uint32_t RowValue(const ECM_CTL_VAL_S *pstFields, uint32_t uiNum, uint32_t uiFieldNo)
{
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstFields[i].uiFieldNo == uiFieldNo) {
            return static_cast<uint32_t>(pstFields[i].ulNum);
        }
    }
    return 0;
}

/* ---- Reading ---- */

struct SegColumns {
    uint32_t uiSegIndex, uiPeBgn, uiPeEnd, uiCeBgn, uiCeEnd;
};

struct SegReader {
    SegColumns stCols;
    std::vector<CmdSegment> vecSegs;
};

void OnSegRow(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum)
{
    SegReader *pstReader = static_cast<SegReader *>(pCtx);
    const SegColumns &c = pstReader->stCols;
    CmdSegment stSeg;
    stSeg.uiSegIndex = RowValue(pstFields, uiNum, c.uiSegIndex);
    stSeg.auiPe[0] = RowValue(pstFields, uiNum, c.uiPeBgn);
    stSeg.auiPe[1] = RowValue(pstFields, uiNum, c.uiPeEnd);
    stSeg.auiCe[0] = RowValue(pstFields, uiNum, c.uiCeBgn);
    stSeg.auiCe[1] = RowValue(pstFields, uiNum, c.uiCeEnd);
    pstReader->vecSegs.push_back(stSeg);
}

/* Service number and value of every non-zero "svc<n>" column of a service row. */
struct SvcReader {
    const ECM_CTL_TABLE_S *pstTable;
    std::vector<std::pair<uint32_t, uint32_t>> vecSvcs;
};

void OnSvcRow(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum)
{
    SvcReader *pstReader = static_cast<SvcReader *>(pCtx);
    for (uint32_t i = 0; i < uiNum; i++) {
        const ECM_CTL_FIELD_S *pstField = ECM_CTL_FindField(pstReader->pstTable, pstFields[i].uiFieldNo);
        const char *pcShort = pstField != nullptr ? Cmd_ShortName(pstField->pcName) : "";
        if (strncmp(pcShort, "svc", 3) == 0 && pstFields[i].ulNum != 0) {
            pstReader->vecSvcs.emplace_back(static_cast<uint32_t>(atoi(pcShort + 3)),
                                            static_cast<uint32_t>(pstFields[i].ulNum));
        }
    }
}

/* "svc1=7 svc8=3" in service order, or "none". */
uint32_t ReadServices(void *pObj, CmdSegment *pstSeg)
{
    SvcReader stReader{nullptr, {}};
    for (uint32_t uiTable : {VLANLUA_TBL_UVLAN_BASE_SVC, VLANLUA_TBL_UVLAN_VPN_SVC}) {
        stReader.pstTable = ECM_CTL_FindTable(uiTable);
        ECM_CTL_VAL_S stWhere{ColumnNo(stReader.pstTable, "seg_index"), 0, pstSeg->uiSegIndex, nullptr};
        uint32_t uiRet = ECM_CTL_Rows(pObj, uiTable, &stWhere, 1, OnSvcRow, &stReader);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
    }
    std::sort(stReader.vecSvcs.begin(), stReader.vecSvcs.end());
    for (const auto &svc : stReader.vecSvcs) {
        pstSeg->strServices += (pstSeg->strServices.empty() ? "svc" : " svc") + std::to_string(svc.first) + "=" +
                               std::to_string(svc.second);
    }
    if (pstSeg->strServices.empty()) {
        pstSeg->strServices = "none";
    }
    return ECM_OK;
}

/* The interface's segments by PE begin, then CE begin, each with its services. */
uint32_t ReadSegments(void *pObj, uint32_t uiIfIndex, std::vector<CmdSegment> *pvecSegs)
{
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(VLANLUA_TBL_UVLAN_QINQ_SEG);
    SegReader stReader{{ColumnNo(pstTable, "seg_index"), ColumnNo(pstTable, "pe_begin"), ColumnNo(pstTable, "pe_end"),
                        ColumnNo(pstTable, "ce_begin"), ColumnNo(pstTable, "ce_end")},
                       {}};
    ECM_CTL_VAL_S stWhere{ColumnNo(pstTable, "ifindex"), 0, uiIfIndex, nullptr};
    uint32_t uiRet = ECM_CTL_Rows(pObj, VLANLUA_TBL_UVLAN_QINQ_SEG, &stWhere, 1, OnSegRow, &stReader);
    for (size_t i = 0; uiRet == ECM_OK && i < stReader.vecSegs.size(); i++) {
        uiRet = ReadServices(pObj, &stReader.vecSegs[i]);
    }
    std::sort(stReader.vecSegs.begin(), stReader.vecSegs.end(), [](const CmdSegment &a, const CmdSegment &b) {
        return a.auiPe[0] != b.auiPe[0] ? a.auiPe[0] < b.auiPe[0] : a.auiCe[0] < b.auiCe[0];
    });
    *pvecSegs = std::move(stReader.vecSegs);
    return uiRet;
}

/* ---- Printing ---- */

std::string Range(const uint32_t *puiRange)
{
    return std::to_string(puiRange[0]) + "-" + std::to_string(puiRange[1]);
}

void PrintSegments(uint32_t uiIfIndex, const std::vector<CmdSegment> &vecSegs)
{
    printf("interface %u: %zu user-VLAN QinQ segment%s\n", uiIfIndex, vecSegs.size(), vecSegs.size() == 1 ? "" : "s");
    for (const CmdSegment &stSeg : vecSegs) {
        printf("  PE %-10s CE %-10s segment %-8u %s\n", Range(stSeg.auiPe).c_str(), Range(stSeg.auiCe).c_str(),
               stSeg.uiSegIndex, stSeg.strServices.c_str());
    }
}

bool WriteDrawing(FILE *pFile, uint32_t uiIfIndex, const std::vector<CmdSegment> &vecSegs)
{
    std::string strSvg = Cmd_DrawSegments(uiIfIndex, vecSegs);
    bool bOk = fwrite(strSvg.data(), 1, strSvg.size(), pFile) == strSvg.size();
    return fclose(pFile) == 0 && bOk;
}

}  // namespace

int Cmd_Show(void *pObj, uint32_t uiIfIndex, const char *pcSvg)
{
    std::vector<CmdSegment> vecSegs;
    if (ReadSegments(pObj, uiIfIndex, &vecSegs) != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot read the segments: %s\n", ECM_CTL_LastError(pObj));
        return CMD_EXIT_FAIL;
    }
    /* Opened before anything is printed, so a drawing that cannot be written prints nothing. */
    FILE *pSvg = pcSvg != nullptr ? fopen(pcSvg, "w") : nullptr;
    if (pcSvg != nullptr && pSvg == nullptr) {
        fprintf(stderr, "vlanlua: %s: cannot write the drawing\n", pcSvg);
        return CMD_EXIT_FAIL;
    }
    PrintSegments(uiIfIndex, vecSegs);
    if (pSvg != nullptr && !WriteDrawing(pSvg, uiIfIndex, vecSegs)) {
        fprintf(stderr, "vlanlua: %s: cannot write the drawing\n", pcSvg);
        return CMD_EXIT_FAIL;
    }
    return 0;
}
