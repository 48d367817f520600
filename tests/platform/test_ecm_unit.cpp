/* Script calls as units of work on a file database: a writer killed at any moment leaves each
 * call wholly there or wholly absent; writers in several processes and threads behave as if one
 * after the other; a call that cannot get the database answers its failure after the busy
 * timeout; the schema version of a file is upgraded, and newer or foreign files are refused. */
#include <signal.h>
#include <sys/resource.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "test_ecm_util.h"

using namespace ecmtest;

namespace {

constexpr uint32_t UVLAN_VPN_SVC = VLANLUA_TBL_UVLAN_VPN_SVC;

/* A Lua state with the module and an object of its own on the file, bound. set(ifx, peb, pee,
 * ceb, cee, {type, value, ...}) calls VLAN_spt_SetUserVlanQinQSvc and answers its result code. */
class LuaHost {
public:
    LuaHost(const char *pcPath, uint32_t uiBusyMs)
    {
        L = lua_newstate(Alloc, this);
        luaL_openlibs(L);
        m_bOk = Run(std::string("package.cpath = '" VLANLUA_LUA_DIR "/?.so;' .. package.cpath\n"
                                "cfgdb = require 'cfgdb'; uv = require 'libvlanluaext'\n"
                                "db = cfgdb.open('") + pcPath + "', {busy_timeout = " + std::to_string(uiBusyMs) +
                    "}); db:bind()\n"
                    "function set(ifx, peb, pee, ceb, cee, svcs)\n"
                    "  return (uv.VLAN_spt_SetUserVlanQinQSvc({ifx, peb, pee, ceb, cee, 0, 1, 2, 3, 'k'}, svcs))\n"
                    "end");
    }
    ~LuaHost()
    {
        Run("db:close()");
        lua_close(L);
    }
    bool Ok() const { return m_bOk; }
    /* Runs a chunk; false (and the message in Error()) when it raised. */
    bool Run(const std::string &strCode)
    {
        if (luaL_dostring(L, strCode.c_str()) == 0) {
            return true;
        }
        m_strError = lua_tostring(L, -1);
        lua_pop(L, 1);
        return false;
    }
    /* The integer the chunk returns, or -1 when it raised. */
    long long Int(const std::string &strCode)
    {
        if (!Run("return " + strCode)) {
            return -1;
        }
        long long llValue = static_cast<long long>(lua_tointeger(L, -1));
        lua_pop(L, 1);
        return llValue;
    }
    /* The string the chunk returns ("" when it raised or returned none). */
    std::string Str(const std::string &strCode)
    {
        if (!Run("return " + strCode)) {
            return "";
        }
        std::string strValue = lua_isstring(L, -1) ? lua_tostring(L, -1) : "";
        lua_pop(L, 1);
        return strValue;
    }
    const std::string &Error() const { return m_strError; }
    /* Calls the global function pcName; false when it raised. */
    bool Call(const char *pcName)
    {
        lua_getglobal(L, pcName);
        bool bOk = lua_pcall(L, 0, 0, 0) == LUA_OK;
        lua_settop(L, 0);
        return bOk;
    }
    /* From the n-th next allocation that Lua asks for on (1 = the next one), every one fails: Lua
     * retries a failed one after a full collection. 0 disarms. */
    void FailAllocFrom(uint32_t uiNth) { m_uiFailIn = uiNth; }
private:
    static void *Alloc(void *pUd, void *pPtr, size_t ulOld, size_t ulNew)
    {
        auto *pstHost = static_cast<LuaHost *>(pUd);
        if (ulNew == 0) {
            free(pPtr);
            return nullptr;
        }
        bool bGrows = pPtr == nullptr || ulNew > ulOld;  /* Lua relies on shrinking never failing */
        if (bGrows && pstHost->m_uiFailIn == 1) {
            return nullptr;
        }
        pstHost->m_uiFailIn -= (bGrows && pstHost->m_uiFailIn > 1) ? 1 : 0;
        return realloc(pPtr, ulNew);
    }
    lua_State *L = nullptr;
    bool m_bOk = false;
    std::string m_strError;
    uint32_t m_uiFailIn = 0;
};

std::string SetCall(uint32_t uiIf, uint32_t uiPeb, uint32_t uiPee, uint32_t uiCeb, uint32_t uiCee, uint32_t uiType,
                    uint32_t uiValue)
{
    std::ostringstream oss;
    oss << "set(" << uiIf << ", " << uiPeb << ", " << uiPee << ", " << uiCeb << ", " << uiCee << ", {" << uiType
        << ", " << uiValue << "})";
    return oss.str();
}

uint64_t CountOf(void *pObj, uint32_t uiTable, uint32_t uiIf)
{
    ECM_CTL_VAL_S stIf{1, 0, uiIf, nullptr};
    uint64_t ulCount = 0;
    EXPECT_EQ(ECM_OK, ECM_CTL_Count(pObj, uiTable, &stIf, 1, &ulCount));
    return ulCount;
}

std::string Pragma(sqlite3 *pDb, const char *pcSql)
{
    sqlite3_stmt *pStmt = nullptr;
    std::string strOut;
    if (sqlite3_prepare_v2(pDb, pcSql, -1, &pStmt, nullptr) == SQLITE_OK && sqlite3_step(pStmt) == SQLITE_ROW) {
        strOut = reinterpret_cast<const char *>(sqlite3_column_text(pStmt, 0));
    }
    sqlite3_finalize(pStmt);
    return strOut;
}

std::string IntegrityOf(const char *pcPath)
{
    sqlite3 *pDb = nullptr;
    sqlite3_open_v2(pcPath, &pDb, SQLITE_OPEN_READONLY, nullptr);
    std::string strResult = Pragma(pDb, "PRAGMA integrity_check");
    sqlite3_close(pDb);
    return strResult;
}

/* ---- A writer killed at random moments ---- */

constexpr uint32_t GRID = 20;  /* a grid of 20 x 20 one-VLAN cells that a call merges into one row */

/* Child: on interfaces uiFirstIf, uiFirstIf + 1, ...: stores a checkerboard grid in one unit,
 * reports "B <if>", merges it with one call, reports "M <if>". Never returns. */
[[noreturn]] void MergeForever(const char *pcPath, uint32_t uiFirstIf, int iReport)
{
    LuaHost stHost(pcPath, 5000);
    for (uint32_t uiIf = uiFirstIf; stHost.Ok() && uiIf < uiFirstIf + 500; uiIf++) {
        std::string strGrid = "db:transaction(function() for p = 1, 20 do for c = 1, 20 do assert(set(" +
                              std::to_string(uiIf) + ", p, p, c, c, {1, 1 + (p + c) % 2}) == 0) end end end)";
        if (!stHost.Run(strGrid) || dprintf(iReport, "B %u\n", uiIf) < 0) {
            break;
        }
        if (stHost.Int(SetCall(uiIf, 1, GRID, 1, GRID, 1, 9)) != 0 || dprintf(iReport, "M %u\n", uiIf) < 0) {
            break;
        }
    }
    _exit(1);
}

/* What a round saw of one interface: whether its merge returned, whether it may hold nothing yet. */
struct Seen {
    uint32_t uiIf;
    bool bMerged;
    bool bMayBeEmpty;
};

/* Reads the writer's reports up to the uiBuilt-th grid (all of them for 0) into pvecMerged. */
uint32_t ReadReports(FILE *pIn, uint32_t uiFirstIf, uint32_t uiBuilt, std::vector<bool> *pvecMerged)
{
    char acLine[64];
    uint32_t uiLast = uiFirstIf;
    for (uint32_t n = 0; (uiBuilt == 0 || n < uiBuilt) && fgets(acLine, sizeof(acLine), pIn) != nullptr;) {
        uint32_t uiIf = static_cast<uint32_t>(atoi(acLine + 2));
        n += acLine[0] == 'B' ? 1 : 0;
        (*pvecMerged)[uiIf - uiFirstIf] = (*pvecMerged)[uiIf - uiFirstIf] || acLine[0] == 'M';
        uiLast = uiIf > uiLast ? uiIf : uiLast;
    }
    return uiLast;
}

/* Every interface a writer reached holds its grid or its merged row, each segment with its
 * services; a merge that returned is there. */
void ExpectWhollyThereOrAbsent(void *pObj, const std::vector<Seen> &vecSeen)
{
    for (const Seen &stSeen : vecSeen) {
        uint64_t ulSegs = CountOf(pObj, UVLAN_QINQ_SEG, stSeen.uiIf);
        EXPECT_TRUE(ulSegs == 1 || ulSegs == GRID * GRID || (ulSegs == 0 && stSeen.bMayBeEmpty))
            << "interface " << stSeen.uiIf << " holds " << ulSegs << " rows: a call half done";
        EXPECT_TRUE(!stSeen.bMerged || ulSegs == 1) << "interface " << stSeen.uiIf << ": a merge that returned is lost";
        EXPECT_EQ(ulSegs, CountOf(pObj, UVLAN_BASE_SVC, stSeen.uiIf)) << "interface " << stSeen.uiIf << ": services";
    }
}

TEST(CallUnit, AWriterKilledAtAnyMomentLeavesEveryMergeWhollyThereOrWhollyAbsent)
{
    const char *pcRounds = getenv("VLANLUA_CRASH_ROUNDS");
    int iRounds = pcRounds != nullptr ? atoi(pcRounds) : 3;
    TempDb stFile("ecm_crash");
    std::mt19937 stRng(12345);
    std::vector<Seen> vecSeen;
    for (int r = 0; r < iRounds; r++) {
        int aiPipe[2];
        ASSERT_EQ(0, pipe(aiPipe));
        uint32_t uiFirstIf = 1000 * static_cast<uint32_t>(r + 1);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(aiPipe[0]);
            MergeForever(stFile.Path(), uiFirstIf, aiPipe[1]);
        }
        close(aiPipe[1]);
        FILE *pIn = fdopen(aiPipe[0], "r");
        std::vector<bool> vecMerged(600, false);
        /* Kill during the merge of a randomly chosen grid, at a random moment of it. */
        (void)ReadReports(pIn, uiFirstIf, 1 + stRng() % 3, &vecMerged);
        std::this_thread::sleep_for(std::chrono::microseconds(stRng() % 8000));
        kill(pid, SIGKILL);
        int iStatus = 0;
        waitpid(pid, &iStatus, 0);
        ASSERT_TRUE(WIFSIGNALED(iStatus)) << "the writer stopped by itself: it failed";
        uint32_t uiLast = ReadReports(pIn, uiFirstIf, 0, &vecMerged);
        fclose(pIn);
        for (uint32_t uiIf = uiFirstIf; uiIf <= uiLast + 1; uiIf++) {
            vecSeen.push_back({uiIf, vecMerged[uiIf - uiFirstIf], uiIf == uiLast + 1});
        }
        ASSERT_EQ("ok", IntegrityOf(stFile.Path()));
        void *pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
        ASSERT_NE(nullptr, pObj) << "the file reopens";
        ExpectWhollyThereOrAbsent(pObj, vecSeen);
        ECM_CTL_Close(pObj);
    }
}

