/* Tagged memory of the platform stand-in: handles with their figures, a registry of live blocks,
 * leak reports and fault injection. Every block a handle hands out is in the registry until freed.
 *
 * Each block carries a header in front of the caller's bytes: its handle, size, the file and line
 * that allocated it, and the links of one list of all live blocks in
 * allocation order (the leak report walks it). A free, which names no handle, finds whom to
 * charge in that header. Guard bytes of a fixed pattern sit right before the caller's bytes (the
 * header's last field) and right after them; a free that finds either changed ends the process
 * naming the file and line that allocated the block, so a write past either end is caught
 * without a sanitizer. The registry's set of live addresses is consulted before any header is
 * read: a free of an address not in it is a fault of the caller and ends the process, and a
 * small ring of the most recent frees tells a double free apart from a wild pointer in that
 * message. One lock guards the registry and every handle's figures.
 *
 * A freed block of up to kRecycleMax bytes is kept, up to kRecyclePerClass per size class of 16
 * bytes, and handed out again for the next block of its class: a call that allocates and frees the
 * same few sizes over and over does not go back to malloc each time. A kept block is out of the
 * registry like any freed one (a second free of it is still caught). Builds with AddressSanitizer
 * keep none, so that it sees every free and every use after one. */
#include "mox.h"
#include "mox_ctl.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

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

constexpr uint64_t kGuard = 0xFDFDFDFDFDFDFDFDull;   /* the pattern of both guards, easy to spot in a dump */
constexpr size_t kGuardLen = sizeof(kGuard);

/* In front of every block; a multiple of 16 bytes so the caller's bytes keep malloc's alignment.
 * File and line come first, farthest from the caller's bytes: a short underrun spares them. */
struct alignas(16) MoxBlock {
    const char *pcFile;
    uint32_t uiLine;
    uint32_t uiSize;
    MoxBlock *pstPrev;          /* neighbours in the list of live blocks, oldest first */
    MoxBlock *pstNext;
    MoxHandle *pstHandle;       /* null once the handle was destroyed */
    uint64_t ulFrontGuard;      /* touches the caller's first byte */
};
static_assert(sizeof(MoxBlock) % 16 == 0, "the caller's bytes stay 16-byte aligned");
static_assert(offsetof(MoxBlock, ulFrontGuard) + kGuardLen == sizeof(MoxBlock), "no gap before the caller's bytes");

void *UserBytes(MoxBlock *pstBlock)
{
    return pstBlock + 1;
}

/* The tail guard follows the caller's last byte, at any alignment. */
unsigned char *TailGuard(MoxBlock *pstBlock)
{
    return static_cast<unsigned char *>(UserBytes(pstBlock)) + pstBlock->uiSize;
}

void SetTailGuard(MoxBlock *pstBlock)
{
    std::memcpy(TailGuard(pstBlock), &kGuard, kGuardLen);
}

MoxBlock *BlockOf(void *pMem)
{
    return static_cast<MoxBlock *>(pMem) - 1;
}

struct MoxFreed {
    const void *pMem;
    const char *pcFile;
    uint32_t uiLine;
};

/* Open addressing with linear probing over a power-of-two table kept at most half full; a
 * removal shifts the rest of its run back, so no tombstones build up. Zero marks a free slot. */
class LiveSet {
public:
    LiveSet() : m_aulSlots(4096, 0) {}

    /* Throws std::bad_alloc when the table cannot grow; the set is then unchanged. */
    void Insert(const void *pMem)
    {
        if ((m_uiCount + 1) * 2 > m_aulSlots.size()) {
            Grow();
        }
        Place(Key(pMem));
        m_uiCount++;
    }

