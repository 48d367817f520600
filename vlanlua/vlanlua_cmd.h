/* The vlanlua command: what its parts share. main reads the options and opens the database; the
 * script runner, the views, the checker and the comparison each take the open database object. */
#ifndef VLANLUA_CMD_H
#define VLANLUA_CMD_H

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "ecm_ctl.h"

/* Exit statuses: a failure of the work, and a command line that could not be understood. --check
 * and --diff answer 1 for what they find, and CMD_EXIT_UNREADABLE for a file they cannot read. */
constexpr int CMD_EXIT_FAIL = 1;
constexpr int CMD_EXIT_USAGE = 2;
constexpr int CMD_EXIT_UNREADABLE = 2;

/* ---- Opening the database (vlanlua_open.cpp) ---- */

/* For a script: an empty file is a new database, written when the script's work is kept; a dry
 * run on it runs in memory. Null after saying why on standard error. */
void *Cmd_OpenForScript(const char *pcPath, uint32_t uiVr, uint32_t uiLr, uint32_t uiBusyMs, bool bDryRun);
/* For inspection: read-only, writing nothing; an empty file reads as an empty configuration.
 * Null after saying why on standard error. */
void *Cmd_OpenForReading(const char *pcPath);

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
    bool bTrace;            /* record each call's database work and print it after the script */
};

/* A fresh engine state holding the compiled script, before any database is opened; null after
 * reporting why the script cannot be loaded. */
void *Cmd_LoadScript(const CmdScript &stScript);
/* Runs the loaded script bound to pObj, keeping its writes as eMode says (with bJson, a dry run's
 * writes and the trace as one JSON document), and closes the state. Returns the exit status: the
 * script's own when it ends with os.exit. */
int Cmd_RunScript(void *pState, void *pObj, const CmdScript &stScript, bool bJson);

/* The calls the object's trace recorded, one line per operation and per statement (vlanlua_trace.cpp). */
void Cmd_PrintTrace(void *pObj);

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
/* The kind whose rows a table holds; KIND_NUM for the other tables. */
CmdKind Cmd_KindOf(const ECM_CTL_TABLE_S *pstTable);

/* The schema's table of that name, or null. */
const ECM_CTL_TABLE_S *Cmd_TableNamed(const char *pcName);
/* Field number of the column whose short name is pcShort; 0 if none. */
uint32_t Cmd_ColumnNo(const ECM_CTL_TABLE_S *pstTable, const char *pcShort);
/* Place of that column among the table's fields (a row's values come in that order); -1 if none. */
int Cmd_ColumnAt(const ECM_CTL_TABLE_S *pstTable, const char *pcShort);

/* One stored value: every column of the row, text and bitmaps as their bytes. */
struct CmdValue {
    const ECM_CTL_FIELD_S *pstField;
    uint64_t ulNum;
    std::string strBytes;
};

/* One stored row, numbered in the order the view lists the interface's rows (from 1). */
struct CmdRow {
    CmdKind eKind = KIND_NUM;
    const ECM_CTL_TABLE_S *pstTable = nullptr;
    uint32_t uiNo = 0;
    std::vector<CmdValue> vecValues;    /* every field of the table, in field order */
    std::vector<std::pair<uint32_t, uint64_t>> vecServices;    /* user-VLAN QinQ segments: service, value */
    std::string strServices;    /* the same as "svc1=7 svc8=3", "" for none */

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
/* Every row of a table, in key order (insertion order for tables without a key); user-VLAN QinQ
 * segments with their services. */
uint32_t Cmd_ReadTable(void *pObj, const ECM_CTL_TABLE_S *pstTable, std::vector<CmdRow> *pvecRows);

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

/* Whether one of the row's ranges runs backwards (its begin above its end): a damaged row, which
 * the module's own writes never store. */
bool Cmd_RowBackwards(const CmdRow &stRow);

/* ---- Showing them (vlanlua_show.cpp, vlanlua_draw.cpp, vlanlua_page.cpp) ---- */

struct CmdShow {
    bool bOneInterface;
    uint32_t uiIfIndex;
    const char *pcSvg;      /* null: no drawing */
    const char *pcHtml;     /* null: no page */
    bool bJson;             /* the view as one JSON document */
};
int Cmd_Show(void *pObj, const CmdShow &stShow);

/* ---- Checking and comparing (vlanlua_check.cpp, vlanlua_reach.cpp, vlanlua_diff.cpp) ---- */

/* What --check found at one row: a broken property, or a warning of the walks' reach. */
struct CmdFinding {
    const CmdRow *pstRow;
    std::string strProperty;    /* the property's name, as the manual lists it */
    std::string strWhat;        /* what is wrong, for a person */
};

/* The rows of whole tables, by table name. */
using CmdTableRows = std::map<std::string, std::vector<CmdRow>>;

/* A column found once by its short name, read from every row of its table by place. */
struct CmdColumn {
    int iAt = -1;
    uint64_t Of(const CmdRow &stRow) const { return iAt >= 0 ? stRow.vecValues[static_cast<size_t>(iAt)].ulNum : 0; }
};
CmdColumn Cmd_Column(const char *pcTable, const char *pcShort);

/* Warnings of the get-next walks' reach: where a walk from the start returns an empty page before
 * the table's end, at the first row it misses. */
void Cmd_WalkReach(const CmdTableRows &mapRows, std::vector<CmdFinding> *pvecWarnings);

/* Checks every property the module's writes keep; 0 sound, 1 violations (or, with bStrict,
 * warnings), CMD_EXIT_UNREADABLE when the rows cannot be read. */
int Cmd_Check(void *pObj, bool bStrict, bool bJson);
/* The rows that differ between two databases; 0 equal, 1 different, CMD_EXIT_UNREADABLE. */
int Cmd_Diff(void *pObj, void *pOther, bool bJson);

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

/* Every column of a row as column=value, valued as a write line gives them. */
std::string Cmd_RowColumns(const CmdRow &stRow);

/* A column's name without its "f<number>_" prefix ("f7_svc1" -> "svc1"). */
const char *Cmd_ShortName(const char *pcColumn);

/* The runs of set bits of a bitmap as [first, last] VLAN IDs: bit v is bit v mod 8 of byte
 * v div 8, as VLAN bitmaps are stored. */
std::vector<std::pair<uint32_t, uint32_t>> Cmd_BitRanges(const uint8_t *pucBytes, uint32_t uiLen);

/* Bytes of a text field up to its first zero, quoted, with other bytes escaped. */
std::string Cmd_QuotedText(const std::string &strBytes);

#endif
