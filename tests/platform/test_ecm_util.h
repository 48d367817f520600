/* Helpers of the database tests: an in-memory object per test, blocks built field by field the
 * way a client fills them, and snapshots of a table through the control side. */
#ifndef TEST_ECM_UTIL_H
#define TEST_ECM_UTIL_H

#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "ecm_capi.h"
#include "ecm_ctl.h"
#include "vlanlua_tables.h"

namespace ecmtest {

constexpr uint32_t IF_INFO = VLANLUA_TBL_IF_INFO;
constexpr uint32_t L2_PORT = VLANLUA_TBL_L2_PORT;
constexpr uint32_t PV_RELATION = VLANLUA_TBL_PV_RELATION;
constexpr uint32_t CTRL_VID_BITMAP = VLANLUA_TBL_CTRL_VID_BITMAP;
constexpr uint32_t DOT1Q_MATCH_SEG = VLANLUA_TBL_DOT1Q_MATCH_SEG;
constexpr uint32_t SEG_INDEX = VLANLUA_TBL_SEG_INDEX;
constexpr uint32_t QINQ_MATCH_SEG = VLANLUA_TBL_QINQ_MATCH_SEG;
constexpr uint32_t QINQ_IF_SPEC = VLANLUA_TBL_QINQ_IF_SPEC;
constexpr uint32_t UVLAN_QINQ_SEG = VLANLUA_TBL_UVLAN_QINQ_SEG;
constexpr uint32_t UVLAN_BASE_SVC = VLANLUA_TBL_UVLAN_BASE_SVC;

/* A record as the control side sees it: field number -> integer or bytes. */
using Row = std::map<uint32_t, std::string>;

inline std::string Num(uint64_t ulValue) { return std::string("#").append(std::to_string(ulValue)); }

/* Conditions, selection and sort of one query, filled as a client fills them. */
struct Query {
    ECM_COND_BLOCK_S stWhere{};
    ECM_SELECT_S stSelect{};
    ECM_SORT_S stSort{};
    uint8_t aucSort[ECM_SORT_MAX]{};
    std::vector<uint8_t> vecBuf;
    ECM_RESULT_S stResult{};

    Query() { stSort.pucSortField = aucSort; }
    Query &Where(uint8_t ucField, uint32_t uiOp, const void *pvValue, uint32_t uiWidth)
    {
        ECM_COND_S *pstCond = &stWhere.astCond[stWhere.usCondNum++];
        pstCond->ucFieldId = ucField;
        pstCond->uiOp = uiOp;
        memcpy(pstCond->aucValue, pvValue, uiWidth);
        return *this;
    }
    Query &Where32(uint8_t ucField, uint32_t uiOp, uint32_t uiValue) { return Where(ucField, uiOp, &uiValue, 4); }
    Query &Where16(uint8_t ucField, uint32_t uiOp, uint16_t usValue) { return Where(ucField, uiOp, &usValue, 2); }
    Query &Where8(uint8_t ucField, uint32_t uiOp, uint8_t ucValue) { return Where(ucField, uiOp, &ucValue, 1); }
    Query &Select(uint8_t ucField)
    {
        stSelect.aucFieldId[stSelect.ucFieldNum++] = ucField;
        return *this;
    }
    Query &Sort(uint8_t ucField)
    {
        aucSort[stSort.ucSortNum++] = ucField;
        return *this;
    }
    /* Runs the select for at most usNum records of usRecLen bytes. */
    uint32_t Run(void *pObj, uint32_t uiTable, uint16_t usRecLen, uint16_t usNum)
    {
        vecBuf.assign(static_cast<size_t>(usRecLen) * usNum + 1, 0xEE);
        stResult.usRecLen = usRecLen;
        stResult.usRecNum = usNum;
        stResult.uiBufLen = static_cast<uint32_t>(usRecLen) * usNum;
        stResult.uiDataLen = stResult.uiBufLen;
        stResult.pucData = vecBuf.data();
        return ECM_CAPI_TPC_SelectAllRecByOrder(pObj, 0, uiTable, &stSort, &stWhere, &stSelect, &stResult);
    }
    uint32_t U32At(size_t ulRec, size_t ulOff) const
    {
        uint32_t uiValue;
        memcpy(&uiValue, &vecBuf[ulRec * stResult.usRecLen + ulOff], 4);
        return uiValue;
    }
};

/* One field value of a write, the way a client lists them. */
struct Writes {
    std::vector<ECM_FIELDVAL_S> vecFields;
    std::vector<std::vector<uint8_t>> vecValues;

