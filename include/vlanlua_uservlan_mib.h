/* User-VLAN queries: the query key, entries and pair buffer shared by the existence checks and
 * the get-next walk of the user-VLAN tables. Nothing declared here writes to the database. */
#ifndef VLANLUA_USERVLAN_MIB_H
#define VLANLUA_USERVLAN_MIB_H

#include <stdint.h>

#include "kel_avl3.h"
#include "kel_order.h"
#include "vlanlua_db.h"
#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VLANLUA_UVLAN_PAIR_MAX      4096u       /* one pair node per distinct begin value */
#define VLANLUA_UVLAN_PAIR_KEYOFS   (3u * KEL_PTR_SIZE + 4u)  /* place of usCeBgn in a pair node: 28 on 64 bits */
#define VLANLUA_UVLAN_CE_DONE       0xFFFFu     /* a source's CE VLAN once it is exhausted */
#define VLANLUA_UVLAN_IF_NONE       0xFFFFFFFFu /* an exhausted source's interface */
#define VLANLUA_UVLAN_QINQ_IF_MAX   64u         /* QinQ interfaces one walk visits */
#define VLANLUA_UVLAN_QUERY_ANYOTHER 2u
#define VLANLUA_UVLAN_QUERY_DESC     1u
#define VLANLUA_UVLAN_IFKIND_QINQ    11u
#define VLANLUA_UVLAN_DESC_LEN       129u

/* The key of every query: the entry named (or to start after) and how the walk runs. */
typedef struct {
    uint32_t uiIfIndex;
    uint16_t usPeVid;           /* 0 for an 802.1Q entry */
    uint16_t usCeVid;           /* 0 for an any-other entry */
    uint32_t uiQueryNum;
    uint32_t uiVrId;
    uint32_t uiQueryType;       /* 2 any-other walk; otherwise 802.1Q and QinQ, 1 with descriptions */
} VLANLUA_UVLAN_MIBKEY_S;

/* One entry of a walk: PE 0 for 802.1Q, both VLANs 0 for any-other. */
typedef struct {
    uint32_t uiIfIndex;
    uint16_t usPeVlan;
    uint16_t usCeVlan;
} VLANLUA_UVLAN_MIBENTRY_S;

/* Entries collected by a walk; the fills stop when uiCount reaches uiCapacity. */
typedef struct {
    VLANLUA_UVLAN_MIBENTRY_S *pstEntry;
    uint32_t uiCapacity;
    uint32_t uiCount;
} VLANLUA_UVLAN_MIBOUT_S;

typedef struct {
    uint32_t uiBgn;
    uint32_t uiEnd;
    uint32_t uiVal;
} VLANLUA_UVLAN_CNTKEY_S;

/* A pair node: the platform tree node's three links and word, then the range it holds. */
typedef struct {
    KEL_AVL3_NODE_S *pstParent;
    KEL_AVL3_NODE_S *pstLeft;
    KEL_AVL3_NODE_S *pstRight;
    uint32_t uiHeight;
    uint16_t usCeBgn;           /* the tree's key */
    uint16_t usCeEnd;
} VLANLUA_UVLAN_PAIRNODE_S;

/* A sorted set of at most 4096 ranges, one per begin value, in one block of nodes. */
typedef struct {
    VLANLUA_UVLAN_PAIRNODE_S *pstNode;
    uint32_t uiMaxNum;
    uint32_t uiNodeNum;
    KEL_AVL3_TREE_S stTree;
    KEL_AVL3_TREE_INFO_S stTreeInfo;
} VLANLUA_UVLAN_PAIRBUF_S;

/* Row of table UVLAN_DOT1Q as read: interface, first and last VLAN. */
typedef struct {
    uint32_t uiIfIndex;
    uint16_t usVlanBgn;
    uint16_t usVlanEnd;
} VLANLUA_UVLAN_DOT1QREC_S;

/* Row of table UVLAN_QINQ_SEG as read: interface, PE range, CE range. */
typedef struct {
    uint32_t uiIfIndex;
    uint16_t usPeBgn;
    uint16_t usPeEnd;
    uint16_t usCeBgn;
    uint16_t usCeEnd;
} VLANLUA_UVLAN_QINQREC_S;

