/* Control side of tagged memory: handles, their figures, leak reports and fault injection.
 * Used by the database object, the test binding and the tests; never by the module. */
#ifndef MOX_CTL_H
#define MOX_CTL_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    uint64_t ulLiveBlocks;
    uint64_t ulLiveBytes;
    uint64_t ulPeakBytes;
    uint64_t ulTotalAllocs;
    uint64_t ulAsserts;     /* assertions reported since the handle was created */
} MOX_STATS_S;

void *MOX_HandleCreate(const char *pcName);
/* Destroys the handle; its live blocks stay valid and are reported by MOX_LeakReport before. */
void MOX_HandleDestroy(void *pHandle);
/* A null handle gives the figures of every live block of the process. */
void MOX_GetStats(void *pHandle, MOX_STATS_S *pstStats);
/* Starts the handle's peak over from what is live now, so that the next peak is one call's. */
void MOX_ResetPeak(void *pHandle);
/* Makes the n-th next allocation on the handle fail (1 = the next one); 0 disarms. Fires once. */
void MOX_FailAlloc(void *pHandle, uint32_t uiNth);
/* Writes one line per live block of the handle (size, file, line), oldest first, and returns the
 * block count; a null handle reports every live block, a null stream only counts. */
uint64_t MOX_LeakReport(void *pHandle, FILE *pstOut);
uint64_t MOX_AssertCount(void);

#ifdef __cplusplus
}
#endif
#endif
