/* --show: an interface's VLAN configuration as text, grouped by kind, with its drawing and page
 * written on request; or, for the whole file, one line per interface with its rows per kind. */
#include <stdio.h>

#include "vlanlua_cmd.h"
#include "vlanlua_json.h"

namespace {

std::string Pad(const std::string &strText, size_t ulWidth)
{
    return strText.size() >= ulWidth ? strText + " " : strText + std::string(ulWidth - strText.size(), ' ');
}

std::string Field(const char *pcName, uint64_t ulValue)
{
    return std::string(pcName) + " " + std::to_string(ulValue);
}

std::string KeyName(const CmdRow &stRow)
{
    std::string strKey = stRow.Text("key_name");
    return strKey.empty() ? "" : "  key " + Cmd_QuotedText(strKey);
}

/* ---- One interface ---- */

void PrintInterface(const CmdIfConfig &stConfig)
{
    size_t ulRows = 0;
    for (const std::vector<CmdRow> &vecRows : stConfig.avecRows) {
        ulRows += vecRows.size();
    }
    printf("interface %u: %zu row%s\n", stConfig.uiIfIndex, ulRows, ulRows == 1 ? "" : "s");
    for (int k = 0; k < KIND_NUM; k++) {
        const std::vector<CmdRow> &vecRows = stConfig.avecRows[k];
        const char *pcTitle = Cmd_KindInfo(static_cast<CmdKind>(k)).pcTitle;
        if (vecRows.empty()) {
            printf("%s: none\n", pcTitle);
            continue;
        }
        printf("%s: %zu\n", pcTitle, vecRows.size());
        for (const CmdRow &stRow : vecRows) {
            printf("  %s%s\n", Pad(Cmd_RowNo(stRow), 5).c_str(), Cmd_RowText(stRow).c_str());
        }
    }
}

void PrintInterfaceJson(const CmdIfConfig &stConfig)
{
    CmdJson stDoc = Cmd_JsonDocument("interface");
    stDoc["interface"] = stConfig.uiIfIndex;
    CmdJson stKinds = CmdJson::object();
    for (int k = 0; k < KIND_NUM; k++) {
        CmdJson stRows = CmdJson::array();
        for (const CmdRow &stRow : stConfig.avecRows[k]) {
            stRows.push_back(Cmd_JsonRow(stRow));
        }
        stKinds[Cmd_KindInfo(static_cast<CmdKind>(k)).pcShort] = stRows;
    }
    stDoc["kinds"] = stKinds;
    Cmd_PrintJson(stDoc);
}

/* Writes the text into the file opened for it and closes it; false when that fails. */
bool WriteFile(FILE *pFile, const std::string &strText)
{
    bool bOk = fwrite(strText.data(), 1, strText.size(), pFile) == strText.size();
    return fclose(pFile) == 0 && bOk;
}

int ShowInterface(void *pObj, const CmdShow &stShow)
{
    CmdIfConfig stConfig;
    if (Cmd_ReadInterface(pObj, stShow.uiIfIndex, &stConfig) != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot read the interface's rows: %s\n", ECM_CTL_LastError(pObj));
        return CMD_EXIT_FAIL;
    }
    /* Both files are opened before anything is printed, so a file that cannot be written prints nothing. */
    FILE *apFiles[2] = {nullptr, nullptr};
    const char *apcPaths[2] = {stShow.pcSvg, stShow.pcHtml};
    for (int i = 0; i < 2; i++) {
        apFiles[i] = apcPaths[i] != nullptr ? fopen(apcPaths[i], "w") : nullptr;
        if (apcPaths[i] != nullptr && apFiles[i] == nullptr) {
            fprintf(stderr, "vlanlua: %s: cannot write it\n", apcPaths[i]);
            if (i == 1 && apFiles[0] != nullptr) {
                fclose(apFiles[0]);
            }
            return CMD_EXIT_FAIL;
        }
    }
    if (stShow.bJson) {
        PrintInterfaceJson(stConfig);
    } else {
        PrintInterface(stConfig);
    }
    const std::string astrTexts[2] = {apFiles[0] != nullptr ? Cmd_Draw(stConfig, true).strSvg : "",
                                      apFiles[1] != nullptr ? Cmd_Page(stConfig) : ""};
    int iRet = 0;
    for (int i = 0; i < 2; i++) {
        if (apFiles[i] != nullptr && !WriteFile(apFiles[i], astrTexts[i])) {
            fprintf(stderr, "vlanlua: %s: cannot write it\n", apcPaths[i]);
            iRet = CMD_EXIT_FAIL;
        }
    }
    return iRet;
}

/* ---- Every interface ---- */

void PrintSummaryJson(const std::vector<CmdIfCounts> &vecCounts)
{
    CmdJson stDoc = Cmd_JsonDocument("summary");
    stDoc["interfaces"] = CmdJson::array();
    for (const CmdIfCounts &stCounts : vecCounts) {
        CmdJson stRows = CmdJson::object();
        for (int k = 0; k < KIND_NUM; k++) {
            stRows[Cmd_KindInfo(static_cast<CmdKind>(k)).pcShort] = stCounts.auiRows[k];
        }
        stDoc["interfaces"].push_back({{"interface", stCounts.uiIfIndex}, {"rows", stRows}});
    }
    Cmd_PrintJson(stDoc);
}

int ShowSummary(void *pObj, bool bJson)
{
    std::vector<CmdIfCounts> vecCounts;
    if (Cmd_ReadCounts(pObj, &vecCounts) != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot read the rows: %s\n", ECM_CTL_LastError(pObj));
        return CMD_EXIT_FAIL;
    }
    if (bJson) {
        PrintSummaryJson(vecCounts);
        return 0;
    }
    if (vecCounts.empty()) {
        puts("no interface has VLAN configuration");
        return 0;
    }
    printf("%10s", "interface");
    for (int k = 0; k < KIND_NUM; k++) {
        printf("  %s", Cmd_KindInfo(static_cast<CmdKind>(k)).pcShort);
    }
    putchar('\n');
    for (const CmdIfCounts &stCounts : vecCounts) {
        printf("%10u", stCounts.uiIfIndex);
        for (int k = 0; k < KIND_NUM; k++) {
            int iWidth = static_cast<int>(std::string(Cmd_KindInfo(static_cast<CmdKind>(k)).pcShort).size());
            printf("  %*u", iWidth, stCounts.auiRows[k]);
        }
        putchar('\n');
    }
    return 0;
}

/* The row's ranges and values as the text view lists them. */
std::string RowFields(const CmdRow &r)
{
    std::string strVr = Field("VR", r.Num("vrid"));
    std::string strPeCe =
        "PE " + Pad(Cmd_Range(r.Num("pe_begin"), r.Num("pe_end")), 10) + "CE " + Pad(Cmd_Range(r.Num("ce_begin"), r.Num("ce_end")), 10);
    std::string strVlans = "VLAN " + Pad(Cmd_Range(r.Num("vlan_begin"), r.Num("vlan_end")), 10);
    switch (r.eKind) {
        case KIND_DOT1Q_MATCH:
            return strVlans + Field("group", r.Num("group_id")) + "  " + Field("segment", r.Num("seg_index")) + "  " + strVr;
        case KIND_QINQ_MATCH:
            return strPeCe + Field("group", r.Num("group_id")) + "  " + Field("segment", r.Num("seg_index")) + "  " +
                   strVr + "  " + Field("main interface", r.Num("main_ifindex")) + KeyName(r);
        case KIND_UVLAN_QINQ:
            return strPeCe + Field("segment", r.Num("seg_index")) + "  " + strVr + "  " + Cmd_LegendLabel(r) + KeyName(r);
        case KIND_UVLAN_DOT1Q:
            return strVlans + strVr;
        case KIND_UVLAN_DESC:
            return "PE " + Pad(std::to_string(r.Num("pe_vlan")), 10) + "CE " + Pad(std::to_string(r.Num("ce_vlan")), 10) +
                   strVr + "  " + Cmd_QuotedText(r.Text("description"));
        default:
            return strVr;
    }
}

}  // namespace

std::string Cmd_RowText(const CmdRow &r)
{
    return RowFields(r) + (Cmd_RowBackwards(r) ? "  DAMAGED: a range runs backwards" : "");
}

int Cmd_Show(void *pObj, const CmdShow &stShow)
{
    return stShow.bOneInterface ? ShowInterface(pObj, stShow) : ShowSummary(pObj, stShow.bJson);
}