/* ---- Writers racing ---- */

/* The calls of writer k: service type k on random rectangles of a 12 x 12 area of one interface. */
struct WriterCall {
    uint32_t uiPeb, uiPee, uiCeb, uiCee, uiValue;
};

std::vector<WriterCall> WriterCalls(uint32_t uiWriter, uint32_t uiNum)
{
    std::mt19937 stRng(uiWriter * 7919u);
    std::vector<WriterCall> vecCalls;
    for (uint32_t i = 0; i < uiNum; i++) {
        uint32_t uiPeb = 1 + stRng() % 12;
        uint32_t uiCeb = 1 + stRng() % 12;
        uint32_t uiPee = uiPeb + stRng() % (13 - uiPeb);
        uint32_t uiCee = uiCeb + stRng() % (13 - uiCeb);
        vecCalls.push_back({uiPeb, uiPee, uiCeb, uiCee, static_cast<uint32_t>(1 + stRng() % 3)});
    }
    return vecCalls;
}

constexpr uint32_t CALLS = 25;

/* Runs writer k's calls on interface uiIf; the number of calls that failed. */
int RunWriter(const char *pcPath, uint32_t uiWriter, uint32_t uiIf)
{
    LuaHost stHost(pcPath, 20000);
    int iFailed = stHost.Ok() ? 0 : 100;
    for (const WriterCall &c : WriterCalls(uiWriter, stHost.Ok() ? CALLS : 0)) {
        iFailed += stHost.Int(SetCall(uiIf, c.uiPeb, c.uiPee, c.uiCeb, c.uiCee, uiWriter, c.uiValue)) == 0 ? 0 : 1;
    }
    return iFailed;
}

