/* Tagged allocation on the call's database object, and scope guards that give memory and
 * record sets back on every path. Uses only the platform's names. */
#ifndef VLANLUA_BAS_MEM_H
#define VLANLUA_BAS_MEM_H

#include "ecm_capi.h"
#include "mox.h"
#include "vlanlua_db.h"

/* Every block is tagged with the allocating source file's name and line. */
#define VLANLUA_Malloc(pObj, uiSize) \
    MOX_Malloc_F(ECM_CAPI_GetSimpleMemHandle(pObj), g_aucMoxMemPt[0], (uiSize), __FILE_NAME__, __LINE__)
#define VLANLUA_Free(pMem) MOX_Free_F((pMem), __FILE_NAME__, __LINE__)
#define VLANLUA_Assert() MOX_Assert(__FILE_NAME__, __LINE__, 0)

#ifdef __cplusplus
/* Deletes the record set it holds when the scope ends, unless released. */
class VlanLuaRsGuard {
public:
    explicit VlanLuaRsGuard(VLANLUA_RECORDSET_S *pstRs) : m_pstRs(pstRs) {}
    ~VlanLuaRsGuard() { VLANLUA_RecordSet_Delete(m_pstRs); }
    VlanLuaRsGuard(const VlanLuaRsGuard &) = delete;
    VlanLuaRsGuard &operator=(const VlanLuaRsGuard &) = delete;
    VLANLUA_RECORDSET_S *Get() const { return m_pstRs; }
    VLANLUA_RECORDSET_S *Release() { VLANLUA_RECORDSET_S *p = m_pstRs; m_pstRs = nullptr; return p; }
private:
    VLANLUA_RECORDSET_S *m_pstRs;
};

/* Frees the tagged block it holds when the scope ends, unless released. */
template <typename T>
class VlanLuaMemGuard {
public:
    explicit VlanLuaMemGuard(T *p = nullptr) : m_p(p) {}
    ~VlanLuaMemGuard() { if (m_p != nullptr) { MOX_Free_F(m_p, __FILE_NAME__, __LINE__); } }
    VlanLuaMemGuard(const VlanLuaMemGuard &) = delete;
    VlanLuaMemGuard &operator=(const VlanLuaMemGuard &) = delete;
    T *Get() const { return m_p; }
    T *Release() { T *p = m_p; m_p = nullptr; return p; }
private:
    T *m_p;
};
#endif
#endif
