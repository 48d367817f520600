/* Bounds-checked copy, fill and formatting of the platform. */
#ifndef SEC_BOUND_H
#define SEC_BOUND_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 0 on success; non-zero, and nothing written beyond uiDestMax, on a null pointer or
 * a count above the capacity. */
int memcpy_s(void *pDest, size_t uiDestMax, const void *pSrc, size_t uiCount);
int memset_s(void *pDest, size_t uiDestMax, int iValue, size_t uiCount);
/* Writes at most uiDestMax - 1 characters and a terminating zero, cutting longer output.
 * Returns the number of characters written, or -1 (nothing written) on a null pointer,
 * zero capacity or formatting error. */
int snprintf_truncated_s(char *pcDest, size_t uiDestMax, const char *pcFormat, ...)
    __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif
#endif
