/* The vlanlua command: what its parts share. main reads the options and opens the database;
 * the script runner and the segment view each take the open database object. */
#ifndef VLANLUA_CMD_H
#define VLANLUA_CMD_H

#include <stdint.h>

#include <string>
#include <vector>

#include "ecm_ctl.h"

/* Exit statuses: a failure of the work, and a command line that could not be understood. */
constexpr int CMD_EXIT_FAIL = 1;
constexpr int CMD_EXIT_USAGE = 2;

struct CmdScript {
    const char *pcPath;     /* the script file */
    int iArgc;              /* the whole command line, for the script's arg table */
    char **ppcArgv;
    int iScriptAt;          /* position of the script in ppcArgv */
    bool bDryRun;
};

/* Runs the script on a fresh engine state bound to pObj; with bDryRun inside one unit of work that
 * is rolled back, printing the writes it would have made. Returns the exit status. */
int Cmd_RunScript(void *pObj, const CmdScript &stScript);

/* One user-VLAN QinQ segment as the view shows it: ranges inclusive, services as "svc1=7 svc8=3". */
struct CmdSegment {
    uint32_t uiSegIndex = 0;
    uint32_t auiPe[2] = {0, 0};
    uint32_t auiCe[2] = {0, 0};
    std::string strServices;
};

/* Prints the user-VLAN QinQ segments of an interface with their services and, when pcSvg is not
 * null, draws them into that file. Returns the exit status. */
int Cmd_Show(void *pObj, uint32_t uiIfIndex, const char *pcSvg);

/* The segments as an SVG drawing: one labelled rectangle per segment on the PE x CE plane. */
std::string Cmd_DrawSegments(uint32_t uiIfIndex, const std::vector<CmdSegment> &vecSegs);

/* One write of the journal as a line: operation, table name, then column=value in the call's order. */
std::string Cmd_WriteLine(const ECM_CTL_JOURNAL_S &stEntry);

/* A column's name without its "f<number>_" prefix ("f7_svc1" -> "svc1"). */
const char *Cmd_ShortName(const char *pcColumn);

#endif