/* Every cell of the area of uiIf: no two rows cover it, and service type k has the value of writer
 * k's last call over it (each writer's calls are in order, whatever the interleaving). */
void ExpectWritersStored(void *pObj, uint32_t uiIf, const std::vector<uint32_t> &vecWriters)
{
    std::map<uint32_t, std::map<uint32_t, std::string>> mapSvc;  /* segment index -> base service row */
    for (const Row &stSvc : Rows(pObj, UVLAN_BASE_SVC)) {
        mapSvc[static_cast<uint32_t>(std::stoul(stSvc.at(2).substr(1)))] = stSvc;
    }
    uint32_t aauiCover[13][13] = {};
    std::map<uint32_t, std::vector<std::vector<uint32_t>>> mapGot;
    for (uint32_t k : vecWriters) {
        mapGot[k].assign(13, std::vector<uint32_t>(13, 0));
    }
    for (const Row &stSeg : Rows(pObj, UVLAN_QINQ_SEG)) {
        auto Num = [&](uint32_t uiField) { return static_cast<uint32_t>(std::stoul(stSeg.at(uiField).substr(1))); };
        if (Num(1) != uiIf) {
            continue;
        }
        for (uint32_t p = Num(7); p <= Num(8) && p <= 12; p++) {
            for (uint32_t c = Num(5); c <= Num(6) && c <= 12; c++) {
                aauiCover[p][c]++;
                for (uint32_t k : vecWriters) {  /* base service types 1..4 are fields 7..10 */
                    const auto &stSvc = mapSvc[Num(2)];
                    mapGot[k][p][c] = stSvc.count(6 + k) ? static_cast<uint32_t>(std::stoul(stSvc.at(6 + k).substr(1))) : 0;
                }
            }
        }
    }
    for (uint32_t k : vecWriters) {
        std::vector<std::vector<uint32_t>> vecWant(13, std::vector<uint32_t>(13, 0));
        for (const WriterCall &c : WriterCalls(k, CALLS)) {
            for (uint32_t p = c.uiPeb; p <= c.uiPee; p++) {
                for (uint32_t q = c.uiCeb; q <= c.uiCee; q++) {
                    vecWant[p][q] = c.uiValue;
                }
            }
        }
        EXPECT_EQ(vecWant, mapGot[k]) << "interface " << uiIf << ", service type " << k;
    }
    for (uint32_t p = 1; p <= 12; p++) {
        for (uint32_t c = 1; c <= 12; c++) {
            EXPECT_GE(1u, aauiCover[p][c]) << "interface " << uiIf << ": rows overlap at " << p << "x" << c;
        }
    }
}

