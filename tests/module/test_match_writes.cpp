// The field lists of the match-rule writes as the database receives them: field order, flag and
// the record identity of deletes. The database refuses a type code or width that differs from
// its schema, so a successful write also proves those.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <vector>

#include "cor/vlanlua_cor_match.h"
#include "ecm_ctl.h"
#include "vlanlua_test_db.h"

namespace {

struct Write {
    uint32_t uiOp;
    uint32_t uiTable;
    uint32_t uiFlag;
    std::vector<uint32_t> fields;
    bool operator==(const Write &o) const
    {
        return uiOp == o.uiOp && uiTable == o.uiTable && uiFlag == o.uiFlag && fields == o.fields;
    }
};

std::ostream &operator<<(std::ostream &os, const Write &w)
{
    os << "op " << w.uiOp << " table " << std::hex << w.uiTable << std::dec << " flag " << w.uiFlag << " fields";
    for (uint32_t f : w.fields) {
        os << ' ' << f;
    }
    return os;
}

constexpr uint32_t kIns = ECM_JOURNAL_INSERT, kSet = ECM_JOURNAL_SET, kDel = ECM_JOURNAL_DELETE;
const std::vector<uint32_t> kSegIndexFields = {1, 2};
const std::vector<uint32_t> kKeyFields = {2, 3};

class MatchWrites : public VlanLuaDbTest {
protected:
    void SetUp() override
    {
        VlanLuaDbTest::SetUp();
        m_pObj = pObj;
        m_stCtx = {&m_stLog, m_pObj};
    }
    void TearDown() override
    {
        EXPECT_EQ(0u, m_stLog.usUsedLen) << "the match paths write no message";
        VlanLuaDbTest::TearDown();
    }
    std::vector<Write> Journal()
    {
        std::vector<Write> out;
        for (uint32_t i = 0; i < ECM_CTL_JournalCount(m_pObj); i++) {
            ECM_CTL_JOURNAL_S e = {};
            EXPECT_EQ(0u, ECM_CTL_JournalGet(m_pObj, i, &e));
            Write w{e.uiOp, e.uiTableId, e.uiFlag, {}};
            for (uint32_t f = 0; f < e.uiFieldNum; f++) {
                w.fields.push_back(e.pstFields[f].uiFieldNo);
            }
            out.push_back(w);
        }
        ECM_CTL_JournalClear(m_pObj);
        return out;
    }
    void Store(uint32_t uiTable, std::vector<ECM_CTL_VAL_S> vals)
    {
        ASSERT_EQ(0u, ECM_CTL_Insert(m_pObj, uiTable, vals.data(), static_cast<uint32_t>(vals.size())));
    }

    void *m_pObj = nullptr;
    VLANLUA_LOG_S m_stLog = {};
    VLANLUA_CTX_S m_stCtx = {};
};

TEST_F(MatchWrites, Dot1QMergeListsAllTenFieldsInOrderThenDeletesByKey)
{
    Store(VLANLUA_TBL_DOT1Q_MATCH_SEG, {{2, 0, 5, nullptr}, {3, 0, 900, nullptr}, {4, 0, 1, nullptr},
                                        {5, 0, 9, nullptr}, {6, 0, 1, nullptr}});
    VLANLUA_DOT1QMATCH_S stNew = {};
    stNew.uiIfIndex = 5;
    stNew.usBgn = 10;
    stNew.usEnd = 20;
    stNew.ucGroupId = 1;
    stNew.uiVrId = 7;
    ASSERT_EQ(0u, VLAN_API_Dot1QMatchMerge(&m_stCtx, &stNew));
    EXPECT_EQ(Journal(), (std::vector<Write>{
                             {kIns, VLANLUA_TBL_SEG_INDEX, 0, kSegIndexFields},
                             {kIns, VLANLUA_TBL_DOT1Q_MATCH_SEG, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
                             {kDel, VLANLUA_TBL_DOT1Q_MATCH_SEG, 1, kKeyFields}}));
}

TEST_F(MatchWrites, QinQMergeListsAllTwelveFieldsInOrder)
{
    Store(VLANLUA_TBL_QINQ_MATCH_SEG, {{2, 0, 5, nullptr}, {3, 0, 900, nullptr}, {4, 0, 100, nullptr},
                                       {5, 0, 100, nullptr}, {6, 0, 1, nullptr}, {7, 0, 10, nullptr},
                                       {8, 0, 1, nullptr}, {9, 0, 7, nullptr}});
    VLANLUA_QINQMATCH_S stNew = {};
    stNew.uiIfIndex = 5;
    stNew.usPeBgn = stNew.usPeEnd = 100;
    stNew.usCeBgn = 11;
    stNew.usCeEnd = 20;
    stNew.ucGroupId = 1;
    stNew.uiVrId = 7;
    std::memcpy(stNew.szKeyName, "k", 1);
    uint32_t uiNodes = 0;
    ASSERT_EQ(0u, VLAN_API_QinQMatchMerge(&m_stCtx, &stNew, &uiNodes));
    EXPECT_EQ(2u, uiNodes);
    EXPECT_EQ(Journal(), (std::vector<Write>{
                             {kDel, VLANLUA_TBL_QINQ_MATCH_SEG, 1, kKeyFields},
                             {kIns, VLANLUA_TBL_SEG_INDEX, 0, kSegIndexFields},
                             {kIns, VLANLUA_TBL_QINQ_MATCH_SEG, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}}));
    EXPECT_EQ(1u, stNew.usCeBgn);    // the request itself carries the merged rectangle
    EXPECT_NE(0u, stNew.uiSegIndex);
}

TEST_F(MatchWrites, CounterWritesListVrIdMainInterfaceAndCounter)
{
    VLANLUA_QINQIFSPEC_S stReq = {0x4000, 5, 7, 1};
    ASSERT_EQ(0u, vlanLua_UpdataQinQIfSpec(&m_stLog, m_pObj, &stReq));
    stReq.uiQinQNum = 2;
    ASSERT_EQ(0u, vlanLua_UpdataQinQIfSpec(&m_stLog, m_pObj, &stReq));
    stReq.uiQinQNum = 7;
    stReq.uiIsAdd = 0;
    ASSERT_EQ(0u, vlanLua_UpdataQinQIfSpec(&m_stLog, m_pObj, &stReq));
    const uint32_t uiSpec = VLANLUA_TBL_QINQ_IF_SPEC;
    EXPECT_EQ(Journal(), (std::vector<Write>{
                             {kIns, uiSpec, 0, {1, 2, 3}}, {kSet, uiSpec, 0, {1, 2, 3}}, {kDel, uiSpec, 0, {1, 2}}}));
}

}  // namespace
