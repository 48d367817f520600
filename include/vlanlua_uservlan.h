/* Records of the user-VLAN QinQ services: owner key, VLAN rectangle, service info, the stored
 * segment rows, and the working set of one request. Field order and widths are fixed. */
#ifndef VLANLUA_USERVLAN_H
#define VLANLUA_USERVLAN_H

#include <stdint.h>

#include "kel_avl3.h"
#include "vlanlua_db.h"
#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VLANLUA_UVLAN_KEYNAME_LEN  64
#define VLANLUA_UVLAN_SVC_NUM      17      /* service types 0..16; entry 0 is never used */
#define VLANLUA_UVLAN_SVC_MAX      16
#define VLANLUA_UVLAN_SVC_REMOVE   16      /* a present entry 16 asks for removal */
#define VLANLUA_UVLAN_SVC_SCRIPT_REMOVE 255 /* the script's spelling of type 16 */
#define VLANLUA_UVLAN_MAP_LEN      8

/* Record flags of a service segment. */
#define UVLAN_SEG_COVERED    0x01u
#define UVLAN_SEG_MERGED     0x02u
#define UVLAN_SVC_NONE       0x04u
#define UVLAN_SVC_NOVPN      0x08u
#define UVLAN_SVC_NOBASE     0x10u
#define UVLAN_SEG_CREATESVC  0x20u
#define UVLAN_SEG_MATCHED    0x40u
#define UVLAN_SVC_FLAGS      (UVLAN_SVC_NONE | UVLAN_SVC_NOVPN | UVLAN_SVC_NOBASE)

/* Flags of the service set. */
#define UVLAN_SET_ALLCOVERED 0x01u
#define UVLAN_SET_REMOVE     0x02u
#define UVLAN_SET_SEGCHG     0x04u
#define UVLAN_SET_SEGADDDEL  0x08u

/* Whose segments are configured. */
typedef struct {
    uint32_t uiIfIndex;
    uint32_t uiKeyA;
    uint32_t uiKeyB;
    uint32_t uiVrId;
    uint32_t uiUpId;
    char szKeyName[VLANLUA_UVLAN_KEYNAME_LEN];
} VLANLUA_UVLAN_KEY_S;

/* A PE range by a CE range, both ends inclusive. */
typedef struct {
    uint16_t usPeBgn;
    uint16_t usPeEnd;
    uint16_t usCeBgn;
    uint16_t usCeEnd;
} VLANLUA_UVLAN_PAIR_S;

/* Segments of an interface whose PE and CE ranges meet these ranges; the VR ID takes no part. */
typedef struct {
    uint32_t uiIfIndex;
    uint16_t usPeLow;
    uint16_t usPeHigh;
    uint16_t usCeLow;
    uint16_t usCeHigh;
} VLANLUA_UVLAN_SEGQRY_S;

typedef struct {
    uint32_t uiSvcType;     /* equal to the entry's index when set, 0 when unset */
    uint32_t uiSvcValue;
} VLANLUA_UVLAN_SVC_S;

typedef struct {
    VLANLUA_UVLAN_SVC_S astSvc[VLANLUA_UVLAN_SVC_NUM];
} VLANLUA_UVLAN_SVCINFO_S;

/* One row of a segment query, packed as the database delivers it. */
typedef struct {
    uint32_t uiIfIndex;
    uint16_t usPeBgn;
    uint16_t usPeEnd;
    uint16_t usCeBgn;
    uint16_t usCeEnd;
    uint32_t uiSegIndex;
    uint32_t uiKeyA;
    uint32_t uiKeyB;
} VLANLUA_UVLAN_SEGREC_S;

/* The result of a segment query; the record set owns the buffer. */
typedef struct {
    uint32_t uiNum;
    uint8_t *pucData;
    VLANLUA_RECORDSET_S *pstRs;
} VLANLUA_UVLAN_SEGLIST_S;