/* Writers 1..4 in processes, first each on its own interface, then all on one. */
TEST(CallUnit, WritersInSeveralProcessesRunAsIfOneAfterTheOther)
{
    TempDb stFile("ecm_procs");
    ECM_CTL_Close(ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0));
    const std::vector<uint32_t> vecWriters = {1, 2, 3, 4};
    for (bool bShared : {false, true}) {
        std::vector<pid_t> vecPids;
        for (uint32_t k : vecWriters) {
            pid_t pid = fork();
            ASSERT_GE(pid, 0);
            if (pid == 0) {
                _exit(RunWriter(stFile.Path(), k, bShared ? 50 : 10 + k));
            }
            vecPids.push_back(pid);
        }
        for (pid_t pid : vecPids) {
            int iStatus = 0;
            waitpid(pid, &iStatus, 0);
            EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0) << "failed calls: " << WEXITSTATUS(iStatus);
        }
    }
    void *pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    for (uint32_t k : vecWriters) {
        ExpectWritersStored(pObj, 10 + k, {k});
    }
    ExpectWritersStored(pObj, 50, vecWriters);
    ECM_CTL_Close(pObj);
}

TEST(CallUnit, WritersInTwoThreadsWithAnObjectEachRunAsIfOneAfterTheOther)
{
    TempDb stFile("ecm_threads");
    ECM_CTL_Close(ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0));
    int aiFailed[2] = {-1, -1};
    std::thread stFirst([&] { aiFailed[0] = RunWriter(stFile.Path(), 1, 60); });
    std::thread stSecond([&] { aiFailed[1] = RunWriter(stFile.Path(), 2, 60); });
    stFirst.join();
    stSecond.join();
    EXPECT_EQ(0, aiFailed[0]);
    EXPECT_EQ(0, aiFailed[1]);
    void *pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    ExpectWritersStored(pObj, 60, {1, 2});
    ECM_CTL_Close(pObj);
}