    Writes() { vecValues.reserve(32); }
    Writes &Add(uint32_t uiType, uint16_t usField, uint16_t usWidth, uint64_t ulValue)
    {
        vecValues.emplace_back(usWidth, 0);
        KEL_PutNum(vecValues.back().data(), usWidth < 8 ? usWidth : 8, ulValue);
        vecFields.push_back({uiType, usField, usWidth, vecValues.back().data()});
        return *this;
    }
    Writes &U32(uint16_t usField, uint32_t uiValue) { return Add(ECM_TYPE_U32, usField, 4, uiValue); }
    Writes &U16(uint16_t usField, uint16_t usValue) { return Add(ECM_TYPE_U16, usField, 2, usValue); }
    Writes &U8(uint16_t usField, uint8_t ucValue) { return Add(ECM_TYPE_U8, usField, 1, ucValue); }
    Writes &Vr(uint16_t usField, uint32_t uiValue) { return Add(ECM_TYPE_VRID, usField, 4, uiValue); }
    Writes &Bytes(uint32_t uiType, uint16_t usField, uint16_t usWidth, const std::string &strValue)
    {
        vecValues.emplace_back(usWidth, 0);
        memcpy(vecValues.back().data(), strValue.data(), strValue.size());
        vecFields.push_back({uiType, usField, usWidth, vecValues.back().data()});
        return *this;
    }
    const ECM_FIELDVAL_S *Data() const { return vecFields.data(); }
    uint32_t Num() const { return static_cast<uint32_t>(vecFields.size()); }
};

inline void CollectRow(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum)
{
    Row stRow;
    for (uint32_t i = 0; i < uiNum; i++) {
        stRow[pstFields[i].uiFieldNo] =
            pstFields[i].pucBytes != nullptr
                ? std::string(reinterpret_cast<const char *>(pstFields[i].pucBytes), pstFields[i].uiLen)
                : Num(pstFields[i].ulNum);
    }
    static_cast<std::vector<Row> *>(pCtx)->push_back(stRow);
}

/* Every record of a table in the control side's order. */
inline std::vector<Row> Rows(void *pObj, uint32_t uiTable)
{
    std::vector<Row> vecRows;
    EXPECT_EQ(ECM_OK, ECM_CTL_Rows(pObj, uiTable, nullptr, 0, CollectRow, &vecRows));
    return vecRows;
}

/* Inserts through the control side: integer fields only. */
inline void Put(void *pObj, uint32_t uiTable, std::initializer_list<std::pair<uint32_t, uint64_t>> lstFields)
{
    std::vector<ECM_CTL_VAL_S> vecVals;
    for (const auto &stField : lstFields) {
        vecVals.push_back({stField.first, 0, stField.second, nullptr});
    }
    ASSERT_EQ(ECM_OK, ECM_CTL_Insert(pObj, uiTable, vecVals.data(), static_cast<uint32_t>(vecVals.size())))
        << ECM_CTL_LastError(pObj);
}

/* A file path of this test process, removed with its WAL companions. */
class TempDb {
public:
    explicit TempDb(const char *pcName)
        : m_strPath(::testing::TempDir() + pcName + "_" + std::to_string(getpid()) + ".db")
    {
        Remove();
    }
    ~TempDb() { Remove(); }
    const char *Path() const { return m_strPath.c_str(); }
private:
    void Remove()
    {
        for (const char *pcSuffix : {"", "-wal", "-shm", "-journal"}) {
            unlink((m_strPath + pcSuffix).c_str());
        }
    }
    std::string m_strPath;
};

/* A fresh in-memory database object per test. */
class EcmTest : public ::testing::Test {
protected:
    void SetUp() override { pObj = ECM_CTL_Open(nullptr, 7, 3, 11, nullptr, 0); ASSERT_NE(nullptr, pObj); }
    void TearDown() override { ECM_CTL_Close(pObj); }
    void *pObj = nullptr;
};

}  // namespace ecmtest

#endif
