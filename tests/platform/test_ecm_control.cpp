/* The control side of a database object: binding to a script state, and the corners of injected
 * faults the script-level sweeps do not show. The journal, the ids and the n-th-call fault itself
 * are proven by every journal check, the probes' own-VR cases and every sweep of the scripts. */
#include <lauxlib.h>
#include <lua.h>

#include "test_ecm_util.h"

using namespace ecmtest;

namespace {

/* ---- Binding ---- */

class Binding : public EcmTest {};

TEST_F(Binding, BoundObjectIsFoundFromTheStateUntilUnboundOrClosed)
{
    lua_State *L = luaL_newstate();
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(L));
    ECM_CTL_Bind(L, pObj);
    EXPECT_EQ(pObj, ECM_CAPI_GetObjExt(L));
    EXPECT_EQ(0, lua_gettop(L)) << "the look-up leaves the stack as it was";
    ECM_CTL_Unbind(L);
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(L));

    void *pOther = ECM_CTL_Open(nullptr, 0, 0, 0, nullptr, 0);
    ECM_CTL_Bind(L, pOther);
    ECM_CTL_Close(pOther);
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(L)) << "closing the bound object unbinds it";
    lua_close(L);
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(nullptr));
}

/* ---- Injected faults ---- */

class Faults : public EcmTest {};

TEST_F(Faults, ControlCallsAndMemoryHandleLookupsDoNotCount)
{
    ECM_CTL_FailCall(pObj, 1);
    Put(pObj, IF_INFO, {{2, 1}});
    EXPECT_EQ(1u, Rows(pObj, IF_INFO).size());
    EXPECT_NE(nullptr, ECM_CAPI_GetSimpleMemHandle(pObj));
    uint32_t uiCdb = 0;
    EXPECT_EQ(ECM_ERR_INJECTED, ECM_CAPI_GetCdbID(pObj, &uiCdb));
    EXPECT_EQ(0u, uiCdb);
}

TEST_F(Faults, AFailedWriteChangesNothingAndIsNotJournaled)
{
    Writes stW;
    stW.Vr(1, 3).U32(2, 100).U32(3, 5);
    ECM_CTL_FailCall(pObj, 1);
    EXPECT_EQ(ECM_ERR_INJECTED, ECM_CAPI_InsertRecord(pObj, QINQ_IF_SPEC, stW.Data(), stW.Num(), 0));
    EXPECT_TRUE(Rows(pObj, QINQ_IF_SPEC).empty());
    EXPECT_EQ(0u, ECM_CTL_JournalCount(pObj));
    uint32_t uiIndex = 0;
    ECM_CTL_FailCall(pObj, 1);
    EXPECT_EQ(ECM_ERR_INJECTED, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiIndex));
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiIndex));
    EXPECT_EQ(1u, uiIndex) << "a failed hand-out uses up no number";
}

}  // namespace
