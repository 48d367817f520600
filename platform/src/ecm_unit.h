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

/* A call begins. A call made from inside another one (bNested: through a metamethod that the
 * outer call ran) joins the outer call's units; a call that begins while units of an earlier one
 * are still open (that call raised from outside the script stack's protection) rolls them back. */
void Ecm_CallEnter(void *pState, bool bNested);
/* Whether the running call lost the race for the write lock on one of its objects. If so, its
 * units are rolled back and the call is over: it is to run again, and that run holds the write
 * lock from its first operation. A nested call never decides this; the outer one does. */
bool Ecm_CallLostRace();
/* A call returned: commits the units it opened (bCommit) or rolls them back. false when they did not
 * commit; *ppcWhy then says why a commit failed (null when the call asked for the roll-back). A
 * nested call ends nothing and answers true. */
bool Ecm_CallLeave(bool bCommit, const char **ppcWhy);

#endif
