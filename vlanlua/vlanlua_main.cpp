/* vlanlua: runs configuration scripts against a configuration-database file, or shows an
 * interface's VLAN configuration. Reads the command line, opens the database, hands over. */
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>

#include "vlanlua_cmd.h"

namespace {

const char *const USAGE =
    "usage: vlanlua --db FILE [--vr N] [--lr N] [--busy-timeout MS] [--dry-run | --each-call] SCRIPT [ARGS...]\n"
    "       vlanlua --db FILE --show [IFINDEX] [--svg OUT] [--html OUT]\n"
    "       vlanlua --help | --version\n"
    "\n"
    "  --db FILE          the configuration database (an SQLite file; an empty file is a new database)\n"
    "  --vr N             VR ID of the database object the script's calls see (default 0)\n"
    "  --lr N             LR ID of that object (default 0)\n"
    "  --busy-timeout MS  longest wait for the database while another process writes it (default 5000)\n"
    "  --dry-run          run the script, roll all of it back, print the writes it made\n"
    "  --each-call        keep each call's writes when it returns, not the script's at its end\n"
    "  --show [IFINDEX]   print the interface's VLAN configuration by kind; without IFINDEX,\n"
    "                     one line per interface with its rows per kind\n"
    "  --svg OUT          with --show IFINDEX: draw its rectangles into OUT\n"
    "  --html OUT         with --show IFINDEX: write a page with the drawing and its rows into OUT\n"
    "  --help             print this text\n"
    "  --version          print the versions of the command, module, engine, SQLite and schema\n"
    "\n"
    "A script runs as one change: its writes are kept when it ends and none are when it raises an\n"
    "error. It gets ARGS as arg[1..n] and as its ... ; require \"libvlanluaext\" and \"cfgdb\" load the\n"
    "modules installed beside the command. Exit status 1 when the work fails, 2 for a command line\n"
    "that cannot be used.\n";

struct CmdOpts {
    const char *pcDb = nullptr;
    uint32_t uiVr = 0;
    uint32_t uiLr = 0;
    uint32_t uiBusyMs = ECM_BUSY_TIMEOUT_DEFAULT;
    bool bDryRun = false;
    bool bEachCall = false;
    bool bShow = false;
    const char *pcIfIndex = nullptr;    /* --show's interface; null: every interface */
    uint32_t uiIfIndex = 0;
    const char *pcSvg = nullptr;
    const char *pcHtml = nullptr;
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

enum OptId { OPT_DB = 1, OPT_VR, OPT_LR, OPT_BUSY, OPT_DRY, OPT_EACH, OPT_SHOW, OPT_SVG, OPT_HTML, OPT_VERSION };

const struct option LONG_OPTS[] = {
    {"db", required_argument, nullptr, OPT_DB},
    {"vr", required_argument, nullptr, OPT_VR},
    {"lr", required_argument, nullptr, OPT_LR},
    {"busy-timeout", required_argument, nullptr, OPT_BUSY},
    {"dry-run", no_argument, nullptr, OPT_DRY},
    {"each-call", no_argument, nullptr, OPT_EACH},
    {"show", optional_argument, nullptr, OPT_SHOW},
    {"svg", required_argument, nullptr, OPT_SVG},
    {"html", required_argument, nullptr, OPT_HTML},
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
        case OPT_SHOW: return StoreShow(iArgc, ppcArgv, pstOpts);
        case OPT_SVG: pstOpts->pcSvg = optarg; return 0;
        case OPT_HTML: pstOpts->pcHtml = optarg; return 0;
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
    for (const char *pcValue : {pstOpts->pcDb, pstOpts->pcSvg, pstOpts->pcHtml}) {
        if (pcValue != nullptr && pcValue[0] == '\0') {
            return UsageError("an option has an empty value");
        }
    }
    return 0;
}

/* The combinations the forms of the command allow; the first that fails, or null. */
const char *CombinationError(const CmdOpts &stOpts)
{
    if (stOpts.pcDb == nullptr) {
        return "--db FILE is required";
    }
    if (stOpts.bShow && stOpts.iScriptAt != 0) {
        return "--show takes no script";
    }
    if (stOpts.bShow && (stOpts.bDryRun || stOpts.bEachCall)) {
        return "--dry-run and --each-call go with a script, not with --show";
    }
    if (stOpts.bDryRun && stOpts.bEachCall) {
        return "--dry-run keeps nothing, so it does not go with --each-call";
    }
    if ((stOpts.pcSvg != nullptr || stOpts.pcHtml != nullptr) && stOpts.pcIfIndex == nullptr) {
        return "--svg and --html need --show IFINDEX";
    }
    if (!stOpts.bShow && stOpts.iScriptAt == 0) {
        return "no script given";
    }
    return nullptr;
}

/* The first bytes of every SQLite file. */
constexpr char SQLITE_MAGIC[] = "SQLite format 3";

/* Why the file cannot be a database to open, in words for the person who named it; "" when it
 * can. The database must exist: a mistyped name would otherwise become a new, empty database. */
std::string FileProblem(const char *pcPath, bool *pbEmpty)
{
    struct stat stInfo;
    if (stat(pcPath, &stInfo) != 0) {
        return errno == ENOENT ? "no such database file (an empty file, made with touch, is a new database)"
                               : std::string("cannot look at it: ") + strerror(errno);
    }
    if (S_ISDIR(stInfo.st_mode)) {
        return "is a folder, not a database file";
    }
    if (!S_ISREG(stInfo.st_mode)) {
        return "is not a regular file";
    }
    FILE *pFile = fopen(pcPath, "rb");
    if (pFile == nullptr) {
        return std::string("cannot read it: ") + strerror(errno);
    }
    char acHead[sizeof(SQLITE_MAGIC)] = {};
    size_t ulRead = fread(acHead, 1, sizeof(acHead), pFile);
    fclose(pFile);
    *pbEmpty = stInfo.st_size == 0;
    if (!*pbEmpty && (ulRead < sizeof(acHead) || memcmp(acHead, SQLITE_MAGIC, sizeof(acHead)) != 0)) {
        return "not a configuration database: not an SQLite file at all";
    }
    return "";
}

/* An empty file is a new database; a dry run on it runs in memory, since opening the file writes
 * its schema. */
void *OpenDatabase(const CmdOpts &stOpts)
{
    bool bEmpty = false;
    std::string strProblem = FileProblem(stOpts.pcDb, &bEmpty);
    if (!strProblem.empty()) {
        fprintf(stderr, "vlanlua: %s: %s\n", stOpts.pcDb, strProblem.c_str());
        return nullptr;
    }
    const char *pcPath = (stOpts.bDryRun && bEmpty) ? nullptr : stOpts.pcDb;
    char acErr[256];
    void *pObj = ECM_CTL_OpenEx(pcPath, stOpts.uiLr, stOpts.uiVr, 0, stOpts.uiBusyMs, acErr, sizeof(acErr));
    if (pObj == nullptr && strncmp(acErr, "not a configuration database", 28) == 0) {
        fprintf(stderr, "vlanlua: %s: a file of another application, %s\n", stOpts.pcDb, acErr);
    } else if (pObj == nullptr) {
        fprintf(stderr, "vlanlua: %s: cannot open the database: %s\n", stOpts.pcDb, acErr);
    }
    return pObj;
}

int RunWork(void *pObj, const CmdOpts &stOpts, int iArgc, char **ppcArgv)
{
    if (stOpts.bShow) {
        CmdShow stShow{stOpts.pcIfIndex != nullptr, stOpts.uiIfIndex, stOpts.pcSvg, stOpts.pcHtml};
        return Cmd_Show(pObj, stShow);
    }
    CmdUnitMode eMode = stOpts.bDryRun ? CMD_DRY_RUN : stOpts.bEachCall ? CMD_EACH_CALL : CMD_WHOLE_SCRIPT;
    CmdScript stScript{ppcArgv[stOpts.iScriptAt], iArgc, ppcArgv, stOpts.iScriptAt, eMode};
    return Cmd_RunScript(pObj, stScript);
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
    void *pObj = OpenDatabase(stOpts);
    if (pObj == nullptr) {
        return CMD_EXIT_FAIL;
    }
    iRet = RunWork(pObj, stOpts, iArgc, ppcArgv);
    ECM_CTL_Close(pObj);
    return iRet;
}
