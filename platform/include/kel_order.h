/* Byte order and pointer width: the machine's choices, answered here once for the module and the
 * platform, so that every other file speaks in these names and is right on every processor.
 *
 * The system has two byte orders:
 * - The blocks handed to the configuration database (conditions, selection, result descriptor,
 *   sort) are little-endian byte by byte wherever the code runs. Their multi-byte counts are
 *   KEL_LE16_S and KEL_LE32_S, read and written only through KEL_GetLe and KEL_PutLe (C++ code
 *   uses them like the integers they hold; the conversions go through the same functions).
 * - Records (requests, result records, condition values, the values of a write) hold their
 *   numbers in the machine's order, as C lays them out: KEL_GetNum and KEL_PutNum read and write
 *   one at any width up to 8.
 * A VLAN bitmap is defined byte by byte (VLAN v is bit v mod 8 of byte v div 8); read as
 * KEL_GetLe64 words, VLAN 64w + k is bit k of word w on either order, so a search for a bit works
 * on whole words, and a plain word OR or AND, which needs no order, stays right too.
 *
 * Layouts with pointer fields are stated for 64-bit machines; on a 32-bit one the pointer is
 * KEL_PTR_SIZE bytes at the same place, and a pointer that follows smaller fields starts at
 * KEL_PTR_ALIGN of their size. Layout assertions say it in these terms, so they hold on every
 * target and still catch a moved field. */
#ifndef KEL_ORDER_H
#define KEL_ORDER_H

#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

#if !defined(__BYTE_ORDER__) || (__BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__ && __BYTE_ORDER__ != __ORDER_BIG_ENDIAN__)
#error "the machine's byte order must be little-endian or big-endian"
#endif
#define KEL_MACHINE_IS_LE (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)

#define KEL_PTR_SIZE sizeof(void *)
#define KEL_PTR_ALIGN(n) (((n) + __alignof__(void *) - 1) / __alignof__(void *) * __alignof__(void *))

/* ---- little-endian: the database's blocks, bitmap words ---- */

static inline uint16_t KEL_GetLe16(const void *pSrc)
{
    const uint8_t *puc = (const uint8_t *)pSrc;
    return (uint16_t)(puc[0] | (puc[1] << 8));
}

static inline void KEL_PutLe16(void *pDst, uint16_t usValue)
{
    uint8_t *puc = (uint8_t *)pDst;
    puc[0] = (uint8_t)usValue;
    puc[1] = (uint8_t)(usValue >> 8);
}

static inline uint32_t KEL_GetLe32(const void *pSrc)
{
    const uint8_t *puc = (const uint8_t *)pSrc;
    return (uint32_t)puc[0] | ((uint32_t)puc[1] << 8) | ((uint32_t)puc[2] << 16) | ((uint32_t)puc[3] << 24);
}

static inline void KEL_PutLe32(void *pDst, uint32_t uiValue)
{
    KEL_PutLe16(pDst, (uint16_t)uiValue);
    KEL_PutLe16((uint8_t *)pDst + 2, (uint16_t)(uiValue >> 16));
}

/* One load (and a byte swap on a big-endian machine), not eight. */
static inline uint64_t KEL_GetLe64(const void *pSrc)
{
    uint64_t ulValue;
    memcpy(&ulValue, pSrc, sizeof(ulValue));
#if KEL_MACHINE_IS_LE
    return ulValue;
#else
    return __builtin_bswap64(ulValue);
#endif
}

/* ---- the machine's order: records ---- */

/* The unsigned number of uiWidth bytes (1 to 8) at pSrc. */
static inline uint64_t KEL_GetNum(const void *pSrc, uint32_t uiWidth)
{
    const uint8_t *puc = (const uint8_t *)pSrc;
    uint64_t ulValue = 0;
    for (uint32_t i = 0; i < uiWidth; i++) {
        ulValue = (ulValue << 8) | puc[KEL_MACHINE_IS_LE ? uiWidth - 1 - i : i];
    }
    return ulValue;
}

/* Stores the low uiWidth bytes (1 to 8) of ulValue at pDst. */
static inline void KEL_PutNum(void *pDst, uint32_t uiWidth, uint64_t ulValue)
{
    uint8_t *puc = (uint8_t *)pDst;
    for (uint32_t i = 0; i < uiWidth; i++) {
        puc[KEL_MACHINE_IS_LE ? i : uiWidth - 1 - i] = (uint8_t)(ulValue >> (8 * i));
    }
}

/* ---- little-endian counts inside the database's blocks ---- */

#ifdef __cplusplus
}

/* Not aggregates: a brace list cannot fill the bytes one by one by mistake. */
struct KEL_LE16_S {
    uint8_t auc[2];
    KEL_LE16_S() = default;
    explicit KEL_LE16_S(uint16_t usValue) { KEL_PutLe16(auc, usValue); }
    operator uint16_t() const { return KEL_GetLe16(auc); }
    KEL_LE16_S &operator=(uint16_t usValue)
    {
        KEL_PutLe16(auc, usValue);
        return *this;
    }
    uint16_t operator++(int)
    {
        uint16_t usOld = *this;
        *this = static_cast<uint16_t>(usOld + 1);
        return usOld;
    }
};

struct KEL_LE32_S {
    uint8_t auc[4];
    KEL_LE32_S() = default;
    explicit KEL_LE32_S(uint32_t uiValue) { KEL_PutLe32(auc, uiValue); }
    operator uint32_t() const { return KEL_GetLe32(auc); }
    KEL_LE32_S &operator=(uint32_t uiValue)
    {
        KEL_PutLe32(auc, uiValue);
        return *this;
    }
};

static_assert(sizeof(KEL_LE16_S) == 2 && sizeof(KEL_LE32_S) == 4, "byte arrays, no padding");
#else
typedef struct {
    uint8_t auc[2];
} KEL_LE16_S;

typedef struct {
    uint8_t auc[4];
} KEL_LE32_S;
#endif

#endif
