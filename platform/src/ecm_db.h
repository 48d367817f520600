/* The database object behind the opaque pObj of the client: an SQLite connection with its
 * statement cache, ids, journal and armed faults. Private to the platform's ecm_* files. */
#ifndef ECM_DB_H
#define ECM_DB_H

#include <sqlite3.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ecm_capi.h"
#include "ecm_ctl.h"
#include "kel_order.h"

struct EcmIndexDef {
    uint32_t uiTableId;
    uint8_t aucFields[3];
    uint8_t ucNum;
};
const EcmIndexDef *Ecm_IndexAt(uint32_t uiIndex);

/* A spatial index of a table of rectangles (ecm_spatial.cpp): the key whose rectangles a read asks for
 * (a u32 field), and per range the field of its low and of its high end (fields of at most 16 bits).
 * Lives in the companion table <table>_rt. */
#define ECM_SPATIAL_RANGES 2
struct EcmSpatialDef {
    uint32_t uiTableId;
    uint8_t ucKey;
    uint8_t aucLow[ECM_SPATIAL_RANGES];
    uint8_t aucHigh[ECM_SPATIAL_RANGES];
};
const EcmSpatialDef *Ecm_SpatialAt(uint32_t uiIndex);
const EcmSpatialDef *Ecm_SpatialOf(uint32_t uiTableId);

/* The conditions of a read, as far as a spatial index cares. */
struct EcmSpatialShape {
    const ECM_CTL_TABLE_S *pstTable;
    uint32_t uiCondNum;
    const ECM_CTL_FIELD_S *const *apstCond;
    const uint32_t *puiOp;
};
/* The companion table, its triggers, and its filling from rows stored before it existed. */
std::string Ecm_SpatialSchemaSql(const EcmSpatialDef *pstDef);
/* Drops the companion table and its triggers, whichever form they were made in. */
std::string Ecm_SpatialDropSql(const EcmSpatialDef *pstDef);
/* The table's spatial index when the conditions hold its key equal and bound a range by low <= ? and
 * high >= ?; else null. */
const EcmSpatialDef *Ecm_SpatialFits(const EcmSpatialShape &stShape);
/* " FROM <boxes> CROSS JOIN <table> ... WHERE 1 AND <box constraints>", the constraints reusing the
 * parameters ?1.. of the conditions (the key's among them); the conditions themselves are still to be
 * added. */
std::string Ecm_SpatialFrom(const EcmSpatialDef *pstDef, const EcmSpatialShape &stShape);

/* A statement with what its shape says about using it, worked out when the shape is first met: a
 * request of a known shape is neither checked against the schema again nor turned into SQL again. */
struct EcmPlan {
    sqlite3_stmt *pStmt = nullptr;
    const ECM_CTL_TABLE_S *pstTable = nullptr;
    std::vector<const ECM_CTL_FIELD_S *> vecParams;   /* the field whose value parameter i + 1 takes */
    std::vector<int32_t> vecFrom;                     /* a write's: the list entry parameter i + 1 takes, -1: 0 */
    std::vector<const ECM_CTL_FIELD_S *> vecFields;   /* a read's columns; a write's list entries */
    uint32_t uiLimitParam = 0;                        /* a read's parameter of its record limit, 0: none */
};

/* Shape keys are byte strings of a few dozen bytes: hashed eight bytes at a time. */
struct EcmKeyHash {
    using is_transparent = void;
    size_t operator()(std::string_view sv) const
    {
        uint64_t ullHash = sv.size() * 0x9E3779B97F4A7C15ull;
        size_t i = 0;
        for (; i + 8 <= sv.size(); i += 8) {
            uint64_t ullWord;
            memcpy(&ullWord, sv.data() + i, 8);
            ullHash = (ullHash ^ ullWord) * 0xFF51AFD7ED558CCDull;
            ullHash ^= ullHash >> 29;
        }
        for (; i < sv.size(); i++) {
            ullHash = (ullHash ^ static_cast<unsigned char>(sv[i])) * 0x100000001B3ull;
        }
        return static_cast<size_t>(ullHash ^ (ullHash >> 32));
    }
};
using EcmPlanMap = std::unordered_map<std::string, EcmPlan, EcmKeyHash, std::equal_to<>>;