/* A rectangle with its services: the request, a stored segment or a piece of either. */
typedef struct VLANLUA_UVLAN_SVCSEG {
    KEL_AVL3_NODE_S stNode;
    uint32_t uiSegIndex;
    VLANLUA_UVLAN_PAIR_S stPair;
    VLANLUA_UVLAN_SVCINFO_S stSvcInfo;
    uint32_t uiFlag;
    struct VLANLUA_UVLAN_SVCSEG *pstNext;
} VLANLUA_UVLAN_SVCSEG_S;

/* A PE cut point: the first PE VLAN of a new piece. */
typedef struct {
    KEL_AVL3_NODE_S stNode;
    uint16_t usVlanId;
    uint16_t usRsv;
} VLANLUA_UVLAN_PENODE_S;

typedef struct {
    uint32_t uiNum;
    VLANLUA_UVLAN_SVCSEG_S *pstSegs;
} VLANLUA_UVLAN_SEGARRAY_S;

/* A platform tree with the description of its elements. */
typedef struct {
    KEL_AVL3_TREE_S stTree;
    KEL_AVL3_TREE_INFO_S stInfo;
} VLANLUA_UVLAN_TREE_S;

/* The working memory of one request; nothing in it outlives the call. */
typedef struct {
    uint32_t auiBaseSvcMap[VLANLUA_UVLAN_MAP_LEN];
    uint32_t auiVpnSvcMap[VLANLUA_UVLAN_MAP_LEN];
    VLANLUA_UVLAN_SEGARRAY_S stSvcSegs;
    VLANLUA_UVLAN_SEGARRAY_S stSvcSegsOrg;
    VLANLUA_UVLAN_TREE_S stSvcTree;
    VLANLUA_UVLAN_SVCSEG_S *pstNewSvcSeg;
    VLANLUA_UVLAN_SVCSEG_S stFinalSegs;
    VLANLUA_UVLAN_SVCSEG_S stAddSegs;
    VLANLUA_UVLAN_SVCSEG_S stSetSegs;
    VLANLUA_UVLAN_SVCSEG_S stDelSegs;
    VLANLUA_UVLAN_TREE_S stPeList;
    VLANLUA_UVLAN_TREE_S stDbSplitTree;
    VLANLUA_UVLAN_TREE_S stCfgSplitTree;
    uint32_t uiFlag;
    uint32_t uiSegNumChg;
    VLANLUA_UVLAN_KEY_S stKey;
} VLANLUA_UVLAN_SVCSET_S;

/* ---- records and services of the three tables ---- */
uint32_t vlanLua_UVlanGetQinqSegCnt(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SEGQRY_S *pstQry, uint32_t *puiCnt);
void vlanLua_UVlanQueryQinqSeg(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SEGQRY_S *pstQry,
                               VLANLUA_UVLAN_SEGLIST_S *pstList);
uint32_t vlanLua_UVlanInsertQinqSeg(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_PAIR_S *pstPair,
                                    const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t *puiSegIndex);
uint32_t vlanLua_UVlanDeleteQinqSeg(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex, const VLANLUA_UVLAN_KEY_S *pstKey);
void vlanLua_UVlanInitBaseSvcMap(uint32_t *puiMap);
void vlanLua_UVlanInitVpnSvcMap(uint32_t *puiMap);
void vlanLua_UVlanBaseSvcSetInvalid(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiMap);
void vlanLua_UVlanVpnSvcSetInvalid(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiMap);
void vlanLua_UVlanBaseSvcCopy(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiValues, const uint32_t *puiMap,
                              uint32_t *puiAnyNonZero);
void vlanLua_UVlanVpnSvcCopy(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiValues, const uint32_t *puiMap,
                             uint32_t *puiAnyNonZero);
