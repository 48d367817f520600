/* Bounds-checked copy, fill and formatting of the platform stand-in.
 * A refused copy or fill writes nothing at all; nothing ever writes past the capacity. */
#include "sec_bound.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

extern "C" int memcpy_s(void *pDest, size_t uiDestMax, const void *pSrc, size_t uiCount)
{
    if (pDest == nullptr || pSrc == nullptr) {
        return EINVAL;
    }
    if (uiCount > uiDestMax) {
        return ERANGE;
    }
    if (uiCount != 0) {
        std::memmove(pDest, pSrc, uiCount);  /* overlapping ranges copy as if through a buffer */
    }
    return 0;
}

extern "C" int memset_s(void *pDest, size_t uiDestMax, int iValue, size_t uiCount)
{
    if (pDest == nullptr) {
        return EINVAL;
    }
    if (uiCount > uiDestMax) {
        return ERANGE;
    }
    if (uiCount != 0) {
        std::memset(pDest, iValue, uiCount);
    }
    return 0;
}

extern "C" int snprintf_truncated_s(char *pcDest, size_t uiDestMax, const char *pcFormat, ...)
{
    if (pcDest == nullptr || pcFormat == nullptr || uiDestMax == 0) {
        return -1;
    }
    va_list args;
    va_start(args, pcFormat);
    int iWanted = std::vsnprintf(pcDest, uiDestMax, pcFormat, args);
    va_end(args);
    if (iWanted < 0) {
        pcDest[0] = '\0';  /* leave no partial output behind, only an empty text */
        return -1;
    }
    size_t uiWritten = static_cast<size_t>(iWanted) < uiDestMax ? static_cast<size_t>(iWanted) : uiDestMax - 1;
    return static_cast<int>(uiWritten);
}