/* One journaled write: its values are entries uiFirstVal.. of the journal's values, its bytes
 * from uiFirstByte on in the journal's bytes. The journal keeps every write in three flat lists,
 * so that journaling a write allocates nothing once the lists have grown. */
struct EcmJournalEntry {
    uint32_t uiOp;
    uint32_t uiTableId;
    uint32_t uiFlag;
    uint32_t uiFirstVal;
    uint32_t uiValNum;
    uint32_t uiFirstByte;
};

struct EcmTrace;

/* Where the unit of the script call running on this thread stands on an object. */
enum EcmCallUnit : uint8_t {
    ECM_UNIT_NONE,      /* no call has opened one */
    ECM_UNIT_OPEN,      /* the call's deferred transaction is open: its first write takes the lock */
    ECM_UNIT_LOCKED,    /* the call runs again in a transaction that holds the lock throughout */
    ECM_UNIT_VOID,      /* another writer got the lock first: the call's operations fail, it runs again */
    ECM_UNIT_BUSY,      /* the call could not get the database in time: its operations fail */
    ECM_UNIT_NESTED,    /* inside an outer unit, the call's writes sit in a savepoint of its own */
};

struct EcmDb {
    sqlite3 *pDb = nullptr;
    std::string strPath;            /* ":memory:" for a private in-memory database */
    void *pMem = nullptr;
    uint32_t uiLrId = 0;
    uint32_t uiVrId = 0;
    uint32_t uiCdbId = 0;
    uint32_t uiFailCallIn = 0;      /* counts down to the call that fails; 0 = disarmed */
    void *pBoundState = nullptr;
    EcmPlanMap mapPlans;            /* statements by shape key */
    std::string_view svLastKey;     /* the shape asked for last (its key in mapPlans): probes repeat one */
    EcmPlan *pstLastPlan = nullptr;
    std::vector<EcmJournalEntry> vecJournal;
    std::vector<ECM_CTL_VAL_S> vecJournalVals;      /* byte values' pointers are set when an entry is read */
    std::vector<uint32_t> vecJournalOffsets;        /* where each value's bytes start */
    std::string strJournalBytes;
    std::string strLastError;
    bool bPlainReads = false;       /* reads ignore the spatial indexes (to compare both paths) */
    bool bCallUnits = true;         /* script calls open units (off only to measure what they cost) */
    EcmCallUnit eCallUnit = ECM_UNIT_NONE;
    EcmDb *pNextInCall = nullptr;   /* the other objects whose unit the same call opened */
    uint32_t uiUnitJournal = 0;     /* journal length when the call's unit opened */
    uint32_t uiOuterDepth = 0;      /* nested ECM_CTL_UnitBegin not yet ended */
    sqlite3_stmt *apUnitStmts[7] = {};  /* the statements that begin and end a call's unit, prepared once */
    bool bTracing = false;          /* client operations are being recorded into pstTrace */
    EcmTrace *pstTrace = nullptr;   /* what was recorded, kept until cleared or recorded anew */
};

/* Resets a cached statement when the scope ends, so it is ready for the next use. Every use binds
 * all of its parameters, so old bindings need no clearing. */
class EcmStmtUse {
public:
    explicit EcmStmtUse(sqlite3_stmt *pStmt) : m_pStmt(pStmt) {}
    ~EcmStmtUse()
    {
        if (m_pStmt != nullptr) {
            sqlite3_reset(m_pStmt);
        }
    }
    EcmStmtUse(const EcmStmtUse &) = delete;
    EcmStmtUse &operator=(const EcmStmtUse &) = delete;
    sqlite3_stmt *Get() const { return m_pStmt; }
private:
    sqlite3_stmt *m_pStmt;
};

