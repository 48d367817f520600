/* vlanlua: runs configuration scripts against a configuration-database file, or shows an
 * interface's user-VLAN QinQ segments. Reads the command line, opens the database, hands over. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "vlanlua_cmd.h"

namespace {

const char *const USAGE =
    "usage: vlanlua --db FILE [--vr N] [--lr N] [--dry-run] SCRIPT [ARGS...]\n"
    "       vlanlua --db FILE --show IFINDEX [--svg OUT]\n"
    "\n"
    "  --db FILE       the configuration database (an SQLite file; an empty file is a new database)\n"
    "  --vr N, --lr N  VR and LR ID of the database object the script's calls see (default 0)\n"
    "  --dry-run       run the script as one unit of work, roll it back, print the writes it made\n"
    "  --show IFINDEX  print the interface's user-VLAN QinQ segments with their services\n"
    "  --svg OUT       with --show: draw them on the PE x CE plane into OUT\n"
    "SCRIPT gets ARGS as arg[1..n] and as its ... ; require \"libvlanluaext\" and \"cfgdb\" load the\n"
    "modules installed beside the command.\n";

struct CmdOpts {
    const char *pcDb = nullptr;
    uint32_t uiVr = 0;
    uint32_t uiLr = 0;
    bool bDryRun = false;
    const char *pcShow = nullptr;
    uint32_t uiIfIndex = 0;
    const char *pcSvg = nullptr;
    int iScriptAt = 0;      /* 0: no script */
};

int UsageError(const char *pcFmt, const char *pcArg)
{
    fputs("vlanlua: ", stderr);
    fprintf(stderr, pcFmt, pcArg);
    fputs("\n(vlanlua --help shows the usage)\n", stderr);
    return CMD_EXIT_USAGE;
}

/* A whole decimal or 0x-hexadecimal number in 0..4294967295. */
bool ParseU32(const char *pcText, uint32_t *puiValue)
{
    if (pcText[0] < '0' || pcText[0] > '9') {
        return false;
    }
    char *pcEnd = nullptr;
    unsigned long long ullValue = strtoull(pcText, &pcEnd, 0);
    if (*pcEnd != '\0' || ullValue > 0xFFFFFFFFull) {
        return false;
    }
    *puiValue = static_cast<uint32_t>(ullValue);
    return true;
}

/* "--name VALUE" or "--name=VALUE": the value, advancing *piAt past it; null when absent. */
const char *OptionValue(int iArgc, char **ppcArgv, int *piAt, const char *pcName)
{
    const char *pcArg = ppcArgv[*piAt];
    size_t ulLen = strlen(pcName);
    if (strncmp(pcArg, pcName, ulLen) != 0) {
        return nullptr;
    }
    if (pcArg[ulLen] == '=') {
        return pcArg + ulLen + 1;
    }
    if (pcArg[ulLen] != '\0' || *piAt + 1 >= iArgc) {
        return nullptr;
    }
    return ppcArgv[++*piAt];
}

bool IsOption(const char *pcArg, const char *pcName)
{
    size_t ulLen = strlen(pcName);
    return strncmp(pcArg, pcName, ulLen) == 0 && (pcArg[ulLen] == '\0' || pcArg[ulLen] == '=');
}

/* Keeps the value of one of the options that take a value; 0 or a usage error status. */
int StoreValue(const char *pcName, const char *pcValue, CmdOpts *pstOpts)
{
    if (strcmp(pcName, "--db") == 0) {
        pstOpts->pcDb = pcValue;
        return 0;
    }
    if (strcmp(pcName, "--svg") == 0) {
        pstOpts->pcSvg = pcValue;
        return 0;
    }
    uint32_t *puiNumber = &pstOpts->uiIfIndex;
    if (strcmp(pcName, "--vr") == 0) {
        puiNumber = &pstOpts->uiVr;
    } else if (strcmp(pcName, "--lr") == 0) {
        puiNumber = &pstOpts->uiLr;
    } else {
        pstOpts->pcShow = pcValue;
    }
    return ParseU32(pcValue, puiNumber) ? 0 : UsageError("not a number in 0..4294967295: %s", pcValue);
}

