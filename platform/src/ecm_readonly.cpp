/* Opening a database file for reading only, as a program that inspects files does: nothing is
 * created or written, not even the -wal and -shm files SQLite keeps beside a database in WAL mode.
 * A file whose log is absent or empty holds all it stores: it is opened immutable, which takes no
 * locks and needs no file beside it (read-only folders and media). A file whose log holds changes
 * not yet copied into it is read through that log, in read-only mode. Uses only SQLite. */
#include <stdio.h>
#include <sys/stat.h>

#include "ecm_db.h"
#include "mox_ctl.h"

namespace {

bool HasBytes(const std::string &strPath)
{
    struct stat stInfo;
    return stat(strPath.c_str(), &stInfo) == 0 && stInfo.st_size > 0;
}

/* The file: URI of a path; '%', '?' and '#' are the characters of a path that a URI reads otherwise. */
std::string FileUri(const char *pcPath, bool bImmutable)
{
    std::string strUri = "file:";
    for (const char *pc = pcPath; *pc != '\0'; pc++) {
        if (*pc == '%' || *pc == '?' || *pc == '#') {
            char acHex[4];
            snprintf(acHex, sizeof(acHex), "%%%02X", static_cast<unsigned char>(*pc));
            strUri += acHex;
        } else {
            strUri += *pc;
        }
    }
    return strUri + (bImmutable ? "?immutable=1" : "?mode=ro");
}

bool Fail(char *pcErr, size_t ulErrLen, const std::string &strWhy)
{
    snprintf(pcErr, ulErrLen, "%s", strWhy.c_str());
    return false;
}

/* Opens the storage and reads its version; the first read is where SQLite meets the file. */
bool OpenReading(EcmDb *pstDb, const char *pcPath, char *pcErr, size_t ulErrLen)
{
    bool bLogged = HasBytes(pstDb->strPath + "-wal") || HasBytes(pstDb->strPath + "-journal");
    int iFlags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(FileUri(pcPath, !bLogged).c_str(), &pstDb->pDb, iFlags, nullptr) != SQLITE_OK) {
        return Fail(pcErr, ulErrLen, pstDb->pDb != nullptr ? sqlite3_errmsg(pstDb->pDb) : "out of memory");
    }
    sqlite3_busy_timeout(pstDb->pDb, static_cast<int>(ECM_BUSY_TIMEOUT_DEFAULT));
    if (Ecm_SchemaReadable(pstDb, pcErr, ulErrLen)) {
        return true;
    }
    if (bLogged && sqlite3_errcode(pstDb->pDb) == SQLITE_CANTOPEN) {
        return Fail(pcErr, ulErrLen, "its log " + pstDb->strPath + "-wal holds changes not yet in the file, and reading "
                                     "them needs " + pstDb->strPath + "-shm, which cannot be made here (" +
                                     sqlite3_errmsg(pstDb->pDb) + ")");
    }
    return false;
}

}  // namespace

extern "C" void *ECM_CTL_OpenReadOnly(const char *pcPath, uint32_t uiLrId, uint32_t uiVrId, uint32_t uiCdbId,
                                      char *pcErr, size_t ulErrLen)
{
    char acIgnored[8];
    if (pcErr == nullptr || ulErrLen == 0) {
        pcErr = acIgnored;
        ulErrLen = sizeof(acIgnored);
    }
    pcErr[0] = '\0';
    if (pcPath == nullptr) {
        Fail(pcErr, ulErrLen, "no file named");
        return nullptr;
    }
    EcmDb *pstDb = new EcmDb;
    pstDb->strPath = pcPath;
    pstDb->bCallUnits = false;  /* inspection only: script calls never open units on it */
    if (!OpenReading(pstDb, pcPath, pcErr, ulErrLen)) {
        sqlite3_close(pstDb->pDb);
        delete pstDb;
        return nullptr;
    }
    pstDb->pMem = MOX_HandleCreate(pcPath);
    pstDb->uiLrId = uiLrId;
    pstDb->uiVrId = uiVrId;
    pstDb->uiCdbId = uiCdbId;
    return pstDb;
}