/* Row of the description table as read: 137 bytes, packed, the text 8 bytes in. */
typedef struct __attribute__((packed)) {
    uint32_t uiIfIndex;
    uint16_t usPeVlan;
    uint16_t usCeVlan;
    char acDesc[VLANLUA_UVLAN_DESC_LEN];
} VLANLUA_UVLAN_DESCREC_S;

/* Rows read by one query; uiCur only moves forward. */
typedef struct {
    VLANLUA_RECORDSET_S *pstRs;
    uint8_t *pucData;
    uint32_t uiRecNum;
    uint32_t uiCur;
} VLANLUA_UVLAN_LIST_S;

typedef struct {
    VLANLUA_UVLAN_LIST_S stList;
    uint32_t uiQueried;
} VLANLUA_UVLAN_DESCLIST_S;

/* What one walk has read and where each source stands. */
typedef struct {
    VLANLUA_UVLAN_LIST_S stDot1qList;
    uint32_t uiDot1qQueried;
    VLANLUA_UVLAN_LIST_S stQinqList;
    uint32_t auiQinqIfIndex[VLANLUA_UVLAN_QINQ_IF_MAX];
    uint32_t uiQinqIfNum;
    uint32_t uiQinqIfCur;
    VLANLUA_UVLAN_LIST_S stAnyOtherList;
    uint32_t uiAnyOtherQueried;
    VLANLUA_UVLAN_PAIRBUF_S stPairBuf;
    VLANLUA_UVLAN_MIBKEY_S stDot1qKey;
    VLANLUA_UVLAN_MIBKEY_S stQinqKey;
    VLANLUA_UVLAN_MIBKEY_S stAnyOtherKey;
} VLANLUA_UVLAN_QUERYSET_S;

/* Ordering, pair buffer and counting. */
int32_t vlanLua_UserVlanCompareUshort(const void *pKey1, const void *pKey2);
uint32_t vlanLua_VlanPairBuffCreate(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_PAIRBUF_S *pstBuf);
void vlanLua_VlanPairBuffDelete(VLANLUA_UVLAN_PAIRBUF_S *pstBuf);
void vlanLua_VlanPairBuffReset(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_PAIRBUF_S *pstBuf);
uint32_t vlanLua_VlanPairAdd(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_PAIRBUF_S *pstBuf, uint16_t usBgn, uint16_t usEnd);
uint32_t vlanLua_UserVlanCnt(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_CNTKEY_S *pstKey, uint32_t uiTableId,
                             uint8_t ucRangeField, uint8_t ucEqualField, uint32_t *puiCount);

/* Existence checks. */
uint32_t vlanLua_UserVlanDot1qExist(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey);
uint32_t vlanLua_UserVlanQinqExist(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey);
uint32_t VLAN_UserVlanQinqParaCheck(void *pState);

/* Queries that load the sources of a walk. */
void vlanLua_UserVlanDot1qQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                VLANLUA_UVLAN_QUERYSET_S *pstSet);
void vlanLua_UserVlanQinqQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                               VLANLUA_UVLAN_LIST_S *pstList);
void vlanLua_UserVlanQinqQueryIfIndex(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                      VLANLUA_UVLAN_QUERYSET_S *pstSet);
void vlanLua_UserVlanAnyOtherQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                   VLANLUA_UVLAN_QUERYSET_S *pstSet);
void vlanLua_UserVlanDescQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBOUT_S *pstOut, uint32_t uiVrId,
                               VLANLUA_UVLAN_DESCLIST_S *pstDesc);
VLANLUA_RECORDSET_S *vlanLua_UserVlanDescQueryByCond(VLANLUA_CTX_S *pstCtx, uint32_t uiFirstIf, uint32_t uiLastIf,
                                                     uint32_t uiVrId, uint32_t uiRowNum);
const char *vlanLua_UserVlanGetDesc(const VLANLUA_UVLAN_MIBENTRY_S *pstEntry, VLANLUA_UVLAN_DESCLIST_S *pstDesc);
void vlanLua_UserVlan_QuerySet_Delete(VLANLUA_UVLAN_QUERYSET_S *pstSet);