/* One option at *piAt, moving *piAt past its value; 0 or a usage error status. */
int ReadOption(int iArgc, char **ppcArgv, int *piAt, CmdOpts *pstOpts)
{
    static const char *const apcValued[] = {"--db", "--vr", "--lr", "--show", "--svg"};
    const char *pcArg = ppcArgv[*piAt];
    if (strcmp(pcArg, "--dry-run") == 0) {
        pstOpts->bDryRun = true;
        return 0;
    }
    for (const char *pcName : apcValued) {
        if (IsOption(pcArg, pcName)) {
            const char *pcValue = OptionValue(iArgc, ppcArgv, piAt, pcName);
            return (pcValue == nullptr || pcValue[0] == '\0') ? UsageError("%s needs a value", pcName)
                                                              : StoreValue(pcName, pcValue, pstOpts);
        }
    }
    return UsageError("unknown option %s", pcArg);
}

/* The options up to the script (or "--" before it); the rest of the line belongs to the script. */
int ReadCommandLine(int iArgc, char **ppcArgv, CmdOpts *pstOpts)
{
    for (int i = 1; i < iArgc; i++) {
        const char *pcArg = ppcArgv[i];
        if (strcmp(pcArg, "--") == 0 || pcArg[0] != '-' || pcArg[1] == '\0') {
            int iScript = strcmp(pcArg, "--") == 0 ? i + 1 : i;
            pstOpts->iScriptAt = iScript < iArgc ? iScript : 0;
            break;
        }
        int iRet = ReadOption(iArgc, ppcArgv, &i, pstOpts);
        if (iRet != 0) {
            return iRet;
        }
    }
    return 0;
}

/* The combinations the two forms of the command allow. */
int CheckCombination(const CmdOpts &stOpts)
{
    if (stOpts.pcDb == nullptr) {
        return UsageError("%s", "--db FILE is required");
    }
    if (stOpts.pcShow != nullptr && stOpts.iScriptAt != 0) {
        return UsageError("%s", "--show takes no script");
    }
    if (stOpts.pcShow != nullptr && stOpts.bDryRun) {
        return UsageError("%s", "--dry-run goes with a script, not with --show");
    }
    if (stOpts.pcSvg != nullptr && stOpts.pcShow == nullptr) {
        return UsageError("%s", "--svg needs --show");
    }
    if (stOpts.pcShow == nullptr && stOpts.iScriptAt == 0) {
        return UsageError("%s", "no script given");
    }
    return 0;
}

/* The database must exist: a mistyped name would otherwise become a new, empty database. An empty
 * file is a new database; a dry run on it runs in memory, since opening the file writes its schema. */
void *OpenDatabase(const CmdOpts &stOpts)
{
    struct stat stInfo;
    if (stat(stOpts.pcDb, &stInfo) != 0 || !S_ISREG(stInfo.st_mode)) {
        fprintf(stderr, "vlanlua: %s: no such database file\n", stOpts.pcDb);
        return nullptr;
    }
    const char *pcPath = (stOpts.bDryRun && stInfo.st_size == 0) ? nullptr : stOpts.pcDb;
    char acErr[256];
    void *pObj = ECM_CTL_Open(pcPath, stOpts.uiLr, stOpts.uiVr, 0, acErr, sizeof(acErr));
    if (pObj == nullptr) {
        fprintf(stderr, "vlanlua: %s: cannot open the database: %s\n", stOpts.pcDb, acErr);
    }
    return pObj;
}

}  // namespace

int main(int iArgc, char **ppcArgv)
{
    if (iArgc == 2 && (strcmp(ppcArgv[1], "--help") == 0 || strcmp(ppcArgv[1], "-h") == 0)) {
        fputs(USAGE, stdout);
        return 0;
    }
    CmdOpts stOpts;
    int iRet = ReadCommandLine(iArgc, ppcArgv, &stOpts);
    if (iRet == 0) {
        iRet = CheckCombination(stOpts);
    }
    if (iRet != 0) {
        return iRet;
    }
    void *pObj = OpenDatabase(stOpts);
    if (pObj == nullptr) {
        return CMD_EXIT_FAIL;
    }
    if (stOpts.pcShow != nullptr) {
        iRet = Cmd_Show(pObj, stOpts.uiIfIndex, stOpts.pcSvg);
    } else {
        CmdScript stScript{ppcArgv[stOpts.iScriptAt], iArgc, ppcArgv, stOpts.iScriptAt, stOpts.bDryRun};
        iRet = Cmd_RunScript(pObj, stScript);
    }
    ECM_CTL_Close(pObj);
    return iRet;
}