/* The cached statement of a shape key, prepared from pfSql(pCtx) the first time; null on failure. */
sqlite3_stmt *Ecm_Stmt(EcmDb *pstDb, std::string_view svKey, std::string (*pfSql)(const void *), const void *pCtx);
/* The plan of a shape key, or null when the shape has not been met. */
EcmPlan *Ecm_FindPlan(EcmDb *pstDb, std::string_view svKey);
/* Keeps a plan under its shape key with its statement prepared from strSql; null when that fails. */
EcmPlan *Ecm_AddPlan(EcmDb *pstDb, std::string_view svKey, const std::string &strSql, EcmPlan &&stPlan);
/* Counts a client call and answers whether it is the one armed to fail. */
bool Ecm_TripFault(EcmDb *pstDb);

/* ---- Units of work (ecm_unit.cpp) ---- */

/* Inside a script call, makes the object's work part of the call's unit, opening it on the first
 * operation; outside a call every operation stands alone. ECM_OK, or the code the operation fails with. */
uint32_t Ecm_JoinCallUnit(EcmDb *pstDb);
/* Before a write of a script call inside an outer unit: the call's first write opens a savepoint of
 * its own, so that a call that fails takes back its writes and nothing else. ECM_OK, or the code
 * the write fails with. */
uint32_t Ecm_JoinCallWrite(EcmDb *pstDb);
/* What a client operation answers inside a call: a write that lost the race for the lock makes
 * the call's work void (ECM_ERR_BUSY, and the call runs again); anything else stands. */
uint32_t Ecm_CallOutcome(EcmDb *pstDb, uint32_t uiRet);
/* A unit that a call opened and could not end because it raised is rolled back before the object
 * is used from the control side. */
void Ecm_SettleCallUnits(EcmDb *pstDb);
/* The object starts or stops taking part in script calls' units. */
void Ecm_CountCallUnits(EcmDb *pstDb, bool bOn);
/* The script call running on this thread: a number of its own (0 outside calls) and its state. */
uint64_t Ecm_RunningCall(void **ppState);

/* ---- Schema versions (ecm_version.cpp) ---- */

/* Creates the schema in an empty database or upgrades an older one, in one transaction; refuses a
 * newer or foreign file without changing it. false with the reason in pcErr. */
bool Ecm_PrepareSchema(EcmDb *pstDb, char *pcErr, size_t ulErrLen);
/* The file's schema is this build's, so it can be read as it is; false with the reason in pcErr.
 * Reads only. */
bool Ecm_SchemaReadable(EcmDb *pstDb, char *pcErr, size_t ulErrLen);

/* ---- Values ----
 * A value travels as the field's bytes: text and bitmaps as stored, integers in the machine's order
 * (kel_order.h), as the records of the client operations hold them. */

/* Whether a field of the type holds bytes (text, bitmaps) rather than a number; ECM_CTL_IsByteType
 * answers it for the control side, inlined here where every value of every request asks it. */
inline bool Ecm_IsByteType(uint32_t uiType)
{
    return uiType == ECM_TYPE_TEXT || uiType == ECM_TYPE_BITMAP;
}

inline bool Ecm_IsBytes(const ECM_CTL_FIELD_S *pstField)
{
    return Ecm_IsByteType(pstField->ucType);
}

/* Writes column iCol of the current row into uiWidth bytes at pucDst: an integer as a number of
 * that width (of at most 8 bytes, zeros after), bytes cut or zero-padded. */
void Ecm_ColumnBytes(sqlite3_stmt *pStmt, int iCol, const ECM_CTL_FIELD_S *pstField, uint8_t *pucDst,
                     uint32_t uiWidth);
/* Binds a value given as the field's bytes at schema width. */
int Ecm_BindBytes(EcmDb *pstDb, sqlite3_stmt *pStmt, int iParam, const ECM_CTL_FIELD_S *pstField,
                  const uint8_t *pucValue);

/* ---- Reads of the client (ecm_read.cpp) ---- */

/* The plan of a read ('S' select, 'E' exists, 'C' count) with its conditions bound to its statement,
 * or the code that refuses the read. */
uint32_t Ecm_PrepareRead(EcmDb *pstDb, char cMode, uint32_t uiTableId, const ECM_COND_BLOCK_S *pstWhere,
                         const ECM_SELECT_S *pstSelect, const ECM_SORT_S *pstSort, const EcmPlan **ppstPlan);