    /* False, and nothing changed, when the address is not in the set. */
    bool Remove(const void *pMem)
    {
        uintptr_t ulKey = Key(pMem);
        size_t i = Home(ulKey);
        for (; m_aulSlots[i] != ulKey; i = Next(i)) {
            if (m_aulSlots[i] == 0) {
                return false;
            }
        }
        m_aulSlots[i] = 0;
        for (size_t j = Next(i); m_aulSlots[j] != 0; j = Next(j)) {   /* close the gap */
            size_t uiHome = Home(m_aulSlots[j]);
            if (((j - uiHome) & Mask()) >= ((j - i) & Mask())) {
                m_aulSlots[i] = m_aulSlots[j];
                m_aulSlots[j] = 0;
                i = j;
            }
        }
        m_uiCount--;
        return true;
    }

    size_t Count() const { return m_uiCount; }

private:
    static uintptr_t Key(const void *pMem) { return reinterpret_cast<uintptr_t>(pMem); }
    size_t Mask() const { return m_aulSlots.size() - 1; }
    size_t Home(uintptr_t ulKey) const { return ((ulKey >> 4) * 0x9E3779B97F4A7C15ull >> 20) & Mask(); }
    size_t Next(size_t i) const { return (i + 1) & Mask(); }

    void Place(uintptr_t ulKey)
    {
        size_t i = Home(ulKey);
        while (m_aulSlots[i] != 0) {
            i = Next(i);
        }
        m_aulSlots[i] = ulKey;
    }

    void Grow()
    {
        std::vector<uintptr_t> aulOld(m_aulSlots.size() * 2, 0);
        aulOld.swap(m_aulSlots);
        for (uintptr_t ulKey : aulOld) {
            if (ulKey != 0) {
                Place(ulKey);
            }
        }
    }

    std::vector<uintptr_t> m_aulSlots;
    size_t m_uiCount = 0;
};

/* Held for a few dozen instructions at a time: spinning, then yielding, beats a sleeping mutex. */
class SpinLock {
public:
    void lock()
    {
        while (m_bHeld.exchange(true, std::memory_order_acquire)) {
            while (m_bHeld.load(std::memory_order_relaxed)) {
                std::this_thread::yield();
            }
        }
    }
    void unlock() { m_bHeld.store(false, std::memory_order_release); }

private:
    std::atomic<bool> m_bHeld{false};
};

using RegistryGuard = std::lock_guard<SpinLock>;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kRecycle = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kRecycle = false;
#else
constexpr bool kRecycle = true;
#endif
#else
constexpr bool kRecycle = true;
#endif
constexpr size_t kRecycleClass = 16;                /* bytes of a size class */
constexpr size_t kRecycleMax = 8192;                /* the largest block kept */
constexpr size_t kRecycleClasses = kRecycleMax / kRecycleClass;
constexpr uint32_t kRecyclePerClass = 16;

/* Freed blocks kept for reuse, a stack per size class linked through their headers' pstNext. */
struct MoxRecycled {
    MoxBlock *apstTop[kRecycleClasses] = {};
    uint32_t auiCount[kRecycleClasses] = {};
};

/* Size class of a block of uiSize bytes; kRecycleClasses for one too large to keep. */
size_t RecycleClass(uint32_t uiSize)
{
    return uiSize == 0 ? 0 : (uiSize > kRecycleMax ? kRecycleClasses : (uiSize - 1) / kRecycleClass);
}

/* Bytes malloc gives a block: a kept block serves any size of its class. */
size_t BlockBytes(uint32_t uiSize)
{
    size_t ulUser = RecycleClass(uiSize) < kRecycleClasses ? (RecycleClass(uiSize) + 1) * kRecycleClass : uiSize;
    return sizeof(MoxBlock) + ulUser + kGuardLen;
}

struct MoxRegistry {
    SpinLock mtx;
    MoxRecycled stRecycled;
    LiveSet live;
    MoxBlock stList{nullptr, 0, 0, &stList, &stList, nullptr, kGuard};   /* head of the live list */
    MoxFreed astRecent[kRecentFrees] = {};
    size_t uiRecentNext = 0;
    uint64_t ulPeakAll = 0;
    uint64_t ulLiveBytesAll = 0;
    uint64_t ulTotalAll = 0;
};

std::atomic<uint64_t> g_ulAssertCount{0};

/* Lives for the whole process: blocks may be freed from static destructors of other objects. */
MoxRegistry &Registry()
{
    static MoxRegistry *pstReg = new MoxRegistry();
    return *pstReg;
}