void vlanLua_UVlanCoverSvcInfo(VLANLUA_UVLAN_SVCINFO_S *pstDst, const VLANLUA_UVLAN_SVCINFO_S *pstSrc);
uint32_t vlanLua_UVlanIsSvcSameEX(const VLANLUA_UVLAN_SVCINFO_S *pstA, const VLANLUA_UVLAN_SVCINFO_S *pstB);
uint32_t vlanLua_UVlanIsNullSvcInfo(const VLANLUA_UVLAN_SVCINFO_S *pstInfo);
uint32_t vlanLua_UVlanIsNullBaseSvcInfo(const VLANLUA_UVLAN_SVCINFO_S *pstInfo);
uint32_t vlanLua_UVlanIsNullVpnSvcInfo(const VLANLUA_UVLAN_SVCINFO_S *pstInfo);
uint32_t vlanLua_UVlanCreateBaseSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                    const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex);
uint32_t vlanLua_UVlanCreateVpnSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                   const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex);
uint32_t vlanLua_UVlanSetBaseSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                 const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex);
uint32_t vlanLua_UVlanSetVpnSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex);
uint32_t vlanLua_UVlanDeleteBaseSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex);
uint32_t vlanLua_UVlanDeleteVpnSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex);
uint32_t vlanLua_UVlanCreateSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex);
uint32_t vlanLua_UVlanSetSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                             const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex, uint32_t uiFlag);
uint32_t vlanLua_UVlanDeleteSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex, uint32_t uiFlag);
void vlanLua_UVlanQryBaseSvcBySegindex(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex, VLANLUA_UVLAN_SVCSEG_S *pstSeg,
                                       const uint32_t *puiMap);
void vlanLua_UVlanQryVpnSvcBySegindex(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex, VLANLUA_UVLAN_SVCSEG_S *pstSeg,
                                      const uint32_t *puiMap);

/* ---- the service set ---- */
int32_t vlanLua_UserVlanCompareQinqVlan(const void *pKey1, const void *pKey2);
int32_t vlanLua_UserVlanSplitCmpQinqVlan(const void *pKey1, const void *pKey2);
int32_t vlanLua_UVlanCompareUshort(const void *pKey1, const void *pKey2);
uint32_t vlanLua_UVlanQinqSvcSetInit(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S **ppstSet);
uint32_t vlanLua_UVlanQinqGetSegSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCSEG_S *pstReq,
                                    VLANLUA_UVLAN_SVCSET_S *pstSet);
void vlanLua_UVlanQinqSvcTreeFree(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstTree);
void vlanLua_UVlanQinqSvcListFree(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSEG_S *pstFirst);
void vlanLua_UVlanQinqSvcSetDestroy(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
/* Prepares an empty tree ordered like the split trees, by (PE begin, CE begin). */
void vlanLua_UVlanSplitTreeInit(VLANLUA_UVLAN_TREE_S *pstTree);

/* ---- PE/CE splitting ---- */
uint32_t vlanLua_UVlanPelistNodeAdd(VLANLUA_CTX_S *pstCtx, void *pMemHandle, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                    uint32_t uiVlan);
uint32_t vlanLua_UVlanQinqGetSplitPelist(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                         const VLANLUA_UVLAN_SVCSEG_S *pstReq);
VLANLUA_UVLAN_SVCSEG_S *vlanLua_UVlanQinqNewSvcSeg(VLANLUA_CTX_S *pstCtx, void *pMemHandle,
                                                   const VLANLUA_UVLAN_SVCSEG_S *pstSrc, uint32_t uiKeepAllFlags);
uint32_t vlanLua_UVlanSplitTreeAdd(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstTree,
                                   VLANLUA_UVLAN_SVCSEG_S *pstPiece);
uint32_t vlanLua_UVlanQinqSplitSegsByPe(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                        VLANLUA_UVLAN_SEGARRAY_S *pstInput, VLANLUA_UVLAN_TREE_S *pstOut,
                                        VLANLUA_UVLAN_TREE_S *pstCeTree);
/* puiOrder: scratch room for as many indexes as there are references; the covering references
 * of the piece are visited in increasing CE begin through it. */
uint32_t vlanLua_UVlanQinqDoSrv(uint32_t uiStart, const VLANLUA_UVLAN_SEGARRAY_S *pstRefs,
                                VLANLUA_UVLAN_SVCSEG_S *pstPiece, uint32_t *puiFirstCover, VLANLUA_CTX_S *pstCtx,
                                VLANLUA_UVLAN_TREE_S *pstOut, uint32_t *puiOrder);
uint32_t vlanLua_UVlanQinqSplitSegsByCe(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstCeTree,
                                        const VLANLUA_UVLAN_SEGARRAY_S *pstRefs, VLANLUA_UVLAN_TREE_S *pstOut);
uint32_t vlanLua_UVlanQinqSplitSegsByPeCe(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                          VLANLUA_UVLAN_SEGARRAY_S *pstInput,
                                          const VLANLUA_UVLAN_SEGARRAY_S *pstRefs, VLANLUA_UVLAN_TREE_S *pstOut);
void vlanLua_UVlanQinqGenFinalSplitedSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);

