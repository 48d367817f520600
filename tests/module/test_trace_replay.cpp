/* The trace of module calls is the work they did: its statements, replayed in order with their
 * values on a copy of the database as it was before the calls (as the benchmarks' replay floor
 * runs them), leave the copy holding exactly the rows the calls left in the database. */
#include <sqlite3.h>

#include <memory>
#include <string>

#include "../../bench/bench_replay.h"
#include "ecm_ctl.h"
#include "vlanlua_test_db.h"

namespace {

/* Every row of every table, in rowid order, with the index counters: what the database holds. */
std::string Contents(sqlite3 *pDb)
{
    std::string strOut;
    for (uint32_t i = 0;; i++) {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_TableAt(i);
        std::string strTable = pstTable != nullptr ? pstTable->pcName : "ecm_index_counter";
        sqlite3_stmt *pStmt = nullptr;
        std::string strSql = "SELECT * FROM " + strTable + " ORDER BY rowid";
        EXPECT_EQ(sqlite3_prepare_v2(pDb, strSql.c_str(), -1, &pStmt, nullptr), SQLITE_OK) << strSql;
        strOut += strTable + ":";
        while (sqlite3_step(pStmt) == SQLITE_ROW) {
            for (int c = 0; c < sqlite3_column_count(pStmt); c++) {
                const char *pcText = reinterpret_cast<const char *>(sqlite3_column_text(pStmt, c));
                strOut.append(pcText != nullptr ? pcText : "NULL", static_cast<size_t>(sqlite3_column_bytes(pStmt, c)));
                strOut += c + 1 < sqlite3_column_count(pStmt) ? "," : "\n";
            }
        }
        sqlite3_finalize(pStmt);
        if (pstTable == nullptr) {
            return strOut;
        }
    }
}

sqlite3 *CopyOf(sqlite3 *pSrc)
{
    sqlite3 *pCopy = nullptr;
    EXPECT_EQ(sqlite3_open(":memory:", &pCopy), SQLITE_OK);
    sqlite3_backup *pBackup = sqlite3_backup_init(pCopy, "main", pSrc, "main");
    EXPECT_NE(pBackup, nullptr);
    EXPECT_EQ(sqlite3_backup_step(pBackup, -1), SQLITE_DONE);
    sqlite3_backup_finish(pBackup);
    return pCopy;
}

}  // namespace

using TraceReplayTest = VlanLuaDbTest;

TEST_F(TraceReplayTest, ReplayedOnACopyTheStatementsLeaveTheRowsTheCallsLeft)
{
    /* Stored user-VLAN segments with services, match rules and a counter, as the calls find them. */
    Lua("uv = require 'libvlanluaext'\n"
        "local function set(ifx, peb, pee, ceb, cee, svcs)\n"
        "  assert(uv.VLAN_spt_SetUserVlanQinQSvc({ifx, peb, pee, ceb, cee, 7, 1, 2, 3, 'k'}, svcs) == 0)\n"
        "end\n"
        "for p = 1, 6 do for c = 1, 6 do set(10, p, p, c, c, {1, 1 + (p + c) % 2, 9, p}) end end\n"
        "db:insert('DOT1Q_MATCH_SEG', {ifIndex = 20, segIndex = 900, vlanBegin = 2, vlanEnd = 2, groupId = 1, vrId = 7})\n"
        "db:insert('DOT1Q_MATCH_SEG', {ifIndex = 20, segIndex = 901, vlanBegin = 4, vlanEnd = 4, groupId = 1, vrId = 7})\n"
        "db:insert('QINQ_MATCH_SEG', {ifIndex = 30, segIndex = 950, peBegin = 9, peEnd = 12, ceBegin = 1, ceEnd = 4,"
        " groupId = 1, vrId = 7})\n"
        "db:insert('QINQ_IF_SPEC', {vrId = 7, mainIfIndex = 0x4000, qinqNum = 3})\n"
        "db:journal()");
    sqlite3 *pDb = static_cast<sqlite3 *>(ECM_CTL_Storage(pObj));
    std::unique_ptr<sqlite3, int (*)(sqlite3 *)> pCopy(CopyOf(pDb), sqlite3_close);
    std::string strBefore = Contents(pCopy.get());

    ECM_CTL_Trace(pObj, 1, nullptr);
    /* A merge of the grid (deletes, a new row, services created), a service change in place, a
     * removal of part of a row, the match merges, the counter and a control-VLAN bitmap. */
    Lua("assert(uv.VLAN_spt_SetUserVlanQinQSvc({10, 1, 6, 1, 6, 7, 1, 2, 3, 'k'}, {1, 5}) == 0)\n"
        "assert(uv.VLAN_spt_SetUserVlanQinQSvc({10, 1, 6, 1, 6, 7, 1, 2, 3, 'k'}, {2, 8, 9, 0}) == 0)\n"
        "assert(uv.VLAN_spt_SetUserVlanQinQSvc({10, 2, 3, 2, 3, 7, 1, 2, 3, 'k'}, {16, 1}) == 0)\n"
        "assert(uv.VLAN_spt_Dot1QMatchMerge({20, 3, 3, 1, 7, 0, 0, 0}) == 0)\n"
        "assert(select(2, uv.VLAN_spt_QinQMatchMerge({30, 0, 5, 8, 1, 4, 0x4000, 1, 7, 0, 'k'})) == 1)\n"
        "assert(uv.VLAN_spt_UpdataQinQIfSpec(0x4000, 4, 7, true) == 0)\n"
        "assert(uv.VLAN_spt_CrtCtrlVidBitMap(42, 100, 7) == 0)\n"
        "assert(uv.VLAN_spt_UpdataCtrlVidBitMap(42, 200, 7, 100) == 0)");
    ECM_CTL_Trace(pObj, 0, nullptr);
    std::string strAfter = Contents(pDb);
    ASSERT_NE(strAfter, strBefore) << "the calls changed nothing";
    EXPECT_EQ(ECM_CTL_TraceCount(pObj), 8u);

    {
        TraceReplay stReplay(pCopy.get(), pObj);
        EXPECT_TRUE(stReplay.Ready());
        uint64_t ulSink = 0;
        EXPECT_EQ(stReplay.Run(&ulSink), 0u) << "a replayed statement failed";
    }
    EXPECT_EQ(Contents(pCopy.get()), strAfter);
}