TEST(CallUnit, ACallThatCannotGetTheDatabaseInTimeAnswersItsFailureAndWritesNothing)
{
    TempDb stFile("ecm_busy");
    LuaHost stHost(stFile.Path(), 200);
    ASSERT_TRUE(stHost.Ok()) << stHost.Error();
    ASSERT_EQ(0, stHost.Int(SetCall(5, 1, 4, 1, 4, 1, 1)));
    void *pHolder = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    ASSERT_EQ(ECM_OK, ECM_CTL_UnitBegin(pHolder));
    auto tStart = std::chrono::steady_clock::now();
    EXPECT_EQ(1, stHost.Int(SetCall(5, 2, 2, 2, 2, 1, 2)));
    double dMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - tStart).count();
    EXPECT_GE(dMs, 150.0) << "the call waited for the timeout";
    EXPECT_LE(dMs, 2000.0) << "the call waited once, not once per operation";
    EXPECT_EQ(1u, CountOf(pHolder, UVLAN_QINQ_SEG, 5)) << "the failed call wrote nothing";
    EXPECT_EQ(ECM_OK, ECM_CTL_UnitEnd(pHolder, 1));
    EXPECT_EQ(0, stHost.Int(SetCall(5, 2, 2, 2, 2, 1, 2))) << "once the holder is done the call goes through";
    ECM_CTL_Close(pHolder);
}

/* A call that raised half way (here: Lua's memory ran out while the walk pushed its page) leaves no
 * unit behind, so the next call reads what another connection committed meanwhile. */
TEST(CallUnit, ACallThatRaisesLeavesNoUnitAndTheNextCallSeesOtherConnectionsCommits)
{
    TempDb stFile("ecm_raise");
    LuaHost stHost(stFile.Path(), 1000);
    ASSERT_TRUE(stHost.Ok()) << stHost.Error();
    ASSERT_TRUE(stHost.Run("function walk() local _, page = uv.VLAN_spt_GetNextQinQMibQuery(0, 0, 0, 0, 9)\n"
                           "  mark = page[1].ceVlanEnd end"));
    void *pOther = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    Put(pOther, IF_INFO, {{2, 5}, {3, 0}, {4, 1}});
    auto Mark = [pOther](uint32_t uiCeEnd) {  /* the first row's CE end, committed by the other connection */
        ECM_CTL_VAL_S astKey[] = {{2, 0, 5, nullptr}, {3, 0, 1, nullptr}};
        uint64_t ulDeleted = 0;
        ASSERT_EQ(ECM_OK, ECM_CTL_Delete(pOther, QINQ_MATCH_SEG, astKey, 2, &ulDeleted));
        Put(pOther, QINQ_MATCH_SEG, {{2, 5}, {3, 1}, {4, 1}, {5, 1}, {6, 1}, {7, uiCeEnd}});
    };
    Mark(1);
    Put(pOther, QINQ_MATCH_SEG, {{2, 5}, {3, 2}, {4, 2}, {5, 3}, {6, 1}, {7, 1}});
    uint32_t uiRaised = 0;
    for (uint32_t uiNth = 1; uiRaised + 1 == uiNth; uiNth++) {
        stHost.FailAllocFrom(uiNth);
        uiRaised += stHost.Call("walk") ? 0 : 1;
        stHost.FailAllocFrom(0);
        Mark(uiNth + 1);
        ASSERT_TRUE(stHost.Call("walk"));
        ASSERT_EQ(uiNth + 1, stHost.Int("mark")) << "after a call whose allocations failed from number " << uiNth;
    }
    EXPECT_GT(uiRaised, 1u);
    ECM_CTL_Close(pOther);
}

