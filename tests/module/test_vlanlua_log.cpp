/* The message buffer's append at its limits, checked against a plain string model of the
 * text: newline, message, cut so that the text never exceeds 766 characters. */
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "mox_ctl.h"
#include "vlanlua_pub.h"

namespace {

class LogAppend : public ::testing::Test {
protected:
    struct {
        VLANLUA_LOG_S stLog;
        unsigned char aucGuard[64];         /* shows a write past the buffer */
    } g{};

    void SetUp() override { std::memset(g.aucGuard, 0xA5, sizeof(g.aucGuard)); }

    /* Text as earlier appends would have left it, up to usUsed characters. */
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

}  // namespace

TEST_F(LogAppend, At765OnlyTheNewlineFitsAndAt766NothingChanges)
{
    FillTo(765);
    VLANLUA_Write(&g.stLog, "lost\n");
    EXPECT_EQ(g.stLog.usUsedLen, 766);
    EXPECT_EQ(g.stLog.acText[765], '\n');
    auto before = g;
    VLANLUA_Write(&g.stLog, "lost %u\n", 1u);
    EXPECT_EQ(std::memcmp(&before, &g, sizeof(g)), 0);
    ExpectIntact();
}

TEST_F(LogAppend, ManyAppendsMatchTheCutModel)
{
    std::string model;
    for (int i = 0; i < 90; i++) {
        VLANLUA_Write(&g.stLog, "line %d of many\n", i);
        model = (model + "\nline " + std::to_string(i) + " of many\n").substr(0, VLANLUA_LOG_MAX_USED);
        ASSERT_EQ(Text(), model) << "after append " << i;
    }
    ExpectIntact();
}

TEST_F(LogAppend, NullBufferOrCorruptedLengthWritesNothing)
{
    VLANLUA_Write(nullptr, "abc %u\n", 1u);
    for (uint16_t usBad : {767, 768, 65535}) {
        g.stLog.usUsedLen = usBad;
        uint64_t ulAsserts = MOX_AssertCount();
        VLANLUA_Write(&g.stLog, "abc\n");
        EXPECT_EQ(MOX_AssertCount(), ulAsserts + (usBad >= 768 ? 1 : 0)) << usBad;
        EXPECT_EQ(g.stLog.usUsedLen, usBad);
        for (unsigned char uc : g.aucGuard) {
            ASSERT_EQ(uc, 0xA5) << "write beyond the buffer at length " << usBad;
        }
    }
}
