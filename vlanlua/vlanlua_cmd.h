/* The vlanlua command: what its parts share. main reads the options and opens the database; the
 * script runner, the interface view and its drawings each take the open database object. */
#ifndef VLANLUA_CMD_H
#define VLANLUA_CMD_H

#include <stdint.h>

#include <string>
#include <vector>

#include "ecm_ctl.h"

/* Exit statuses: a failure of the work, and a command line that could not be understood. */
constexpr int CMD_EXIT_FAIL = 1;
constexpr int CMD_EXIT_USAGE = 2;

/* ---- Running scripts (vlanlua_run.cpp) ---- */

/* How a script's writes are kept: all at its end or none (the default), each call on its own, or
 * none at all with the list of writes printed. */
enum CmdUnitMode { CMD_WHOLE_SCRIPT, CMD_EACH_CALL, CMD_DRY_RUN };

struct CmdScript {
    const char *pcPath;     /* the script file, "-" for standard input */
    int iArgc;              /* the whole command line, for the script's arg table */
    char **ppcArgv;
    int iScriptAt;          /* position of the script in ppcArgv */
    CmdUnitMode eMode;
};

/* Runs the script on a fresh engine state bound to pObj, keeping its writes as eMode says.
 * Returns the exit status. */
int Cmd_RunScript(void *pObj, const CmdScript &stScript);

/* Makes require find the modules installed beside the command before the engine's own path. */
void Cmd_SetModulePath(void *pState);

/* Prints the versions of the command, the module require finds, the engine, SQLite and the schema. */
int Cmd_PrintVersion();

/* ---- An interface's rows (vlanlua_rows.cpp) ---- */

/* The kinds of VLAN configuration an interface holds, one table each, in the order shown. */
enum CmdKind { KIND_DOT1Q_MATCH, KIND_QINQ_MATCH, KIND_UVLAN_QINQ, KIND_UVLAN_DOT1Q, KIND_UVLAN_DESC,
               KIND_UVLAN_ANYOTHER, KIND_NUM };

struct CmdKindInfo {
    const char *pcTable;    /* the schema's table name */
    const char *pcTitle;    /* heading of the group in the text view */
    const char *pcShort;    /* one word, for the summary's columns and the page's rows */
};
const CmdKindInfo &Cmd_KindInfo(CmdKind eKind);

/* One stored value: every column of the row, text and bitmaps as their bytes. */
struct CmdValue {
    const ECM_CTL_FIELD_S *pstField;
    uint64_t ulNum;
    std::string strBytes;
};

/* One stored row, numbered in the order the view lists the interface's rows (from 1). */
struct CmdRow {
    CmdKind eKind = KIND_NUM;
    uint32_t uiNo = 0;
    std::vector<CmdValue> vecValues;
    std::string strServices;    /* user-VLAN QinQ segments: "svc1=7 svc8=3", "" for none */

    /* The value of the column named pcShort (without its "f<number>_"), 0 or "" when absent. */
    uint64_t Num(const char *pcShort) const;
    std::string Text(const char *pcShort) const;
};

/* Every row of one interface, by kind, each kind in the order of its ranges. */
struct CmdIfConfig {
    uint32_t uiIfIndex = 0;
    std::vector<CmdRow> avecRows[KIND_NUM];
};
uint32_t Cmd_ReadInterface(void *pObj, uint32_t uiIfIndex, CmdIfConfig *pstConfig);

/* How many rows of each kind an interface holds; the interfaces in ascending order. */
struct CmdIfCounts {
    uint32_t uiIfIndex = 0;
    uint32_t auiRows[KIND_NUM] = {};
};
uint32_t Cmd_ReadCounts(void *pObj, std::vector<CmdIfCounts> *pvecCounts);

/* "#12": how the views name a row. */
std::string Cmd_RowNo(const CmdRow &stRow);

/* "100-139", or "7" for a range of one. */
std::string Cmd_Range(uint64_t ulBegin, uint64_t ulEnd);

/* ---- Showing them (vlanlua_show.cpp, vlanlua_draw.cpp, vlanlua_page.cpp) ---- */

struct CmdShow {
    bool bOneInterface;
    uint32_t uiIfIndex;
    const char *pcSvg;      /* null: no drawing */
    const char *pcHtml;     /* null: no page */
};
int Cmd_Show(void *pObj, const CmdShow &stShow);

/* One line of a row for a person: its ranges and what it carries, without the kind. */
std::string Cmd_RowText(const CmdRow &stRow);

/* What the drawing needs besides the rows: the colour of every service set and match group. */
struct CmdLegendEntry {
    std::string strLabel;   /* "svc1=7 svc8=3", "no services", "match group 0" */
    std::string strFill;
};
struct CmdDrawing {
    std::vector<CmdLegendEntry> vecLegend;
    std::string strSvg;
};
/* The interface's drawn rows (user-VLAN QinQ segments, QinQ match rectangles) on their PE x CE
 * planes. bStandalone: the legend and the key of unlabelled rectangles are drawn beside them;
 * otherwise the page shows those itself. */
CmdDrawing Cmd_Draw(const CmdIfConfig &stConfig, bool bStandalone);

/* The legend entry of a drawn row. */
std::string Cmd_LegendLabel(const CmdRow &stRow);

/* The page: the drawing, its legend and the table of every row, as one self-contained file. */
std::string Cmd_Page(const CmdIfConfig &stConfig);

/* Text for SVG and HTML: &, <, > and " as entities. */
std::string Cmd_Escape(const std::string &strText);

/* ---- Values as text (vlanlua_format.cpp) ---- */

/* One write of the journal as a line: operation, table name, then column=value in the call's order. */
std::string Cmd_WriteLine(const ECM_CTL_JOURNAL_S &stEntry);

/* A column's name without its "f<number>_" prefix ("f7_svc1" -> "svc1"). */
const char *Cmd_ShortName(const char *pcColumn);

/* Bytes of a text field up to its first zero, quoted, with other bytes escaped. */
std::string Cmd_QuotedText(const std::string &strBytes);

#endif
