/* vlanlua: runs configuration scripts against a configuration-database file, or inspects one:
 * shows an interface's VLAN configuration, checks the file, compares two files. Reads the command
 * line, loads the script or opens the files for reading, hands over. */
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "vlanlua_cmd.h"

namespace {

const char *const USAGE =
    "usage: vlanlua --db FILE [--vr N] [--lr N] [--busy-timeout MS] [--dry-run | --each-call] [--trace] [--json] SCRIPT [ARGS...]\n"
    "       vlanlua --db FILE --show [IFINDEX] [--svg OUT] [--html OUT] [--json]\n"
    "       vlanlua --db FILE --check [--strict] [--json]\n"
    "       vlanlua --db FILE --diff OTHER [--json]\n"
    "       vlanlua --help | --version\n"
    "\n"
    "  --db FILE          the configuration database (an SQLite file; an empty file is a new database)\n"
    "  --vr N             VR ID of the database object the script's calls see (default 0)\n"
    "  --lr N             LR ID of that object (default 0)\n"
    "  --busy-timeout MS  longest wait for the database while another process writes it (default 5000)\n"
    "  --dry-run          run the script, roll all of it back, print the writes it made\n"
    "  --each-call        keep each call's writes when it returns, not the script's at its end\n"
    "  --trace            after the script, print each call's database work: every operation with the\n"
    "                     SQL statements it ran, their values, rows and time inside SQLite\n"
    "  --show [IFINDEX]   print the interface's VLAN configuration by kind; without IFINDEX,\n"
    "                     one line per interface with its rows per kind\n"
    "  --svg OUT          with --show IFINDEX: draw its rectangles into OUT\n"
    "  --html OUT         with --show IFINDEX: write a page with the drawing and its rows into OUT\n"
    "  --check            report every row that breaks a property the module's writes keep, and\n"
    "                     warn where a get-next walk would stop at an empty page too early\n"
    "  --strict           with --check: warnings fail the check too\n"
    "  --diff OTHER       list the rows that differ between FILE and OTHER, per interface and kind\n"
    "  --json             with --show, --check, --diff, --dry-run or --trace: one JSON document instead of text\n"
    "  --help             print this text\n"
    "  --version          print the versions of the command, module, engine, SQLite and schema\n"
    "\n"
    "A script runs as one change: its writes are kept when it ends (or calls os.exit(0)) and none are\n"
    "when it raises an error, exits with another status or is interrupted. It gets ARGS as arg[1..n]\n"
    "and as its ... ; require \"libvlanluaext\" and \"cfgdb\" load the modules installed beside the\n"
    "command. --show, --check and --diff only read: they never write the files. Exit status 1 when\n"
    "the work fails (--check: violations; --diff: the files differ), 2 for a command line that cannot\n"
    "be used (--check and --diff: also a file they cannot read).\n";

struct CmdOpts {
    const char *pcDb = nullptr;
    uint32_t uiVr = 0;
    uint32_t uiLr = 0;
    uint32_t uiBusyMs = ECM_BUSY_TIMEOUT_DEFAULT;
    bool bDryRun = false;
    bool bEachCall = false;
    bool bTrace = false;
    bool bShow = false;
    const char *pcIfIndex = nullptr;    /* --show's interface; null: every interface */
    uint32_t uiIfIndex = 0;
    const char *pcSvg = nullptr;
    const char *pcHtml = nullptr;
    bool bCheck = false;
    bool bStrict = false;
    const char *pcDiff = nullptr;       /* --diff's other file */
    bool bJson = false;
    bool bHelp = false;
    bool bVersion = false;
    int iScriptAt = 0;                  /* 0: no script */
};

int UsageError(const std::string &strWhy)
{
    fprintf(stderr, "vlanlua: %s\n(vlanlua --help shows the usage)\n", strWhy.c_str());
    return CMD_EXIT_USAGE;
}

/* A whole decimal or 0x-hexadecimal number in 0..4294967295. */
bool ParseU32(const char *pcText, uint32_t *puiValue)
{
    if (pcText[0] < '0' || pcText[0] > '9') {
        return false;
    }
    char *pcEnd = nullptr;
    errno = 0;
    unsigned long long ullValue = strtoull(pcText, &pcEnd, 0);
    if (*pcEnd != '\0' || errno != 0 || ullValue > 0xFFFFFFFFull) {
        return false;
    }
    *puiValue = static_cast<uint32_t>(ullValue);
    return true;
}

int StoreNumber(const char *pcValue, uint32_t *puiValue)
{
    return ParseU32(pcValue, puiValue) ? 0 : UsageError(std::string("not a number in 0..4294967295: ") + pcValue);
}

enum OptId {
    OPT_DB = 1, OPT_VR, OPT_LR, OPT_BUSY, OPT_DRY, OPT_EACH, OPT_TRACE, OPT_SHOW, OPT_SVG, OPT_HTML, OPT_CHECK, OPT_STRICT, OPT_DIFF,
    OPT_JSON, OPT_VERSION
};

const struct option LONG_OPTS[] = {
    {"db", required_argument, nullptr, OPT_DB},
    {"vr", required_argument, nullptr, OPT_VR},
    {"lr", required_argument, nullptr, OPT_LR},
    {"busy-timeout", required_argument, nullptr, OPT_BUSY},
    {"dry-run", no_argument, nullptr, OPT_DRY},
    {"each-call", no_argument, nullptr, OPT_EACH},
    {"trace", no_argument, nullptr, OPT_TRACE},
    {"show", optional_argument, nullptr, OPT_SHOW},
    {"svg", required_argument, nullptr, OPT_SVG},
    {"html", required_argument, nullptr, OPT_HTML},
    {"check", no_argument, nullptr, OPT_CHECK},
    {"strict", no_argument, nullptr, OPT_STRICT},
    {"diff", required_argument, nullptr, OPT_DIFF},
    {"json", no_argument, nullptr, OPT_JSON},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, OPT_VERSION},
    {nullptr, 0, nullptr, 0},
};

