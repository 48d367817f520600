/* Tagged memory of the platform stand-in: handles with their figures, a registry of live blocks,
 * leak reports and fault injection. Every block a handle hands out is in the registry until freed.
 *
 * The registry maps each live block's address to its handle, size and the file and line that
 * allocated it, so a free, which names no handle, still finds whom to charge. A free of an
 * address that is not in the registry is a fault of the caller and ends the process; a small
 * ring of the most recent frees tells a double free apart from a wild pointer in that message.
 * One mutex guards the registry and every handle's figures. */
#include "mox.h"
#include "mox_ctl.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>
#include <algorithm>

unsigned char g_aucMoxMemPt[16] = {0};

namespace {

constexpr uint32_t kHandleMagic = 0x4D4F5848u;  /* marks a live handle */
constexpr size_t kRecentFrees = 1024;           /* frees remembered for the double-free message */

struct MoxHandle {
    uint32_t uiMagic;
    std::string strName;
    MOX_STATS_S stStats;
    uint64_t ulAssertBase;      /* global assertion count when the handle was made */
    uint32_t uiFailCountdown;   /* the allocation that reaches 0 fails; 0 = disarmed */
};

struct MoxBlock {
    MoxHandle *pstHandle;       /* null once the handle was destroyed */
    uint64_t ulSize;
    const char *pcFile;
    uint32_t uiLine;
    uint64_t ulSeq;             /* allocation order, for stable leak reports */
};

struct MoxFreed {
    const void *pMem;
    const char *pcFile;
    uint32_t uiLine;
};

struct MoxRegistry {
    std::mutex mtx;
    std::unordered_map<const void *, MoxBlock> blocks;
    MoxFreed astRecent[kRecentFrees] = {};
    size_t uiRecentNext = 0;
    uint64_t ulSeq = 0;
    uint64_t ulPeakAll = 0;
    uint64_t ulLiveBytesAll = 0;
    uint64_t ulTotalAll = 0;
    MoxRegistry() { blocks.reserve(4096); }
};

std::atomic<uint64_t> g_ulAssertCount{0};

/* Lives for the whole process: blocks may be freed from static destructors of other objects. */
MoxRegistry &Registry()
{
    static MoxRegistry *pstReg = new MoxRegistry();
    return *pstReg;
}

const char *SafeText(const char *pcText)
{
    return pcText != nullptr ? pcText : "?";
}

[[noreturn]] void AbortWith(const char *pcWhat, const void *pMem, const char *pcFile, uint32_t uiLine)
{
    std::fprintf(stderr, "MOX: %s %p at %s:%u\n", pcWhat, pMem, SafeText(pcFile), uiLine);
    std::fflush(stderr);
    std::abort();
}

MoxHandle *CheckedHandle(void *pHandle, const char *pcCaller)
{
    auto *pstHandle = static_cast<MoxHandle *>(pHandle);
    if (pstHandle != nullptr && pstHandle->uiMagic != kHandleMagic) {
        std::fprintf(stderr, "MOX: %s with an invalid memory handle %p\n", pcCaller, pHandle);
        std::fflush(stderr);
        std::abort();
    }
    return pstHandle;
}

/* True when this allocation is the one that fault injection makes fail. */
bool ConsumeInjectedFailure(MoxHandle *pstHandle)
{
    if (pstHandle == nullptr || pstHandle->uiFailCountdown == 0) {
        return false;
    }
    return --pstHandle->uiFailCountdown == 0;
}

void ChargeAlloc(MoxRegistry &reg, MoxHandle *pstHandle, uint64_t ulSize)
{
    reg.ulLiveBytesAll += ulSize;
    reg.ulPeakAll = std::max(reg.ulPeakAll, reg.ulLiveBytesAll);
    reg.ulTotalAll++;
    if (pstHandle == nullptr) {
        return;
    }
    MOX_STATS_S &st = pstHandle->stStats;
    st.ulLiveBlocks++;
    st.ulLiveBytes += ulSize;
    st.ulPeakBytes = std::max(st.ulPeakBytes, st.ulLiveBytes);
    st.ulTotalAllocs++;
}

void CreditFree(MoxRegistry &reg, const MoxBlock &stBlock)
{
    reg.ulLiveBytesAll -= stBlock.ulSize;
    if (stBlock.pstHandle != nullptr) {
        stBlock.pstHandle->stStats.ulLiveBlocks--;
        stBlock.pstHandle->stStats.ulLiveBytes -= stBlock.ulSize;
    }
}

const MoxFreed *FindRecentFree(const MoxRegistry &reg, const void *pMem)
{
    for (size_t i = 1; i <= kRecentFrees; i++) {   /* newest first */
        const MoxFreed &stFreed = reg.astRecent[(reg.uiRecentNext + kRecentFrees - i) % kRecentFrees];
        if (stFreed.pMem == pMem) {
            return &stFreed;
        }
    }
    return nullptr;
}

[[noreturn]] void AbortOnBadFree(const MoxRegistry &reg, const void *pMem, const char *pcFile, uint32_t uiLine)
{
    const MoxFreed *pstFreed = FindRecentFree(reg, pMem);
    if (pstFreed != nullptr) {
        std::fprintf(stderr, "MOX: double free of %p at %s:%u (already freed at %s:%u)\n", pMem,
                     SafeText(pcFile), uiLine, SafeText(pstFreed->pcFile), pstFreed->uiLine);
        std::fflush(stderr);
        std::abort();
    }
    AbortWith("free of an unknown pointer", pMem, pcFile, uiLine);
}

void PrintLeak(FILE *pstOut, const void *pMem, const MoxBlock &stBlock)
{
    if (pstOut == nullptr) {
        return;
    }
    std::fprintf(pstOut, "MOX leak: %p size %llu allocated at %s:%u (handle %s)\n", pMem,
                 static_cast<unsigned long long>(stBlock.ulSize), SafeText(stBlock.pcFile), stBlock.uiLine,
                 stBlock.pstHandle != nullptr ? stBlock.pstHandle->strName.c_str() : "destroyed");
}

bool BelongsTo(const MoxBlock &stBlock, const MoxHandle *pstHandle)
{
    return pstHandle == nullptr || stBlock.pstHandle == pstHandle;
}

}  // namespace

