/* Control side of a configuration-database object: open and close it, bind it to a script
 * state, set up and inspect its tables, read its write journal and inject faults. Never used by the module. */
#ifndef ECM_CTL_H
#define ECM_CTL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* How the client operations of ecm_capi.h behave on these objects:
 * - A select delivers each selected field at its schema width, back to back, and cuts or
 *   zero-pads the whole to usRecLen: a lone or last field comes in the width the caller asked
 *   for (integers little-endian). Records sort by the sort fields, then insertion order.
 * - Conditions compare the stored value with the condition value read at the field's schema
 *   width: integers unsigned, text and bitmaps as bytes. Only operators 0, 1, 3, 5 and the
 *   query mode 6 are accepted; the database identifier of a select is not checked.
 * - Writes check table, fields, type codes, widths and key before touching anything; a refused
 *   or failed write changes nothing and is not journaled. Set and delete need the whole key,
 *   delete nothing but the key; tables without a key take inserts only. */

/* Result codes of the client operations (ECM_CAPI_*) and of the control operations below. */
#define ECM_OK            0u
#define ECM_ERR_PARAM     0x101u  /* missing pointer, zero count, bad record length or buffer */
#define ECM_ERR_TABLE     0x102u  /* table identifier not in the schema */
#define ECM_ERR_FIELD     0x103u  /* field not in the table, listed twice, or not allowed here */
#define ECM_ERR_TYPE      0x104u  /* type code or width differs from the schema */
#define ECM_ERR_KEY       0x105u  /* a key field is missing, or the table has no key */
#define ECM_ERR_EXISTS    0x106u  /* insert: a record with this key exists */
#define ECM_ERR_NOTFOUND  0x107u  /* set or delete: no record has this key */
#define ECM_ERR_OP        0x108u  /* operator code or query mode not supported */
#define ECM_ERR_RANGE     0x109u  /* value too large for its field, or index numbers exhausted */
#define ECM_ERR_SQL       0x10Au  /* the storage failed */
#define ECM_ERR_INJECTED  0x10Bu  /* failure made on purpose by ECM_CTL_FailCall */
#define ECM_ERR_BUSY      0x10Cu  /* another writer held the database past the busy timeout */

/* ---- Schema: made from the module's description of its tables (vlanlua_tables.h) ---- */

typedef struct {
    uint8_t ucFieldNo;
    uint8_t ucType;         /* ECM_TYPE_* of ecm_capi.h */
    uint16_t usWidth;       /* bytes */
    const char *pcName;     /* column name in a database file, "f<number>_<meaning>" */
    const char *pcScriptName;  /* the field's name for scripts, cfgdb and the vlanlua command */
} ECM_CTL_FIELD_S;

typedef struct {
    uint32_t uiTableId;
    const char *pcName;     /* SQL table name, also the table's name for scripts */
    const ECM_CTL_FIELD_S *pstFields;   /* in field-number order */
    uint32_t uiFieldNum;
    uint8_t aucKey[2];      /* key field numbers; the record's identity for set and delete */
    uint32_t uiKeyNum;      /* 0: the table is only read by the module and has no key */
    const char *pcWhat;     /* what the table holds, in a few words */
} ECM_CTL_TABLE_S;

/* Byte fields (text, bitmap) hold raw bytes; the others hold an unsigned integer. */
int ECM_CTL_IsByteType(uint32_t uiType);
const ECM_CTL_TABLE_S *ECM_CTL_FindTable(uint32_t uiTableId);
const ECM_CTL_FIELD_S *ECM_CTL_FindField(const ECM_CTL_TABLE_S *pstTable, uint32_t uiFieldNo);
/* By the names scripts use; null when there is none of that name. */
const ECM_CTL_TABLE_S *ECM_CTL_FindTableByName(const char *pcName);
const ECM_CTL_FIELD_S *ECM_CTL_FindFieldByName(const ECM_CTL_TABLE_S *pstTable, const char *pcScriptName);
/* The schema's tables in identifier order; uiIndex past the end gives null. */
const ECM_CTL_TABLE_S *ECM_CTL_TableAt(uint32_t uiIndex);

