/* The command's JSON documents: every document is one object with "format" (the version of the
 * layout, raised when a field changes meaning or goes away) and "view" (what it shows). Rows are
 * given by table and column names, values as the manual's JSON section says. */
#ifndef VLANLUA_JSON_H
#define VLANLUA_JSON_H

#include <nlohmann/json.hpp>

#include "vlanlua_cmd.h"

/* Objects keep their members in the order they were made: columns in field order. */
using CmdJson = nlohmann::ordered_json;

constexpr int CMD_JSON_FORMAT = 1;

/* {"format": 1, "view": pcView}. */
CmdJson Cmd_JsonDocument(const char *pcView);
/* One stored value: integers as numbers, texts as the text before their first zero byte,
 * bitmaps as the [first, last] VLAN ranges of their set bits. */
CmdJson Cmd_JsonValue(const ECM_CTL_FIELD_S *pstField, const ECM_CTL_VAL_S &stVal);
/* Every column of a row, by column name. */
CmdJson Cmd_JsonFields(const CmdRow &stRow);
/* The key columns of a row; every column for a table without a key. */
CmdJson Cmd_JsonKey(const CmdRow &stRow);
/* A row as the views show it: number, kind, table, fields, and a segment's services. */
CmdJson Cmd_JsonRow(const CmdRow &stRow);
/* A journaled write: op, table and the fields it wrote, in the call's order. */
CmdJson Cmd_JsonWrite(const ECM_CTL_JOURNAL_S &stEntry);
/* The calls the object's trace recorded: call name, time, and each operation with its statements. */
CmdJson Cmd_JsonTrace(void *pObj);
/* The document on standard output, indented; bytes that are not UTF-8 become U+FFFD. */
void Cmd_PrintJson(const CmdJson &stDoc);

#endif