/* --show's interface: "--show=N", or "--show N" when the next word is not an option. */
int StoreShow(int iArgc, char **ppcArgv, CmdOpts *pstOpts)
{
    pstOpts->bShow = true;
    const char *pcValue = optarg;
    if (pcValue == nullptr && optind < iArgc && ppcArgv[optind][0] != '-') {
        pcValue = ppcArgv[optind++];
    }
    pstOpts->pcIfIndex = pcValue;
    return pcValue != nullptr ? StoreNumber(pcValue, &pstOpts->uiIfIndex) : 0;
}

/* Keeps one option; 0 or a usage error status. */
int StoreOption(int iOpt, int iArgc, char **ppcArgv, CmdOpts *pstOpts)
{
    switch (iOpt) {
        case OPT_DB: pstOpts->pcDb = optarg; return 0;
        case OPT_VR: return StoreNumber(optarg, &pstOpts->uiVr);
        case OPT_LR: return StoreNumber(optarg, &pstOpts->uiLr);
        case OPT_BUSY: return StoreNumber(optarg, &pstOpts->uiBusyMs);
        case OPT_DRY: pstOpts->bDryRun = true; return 0;
        case OPT_EACH: pstOpts->bEachCall = true; return 0;
        case OPT_TRACE: pstOpts->bTrace = true; return 0;
        case OPT_SHOW: return StoreShow(iArgc, ppcArgv, pstOpts);
        case OPT_SVG: pstOpts->pcSvg = optarg; return 0;
        case OPT_HTML: pstOpts->pcHtml = optarg; return 0;
        case OPT_CHECK: pstOpts->bCheck = true; return 0;
        case OPT_STRICT: pstOpts->bStrict = true; return 0;
        case OPT_DIFF: pstOpts->pcDiff = optarg; return 0;
        case OPT_JSON: pstOpts->bJson = true; return 0;
        case 'h': pstOpts->bHelp = true; return 0;
        case OPT_VERSION: pstOpts->bVersion = true; return 0;
        case ':': return UsageError(std::string(ppcArgv[optind - 1]) + " needs a value");
        default: return UsageError(std::string("unknown option ") + ppcArgv[optind - 1]);
    }
}

/* The options up to the script; the script and the rest of the line belong to the script, so
 * parsing stops at the first word that is not an option ("--" ends the options too). */
int ReadCommandLine(int iArgc, char **ppcArgv, CmdOpts *pstOpts)
{
    opterr = 0;
    int iOpt;
    while ((iOpt = getopt_long(iArgc, ppcArgv, "+:h", LONG_OPTS, nullptr)) != -1) {
        int iRet = StoreOption(iOpt, iArgc, ppcArgv, pstOpts);
        if (iRet != 0) {
            return iRet;
        }
    }
    pstOpts->iScriptAt = optind < iArgc ? optind : 0;
    for (const char *pcValue : {pstOpts->pcDb, pstOpts->pcSvg, pstOpts->pcHtml, pstOpts->pcDiff}) {
        if (pcValue != nullptr && pcValue[0] == '\0') {
            return UsageError("an option has an empty value");
        }
    }
    return 0;
}

bool Inspects(const CmdOpts &stOpts)
{
    return stOpts.bShow || stOpts.bCheck || stOpts.pcDiff != nullptr;
}