/* ---- Lifetime and binding ---- */

/* Opens a database object over an SQLite file (created when missing, WAL mode, every unit
 * durable when it ends) or, for a null path, over a private in-memory database. The object owns a
 * tagged-memory handle of its own. A file records the version of its schema: an older one is
 * upgraded in one transaction; a newer one, or an SQLite file that is not a configuration
 * database, is refused and left as it was. Returns null on failure, with a reason in pcErr.
 * Waits at most ECM_BUSY_TIMEOUT_DEFAULT ms for a database that others write. An object is used
 * by one thread at a time; threads and processes share a file through objects of their own. */
void *ECM_CTL_Open(const char *pcPath, uint32_t uiLrId, uint32_t uiVrId, uint32_t uiCdbId, char *pcErr,
                   size_t ulErrLen);
/* The same with the busy timeout of the object: the longest wait, in ms, for the database while
 * another connection writes it, here and in every unit of work on the object. */
void *ECM_CTL_OpenEx(const char *pcPath, uint32_t uiLrId, uint32_t uiVrId, uint32_t uiCdbId,
                     uint32_t uiBusyTimeoutMs, char *pcErr, size_t ulErrLen);
#define ECM_BUSY_TIMEOUT_DEFAULT 5000u
/* Opens a database file for reading only, writing nothing at all: no schema, no upgrade, no -wal
 * or -shm file beside it. A file whose write-ahead log is absent or empty is read as it is (SQLite's
 * immutable mode, which also serves read-only folders and media); one whose log holds changes not
 * yet in the file is read through the log, which needs the -shm file the writers keep beside it.
 * Only a file of this build's schema version is opened. Writes on the object fail. Null on
 * failure, with the reason in pcErr. */
void *ECM_CTL_OpenReadOnly(const char *pcPath, uint32_t uiLrId, uint32_t uiVrId, uint32_t uiCdbId, char *pcErr,
                           size_t ulErrLen);
/* The schema version that this build writes (PRAGMA user_version of a file). */
#define ECM_SCHEMA_VERSION 2u
/* Unbinds the object from the state it is bound to, closes the storage and destroys the
 * memory handle (live blocks stay valid for the leak report). Null does nothing. */
void ECM_CTL_Close(void *pObj);
/* Makes pObj the object that ECM_CAPI_GetObjExt(pState) returns; pState is a lua_State.
 * Close the object or unbind it before the state is closed. */
void ECM_CTL_Bind(void *pState, void *pObj);
/* Makes ECM_CAPI_GetObjExt(pState) return null again. */
void ECM_CTL_Unbind(void *pState);

/* ---- Units of work ----
 * Every script call's database work is one unit: it commits when the call returns, or not at all.
 * The unit opens at the call's first client operation on its object and holds the write lock
 * until the call returns, so calls from other connections (processes, threads) run as if one
 * after the other; reads outside units never wait. A call that cannot get the lock within the
 * busy timeout gets ECM_ERR_BUSY from that operation and from every later one of the call. A
 * commit that fails rolls the call's work back and raises a script error naming the database; a
 * call whose results cannot be handed to the script (out of memory, a metamethod raised) is rolled
 * back whole before its error is raised. Inside an outer unit a call's writes sit in a savepoint of
 * their own, so such a call takes back its own writes only.
 * Client operations made outside a script call stand alone, each its own transaction.
 * ECM_CTL_UnitBegin opens an outer unit on the object that the calls' units join until
 * ECM_CTL_UnitEnd commits it (bCommit != 0) or rolls it back; outer units nest. Set-up writes
 * made meanwhile join it too. Neither touches the journal. 0 on success, ECM_ERR_BUSY when the
 * lock was not had in time. */
uint32_t ECM_CTL_UnitBegin(void *pObj);
uint32_t ECM_CTL_UnitEnd(void *pObj, int bCommit);
/* Whether script calls open units on the object (default on). Off, each client operation stands
 * alone as it did before units existed; for measuring what units cost. */