/* Fills: append entries in get-next order until the entry list is full. */
uint32_t vlanLua_UserVlanDot1qFill(uint32_t uiIfIndex, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                   VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanDot1qKeyIfIndexFill(const VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                             VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanQinqFillPePair(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                        const VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_PAIRBUF_S *pstBuf);
uint32_t vlanLua_UserVlanQinqFillRec(uint32_t uiIfIndex, uint16_t usCeVlan, VLANLUA_UVLAN_PAIRBUF_S *pstBuf,
                                     VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanQinqFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                  VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_PAIRBUF_S *pstBuf,
                                  VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanQinqKeyIfIndexFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                            VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_PAIRBUF_S *pstBuf,
                                            VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanDot1qQinqFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                       VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanKeyDot1qQinqFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                          VLANLUA_UVLAN_MIBOUT_S *pstOut);
void vlanLua_UserVlanAnyOtherFill(uint32_t uiIfIndex, VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_MIBOUT_S *pstOut);

/* Positions of the sources. */
uint32_t vlanLua_UserVlanDot1qGetNextCeVlan(uint32_t uiIfIndex, VLANLUA_UVLAN_LIST_S *pstList, uint16_t *pusCeVlan);
uint32_t vlanLua_UserVlanQinqGetNextCeVlan(uint32_t uiIfIndex, VLANLUA_UVLAN_LIST_S *pstList, uint16_t *pusCeVlan);
void vlanLua_UserVlanDot1qKeyFill(VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_UVLAN_LIST_S *pstList);
void vlanLua_UserVlanQinqKeyFill(VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_UVLAN_LIST_S *pstList);

/* The walk. */
uint32_t vlanLua_UserVlanMibQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                  VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanMibFirstQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                       VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanMibDot1qQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                       VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut);
uint32_t vlanLua_UserVlanMibQinqQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                      VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut);
void vlanLua_UserVlanMibSetKey(VLANLUA_UVLAN_MIBKEY_S *pstKey, uint32_t uiIfIndex, uint16_t usPeVid,
                               uint16_t usCeVid, uint32_t uiVrId, uint32_t uiQueryNum, uint32_t uiQueryType);

/* The answer of the script function, built on the script stack. */
uint32_t VLAN_UserVlanMibQueryParse(void *pState, VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_LOG_S *pstLog);
uint32_t VLAN_API_UserVlanMibQuery(void *pState, VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey);
void VLAN_API_UserVlanMibSetOutput(void *pState, VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBENTRY_S *pstEntry,
                                   VLANLUA_UVLAN_DESCLIST_S *pstDesc, uint32_t uiIndex);

#ifdef __cplusplus
}
static_assert(sizeof(VLANLUA_UVLAN_MIBKEY_S) == 20, "query key layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_MIBKEY_S, uiQueryNum) == 8, "query key layout");
static_assert(sizeof(VLANLUA_UVLAN_MIBENTRY_S) == 8, "entry layout");
static_assert(sizeof(VLANLUA_UVLAN_CNTKEY_S) == 12, "counting key layout");
static_assert(sizeof(VLANLUA_UVLAN_PAIRNODE_S) == 3 * KEL_PTR_SIZE + 8, "pair node layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_PAIRNODE_S, usCeBgn) == VLANLUA_UVLAN_PAIR_KEYOFS, "pair node key");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_PAIRNODE_S, uiHeight) ==
              __builtin_offsetof(KEL_AVL3_NODE_S, uiHeight), "pair node links");
static_assert(sizeof(VLANLUA_UVLAN_DOT1QREC_S) == 8, "dot1q row layout");
static_assert(sizeof(VLANLUA_UVLAN_QINQREC_S) == 12, "QinQ row layout");
static_assert(sizeof(VLANLUA_UVLAN_DESCREC_S) == 137, "description row layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_DESCREC_S, acDesc) == 8, "description row layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_PAIRBUF_S, stTree) == KEL_PTR_SIZE + 8, "pair buffer layout");
#endif
#endif
