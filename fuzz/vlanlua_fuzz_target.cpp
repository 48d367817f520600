/* libFuzzer targets over the fuzzing host. Built twice: without VLANFUZZ_ONE_FUNCTION, every
 * input is an episode of calls to any of the eighteen script functions with argument lists read
 * from the input, wrong kinds and counts included (the argument-reading path); with it, every
 * input is a run of well-formed calls of that one database-bound function against the seeded
 * rows. Whatever the host reports ends the run as a crash, with the report on stderr. */
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vlanlua_fuzz_host.h"

namespace {

VlanFuzzHost g_host;
uint32_t g_uiOnly = VLANFUZZ_FUNC_NUM;

void Check(const std::string &strFinding)
{
    if (!strFinding.empty()) {
        std::fprintf(stderr, "FINDING: %s\n", strFinding.c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    std::string strErr;
    if (!g_host.Open(VLANLUA_LUA_DIR, VLANFUZZ_SEED_SCRIPT, &strErr)) {
        std::fprintf(stderr, "cannot start: %s\n", strErr.c_str());
        std::exit(2);
    }
#ifdef VLANFUZZ_ONE_FUNCTION
    g_uiOnly = VlanFuzz_FindFunc(VLANFUZZ_ONE_FUNCTION);
#endif
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pucData, size_t ulSize)
{
    VlanFuzzBytes src(pucData, ulSize);
    bool bOne = g_uiOnly != VLANFUZZ_FUNC_NUM;
    Check(g_host.BeginEpisode(bOne || !src.OneIn(8), true));   /* every input starts from the seed */
    for (int i = 0; i < 8 && src.More(); i++) {
        Check(g_host.Call(bOne ? g_uiOnly : src.Below(VLANFUZZ_FUNC_NUM), src, bOne, !bOne));
    }
    g_host.EndEpisode();
    return 0;
}