void ECM_CTL_CallUnits(void *pObj, int bOn);

/* ---- Fault injection ----
 * ECM_CTL_FailCall(n) makes the n-th next client call on the object fail with ECM_ERR_INJECTED
 * (1 = the next one); 0 disarms. Counted are the calls that take the object and can fail:
 * GetCdbID, GetLrVrId, TPC_SelectAllRecByOrder, QueryExist, QueryCount, InsertRecord,
 * SetRecord, DeleteRecord and ApplyIndex; not GetObjExt or GetSimpleMemHandle, and never the
 * ECM_CTL_* operations. A failed call writes nothing and fills nothing. Fires once. */
void ECM_CTL_FailCall(void *pObj, uint32_t uiNth);
/* MOX_FailAlloc on the object's memory handle. */
void ECM_CTL_FailAlloc(void *pObj, uint32_t uiNth);

/* ---- Set-up and inspection (not counted, not journaled, never faulted) ---- */

/* One field value: ulNum for integer fields; pucBytes/uiLen for byte fields (shorter values
 * are zero-padded to the field's width). */
typedef struct {
    uint32_t uiFieldNo;
    uint32_t uiLen;
    uint64_t ulNum;
    const uint8_t *pucBytes;
} ECM_CTL_VAL_S;

/* Inserts a record; fields left out are 0. */
uint32_t ECM_CTL_Insert(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstVals, uint32_t uiNum);
/* Receives one record: every field of the schema in field-number order, byte fields at full width. */
typedef void (*ECM_CTL_ROW_FN)(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum);
/* Every record equal to all values of pstWhere, keyed tables in key order, others in insertion order. */
uint32_t ECM_CTL_Rows(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstWhere, uint32_t uiNum,
                      ECM_CTL_ROW_FN pfRow, void *pCtx);
uint32_t ECM_CTL_Count(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstWhere, uint32_t uiNum,
                       uint64_t *pulCount);
uint32_t ECM_CTL_Delete(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstWhere, uint32_t uiNum,
                        uint64_t *pulDeleted);
/* Reads whose conditions ask for rectangles overlapping a given one go through the table's spatial
 * index when there is one (bOn != 0, the default), or through the plain table; the results are the
 * same either way, which is what turning it off is for. */
void ECM_CTL_SpatialReads(void *pObj, int bOn);
/* Text of the last failure of a control operation on the object ("" when none). */
const char *ECM_CTL_LastError(void *pObj);
void *ECM_CTL_MemHandle(void *pObj);

/* ---- Journal: the successful writes of the client calls, in call order ----
 * A script call whose work is rolled back (it raised, or its commit failed) takes its entries out;
 * ECM_CTL_UnitEnd leaves them, so a rolled-back outer unit still shows what it would have written. */

#define ECM_JOURNAL_INSERT 1u
#define ECM_JOURNAL_SET    2u
#define ECM_JOURNAL_DELETE 3u

/* Fields in the order the call listed them; text fields cut at their first zero byte. */
typedef struct {
    uint32_t uiOp;
    uint32_t uiTableId;
    uint32_t uiFlag;
    uint32_t uiFieldNum;
    const ECM_CTL_VAL_S *pstFields;
} ECM_CTL_JOURNAL_S;

uint32_t ECM_CTL_JournalCount(void *pObj);
/* Entry uiIndex, valid until the journal is cleared or the object closed; 0 when it exists. */
uint32_t ECM_CTL_JournalGet(void *pObj, uint32_t uiIndex, ECM_CTL_JOURNAL_S *pstEntry);
void ECM_CTL_JournalClear(void *pObj);
/* Drops the entries from uiKeep on (writes rolled back with their unit); the first uiKeep stay. */
void ECM_CTL_JournalTruncate(void *pObj, uint32_t uiKeep);

