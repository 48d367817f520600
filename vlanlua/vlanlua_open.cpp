/* Opening the database file: what the file must be before it is opened, for a script (which may
 * write it) and for inspection (which never writes it, not even an empty file's schema). */
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <string>

#include "vlanlua_cmd.h"

namespace {

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

bool Usable(const char *pcPath, bool *pbEmpty)
{
    std::string strProblem = FileProblem(pcPath, pbEmpty);
    if (!strProblem.empty()) {
        fprintf(stderr, "vlanlua: %s: %s\n", pcPath, strProblem.c_str());
    }
    return strProblem.empty();
}

void *Opened(const char *pcPath, void *pObj, const char *pcErr)
{
    if (pObj == nullptr && strncmp(pcErr, "not a configuration database", 28) == 0) {
        fprintf(stderr, "vlanlua: %s: a file of another application, %s\n", pcPath, pcErr);
    } else if (pObj == nullptr) {
        fprintf(stderr, "vlanlua: %s: cannot open the database: %s\n", pcPath, pcErr);
    }
    return pObj;
}

}  // namespace

void *Cmd_OpenForScript(const char *pcPath, uint32_t uiVr, uint32_t uiLr, uint32_t uiBusyMs, bool bDryRun)
{
    bool bEmpty = false;
    if (!Usable(pcPath, &bEmpty)) {
        return nullptr;
    }
    char acErr[256];
    void *pObj = ECM_CTL_OpenEx((bDryRun && bEmpty) ? nullptr : pcPath, uiLr, uiVr, 0, uiBusyMs, acErr, sizeof(acErr));
    return Opened(pcPath, pObj, acErr);
}

void *Cmd_OpenForReading(const char *pcPath)
{
    bool bEmpty = false;
    if (!Usable(pcPath, &bEmpty)) {
        return nullptr;
    }
    char acErr[512];
    void *pObj = bEmpty ? ECM_CTL_Open(nullptr, 0, 0, 0, acErr, sizeof(acErr))
                        : ECM_CTL_OpenReadOnly(pcPath, 0, 0, 0, acErr, sizeof(acErr));
    return Opened(pcPath, pObj, acErr);
}