/* ---- allocation and free ---- */

extern "C" void *MOX_Malloc_F(void *pHandle, unsigned char ucPartition, uint32_t uiSize, const char *pcFile,
                              uint32_t uiLine)
{
    (void)ucPartition;  /* one pool serves every partition here */
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_Malloc_F");
    MoxRegistry &reg = Registry();
    std::unique_lock<std::mutex> lock(reg.mtx);
    if (ConsumeInjectedFailure(pstHandle)) {
        return nullptr;
    }
    void *pMem = std::malloc(uiSize == 0 ? 1 : uiSize);  /* a zero-size block is still unique */
    if (pMem == nullptr) {
        return nullptr;
    }
    try {
        reg.blocks.emplace(pMem, MoxBlock{pstHandle, uiSize, pcFile, uiLine, reg.ulSeq++});
    } catch (const std::bad_alloc &) {  /* no room to record the block: refuse it */
        std::free(pMem);
        return nullptr;
    }
    ChargeAlloc(reg, pstHandle, uiSize);
    return pMem;
}

extern "C" void MOX_Free_F(void *pMem, const char *pcFile, uint32_t uiLine)
{
    if (pMem == nullptr) {
        return;  /* like free(): nothing to give back */
    }
    MoxRegistry &reg = Registry();
    std::unique_lock<std::mutex> lock(reg.mtx);
    auto it = reg.blocks.find(pMem);
    if (it == reg.blocks.end()) {
        AbortOnBadFree(reg, pMem, pcFile, uiLine);
    }
    CreditFree(reg, it->second);
    reg.blocks.erase(it);
    reg.astRecent[reg.uiRecentNext] = MoxFreed{pMem, pcFile, uiLine};
    reg.uiRecentNext = (reg.uiRecentNext + 1) % kRecentFrees;
    std::free(pMem);
}

extern "C" void MOX_Assert(const char *pcFile, uint32_t uiLine, uint32_t uiCond)
{
    if (uiCond != 0) {
        return;
    }
    g_ulAssertCount.fetch_add(1, std::memory_order_relaxed);
    std::fprintf(stderr, "MOX_Assert: %s:%u\n", SafeText(pcFile), uiLine);
}

extern "C" uint64_t MOX_AssertCount(void)
{
    return g_ulAssertCount.load(std::memory_order_relaxed);
}

/* ---- handles ---- */

extern "C" void *MOX_HandleCreate(const char *pcName)
{
    try {
        return new MoxHandle{kHandleMagic, SafeText(pcName), {}, MOX_AssertCount(), 0};
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

extern "C" void MOX_HandleDestroy(void *pHandle)
{
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_HandleDestroy");
    if (pstHandle == nullptr) {
        return;
    }
    MoxRegistry &reg = Registry();
    {
        std::unique_lock<std::mutex> lock(reg.mtx);
        if (pstHandle->stStats.ulLiveBlocks != 0) {
            for (auto &entry : reg.blocks) {   /* its blocks stay valid, charged to no handle */
                if (entry.second.pstHandle == pstHandle) {
                    entry.second.pstHandle = nullptr;
                }
            }
        }
        pstHandle->uiMagic = 0;
    }
    delete pstHandle;
}

/* A null handle gives the figures of every live block, whatever its handle. */
extern "C" void MOX_GetStats(void *pHandle, MOX_STATS_S *pstStats)
{
    if (pstStats == nullptr) {
        return;
    }
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_GetStats");
    MoxRegistry &reg = Registry();
    std::unique_lock<std::mutex> lock(reg.mtx);
    if (pstHandle != nullptr) {
        *pstStats = pstHandle->stStats;
        pstStats->ulAsserts = MOX_AssertCount() - pstHandle->ulAssertBase;
        return;
    }
    *pstStats = MOX_STATS_S{reg.blocks.size(), reg.ulLiveBytesAll, reg.ulPeakAll, reg.ulTotalAll, MOX_AssertCount()};
}

extern "C" void MOX_FailAlloc(void *pHandle, uint32_t uiNth)
{
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_FailAlloc");
    if (pstHandle == nullptr) {
        return;
    }
    std::unique_lock<std::mutex> lock(Registry().mtx);
    pstHandle->uiFailCountdown = uiNth;
}

/* A null handle reports every live block; the lines come in allocation order. */
extern "C" uint64_t MOX_LeakReport(void *pHandle, FILE *pstOut)
{
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_LeakReport");
    MoxRegistry &reg = Registry();
    std::unique_lock<std::mutex> lock(reg.mtx);  /* held while printing: handle names stay valid */
    std::vector<std::pair<const void *, const MoxBlock *>> leaks;
    try {
        for (const auto &entry : reg.blocks) {
            if (BelongsTo(entry.second, pstHandle)) {
                leaks.emplace_back(entry.first, &entry.second);
            }
        }
    } catch (const std::bad_alloc &) {
        return 0;
    }
    std::sort(leaks.begin(), leaks.end(),
              [](const auto &a, const auto &b) { return a.second->ulSeq < b.second->ulSeq; });
    for (const auto &leak : leaks) {
        PrintLeak(pstOut, leak.first, *leak.second);
    }
    return leaks.size();
}