/* ---- Trace: what each script call asked of the database ----
 * While an object traces, every client operation made on it is recorded, grouped by the script
 * call that made it (consecutive operations made outside script calls form a group of their own,
 * with an empty name): the kind of operation, its table, its result, the SQL statements the
 * object ran for it with the values bound to ?1, ?2, ..., the rows each statement returned (a read)
 * or changed (a write, not counting what triggers changed), and the time spent inside SQLite
 * stepping it (preparing a statement the first time it is used is charged to the operation). The
 * statements that begin a call's unit of work are part of its first operation; the one that ends
 * it is an operation of its own, "commit" or "rollback". Replayed in order on a copy of the
 * database as it was, a call's statements leave the copy as the call left the database. */

#define ECM_CTL_TRACE_CDB_ID      1u
#define ECM_CTL_TRACE_LR_VR_ID    2u
#define ECM_CTL_TRACE_SELECT      3u
#define ECM_CTL_TRACE_EXIST       4u
#define ECM_CTL_TRACE_COUNT       5u
#define ECM_CTL_TRACE_INSERT      6u
#define ECM_CTL_TRACE_SET         7u
#define ECM_CTL_TRACE_DELETE      8u
#define ECM_CTL_TRACE_APPLY_INDEX 9u
#define ECM_CTL_TRACE_COMMIT      10u
#define ECM_CTL_TRACE_ROLLBACK    11u

/* One bound value: an integer (uiLen 0) or uiLen bytes. */
typedef struct {
    uint32_t uiLen;
    int64_t llNum;
    const uint8_t *pucBytes;
} ECM_CTL_TRACE_VAL_S;

typedef struct {
    const char *pcSql;
    uint32_t uiValNum;                  /* the value of ?n is pstVals[n - 1] */
    const ECM_CTL_TRACE_VAL_S *pstVals;
    uint64_t ulRows;
    uint64_t ulNs;
} ECM_CTL_TRACE_STMT_S;

typedef struct {
    uint32_t uiOp;                      /* ECM_CTL_TRACE_* */
    uint32_t uiTableId;                 /* 0 for the operations on no table */
    uint32_t uiResult;                  /* what the operation answered, 0 for success */
    uint64_t ulRows;                    /* its statements' rows; for a count, the number counted */
    uint64_t ulNs;                      /* its statements' time and any preparation */
    uint32_t uiStmtNum;
    const ECM_CTL_TRACE_STMT_S *pstStmts;
} ECM_CTL_TRACE_OP_S;

typedef struct {
    const char *pcName;                 /* the name the script called the function by */
    uint64_t ulNs;                      /* its operations' time */
    uint32_t uiOpNum;
    const ECM_CTL_TRACE_OP_S *pstOps;
} ECM_CTL_TRACE_CALL_S;

/* Writes the name under which the script state is calling the running script function (empty
 * when it has none) into pcName, at most ulLen bytes with the terminating zero. */
typedef void (*ECM_CTL_CALL_NAME_FN)(void *pState, char *pcName, size_t ulLen);

/* Starts recording anew (bOn; what was recorded before is dropped), naming calls with pfName (null:
 * no names), or stops recording and keeps what was recorded. */
void ECM_CTL_Trace(void *pObj, int bOn, ECM_CTL_CALL_NAME_FN pfName);
uint32_t ECM_CTL_TraceCount(void *pObj);
/* Call uiIndex of the recording, valid until the recording is cleared, restarted, grows or the
 * object is closed; 0 when it exists. */
uint32_t ECM_CTL_TraceGet(void *pObj, uint32_t uiIndex, ECM_CTL_TRACE_CALL_S *pstCall);
void ECM_CTL_TraceClear(void *pObj);
/* "select", "insert", ... for an ECM_CTL_TRACE_* kind; "?" for another number. */
const char *ECM_CTL_TraceOpName(uint32_t uiOp);

/* The SQLite connection (sqlite3 *) behind the object, for tools that run SQL of their own beside
 * the client: the benchmarks' floors and the tests that replay a trace. Nothing done through it
 * is journaled, traced or checked. */
void *ECM_CTL_Storage(void *pObj);

#ifdef __cplusplus
}
#endif
#endif
