/* The message buffer's append at its limits, checked against a plain string model of the
 * text: newline, message, cut so that the text never exceeds 766 characters. */
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "mox_ctl.h"
#include "vlanlua_pub.h"

namespace {

/* The buffer followed by guard bytes, so a write past its end shows. */
struct GuardedLog {
    VLANLUA_LOG_S stLog;
    unsigned char aucGuard[64];
};

class LogAppend : public ::testing::Test {
protected:
    GuardedLog g{};

    void SetUp() override { std::memset(g.aucGuard, 0xA5, sizeof(g.aucGuard)); }

    /* Fills the text with 'x' up to uiUsed, as earlier appends would have. */
    void FillTo(uint16_t usUsed)
    {
        std::memset(g.stLog.acText, 'x', usUsed);
        g.stLog.usUsedLen = usUsed;
    }

    std::string Text() const { return std::string(g.stLog.acText, g.stLog.usUsedLen); }

    void ExpectIntact() const
    {
        EXPECT_EQ(g.stLog.acText[g.stLog.usUsedLen], '\0') << "text not terminated at the used length";
        EXPECT_EQ(g.stLog.acText[VLANLUA_LOG_TEXT_LEN - 1], '\0') << "last byte written";
        for (unsigned char uc : g.aucGuard) {
            ASSERT_EQ(uc, 0xA5) << "write beyond the buffer";
        }
    }
};

/* The model: every append adds "\n" + message, and the text is cut at 766 characters. */
std::string ModelAppend(const std::string &text, const std::string &msg)
{
    return (text + "\n" + msg).substr(0, VLANLUA_LOG_MAX_USED);
}

}  // namespace

TEST_F(LogAppend, EmptyBufferGetsNewlineThenMessage)
{
    VLANLUA_Write(&g.stLog, "abc\n");
    EXPECT_EQ(Text(), "\nabc\n");
    EXPECT_EQ(g.stLog.usUsedLen, 5);
    ExpectIntact();
}

TEST_F(LogAppend, MessagesAccumulateInCallOrder)
{
    VLANLUA_Write(&g.stLog, "A\n");
    VLANLUA_Write(&g.stLog, "B");
    VLANLUA_Write(&g.stLog, "C\n");
    EXPECT_EQ(Text(), "\nA\n\nB\nC\n");
    ExpectIntact();
}

TEST_F(LogAppend, UnsignedAndSignedConversions)
{
    VLANLUA_Write(&g.stLog, "vlan %u", 4096u);
    VLANLUA_Write(&g.stLog, "n=%d", -3);
    VLANLUA_Write(&g.stLog, "max %u", 4294967295u);
    EXPECT_EQ(Text(), "\nvlan 4096\nn=-3\nmax 4294967295");
    ExpectIntact();
}

TEST_F(LogAppend, At700OnlyNewlineAndFirst65CharactersFit)
{
    FillTo(700);
    const std::string msg(100, 'm');
    VLANLUA_Write(&g.stLog, "%s", msg.c_str());
    EXPECT_EQ(g.stLog.usUsedLen, 766);
    EXPECT_EQ(g.stLog.acText[700], '\n');
    EXPECT_EQ(std::string(g.stLog.acText + 701, 65), std::string(65, 'm'));
    ExpectIntact();
}

TEST_F(LogAppend, At765OnlyTheNewlineFits)
{
    FillTo(765);
    VLANLUA_Write(&g.stLog, "lost\n");
    EXPECT_EQ(g.stLog.usUsedLen, 766);
    EXPECT_EQ(g.stLog.acText[765], '\n');
    ExpectIntact();
}

TEST_F(LogAppend, At766NothingChanges)
{
    FillTo(766);
    GuardedLog before = g;
    VLANLUA_Write(&g.stLog, "lost %u\n", 1u);
    EXPECT_EQ(std::memcmp(&before, &g, sizeof(g)), 0);
}

TEST_F(LogAppend, LastTextByteIsNeverWritten)
{
    g.stLog.acText[VLANLUA_LOG_TEXT_LEN - 1] = 'Z';     /* a capacity of 768 - used would overwrite it */
    FillTo(760);
    VLANLUA_Write(&g.stLog, "0123456789");
    EXPECT_EQ(g.stLog.usUsedLen, 766);
    EXPECT_EQ(g.stLog.acText[766], '\0');
    EXPECT_EQ(g.stLog.acText[VLANLUA_LOG_TEXT_LEN - 1], 'Z');
}

TEST_F(LogAppend, ManyAppendsMatchTheCutModel)
{
    std::string model;
    for (int i = 0; i < 90; i++) {
        std::string msg = "line " + std::to_string(i) + " of many\n";
        VLANLUA_Write(&g.stLog, "line %d of many\n", i);
        model = ModelAppend(model, msg);
        ASSERT_EQ(Text(), model) << "after append " << i;
        ASSERT_LE(g.stLog.usUsedLen, VLANLUA_LOG_MAX_USED);
    }
    EXPECT_EQ(g.stLog.usUsedLen, 766);
    ExpectIntact();
}

TEST_F(LogAppend, NullBufferIsIgnored)
{
    VLANLUA_Write(nullptr, "abc %u\n", 1u);
    SUCCEED();
}

TEST_F(LogAppend, CorruptedLengthIsAssertedAndNothingWrittenBeyond)
{
    for (uint16_t usBad : {767, 768, 800, 65535}) {
        g.stLog.usUsedLen = usBad;
        uint64_t ulAsserts = MOX_AssertCount();
        VLANLUA_Write(&g.stLog, "abc\n");
        EXPECT_EQ(MOX_AssertCount(), ulAsserts + (usBad >= 768 ? 1 : 0)) << usBad;
        EXPECT_EQ(g.stLog.usUsedLen, usBad) << "length moved";
        for (unsigned char uc : g.aucGuard) {
            ASSERT_EQ(uc, 0xA5) << "write beyond the buffer at length " << usBad;
        }
    }
}
