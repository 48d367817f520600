/* The message buffer's one writer: appends a newline and a formatted message, cut to the room
 * left so the text never grows beyond 766 characters. Uses only the platform's names. */
#include <cstdarg>
#include <cstdio>

#include "mox.h"
#include "sec_bound.h"
#include "vlanlua_pub.h"

/* Room for the formatter at the current length; the last byte of the text is never written. */
static int LogRoom(const VLANLUA_LOG_S *pstLog)
{
    return (VLANLUA_LOG_TEXT_LEN - 1) - static_cast<int>(pstLog->usUsedLen);
}

/* Adds what the formatter reports as written; an error (negative) adds nothing. */
static void LogAdvance(VLANLUA_LOG_S *pstLog, int iWritten)
{
    if (iWritten > 0) {
        pstLog->usUsedLen = static_cast<uint16_t>(pstLog->usUsedLen + iWritten);
    }
}

/* Writes pcText at the current end of the text with the capacity 767 - used. */
static void LogPutText(VLANLUA_LOG_S *pstLog, const char *pcText)
{
    int iRoom = LogRoom(pstLog);
    if (iRoom <= 0) {           /* a corrupted length: nothing may be written past the array */
        return;
    }
    LogAdvance(pstLog, snprintf_truncated_s(pstLog->acText + pstLog->usUsedLen, static_cast<size_t>(iRoom),
                                            "%s", pcText));
}

extern "C" void VLANLUA_Write(VLANLUA_LOG_S *pstLog, const char *pcFormat, ...)
{
    if (pstLog == nullptr) {
        return;
    }
    if (pstLog->usUsedLen >= VLANLUA_LOG_TEXT_LEN) {
        MOX_Assert(__FILE_NAME__, __LINE__, 0);
    }
    LogPutText(pstLog, "\n");

    /* The platform's formatter takes no argument list, so the message is formatted first into
     * a scratch line as long as the whole text and then cut by the bounded write. */
    char acLine[VLANLUA_LOG_TEXT_LEN];
    va_list args;
    va_start(args, pcFormat);
    int iLen = vsnprintf(acLine, sizeof(acLine), pcFormat, args);
    va_end(args);
    if (iLen < 0) {
        return;
    }
    LogPutText(pstLog, acLine);
}
