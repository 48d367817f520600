/* Operations exported for the device's other modules; each builds its own context from the
 * script state it is given. Uses only the platform's names. */
#ifndef VLANLUA_COR_API_H
#define VLANLUA_COR_API_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The out pointer comes first here, second in the two checks; the script state is last. */
uint32_t VLAN_API_GetMainIfBySubIf(uint32_t *puiMainIfIndex, uint32_t uiSubIfIndex, void *pState);
/* 1 without a database object (the answer is left as it was); otherwise 0 and the answer. */
uint32_t VLAN_API_CheckL2SuppExist(uint32_t uiIfIndex, uint32_t *puiExist, void *pState);
uint32_t VLAN_API_CheckPwSuppExist(uint32_t uiIfIndex, uint32_t *puiExist, void *pState);

#ifdef __cplusplus
}
#endif
#endif