void LinkLast(MoxRegistry &reg, MoxBlock *pstBlock)
{
    pstBlock->pstPrev = reg.stList.pstPrev;
    pstBlock->pstNext = &reg.stList;
    reg.stList.pstPrev->pstNext = pstBlock;
    reg.stList.pstPrev = pstBlock;
}

void Unlink(MoxBlock *pstBlock)
{
    pstBlock->pstPrev->pstNext = pstBlock->pstNext;
    pstBlock->pstNext->pstPrev = pstBlock->pstPrev;
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
    reg.ulLiveBytesAll -= stBlock.uiSize;
    if (stBlock.pstHandle != nullptr) {
        stBlock.pstHandle->stStats.ulLiveBlocks--;
        stBlock.pstHandle->stStats.ulLiveBytes -= stBlock.uiSize;
    }
}

/* Ends the process when a guard of a block that is being freed was written over. */
void CheckGuards(MoxBlock *pstBlock)
{
    const char *pcWhat = nullptr;
    if (pstBlock->ulFrontGuard != kGuard) {
        pcWhat = "write before the block";
    } else if (std::memcmp(TailGuard(pstBlock), &kGuard, kGuardLen) != 0) {
        pcWhat = "write past the end of the block";
    }
    if (pcWhat != nullptr) {
        std::fprintf(stderr, "MOX: %s %p (size %u) allocated at %s:%u\n", pcWhat, UserBytes(pstBlock),
                     pstBlock->uiSize, SafeText(pstBlock->pcFile), pstBlock->uiLine);
        std::fflush(stderr);
        std::abort();
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

void PrintLeak(FILE *pstOut, MoxBlock *pstBlock)
{
    if (pstOut == nullptr) {
        return;
    }
    std::fprintf(pstOut, "MOX leak: %p size %llu allocated at %s:%u (handle %s)\n", UserBytes(pstBlock),
                 static_cast<unsigned long long>(pstBlock->uiSize), SafeText(pstBlock->pcFile), pstBlock->uiLine,
                 pstBlock->pstHandle != nullptr ? pstBlock->pstHandle->strName.c_str() : "destroyed");
}

bool BelongsTo(const MoxBlock &stBlock, const MoxHandle *pstHandle)
{
    return pstHandle == nullptr || stBlock.pstHandle == pstHandle;
}

/* A kept block of uiSize's class, or null. */
MoxBlock *TakeRecycled(MoxRegistry &reg, uint32_t uiSize)
{
    size_t ulClass = RecycleClass(uiSize);
    if (!kRecycle || ulClass >= kRecycleClasses || reg.stRecycled.apstTop[ulClass] == nullptr) {
        return nullptr;
    }
    MoxBlock *pstBlock = reg.stRecycled.apstTop[ulClass];
    reg.stRecycled.apstTop[ulClass] = pstBlock->pstNext;
    reg.stRecycled.auiCount[ulClass]--;
    return pstBlock;
}

void KeepOrFree(MoxRegistry &reg, MoxBlock *pstBlock)
{
    size_t ulClass = RecycleClass(pstBlock->uiSize);
    if (!kRecycle || ulClass >= kRecycleClasses || reg.stRecycled.auiCount[ulClass] >= kRecyclePerClass) {
        std::free(pstBlock);
        return;
    }
    pstBlock->pstNext = reg.stRecycled.apstTop[ulClass];
    reg.stRecycled.apstTop[ulClass] = pstBlock;
    reg.stRecycled.auiCount[ulClass]++;
}

}  // namespace

/* ---- allocation and free ---- */

extern "C" void *MOX_Malloc_F(void *pHandle, unsigned char ucPartition, uint32_t uiSize, const char *pcFile,
                              uint32_t uiLine)
{
    (void)ucPartition;  /* one pool serves every partition here */
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_Malloc_F");
    MoxRegistry &reg = Registry();
    RegistryGuard lock(reg.mtx);
    if (ConsumeInjectedFailure(pstHandle)) {
        return nullptr;
    }
    MoxBlock *pstBlock = TakeRecycled(reg, uiSize);
    if (pstBlock == nullptr) {
        pstBlock = static_cast<MoxBlock *>(std::malloc(BlockBytes(uiSize)));  /* never 0 bytes */
    }
    if (pstBlock == nullptr) {
        return nullptr;
    }
    try {
        reg.live.Insert(UserBytes(pstBlock));
    } catch (const std::bad_alloc &) {  /* no room to record the block: refuse it */
        std::free(pstBlock);
        return nullptr;
    }
    *pstBlock = MoxBlock{pcFile, uiLine, uiSize, nullptr, nullptr, pstHandle, kGuard};
    SetTailGuard(pstBlock);
    LinkLast(reg, pstBlock);
    ChargeAlloc(reg, pstHandle, uiSize);
    return UserBytes(pstBlock);
}

extern "C" void MOX_Free_F(void *pMem, const char *pcFile, uint32_t uiLine)
{
    if (pMem == nullptr) {
        return;  /* like free(): nothing to give back */
    }
    MoxRegistry &reg = Registry();
    RegistryGuard lock(reg.mtx);
    if (!reg.live.Remove(pMem)) {     /* before any look at the bytes in front of it */
        AbortOnBadFree(reg, pMem, pcFile, uiLine);
    }
    MoxBlock *pstBlock = BlockOf(pMem);
    CheckGuards(pstBlock);            /* before the links in the header are trusted */
    Unlink(pstBlock);
    CreditFree(reg, *pstBlock);
    reg.astRecent[reg.uiRecentNext] = MoxFreed{pMem, pcFile, uiLine};
    reg.uiRecentNext = (reg.uiRecentNext + 1) % kRecentFrees;
    KeepOrFree(reg, pstBlock);
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
        RegistryGuard lock(reg.mtx);
        if (pstHandle->stStats.ulLiveBlocks != 0) {   /* its blocks stay valid, charged to no handle */
            for (MoxBlock *pstBlock = reg.stList.pstNext; pstBlock != &reg.stList; pstBlock = pstBlock->pstNext) {
                if (pstBlock->pstHandle == pstHandle) {
                    pstBlock->pstHandle = nullptr;
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
    RegistryGuard lock(reg.mtx);
    if (pstHandle != nullptr) {
        *pstStats = pstHandle->stStats;
        pstStats->ulAsserts = MOX_AssertCount() - pstHandle->ulAssertBase;
        return;
    }
    *pstStats = MOX_STATS_S{reg.live.Count(), reg.ulLiveBytesAll, reg.ulPeakAll, reg.ulTotalAll, MOX_AssertCount()};
}

extern "C" void MOX_ResetPeak(void *pHandle)
{
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_ResetPeak");
    if (pstHandle == nullptr) {
        return;
    }
    RegistryGuard lock(Registry().mtx);
    pstHandle->stStats.ulPeakBytes = pstHandle->stStats.ulLiveBytes;
}

extern "C" void MOX_FailAlloc(void *pHandle, uint32_t uiNth)
{
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_FailAlloc");
    if (pstHandle == nullptr) {
        return;
    }
    RegistryGuard lock(Registry().mtx);
    pstHandle->uiFailCountdown = uiNth;
}

/* A null handle reports every live block; the lines come in allocation order. */
extern "C" uint64_t MOX_LeakReport(void *pHandle, FILE *pstOut)
{
    MoxHandle *pstHandle = CheckedHandle(pHandle, "MOX_LeakReport");
    MoxRegistry &reg = Registry();
    RegistryGuard lock(reg.mtx);  /* held while printing: handle names stay valid */
    uint64_t ulLeaks = 0;
    for (MoxBlock *pstBlock = reg.stList.pstNext; pstBlock != &reg.stList; pstBlock = pstBlock->pstNext) {
        if (BelongsTo(*pstBlock, pstHandle)) {
            PrintLeak(pstOut, pstBlock);
            ulLeaks++;
        }
    }
    return ulLeaks;
}