/* The combinations the forms of the command allow; the first that fails, or null. */
const char *CombinationError(const CmdOpts &stOpts)
{
    if (stOpts.pcDb == nullptr) {
        return "--db FILE is required";
    }
    if (int(stOpts.bShow) + int(stOpts.bCheck) + int(stOpts.pcDiff != nullptr) > 1) {
        return "--show, --check and --diff go one at a time";
    }
    if (Inspects(stOpts) && stOpts.iScriptAt != 0) {
        return stOpts.bShow ? "--show takes no script" : stOpts.bCheck ? "--check takes no script" : "--diff takes no script";
    }
    if (Inspects(stOpts) && (stOpts.bDryRun || stOpts.bEachCall)) {
        return "--dry-run and --each-call go with a script, not with --show, --check or --diff";
    }
    if (Inspects(stOpts) && stOpts.bTrace) {
        return "--trace goes with a script, not with --show, --check or --diff";
    }
    if (stOpts.bDryRun && stOpts.bEachCall) {
        return "--dry-run keeps nothing, so it does not go with --each-call";
    }
    if ((stOpts.pcSvg != nullptr || stOpts.pcHtml != nullptr) && stOpts.pcIfIndex == nullptr) {
        return "--svg and --html need --show IFINDEX";
    }
    if (stOpts.bStrict && !stOpts.bCheck) {
        return "--strict goes with --check";
    }
    if (stOpts.bJson && !Inspects(stOpts) && !stOpts.bDryRun && !stOpts.bTrace) {
        return "--json goes with --show, --check, --diff, --dry-run or --trace";
    }
    if (!Inspects(stOpts) && stOpts.iScriptAt == 0) {
        return "no script given";
    }
    return nullptr;
}

/* --show, --check, --diff: the files are opened for reading only. */
int Inspect(const CmdOpts &stOpts)
{
    int iUnreadable = stOpts.bShow ? CMD_EXIT_FAIL : CMD_EXIT_UNREADABLE;
    void *pObj = Cmd_OpenForReading(stOpts.pcDb);
    if (pObj == nullptr) {
        return iUnreadable;
    }
    int iRet = iUnreadable;
    if (stOpts.bShow) {
        CmdShow stShow{stOpts.pcIfIndex != nullptr, stOpts.uiIfIndex, stOpts.pcSvg, stOpts.pcHtml, stOpts.bJson};
        iRet = Cmd_Show(pObj, stShow);
    } else if (stOpts.bCheck) {
        iRet = Cmd_Check(pObj, stOpts.bStrict, stOpts.bJson);
    } else {
        void *pOther = Cmd_OpenForReading(stOpts.pcDiff);
        iRet = pOther != nullptr ? Cmd_Diff(pObj, pOther, stOpts.bJson) : iUnreadable;
        ECM_CTL_Close(pOther);
    }
    ECM_CTL_Close(pObj);
    return iRet;
}

/* A script is compiled before the database is opened, so a script that cannot run leaves the
 * file untouched. */
int RunScript(const CmdOpts &stOpts, int iArgc, char **ppcArgv)
{
    CmdUnitMode eMode = stOpts.bDryRun ? CMD_DRY_RUN : stOpts.bEachCall ? CMD_EACH_CALL : CMD_WHOLE_SCRIPT;
    CmdScript stScript{ppcArgv[stOpts.iScriptAt], iArgc, ppcArgv, stOpts.iScriptAt, eMode, stOpts.bTrace};
    void *pState = Cmd_LoadScript(stScript);
    if (pState == nullptr) {
        return CMD_EXIT_FAIL;
    }
    void *pObj = Cmd_OpenForScript(stOpts.pcDb, stOpts.uiVr, stOpts.uiLr, stOpts.uiBusyMs, stOpts.bDryRun);
    int iRet = Cmd_RunScript(pState, pObj, stScript, stOpts.bJson);
    ECM_CTL_Close(pObj);
    return iRet;
}

}  // namespace

int main(int iArgc, char **ppcArgv)
{
    CmdOpts stOpts;
    int iRet = ReadCommandLine(iArgc, ppcArgv, &stOpts);
    if (iRet != 0) {
        return iRet;
    }
    if (stOpts.bHelp) {
        fputs(USAGE, stdout);
        return 0;
    }
    if (stOpts.bVersion) {
        return Cmd_PrintVersion();
    }
    const char *pcWhy = CombinationError(stOpts);
    if (pcWhy != nullptr) {
        return UsageError(pcWhy);
    }
    return Inspects(stOpts) ? Inspect(stOpts) : RunScript(stOpts, iArgc, ppcArgv);
}
