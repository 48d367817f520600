/* Records and identifiers shared by every layer of the VLAN extension module: the per-call
 * context, the message buffer and the field-value list of database writes; the tables themselves
 * are described in vlanlua_tables.h. */
#ifndef VLANLUA_PUB_H
#define VLANLUA_PUB_H

#include <stdint.h>
#include "ecm_capi.h"
#include "vlanlua_tables.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VLANLUA_LOG_TEXT_LEN   768
#define VLANLUA_LOG_MAX_USED   766

/* The message buffer of one script call: short diagnostic lines, appended only. */
typedef struct {
    uint16_t usUsedLen;                 /* characters of text, the terminating zero not counted */
    uint16_t usRsv;
    char acText[VLANLUA_LOG_TEXT_LEN];
} VLANLUA_LOG_S;

/* The per-call context: the call's message buffer and database object. */
typedef struct {
    VLANLUA_LOG_S *pstLog;
    void *pObj;
} VLANLUA_CTX_S;

/* One field value of a database write. */
typedef struct {
    uint32_t uiTypeCode;
    uint16_t usFieldNo;
    uint16_t usWidth;
    const void *pvValue;
} VLANLUA_FIELDVAL_S;

#define VLANLUA_TYPE_U8      ECM_TYPE_U8
#define VLANLUA_TYPE_U16     ECM_TYPE_U16
#define VLANLUA_TYPE_U32     ECM_TYPE_U32
#define VLANLUA_TYPE_TEXT    ECM_TYPE_TEXT
#define VLANLUA_TYPE_VRID    ECM_TYPE_VRID
#define VLANLUA_TYPE_BITMAP  ECM_TYPE_BITMAP

#define VLANLUA_OP_EQ  ECM_OP_EQ
#define VLANLUA_OP_NE  ECM_OP_NE
#define VLANLUA_OP_LE  ECM_OP_LE
#define VLANLUA_OP_GE  ECM_OP_GE

/* The constant that existence tests and counts pass to the database. */
#define VLANLUA_QUERY_MODE   6u

/* VLAN bitmap: one bit per VLAN ID 0..4095, bit (v mod 8) of byte (v div 8). */
#define VLANLUA_BITMAP_LEN   512
#define VLANLUA_VLAN_MAX     4094


/* Appends a newline and one formatted message to the buffer; never beyond 766 characters. */
void VLANLUA_Write(VLANLUA_LOG_S *pstLog, const char *pcFormat, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
static_assert(sizeof(VLANLUA_LOG_S) == 772, "message buffer layout");
static_assert(sizeof(VLANLUA_CTX_S) == 2 * sizeof(void *), "context layout");
static_assert(sizeof(VLANLUA_FIELDVAL_S) == sizeof(ECM_FIELDVAL_S), "field value layout");
static_assert(__builtin_offsetof(VLANLUA_FIELDVAL_S, pvValue) == __builtin_offsetof(ECM_FIELDVAL_S, pvValue),
              "field value layout");
#endif
#endif
