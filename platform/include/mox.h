/* Tagged memory and assertions of the platform. Every block is tagged with the source file
 * and line that allocated it and is charged to a memory handle. Guard bytes surround every
 * block: a free that finds one written over ends the process, naming where the block was
 * allocated. */
#ifndef MOX_H
#define MOX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Partition bytes; callers pass the value of the first byte, read at every call. */
extern unsigned char g_aucMoxMemPt[];

void *MOX_Malloc_F(void *pHandle, unsigned char ucPartition, uint32_t uiSize, const char *pcFile, uint32_t uiLine);
void MOX_Free_F(void *pMem, const char *pcFile, uint32_t uiLine);
/* Reports a violated assumption when uiCond is 0 (counts it, prints file and line) and returns. */
void MOX_Assert(const char *pcFile, uint32_t uiLine, uint32_t uiCond);

#ifdef __cplusplus
}
#endif
#endif