/* Steps a prepared select into the result descriptor, at most uiMaxRec records; resets it. */
uint32_t Ecm_DeliverRecords(EcmDb *pstDb, const EcmPlan *pstPlan, ECM_RESULT_S *pstResult, uint32_t uiMaxRec);

/* ---- Trace of the client operations (ecm_trace.cpp) ----
 * While an object traces, each client operation is recorded with the statements it ran, their
 * bound values, the rows they returned or changed and the time spent inside SQLite, grouped by
 * the script call that made it. Statements are run and values bound through the functions below,
 * which record when tracing and cost one test of a flag otherwise. */

/* A client operation begins (kind ECM_CTL_TRACE_*, its table or 0) and ends with its result. */
void Ecm_TraceOpBegin(EcmDb *pstDb, uint32_t uiOp, uint32_t uiTableId);
/* ulCounted: for a count, the number it counted; UINT64_MAX for the other operations. */
void Ecm_TraceOpEnd(EcmDb *pstDb, uint32_t uiResult, uint64_t ulCounted);
/* A statement that begins or ends a call's unit, recorded as an operation of its own when it runs
 * outside one (uiOp ECM_CTL_TRACE_COMMIT or _ROLLBACK); true when it opened that operation. */
bool Ecm_TraceUnitStmt(EcmDb *pstDb, uint32_t uiOp);
/* The time a statement's preparation took inside SQLite, charged to the running operation. */
void Ecm_TracePrepare(EcmDb *pstDb, uint64_t ulNs);
int Ecm_TraceStep(EcmDb *pstDb, sqlite3_stmt *pStmt);
void Ecm_TraceBind(EcmDb *pstDb, int iParam, int64_t llNum, const uint8_t *pucBytes, uint32_t uiLen);
void Ecm_TraceFree(EcmDb *pstDb);
/* Nanoseconds of a monotonic clock. */
uint64_t Ecm_Now();

inline int Ecm_Step(EcmDb *pstDb, sqlite3_stmt *pStmt)
{
    return pstDb->bTracing ? Ecm_TraceStep(pstDb, pStmt) : sqlite3_step(pStmt);
}

inline int Ecm_BindInt(EcmDb *pstDb, sqlite3_stmt *pStmt, int iParam, int64_t llNum)
{
    if (pstDb->bTracing) {
        Ecm_TraceBind(pstDb, iParam, llNum, nullptr, 0);
    }
    return sqlite3_bind_int64(pStmt, iParam, llNum);
}

/* ---- Writes shared by the client and the control side ---- */

/* One field of a write, its bytes at schema width. */
struct EcmWriteVal {
    const ECM_CTL_FIELD_S *pstField;
    const uint8_t *pucValue;
};
uint32_t Ecm_InsertRow(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals, uint32_t uiNum);
uint32_t Ecm_UpdateRow(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals, uint32_t uiNum);
uint32_t Ecm_DeleteRow(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals, uint32_t uiNum);
/* The plan of a client write of kind cKind ('I' insert, 'S' set, 'D' delete) whose checked list of
 * values is pstVals, kept under the write's shape key; null when its statement cannot be prepared. */
const EcmPlan *Ecm_PlanWrite(EcmDb *pstDb, char cKind, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals,
                             uint32_t uiNum, std::string_view svKey);
/* Binds a planned write's parameters from the list (0 for fields the list leaves out) and runs it;
 * bMustChange: a key that matches nothing is ECM_ERR_NOTFOUND. */
uint32_t Ecm_RunWrite(EcmDb *pstDb, const EcmPlan *pstPlan, bool bMustChange, const EcmWriteVal *pstVals);
/* Hands out uiCount consecutive numbers of the table's counter; the first goes to *puiFirst. */
uint32_t Ecm_NextIndex(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, uint32_t uiCount, uint32_t *puiFirst);

void Ecm_Journal(EcmDb *pstDb, uint32_t uiOp, uint32_t uiTableId, uint32_t uiFlag, const EcmWriteVal *pstVals,
                 uint32_t uiNum);
uint32_t Ecm_JournalLength(const EcmDb *pstDb);
/* Takes back the entries from uiKeep on. */
void Ecm_JournalKeep(EcmDb *pstDb, uint32_t uiKeep);

#endif
