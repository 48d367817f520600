/* The fuzzing driver: calls the eighteen script functions with seeded random argument lists, in
 * episodes of up to 64 calls (one in eight without a bound database; one call in eight with an
 * injected allocation or database-call failure) on a database seeded afresh every 32 episodes,
 * and reports every call that broke a rule of the host. Exit status 1 when anything was found.
 *   vlanlua_fuzz [--calls N] [--seed S] [--only FUNCTION] [--lua-dir DIR] [--seed-script FILE] */
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vlanlua_fuzz_host.h"

namespace {

struct Options {
    uint64_t ulCalls = 10000;
    uint64_t ulSeed = 1;
    const char *pcOnly = nullptr;
    const char *pcLuaDir = VLANLUA_LUA_DIR;
    const char *pcSeedScript = VLANFUZZ_SEED_SCRIPT;
};

bool ParseOptions(int argc, char **argv, Options *pstOpt)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const char *pcKey = argv[i];
        const char *pcValue = argv[i + 1];
        if (std::strcmp(pcKey, "--calls") == 0) {
            pstOpt->ulCalls = std::strtoull(pcValue, nullptr, 0);
        } else if (std::strcmp(pcKey, "--seed") == 0) {
            pstOpt->ulSeed = std::strtoull(pcValue, nullptr, 0);
        } else if (std::strcmp(pcKey, "--only") == 0) {
            pstOpt->pcOnly = pcValue;
        } else if (std::strcmp(pcKey, "--lua-dir") == 0) {
            pstOpt->pcLuaDir = pcValue;
        } else if (std::strcmp(pcKey, "--seed-script") == 0) {
            pstOpt->pcSeedScript = pcValue;
        } else {
            return false;
        }
    }
    return argc % 2 == 1;
}

/* Stops reporting after this many findings; the count goes on. */
constexpr uint64_t kReportMax = 20;
/* The calls' writes pile up over this many episodes, then the database is seeded afresh. */
constexpr uint64_t kEpisodesPerSeeding = 32;

}  // namespace

int main(int argc, char **argv)
{
    Options stOpt;
    if (!ParseOptions(argc, argv, &stOpt)) {
        std::fprintf(stderr, "usage: %s [--calls N] [--seed S] [--only FUNCTION] [--lua-dir DIR] [--seed-script FILE]\n",
                     argv[0]);
        return 2;
    }
    uint32_t uiOnly = stOpt.pcOnly != nullptr ? VlanFuzz_FindFunc(stOpt.pcOnly) : VLANFUZZ_FUNC_NUM;
    if (stOpt.pcOnly != nullptr && uiOnly == VLANFUZZ_FUNC_NUM) {
        std::fprintf(stderr, "no script function %s\n", stOpt.pcOnly);
        return 2;
    }
    VlanFuzzHost host;
    std::string strErr;
    if (!host.Open(stOpt.pcLuaDir, stOpt.pcSeedScript, &strErr)) {
        std::fprintf(stderr, "cannot start: %s\n", strErr.c_str());
        return 2;
    }
    VlanFuzzPrng src(stOpt.ulSeed);
    uint64_t ulFindings = 0;
    uint64_t aulPerFunc[VLANFUZZ_FUNC_NUM] = {};
    auto report = [&ulFindings, &host](const std::string &strFinding) {
        if (!strFinding.empty() && ulFindings++ < kReportMax) {
            std::printf("FINDING at call %llu: %s\n", static_cast<unsigned long long>(host.Calls()), strFinding.c_str());
            std::fflush(stdout);
        }
    };
    auto t0 = std::chrono::steady_clock::now();
    for (uint64_t ulEpisode = 0; host.Calls() < stOpt.ulCalls; ulEpisode++) {
        report(host.BeginEpisode(!src.OneIn(8), ulEpisode % kEpisodesPerSeeding == 0));
        for (uint32_t k = 1 + src.Below(64); k > 0 && host.Calls() < stOpt.ulCalls; k--) {
            uint32_t uiFunc = uiOnly != VLANFUZZ_FUNC_NUM ? uiOnly : src.Below(VLANFUZZ_FUNC_NUM);
            aulPerFunc[uiFunc]++;
            report(host.Call(uiFunc, src, false, true));
        }
        host.EndEpisode();
    }
    double dSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("%llu calls in %.1f s (%.0f calls/s), seed %llu: %llu findings\n",
                static_cast<unsigned long long>(host.Calls()), dSeconds, static_cast<double>(host.Calls()) / dSeconds,
                static_cast<unsigned long long>(stOpt.ulSeed), static_cast<unsigned long long>(ulFindings));
    for (uint32_t i = 0; i < VLANFUZZ_FUNC_NUM; i++) {
        std::printf("  %-30s %llu calls\n", g_astVlanFuzzFuncs[i].pcName, static_cast<unsigned long long>(aulPerFunc[i]));
    }
    return ulFindings == 0 ? 0 : 1;
}
