/* The boundaries of a script call, as the database stand-in sees them: everything one call writes
 * to its bound object is one unit of work. The script stack reports where each call begins and
 * ends; the database opens a call's unit at its first database operation. Private to the platform. */
#ifndef ECM_UNIT_H
#define ECM_UNIT_H

#include <atomic>
#include <stdint.h>

/* Database objects of the process that take part in script calls' units (every open object
 * unless switched off). While it is 0 no call can have a unit to end, and the boundaries cost the
 * script stack one load each. */
extern std::atomic<uint32_t> g_uiEcmOpenCallUnits;

/* A call begins: rolls back what an earlier call on this thread left open because it raised a
 * script error before it could end. */
void Ecm_CallEnter(void *pState);
/* A call returned: commits the units it opened. On a failed commit the unit is rolled back, a
 * message naming the database is pushed, and the answer is false (the caller raises it). */
bool Ecm_CallLeave(void *pState);

#endif