/* Child: a merge whose commit cannot write the log (no file may grow) must raise naming the
 * database, leave the grid as it was and its journal empty; with room again it goes through.
 * The reason of a failure, or "". */
std::string CommitFailure(const char *pcPath)
{
    LuaHost stHost(pcPath, 1000);
    if (!stHost.Run("db:transaction(function() for p = 1, 20 do for c = 1, 20 do set(7, p, p, c, c, "
                    "{1, 1 + (p + c) % 2}) end end end); db:journal()")) {
        return "grid: " + stHost.Error();
    }
    sqlite3 *pDb = nullptr;
    sqlite3_open(pcPath, &pDb);
    sqlite3_exec(pDb, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);  /* the log starts empty */
    sqlite3_close(pDb);
    struct rlimit stOld;
    getrlimit(RLIMIT_FSIZE, &stOld);
    struct rlimit stNone = {0, stOld.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &stNone);
    std::string strErr = stHost.Str("select(2, pcall(set, 7, 1, 20, 1, 20, {1, 9}))");
    setrlimit(RLIMIT_FSIZE, &stOld);
    if (strErr.find(pcPath) == std::string::npos || strErr.find("rolled back") == std::string::npos) {
        return "the failed commit raised '" + strErr + "'";
    }
    if (stHost.Int("db:count('UVLAN_QINQ_SEG')") != GRID * GRID || stHost.Int("#db:journal()") != 0) {
        return "the failed call left rows or journal entries";
    }
    return stHost.Int(SetCall(7, 1, GRID, 1, GRID, 1, 9)) == 0 && stHost.Int("db:count('UVLAN_QINQ_SEG')") == 1
               ? ""
               : "the call failed again with room on the disk";
}

TEST(CallUnit, ACommitThatFailsRollsTheCallBackAndRaisesNamingTheDatabase)
{
    TempDb stFile("ecm_commit");
    int aiPipe[2];
    ASSERT_EQ(0, pipe(aiPipe));
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {  /* the file size limit and its signal stay in the child */
        std::string strWhy = CommitFailure(stFile.Path());
        _exit(write(aiPipe[1], strWhy.data(), strWhy.size()) < 0 ? 2 : 0);
    }
    close(aiPipe[1]);
    char acWhy[512] = {0};
    ssize_t lLen = read(aiPipe[0], acWhy, sizeof(acWhy) - 1);
    close(aiPipe[0]);
    int iStatus = 0;
    waitpid(pid, &iStatus, 0);
    EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
    EXPECT_EQ(0, lLen) << acWhy;
}

/* ---- Schema versions ---- */

std::string FileBytes(const char *pcPath)
{
    std::ifstream stIn(pcPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stIn), {});
}

void Exec(const char *pcPath, const char *pcSql)
{
    sqlite3 *pDb = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(pcPath, &pDb));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pDb, pcSql, nullptr, nullptr, nullptr)) << sqlite3_errmsg(pDb);
    sqlite3_close(pDb);
}

