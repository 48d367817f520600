/* The one place where the script stack keeps a database object for a script engine: the binding
 * that ECM_CTL_Bind makes and ECM_CAPI_GetObjExt reads. Private to the platform, so that the
 * database files need no Lua header. */
#ifndef SYSDT_SPTI_BIND_H
#define SYSDT_SPTI_BIND_H

/* The object bound to the engine that runs pState (all its threads share it), or null. */
void *SysdtSpti_BoundObj(void *pState);
/* Binds pObj to the engine that runs pState; null unbinds. */
void SysdtSpti_SetBoundObj(void *pState, void *pObj);

#endif