/* ---- merging and flushing ---- */
uint32_t VLAN_API_UVlanQinqMergeProcess(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqMergePeSameSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqMergeCeSameSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqDistinctOpSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqFlushSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqFlushAddSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqFlushDelSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqDelQinQFlushSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);
uint32_t vlanLua_UVlanQinqAddSeg(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, uint32_t *puiInserted);
uint32_t vlanLua_UVlanQinqDelSegList(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, uint32_t *puiDeleted);
uint32_t vlanLua_UVlanQinqSetSeg(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, uint32_t *puiDeleted);

/* ---- the script function and its driver ---- */
uint32_t VLAN_SetUserVlanQinQSvcParseVlanPair(void *pState, VLANLUA_UVLAN_PAIR_S *pstPair);
uint32_t VLAN_SetUserVlanQinQSvcParseVrId(void *pState, VLANLUA_UVLAN_KEY_S *pstKey);
uint32_t VLAN_SetUserVlanQinQSvcParseUpId(void *pState, VLANLUA_UVLAN_KEY_S *pstKey);
uint32_t VLAN_API_SetUserVlanQinQSvc(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSEG_S *pstReq,
                                     const VLANLUA_UVLAN_KEY_S *pstKey);
uint32_t VLAN_API_UserVlanQinQMerge(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet);

#ifdef __cplusplus
}
static_assert(sizeof(VLANLUA_UVLAN_KEY_S) == 84, "owner key layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_KEY_S, uiVrId) == 12, "owner key layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_KEY_S, szKeyName) == 20, "owner key layout");
static_assert(sizeof(VLANLUA_UVLAN_PAIR_S) == 8, "VLAN rectangle layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_PAIR_S, usCeBgn) == 4, "VLAN rectangle layout");
static_assert(sizeof(VLANLUA_UVLAN_SEGQRY_S) == 12, "segment query key layout");
static_assert(sizeof(VLANLUA_UVLAN_SVCINFO_S) == 17 * 8, "service info layout");
static_assert(sizeof(VLANLUA_UVLAN_SEGREC_S) == 24, "segment row layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_SEGREC_S, uiSegIndex) == 12, "segment row layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_SVCSEG_S, stNode) == 0, "tree node at the front");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_SVCSEG_S, stPair) ==
              __builtin_offsetof(VLANLUA_UVLAN_SVCSEG_S, uiSegIndex) + 4, "service segment layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_SVCSEG_S, stSvcInfo) ==
              __builtin_offsetof(VLANLUA_UVLAN_SVCSEG_S, stPair) + 8, "service segment layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_SVCSEG_S, uiFlag) ==
              __builtin_offsetof(VLANLUA_UVLAN_SVCSEG_S, stSvcInfo) + 136, "service segment layout");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_PENODE_S, stNode) == 0, "tree node at the front");
static_assert(__builtin_offsetof(VLANLUA_UVLAN_PENODE_S, usVlanId) == sizeof(KEL_AVL3_NODE_S), "cut point layout");
#endif
#endif