/* A file of this version with a segment, its two service records and an orphan record. */
void WriteCurrentFile(const char *pcPath)
{
    void *pObj = ECM_CTL_Open(pcPath, 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    Put(pObj, UVLAN_QINQ_SEG, {{1, 9}, {2, 77}, {7, 1}, {8, 1}, {5, 1}, {6, 1}});
    Put(pObj, UVLAN_BASE_SVC, {{1, 9}, {2, 77}, {7, 5}});
    Put(pObj, UVLAN_VPN_SVC, {{1, 9}, {2, 77}, {6, 6}});
    Put(pObj, UVLAN_BASE_SVC, {{1, 9}, {2, 78}, {7, 5}});  /* an orphan left by an older build */
    ECM_CTL_Close(pObj);
}

/* A file as written before versions were recorded, and before segments had a spatial index: no
 * version, no relation, no boxes. */
void WriteVersionZeroFile(const char *pcPath)
{
    WriteCurrentFile(pcPath);
    Exec(pcPath, "DROP TRIGGER UVLAN_QINQ_SEG_owns; DROP TABLE UVLAN_QINQ_SEG_rt; DROP TRIGGER UVLAN_QINQ_SEG_rt_ins;"
                 "DROP TRIGGER UVLAN_QINQ_SEG_rt_upd; DROP TRIGGER UVLAN_QINQ_SEG_rt_del;"
                 "PRAGMA user_version = 0; PRAGMA application_id = 0;");
}

TEST(SchemaVersion, AFileOfThePreviousVersionIsUpgradedWithItsRowsIntact)
{
    TempDb stFile("ecm_v0");
    WriteVersionZeroFile(stFile.Path());
    char acErr[256];
    void *pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, acErr, sizeof(acErr));
    ASSERT_NE(nullptr, pObj) << acErr;
    EXPECT_EQ(1u, CountOf(pObj, UVLAN_QINQ_SEG, 9));
    EXPECT_EQ(2u, CountOf(pObj, UVLAN_BASE_SVC, 9));
    Query q;  /* a read that goes through the boxes finds the row stored before them */
    q.Where32(1, ECM_OP_EQ, 9).Where16(8, ECM_OP_GE, 1).Where16(7, ECM_OP_LE, 1).Select(2);
    ASSERT_EQ(ECM_OK, q.Run(pObj, UVLAN_QINQ_SEG, 4, 2));
    EXPECT_EQ(1u, q.stResult.usRecNum);
    ECM_CTL_VAL_S astKey[] = {{1, 0, 9, nullptr}, {2, 0, 77, nullptr}};
    uint64_t ulDeleted = 0;
    ASSERT_EQ(ECM_OK, ECM_CTL_Delete(pObj, UVLAN_QINQ_SEG, astKey, 2, &ulDeleted));
    EXPECT_EQ(1u, CountOf(pObj, UVLAN_BASE_SVC, 9)) << "the segment's records went with it, the orphan stays";
    EXPECT_EQ(0u, CountOf(pObj, UVLAN_VPN_SVC, 9));
    ECM_CTL_Close(pObj);
    sqlite3 *pDb = nullptr;
    sqlite3_open(stFile.Path(), &pDb);
    EXPECT_EQ(std::to_string(ECM_SCHEMA_VERSION), Pragma(pDb, "PRAGMA user_version"));
    sqlite3_close(pDb);
}

TEST(SchemaVersion, ANewerOrForeignFileIsRefusedByNameAndLeftUnchanged)
{
    struct Case {
        std::string strSql;
        std::string strWhy;
    };
    const std::string strNext = std::to_string(ECM_SCHEMA_VERSION + 1);
    std::vector<Case> vecCases = {
        {"PRAGMA user_version = " + strNext + ";", "schema version " + strNext + " is newer"},
        {"PRAGMA application_id = 7;", "not a configuration database"},
        {"DROP TABLE IF_INFO; CREATE TABLE IF_INFO(x INTEGER); PRAGMA user_version = 0; PRAGMA application_id = 0;",
         "table IF_INFO has no column f2_ifindex"},
        {"", "file is not a database"},
    };
    /* An unversioned file with a foreign table in any place among its tables (in the order they were made). */
    for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
        std::string strName = ECM_CTL_TableAt(i)->pcName;
        vecCases.push_back({"ALTER TABLE " + strName + " RENAME TO notes_" + strName +
                                "; PRAGMA user_version = 0; PRAGMA application_id = 0;",
                            "table notes_" + strName + " is not one of its tables"});
    }
    for (const Case &stCase : vecCases) {
        TempDb stFile("ecm_foreign");
        if (!stCase.strSql.empty()) {
            WriteCurrentFile(stFile.Path());
            Exec(stFile.Path(), stCase.strSql.c_str());
        } else {
            std::ofstream(stFile.Path()) << std::string(600, 'x');
        }
        std::string strBefore = FileBytes(stFile.Path());
        char acErr[256];
        EXPECT_EQ(nullptr, ECM_CTL_Open(stFile.Path(), 0, 0, 0, acErr, sizeof(acErr))) << stCase.strSql;
        EXPECT_NE(nullptr, strstr(acErr, stCase.strWhy.c_str())) << acErr;
        EXPECT_EQ(strBefore, FileBytes(stFile.Path())) << stCase.strSql;
    }
}

}  // namespace
