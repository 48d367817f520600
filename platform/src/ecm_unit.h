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
enum EcmCallEnd {
    ECM_CALL_DONE,      /* the call's units are committed */
    ECM_CALL_FAILED,    /* a commit failed: the call's units are rolled back; raise *ppcWhy */
    ECM_CALL_AGAIN,     /* another writer came first: the units are rolled back; run the call again */
};
/* A call returned: commits the units it opened, or says why it could not. A call run again
 * after ECM_CALL_AGAIN holds the write lock from its first operation, so it is never asked again. */
EcmCallEnd Ecm_CallLeave(const char **ppcWhy);

#endif
