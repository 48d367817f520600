/* Units of work on a database object: the one a script call opens on its first database
 * operation and commits when it returns, and the outer one the control side opens around many
 * calls. Uses only SQLite. */
#include <sqlite3.h>

#include "ecm_db.h"
#include "ecm_unit.h"

std::atomic<uint32_t> g_uiEcmOpenCallUnits{0};

void Ecm_CallEnter(void *)
{
}

bool Ecm_CallLeave(void *)
{
    return true;
}

namespace {

uint32_t RunUnitSql(void *pObj, const char *pcSql)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    if (pstDb == nullptr) {
        return ECM_ERR_PARAM;
    }
    if (sqlite3_exec(pstDb->pDb, pcSql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return ECM_ERR_SQL;
    }
    return ECM_OK;
}

}  // namespace

extern "C" uint32_t ECM_CTL_UnitBegin(void *pObj)
{
    return RunUnitSql(pObj, "BEGIN IMMEDIATE");
}

extern "C" uint32_t ECM_CTL_UnitEnd(void *pObj, int bCommit)
{
    return RunUnitSql(pObj, bCommit != 0 ? "COMMIT" : "ROLLBACK");
}
